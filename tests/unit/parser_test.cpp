// SPDX-License-Identifier: Apache-2.0

// What a client finds in its record, whatever the modem mixes into the answer.
#include "server/at_parser.h"

#include "tests/unit/server_test.h"

namespace unit {
namespace {

class Parser : public Server {};

std::string x(size_t n) { return std::string(n, 'x'); }

TEST_F(Parser, TheClientFinds) {
  const std::string rssi = "^RSSI: 7\r\n";
  const std::string raw = "^HCMGR:1,2\r\nb\x1a\r\ndy\x1a\r\n";
  const std::string body = "^HCMGR:1\r\n" + x(200) + "\x1a\r\n";
  const uint32_t transparent = TRANSPARENT_CMD;
  // clang-format off
  const struct {
    const char* what; ask asked; strings deliveries; std::string text; int32_t rsp_len; int32_t ret_val;
  } cases[] = {
    {"pattern",        {.text = "AT", .match = "+CSQ"}, {"\r\n+CSQ: 20,99\r\n\r\nOK\r\n"}, "+CSQ: 20,99", 11, 2},
    {"own prefix",     {.text = "AT+CSQ"},  {"\r\n+CSQ: 20,99\r\n\r\nOK\r\n"}, "+CSQ: 20,99",  11, 2},
    {"other prefix",   {.text = "AT+CGMR"}, {"\r\n+CSQ: 20,99\r\n\r\nOK\r\n"}, "",              0, 2},
    {"OK, no end",     {},                  {"\r\nOK"},                        "",              0, 2},
    {"lines run on",   {},                  {"one\r\ntwo\r\nOK\r\n"},          "onetwo",        6, 2},
    {"CME",            {},                  {"A\r\n+CME ERROR: 3\r\n"},        "+CME ERROR: 3", 13, 3},
    {"ERROR",          {},                  {"A\r\nERROR\r\n"},                "A",             1, 5},
    {"ERROR, lines",   {.multi_line = 1},   {"A\r\nERROR\r\n"},                "",              0, 5},
    {"echo is final",  {.text = "ATE0"},    {"ATE0\r\nOK\r\n"},                "",              2, 10},
    {"lines kept",     {.multi_line = 1, .match = "+CGDCONT"},
                       {"+CGDCONT: 1\r\n+CGDCONT: 2\r\nOK\r\n"}, "+CGDCONT: 1\r\n+CGDCONT: 2\r\n", 26, 2},
    {"odd multi_line", {.multi_line = 7},   {"a\r\nb\r\n", "OK\r\n"},          "",              0, 2},
    {"raw",            {.req_type = transparent}, {"\r\nline\r\nOK\r\n"},      "line\r\nOK\r\n", 10, 2},
    {"raw, error",     {.req_type = transparent}, {"+CME ERROR: 3\r\n"},       "+CME ERROR: 3\r\n", 15, 3},
    {"raw, odd",       {.req_type = transparent, .multi_line = 7}, {"a\r\nOK\r\n"}, "a\r\nOK\r\n", 7, 2},
    {"raw, pattern",   {.req_type = transparent, .match = "+C"}, {"+C: 1\r\nx\r\nOK\r\n"}, "+C: 1x\r\nOK\r\n", 12, 2},
    {"pattern first",  {.match = "OK1"},    {"OK1 x\r\nOK\r\n"},               "OK1 x",         5, 2},
    {"report within",  {},                  {"one\r\n" + rssi + "two\r\nOK\r\n"}, "onetwo",     6, 2},
    {"report behind",  {},                  {rssi + "OK\r\n^RSSI: 17\r\n"},    "",              9, 2},
    {"report alone",   {},                  {rssi},                            "",              8, -1},
    {"RING in text",   {},                  {"STRING\r\nOK\r\n"},              "",              0, 2},
    {"update behind",  {},                  {"OK\r\n^CPINNTY:READY\r\n"},      "",              0, 2},
    {"update alone",   {},                  {"^CPINNTY:READY\r\n"},            "",              0, -1},
    {"update, pat.",   {.match = "READY"},  {"^CPINNTY:READY\r\nOK\r\n"},      "",              0, 2},
    {"two results",    {},                  {"OK\r\nERROR\r\n"},               "",              5, 2},
    {"cut in a line",  {},                  {"hel", "lo\r\nOK\r\n"},           "hello",         5, 2},
    {"cut in CR LF",   {},                  {"one\r", "\ntwo\r\nOK\r\n"},      "two",           3, 2},
    {"stored SMS",     {.text = "AT+CMGR=1"}, {"+CMGR: 1,,23\r\n0791\r\n\r\nOK\r\n"}, "+CMGR: 1,,23\r\n0791", 18, 2},
    {"behind a body",  {.text = "AT^HCMGR=1"}, {raw + "more\r\nOK\r\n"},       raw + "more",    25, 2},
    {"raw header",     {.req_type = transparent}, {"^HCMGR:1\r\nhi\x1a\r\nOK\r\n"}, "^HCMGR:1\r\nhi\x1a\r\nOK\r\n", 19, 2},
    {"broadcast",      {},                  {"+CBM: 2\r\n0123\r\nx\r\nOK\r\n"}, "x",            1, 2},
    {"broadcast, upd.", {},                 {"+CBM: 2\r\n^CPINNTY:READY\r\n"},       "",              0, -1},
    {"broadcast, cut", {},                  {"+CBM: 2\r\n", "0123\r\nOK\r\n"}, "0123",            4, 2},
    {"body cut off",   {.text = "AT^HCMGR=1"}, {"^HCMGR:1\r\n", "hi\x1a\r\nOK\r\n"}, "^HCMGR:1\r\nhi\x1a", 13, 2},
    {"body fits",      {.text = "AT^HCMGR=1"}, {x(1286) + "\r\n", body + "OK\r\n"}, x(1286) + body, 1499, 2},
    {"body too big",   {.text = "AT^HCMGR=1"}, {x(1287) + "\r\n", body + "OK\r\n"}, x(1287) + "^HCMGR:1\r\n", 1500, 2},
    {"1499 bytes",     {},                  {x(1000) + "\r\n", x(499) + "\r\n", "OK\r\n"}, x(1499), 1499, 2},
    {"1500 bytes",     {},                  {x(1000) + "\r\n", x(500) + "\r\n"}, "",            1499, -1},
    {"raw fits",       {.req_type = transparent}, {x(1000) + "\r\n", x(491) + "\r\n", "OK\r\n"}, x(1000) + "\r\n" + x(491) + "\r\nOK\r\n", 1499, 2},
    {"gives way",      {.req_type = transparent}, {x(1000) + "\r\n", x(490) + "\r\n", "BUSY\r\n"}, x(1000) + "\r\nBUSY\r\n", 1500, 13},
    {"all gives way",  {.req_type = transparent}, {x(1495) + "\r\n", "OK\r\n"}, "OK\r\n", 1500, 2},
    {"raw beginning",  {.req_type = transparent}, {x(1000) + "\r\n", x(498) + "\r\n", "y\r\nOK\r\n"}, x(1000) + "\r\nOK\r\n", 1500, 2},
    {"lines' beginning", {.multi_line = 1, .match = "xx"}, {x(1000) + "\r\n", x(498) + "\r\n", "y\r\nOK\r\n"}, x(1000) + "\r\n", 1500, 2},
    {"pattern's",      {.match = "xx"},     {x(1000) + "\r\n", x(500) + "\r\n", "OK\r\n"}, x(1000), 1500, 2},
    {"error instead",  {.multi_line = 1, .match = "xx"}, {x(1000) + "\r\n", x(500) + "\r\n", "+CME ERROR: 3\r\n"}, "+CME ERROR: 3", 13, 3},
    {"keeps its NUL",  {.match = "nothing"}, {"+CME ERROR +CMGR" + x(1482)}, "+CME ERROR +CMGR" + x(1482) + "\r", 1499, 3},
    {"starts anew",    {},                  {x(1000) + "\r\n", x(500) + "\r\ntail\r\nOK\r\n"}, "tail", 4, 2},
  };
  // clang-format on
  for (const auto& c : cases) {
    bring_up();
    const at_msg_t msg = answered(c.asked, c.deliveries);
    EXPECT_EQ(text_of(msg), c.text) << c.what;
    EXPECT_EQ(msg.rsp_len, c.rsp_len) << c.what;
    EXPECT_EQ(msg.ret_val, c.ret_val) << c.what;
  }
}

TEST_F(Parser, WhatComesBetweenExchangesGoesToTheNextAnswerUnlessAResultTakesItAway) {
  answered({.req_type = ACTIVE_REPORT}, {"stray text\r\n"});
  EXPECT_EQ(text_of(answered({}, {"OK\r\n"})), "stray text");
  answered({.req_type = ACTIVE_REPORT}, {"stray text\r\n", "OK\r\n"});
  EXPECT_EQ(text_of(answered({}, {"OK\r\n"})), "");
}

TEST_F(Parser, AResponseThatOutgrowsItsRoomIsTraced) {
  answered({}, {x(1000) + "\r\n", x(500) + "\r\n"});
  EXPECT_THAT(fake::traces(16),
              IsSupersetOf({"(nas_response_legth + pos) >= MAX_ATCMD_REPORT_SIZE : 1500 \n",
                            "line_buf : <***>\n", "msg->snd_rcv_msg.rmsg : <***>\n"}));
}

TEST_F(Parser, TheConsoleSeesTheLastLine) {
  answered({.text = "ATI"}, {"one\r\nOK\r\n"});
  EXPECT_EQ(text_of(mdx_state.last_nas_msg.load()), "OK");
}

TEST_F(Parser, NothingOfTheConversationIsTraced) {
  answered({.text = "AT+SECRET", .match = "+SECRET"},
           {"hidden\r\n+SECRET: hidden\r\nOK\r\nhidden\r\n"});
  for (const std::string& trace : fake::traces())
    EXPECT_EQ(trace.find("hidden"), std::string::npos) << trace;
}

}  // namespace
}  // namespace unit
