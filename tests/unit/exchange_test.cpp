// SPDX-License-Identifier: Apache-2.0

// One command and its answer: what goes out, when the exchange ends, what it has cost.
#include "server/at_exchange.h"

#include "tests/unit/server_test.h"

namespace unit {
namespace {

class Exchange : public Exchanging {
 protected:
  /// The modem says this from the moment it gets the command.
  int exchange(const ask& asked, const fake::script& modem) {
    if (!modem.empty()) fake::answer("", modem);
    return run(at_send_normal_cmd_msg, asked);
  }
};

TEST_F(Exchange, SendsTheTextAndKeepsItsHead) {
  for (const size_t length : {2u, 63u, 64u}) {
    bring_up();
    const std::string text = "AT" + std::string(length - 2, 'x');
    EXPECT_EQ(exchange({.text = text}, {{1, "OK\r\n"}}), 0);
    EXPECT_THAT(fake::writes(), ElementsAre(text + "\r"));
    EXPECT_EQ(text_of(mdx_state.sent_cmd_head, kSentHeadSize), text.substr(0, 63));
  }
}

TEST_F(Exchange, SpendsItsBudgetByTheDelivery) {
  const std::string report = "^RSSI: 1\r\n";
  const std::string ok = "OK\r\n";
  // clang-format off
  const struct {
    const char* what; int32_t timeout; fake::script modem; int result; int32_t ret_val; int32_t left; uint64_t took;
  } cases[] = {
      {"silence, no wait",      0,  {},                                             -1, -1, 0,  0},
      {"silence",               3,  {},                                             -1, -1, 3,  3000},
      {"negative",              -5, {},                                             -1, -1, -5, 0},
      {"no wait, there",        0,  {{0, ok}},                                       0,  2, 0,  0},
      {"no wait, report",       0,  {{0, report}, {0, ok}},                         -1, -1, 0,  0},
      {"in time",               3,  {{2999, ok}},                                    0,  2, 3,  2999},
      {"too late",              3,  {{3001, ok}},                                   -1, -1, 3,  3000},
      {"error is an answer",    3,  {{7, "ERROR\r\n"}},                              0,  5, 3,  7},
      {"report costs it all",   1,  {{5, report}, {6, ok}},                         -1, -1, 1,  5},
      {"three reports",         3,  {{10, report}, {20, report}, {30, report}, {40, ok}}, -1, -1, 1, 30},
      {"a second to the ms",    3,  {{1000, report}, {1500, ok}},                    0,  2, 2,  1500},
      {"a second and a ms",     3,  {{1001, report}, {1500, ok}},                    0,  2, 1,  1500},
      {"waits for the rest",    3,  {{1500, report}, {2501, ok}},                   -1, -1, 1,  2500},
      {"answer in two",         3,  {{10, "text\r\n"}, {20, ok}},                    0,  2, 2,  20},
      {"update",                3,  {{10, "^CPINNTY:READY\r\n"}, {20, ok}},          0,  2, 2,  20},
  };
  // clang-format on
  for (const uint32_t clock : {1000u, UINT32_MAX - 7}) {  // the counter wraps in the second
    for (const auto& c : cases) {
      bring_up(clock);
      EXPECT_EQ(exchange({.timeout = c.timeout}, c.modem), c.result) << c.what;
      EXPECT_EQ(msg.ret_val, c.ret_val) << c.what;
      EXPECT_EQ(msg.timeout, c.left) << c.what;
      EXPECT_EQ(took, c.took) << c.what;
      EXPECT_EQ(retcode, 0) << c.what;
      EXPECT_EQ(fake::writes().size(), 1u) << c.what << ": nothing is repeated";
    }
  }
}

TEST_F(Exchange, AHugeBudgetWaitsAsLongAsAWaitCanBe) {
  EXPECT_EQ(exchange({.timeout = INT32_MAX}, {}), -1);
  EXPECT_EQ(msg.timeout, INT32_MAX);
  EXPECT_GT(took, uint64_t{INT32_MAX} - 1000);
  EXPECT_LE(took, uint64_t{INT32_MAX});
}

TEST_F(Exchange, TellsWhyThereIsNoAnswer) {
  exchange({.timeout = 1}, {});
  EXPECT_THAT(fake::traces(4), ElementsAre("No data from NAS!\n"));
  EXPECT_THAT(fake::traces(2), ElementsAre("Error = 0 , cmd =***\n"));

  bring_up();
  exchange({.timeout = 1}, {{5, "text\r\n"}});
  EXPECT_THAT(fake::traces(4), Contains("get at result timeout duration 1 timeout 1\n"));
  EXPECT_THAT(fake::traces(2), ElementsAre("Error = 0 , cmd =***\n"));
}

TEST_F(Exchange, AFailedWriteClearsTheAnswerAreaAndSays8) {
  fake::fail.write = 1;
  EXPECT_EQ(exchange({.text = "AT+CSQ", .match = "+CSQ"}, {}), -1);
  EXPECT_EQ(msg.ret_val, 8);
  EXPECT_EQ(text_of(msg) + text_of(msg.at_match_str, kMatchSize), "");
  EXPECT_EQ(msg.timeout, 3);
  EXPECT_EQ(retcode, 99) << "as the write left it";
  EXPECT_EQ(fake::traces(2).back(), "write_to_smd error and the errcode = 99\n");
}

TEST_F(Exchange, ThePatternInTheResponseEndsIt) {
  EXPECT_EQ(exchange({.match = "+CSQ"}, {{1, "+CSQ: 1\r\nOK\r\n"}}), 0);
  EXPECT_THAT(fake::traces(8), Contains("Sting is matched \n"));
  // A pattern over two lines is found in the raw text, result or not.
  EXPECT_EQ(exchange({.req_type = TRANSPARENT_CMD, .match = "a\r\nb"}, {{1, "a\r\nb\r\n"}}), 0);
  EXPECT_EQ(msg.ret_val, AT_NONE);
}

TEST_F(Exchange, ALateAnswerIsTakenByTheNextCommand) {
  EXPECT_EQ(exchange({.timeout = 1}, {{1500, "ERROR\r\n"}}), -1);
  EXPECT_EQ(exchange({.timeout = 1}, {}), 0);
  EXPECT_EQ(msg.ret_val, 5);
}

}  // namespace
}  // namespace unit
