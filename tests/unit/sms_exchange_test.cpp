// SPDX-License-Identifier: Apache-2.0

// The two turns of an SMS in PDU mode: command line and prompt, PDU and result.
#include "server/at_sms_exchange.h"

#include "tests/unit/server_test.h"

namespace unit {
namespace {

class SmsExchange : public Exchanging {
 protected:
  int send(const ask& asked) { return run(at_send_or_save_msg, asked); }
};

const std::string kText = "AT+CMGS=3\r001100\x1a";
const std::string kPrompt = "\r\n> ";
const std::string kDone = "\r\n+CMGS: 5\r\n\r\nOK\r\n";

TEST_F(SmsExchange, KnowsTheFourCommandsInUpperCase) {
  for (const char* text : {"AT+CMGS=3\r00\x1a", "AT+CMGW=3", "AT^HCMGS=3", "ATI;^HCMGW=3"})
    EXPECT_EQ(at_cmd_is_smssw(text), 0) << text;
  for (const char* text : {"AT+CMGR=3", "at+cmgs=3", "AT+CMG", ""})
    EXPECT_EQ(at_cmd_is_smssw(text), -1) << text;
}

TEST_F(SmsExchange, Dialogues) {
  const strings both = {"AT+CMGS=3\r", "001100\x1a\r"};
  const strings head = {"AT+CMGS=3\r"};
  const ask plain = {.text = kText};
  const ask matched = {.text = kText, .match = "+CMGS"};
  const std::string report = "^RSSI: 1\r\n";
  // clang-format off
  const struct {
    const char* what; ask asked; fake::script to_head; fake::script to_body;
    strings sent; int result; int32_t ret_val; std::string text; uint64_t took;
  } cases[] = {
    {"sent",           matched, {{10, kPrompt}}, {{20, kDone}},                     both,  0,  2, "+CMGS: 5", 30},
    {"answer in two",  matched, {{10, kPrompt}}, {{20, "+CMGS: 5\r\n"}, {30, "OK\r\n"}}, both, 0, 2, "+CMGS: 5", 40},
    {"refused",        matched, {{10, "+CMS ERROR: 304\r\n"}}, {},                  head, -1,  4, kText,      10},
    {"no prompt",      matched, {},              {{20, kDone}},                     both,  0,  2, "+CMGS: 5", 3020},
    {"report for it",  matched, {{10, report}},  {{20, kPrompt}, {30, kDone}},      both,  0,  2, "+CMGS: 5", 40},
    {"update for it",  matched, {{10, "^CPINNTY:READY\r\n"}}, {{20, kDone}},        both,  0,  2, "+CMGS: 5", 30},
    {"body refused",   matched, {{10, kPrompt}}, {{20, "+CMS ERROR: 500\r\n"}},     both,  0,  4, "+CMS ERROR: 500", 30},
    {"no answer",      matched, {{10, kPrompt}}, {},                                both, -1, -1, "",         3010},
    {"silent modem",   matched, {},              {},                                both, -1,  0, "",         6000},
    {"slow prompt",    matched, {{2000, kPrompt}}, {{1500, report}, {1600, kDone}}, both, -1, -1, "",         3500},
    {"budget in all",  matched, {{10, kPrompt}}, {{10, report}, {20, report}, {30, report}}, both, -1, -1, "", 40},
  };
  // clang-format on
  for (const auto& c : cases) {
    bring_up();
    fake::answer("AT+CMGS", c.to_head);
    fake::answer("0011", c.to_body);
    EXPECT_EQ(send(c.asked), c.result) << c.what;
    EXPECT_EQ(msg.ret_val, c.ret_val) << c.what;
    EXPECT_EQ(text_of(msg), c.text) << c.what;
    EXPECT_EQ(fake::writes(), c.sent) << c.what;
    EXPECT_EQ(took, c.took) << c.what;
    EXPECT_EQ(retcode, 99) << c.what;
    EXPECT_EQ(msg.msg_type, 77) << c.what;
  }
}

TEST_F(SmsExchange, WhatGoesOutOfAText) {
  // clang-format off
  const struct { const char* what; std::string text; strings sent; } cases[] = {
      {"no end mark",   "AT+CMGS=3\r0011",                         {}},
      {"Ctrl-Z inside", "AT+CMGS=3\r00\x1a""11\x1a",               {"AT+CMGS=3\r", "00\x1a""11\x1a\r"}},
      {"longest body",  "AT+CMGS=3\r" + std::string(637, '0') + "\x1a",
                        {"AT+CMGS=3\r", std::string(637, '0') + "\x1a\r"}},
      {"body too long", "AT+CMGS=3\r" + std::string(638, '0') + "\x1a", {}},
      {"head too long", "AT+CMGS=" + std::string(631, '3') + "\r00\x1a", {}},
  };
  // clang-format on
  for (const auto& c : cases) {
    bring_up();
    fake::answer("AT+CMGS", {{10, kPrompt}});
    fake::answer("", {{10, kDone}});
    EXPECT_EQ(send({.text = c.text}), c.sent.empty() ? -1 : 0) << c.what;
    EXPECT_EQ(fake::writes(), c.sent) << c.what;
    if (!c.sent.empty()) continue;
    EXPECT_EQ(text_of(msg), c.text.substr(0, c.text.find('\0'))) << "as sent: " << c.what;
    EXPECT_EQ(fake::traces(2).size(), 1u) << c.what;
  }
}

TEST_F(SmsExchange, AFailedWriteOfEitherHalfSays8) {
  for (const int32_t half : {1, 2}) {
    bring_up();
    if (half == 1) fake::fail.write = 1;
    fake::answer("AT+CMGS", {{10, kPrompt}});
    fake::at(5, [half] { fake::fail.write = half == 2 ? 1 : 0; });
    EXPECT_EQ(send({.text = kText, .match = "+CMGS"}), -1) << half;
    EXPECT_EQ(msg.ret_val, 8) << half;
    EXPECT_EQ(text_of(msg), "") << half;
    EXPECT_EQ(text_of(msg.at_match_str, kMatchSize), "+CMGS") << half;
    EXPECT_EQ(fake::traces(2).back(), "write_to_smd error and the errcode = 99\n");
  }
}

TEST_F(SmsExchange, TellsWhyItEnded) {
  send({.text = "AT+CMGS=3"});
  EXPECT_THAT(fake::traces(2), ElementsAre("the cmd str have not '\r',and the str is ***\n"));

  bring_up();
  fake::answer("AT", {{10, "ERROR\r\n"}});
  send({.text = kText});
  EXPECT_THAT(fake::traces(4),
              ElementsAre("can math the cmgs or cmgw response string, retval = 5\n"));

  bring_up();
  fake::answer("AT", {{2000, kPrompt}});
  fake::answer("0011", {{1500, "^RSSI: 1\r\n"}});
  send({.text = kText});
  EXPECT_THAT(fake::traces(4), Contains("get at result timeout duration 4 timeout 3\n"));
  EXPECT_EQ(fake::traces(8).back(), "read_from_smd error and the errcode = 99\n");
}

}  // namespace
}  // namespace unit
