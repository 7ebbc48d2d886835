// SPDX-License-Identifier: Apache-2.0

// What mdxctl's verbs make of a modem's answers, and of files of commands.

#include <gmock/gmock.h>

#include <sstream>

#include "tools/mdxctl/init_file.h"
#include "tools/mdxctl/network_words.h"
#include "tools/mdxctl/state_metrics.h"
#include "tools/mdxctl/ussd_text.h"
#include "tools/words/answer_fields.h"
#include "tools/words/refusal.h"
#include "tools/words/shown_command.h"
#include "tools/words/signal_levels.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

TEST(ModemWords, FieldsOfAnAnswer) {
  EXPECT_THAT(fields_of("0, \"a,b\" ,,(1,2),"), ElementsAre("0", "a,b", "", "(1,2)", ""));
  EXPECT_THAT(answer_fields("x\r\n+A: 1,-2\r\n+A: 3", "+A:"), ElementsAre("1", "-2"));
  EXPECT_EQ(number_in({"1", "-2", "3x", ""}, 1), -2);
  for (const size_t none : {2U, 3U, 4U})
    EXPECT_FALSE(number_in({"1", "-2", "3x", ""}, none)) << none;
}

TEST(ModemWords, RefusalsHaveWordsWhereTheirNumberHas) {
  const struct {
    const char* said;
    const char* shown;
  } cases[] = {
      {"+CME ERROR: 11", "+CME ERROR: 11, the SIM wants its PIN"},
      {"+CMS ERROR: 310", "+CMS ERROR: 310, no SIM is inserted"},
      {"+CME ERROR: 1111", "+CME ERROR: 1111"},
      {"+CME ERROR: 99999999999", "+CME ERROR: 99999999999"},
      {"+CME ERROR: SIM busy", "+CME ERROR: SIM busy"},
      {"+CME ERROR:", "+CME ERROR:"},
      {"ERROR", "ERROR"},
  };
  for (const auto& row : cases) EXPECT_EQ(refusal_with_words(row.said), row.shown);
}

TEST(ModemWords, LevelsAreTheLowerEdgesOfTheirSteps) {
  signal_levels_t levels;
  take_cesq("+CESQ: 99,99,255,255,20,80", &levels);
  take_csq("+CSQ: 99,99", &levels);
  EXPECT_FALSE(levels.rssi_dbm);
  EXPECT_EQ(levels.rsrq_db, -10);
  EXPECT_EQ(levels.rsrp_dbm, -61);
  take_csq("+CSQ: 31,0", &levels);
  EXPECT_EQ(levels.rssi_dbm, -51);

  signal_levels_t lte;
  take_hcsq("^HCSQ:\"LTE\",40,52,121,28", &lte);
  EXPECT_EQ(lte.technology, "LTE");
  EXPECT_EQ(lte.rsrp_dbm, -89);
  EXPECT_NEAR(*lte.sinr_db, 4, 1e-9);
  EXPECT_EQ(lte.rsrq_db, -6);
  signal_levels_t nr;
  take_cesq("+CESQ: 99,99,255,255,255,255,65,76,71", &nr);
  EXPECT_EQ(nr.rsrq_db, -11);
  EXPECT_EQ(nr.rsrp_dbm, -81);
  EXPECT_EQ(nr.sinr_db, 12);
  for (const char* text : {"^HCSQ:\"NOSERVICE\"", "", "^HCSQ: LTE,255,255,255,255", "+CESQ: x"}) {
    signal_levels_t none;
    take_hcsq(text, &none);
    take_cesq(text, &none);
    EXPECT_TRUE(none.empty()) << text;
  }
}

TEST(ModemWords, RegistrationIsToldFromAReportInBetween) {
  // clang-format off
  const struct { const char* text; int status; const char* area; const char* cell; int technology; } cases[] = {
    {"+CREG: 0,1",                                     1,  "",     "",         -1},
    {"+CREG: 2,5,\"00C3\",\"0A1B2C3D\",7",             5,  "00C3", "0A1B2C3D", 7 },
    {"+CREG: 1\r\n+CREG: 2,1,\"1\",\"2\"",             1,  "1",    "2",        -1},
    {"+CREG: 2,\"00C3\",\"0A\"\r\n+CREG: 2,1,\"1\",\"2\"", 1, "1", "2",        -1},
    {"+CREG: 1",                                       -1, "",     "",         -1},
    {"+CREG: 2,99",                                    -1, "",     "",         -1},
  };
  // clang-format on
  for (const auto& c : cases) {
    const auto registration = read_registration(c.text, "+CREG");
    ASSERT_EQ(registration.has_value(), c.status >= 0) << c.text;
    if (!registration) continue;
    EXPECT_EQ(registration->status, c.status) << c.text;
    EXPECT_EQ(registration->area, c.area) << c.text;
    EXPECT_EQ(registration->cell, c.cell) << c.text;
    EXPECT_EQ(registration->technology.value_or(-1), c.technology) << c.text;
  }
}

TEST(ModemWords, ScanHoldsNetworksAlone) {
  const auto networks = read_scan(
      "+COPS: (2,\"Ex (A), "
      "Mobile\",\"Ex\",\"26201\",7),(3,\"\",\"\",\"26202\"),,(0,1,3,4),(0,1,2)");
  ASSERT_EQ(networks.size(), 2u);
  EXPECT_EQ(networks[0].name, "Ex (A), Mobile");
  EXPECT_EQ(technology_name(networks[0].technology), "LTE");
  EXPECT_EQ(scan_status_name(networks[1].status), "forbidden");
  EXPECT_EQ(networks[1].number, "26202");
  EXPECT_TRUE(read_scan("+COPS: (0-4),(0-2)").empty());
}

TEST(ModemWords, UssdInEveryCoding) {
  // clang-format off
  const struct { const char* text; int scheme; const char* charset; const char* shown; } cases[] = {
    {"Balance: 5 EUR",                   15,   "IRA",  "Balance: 5 EUR"},
    {"00420061006C0061006E00630065",     72,   "GSM",  "Balance"       },
    {"D83DDE00",                         0x48, "IRA",  "\xf0\x9f\x98\x80"},
    {"D83D0041",                         0x48, "IRA",  "\xef\xbf\xbd" "A"},
    {"0034002E0035",                     15,   "UCS2", "4.5"           },
    {"C8329BFD06DDDF723619",             15,   "IRA",  "Hello world"   },
    {"1234",                             15,   "IRA",  "1234"          },
    {"0123456789",                       0,    "IRA",  "0123456789"    },
    {"caf\xe9",                          15,   "8859-1", "caf\xc3\xa9" },
    {"\x1b" "e 5",                       15,   "GSM",  "\xe2\x82\xac 5"},
    {"48656C6C6F",                       0x44, "IRA",  "Hello"         },
    {"",                                 15,   "IRA",  ""              },
  };
  // clang-format on
  for (const auto& c : cases) EXPECT_EQ(ussd_text(c.text, c.scheme, c.charset), c.shown) << c.text;
  EXPECT_EQ(ussd_for_modem("*1#", "UCS2"), "002A00310023");
  EXPECT_EQ(ussd_packed("*100#"), "AA180C3602");
  EXPECT_EQ(ussd_text(ussd_packed("1234567"), 15, "IRA"), "1234567") << "filled with a CR";
  for (const char* bad : {"", "a\"b", "a\rb", "\xc3\xa9"}) EXPECT_FALSE(is_ussd(bad)) << bad;
}

TEST(ModemWords, InitFilesAreReadWholeBeforeAnythingRuns) {
  std::istringstream file(
      "\xef\xbb\xbf# set up\r\nAT+CMEE=1\n\n ? @30 AT+COPS=0\n@5 AT+CPIN=\"1\"\n"
      "hello\n@x AT\n@0 AT\n@7\n?\nAT+CMGS=5\nATV0\n");
  const init_file_t read = read_init_file(file, 10);
  ASSERT_EQ(read.commands.size(), 3u);
  EXPECT_EQ(read.commands[0].timeout_s, 10);
  EXPECT_EQ(read.commands[1].command, "AT+COPS=0");
  EXPECT_TRUE(read.commands[1].may_fail);
  EXPECT_EQ(read.commands[1].timeout_s, 30);
  EXPECT_EQ(read.commands[2].line, 5u);
  EXPECT_FALSE(read.commands[2].may_fail);
  ASSERT_EQ(read.mistakes.size(), 7u);
  EXPECT_THAT(read.mistakes[0], HasSubstr("line 6: a command begins with AT"));
  EXPECT_THAT(read.mistakes[6], HasSubstr("line 12: the modem would no longer say OK"));
  EXPECT_EQ(shown_command("AT+CPIN=\"1\""), "AT+CPIN=...");
  EXPECT_EQ(shown_command("AT+CREG=?"), "AT+CREG=?");
}

TEST(ModemWords, MetricsOfStates) {
  const known_state_t state{
      "signal", "EVT_X", "", 7, {{"fields", {{"rssi", -5}, {"name", "a\"\n\xff"}}}}};
  const std::string text = states_prometheus({true, 3}, {state});
  EXPECT_THAT(text, HasSubstr("\nmdxgate_modem_up 1\n"));
  EXPECT_THAT(text, HasSubstr("mdxgate_state_age_seconds{state=\"signal\",report=\"EVT_X\"} 7\n"));
  EXPECT_THAT(text, HasSubstr("mdxgate_state_current{state=\"signal\",report=\"EVT_X\"} 0\n"));
  EXPECT_THAT(text, HasSubstr("report=\"EVT_X\",field=\"rssi\"} -5\n"));
  EXPECT_THAT(text, HasSubstr("field=\"name\",text=\"a\\\"??\"} 1\n"));

  const std::vector<known_state_t> measured = {
      {"signal",
       "EVT_AT_HCSQ",
       "",
       1,
       {{"signal", {{"technology", "LTE"}, {"rsrp_dbm", -89.0}, {"ecio_db", nullptr}}}}},
      {"traffic", "EVT_AT_FLOW_REPORT", "", 1, {{"fields", {{"curr_rx_flow", 77}}}}}};
  const std::string quantities = states_prometheus({true, 3}, measured);
  EXPECT_THAT(quantities, HasSubstr("\nmdxgate_signal_rsrp_dbm{technology=\"LTE\"} -89.0\n"));
  EXPECT_THAT(quantities, HasSubstr("\nmdxgate_data_received_bytes 77\n"));
  EXPECT_THAT(quantities, Not(HasSubstr("ecio")));
  EXPECT_THAT(states_prometheus({false, 3}, measured), Not(HasSubstr("dbm")))
      << "the modem is gone";
}

}  // namespace
