// SPDX-License-Identifier: Apache-2.0

// From queue 2 to queue 1: who gets an answer, and which.
#include "server/client_request.h"

#include "tests/unit/server_test.h"

namespace unit {
namespace {

std::string failed(int retcode) {
  return "send_to_msgqueue the cmd rsp error ,retcode = < " + std::to_string(retcode) + ">!\n";
}

class ClientRequest : public Server {
 protected:
  int retcode = -1;

  int serve(at_msg_t msg) {
    msg.reserved = 22;
    msg.seq = 23;
    fake::request(msg);
    uint32_t bits = 0;
    MDX_event_recv(1, 0, &bits);
    retcode = -1;
    return process_msg_queue(&retcode);
  }
};

TEST_F(ClientRequest, EachKindGetsItsAnswerOrNone) {
  // clang-format off
  const struct {
    const char* what; ask asked; fake::script modem; strings sent; bool replied; int32_t ret_val; std::string text;
  } cases[] = {
    {"command",       {.text = "AT+CSQ"}, {{1, "+CSQ: 1\r\nOK\r\n"}}, {"AT+CSQ\r"}, true,  2, "+CSQ: 1"},
    {"mixed case",    {.text = "aT"},     {{1, "OK\r\n"}},  {"aT\r"},        true,  2, ""},
    {"no AT",         {.text = "BT"},     {},               {},              false, 0, ""},
    {"raw",           {.text = "ATI", .req_type = 5}, {{1, "x\r\nOK\r\n"}}, {"ATI\r"}, true, 2, "x\r\nOK\r\n"},
    {"raw SMS",       {.text = "AT+CMGS=3\r00\x1a", .req_type = 5}, {{1, "OK\r\n"}},
                                                     {"AT+CMGS=3\r00\x1a\r"}, true, 2, "OK\r\n"},
    {"lower SMS",     {.text = "at+cmgs=3\r00\x1a"}, {{1, "OK\r\n"}}, {"at+cmgs=3\r00\x1a\r"}, true, 2, ""},
    {"report wait",   {.req_type = 1},    {},               {},              false, 0, ""},
    {"other report",  {.req_type = 2},    {},               {},              true,  0, ""},
    {"reserved 3",    {.req_type = 3},    {},               {},              false, 0, ""},
    {"reserved 4",    {.req_type = 4},    {},               {},              true,  8, ""},
  };
  // clang-format on
  for (const auto& c : cases) {
    bring_up();
    if (!c.modem.empty()) fake::answer("", c.modem);
    serve(record(c.asked));
    EXPECT_EQ(fake::writes(), c.sent) << c.what;
    const auto replies = fake::replies();
    ASSERT_EQ(replies.size(), c.replied ? 1u : 0u) << c.what;
    if (!c.replied) continue;
    const at_msg_t& reply = replies[0];
    EXPECT_EQ(reply.ret_val, c.ret_val) << c.what;
    EXPECT_EQ(text_of(reply), c.text) << c.what;
    const auto request = fake::entries(fake::kind::REQUEST).at(0).as<at_msg_t>();
    EXPECT_EQ(std::memcmp(&reply, &request, offsetof(at_msg_t, timeout)), 0) << c.what;
  }
}

TEST_F(ClientRequest, TheSearchForNetworksGetsItsTimeIfRaw) {
  // clang-format off
  const struct { ask asked; uint64_t seconds; } cases[] = {
      {{.text = "AT+COPS=?", .req_type = 5, .timeout = 5},   240},
      {{.text = "at+cops=?", .req_type = 5, .timeout = 5},   240},
      {{.text = "AT+COPS?",  .req_type = 5, .timeout = 5},   5},
      {{.text = "AT+COPS=?", .req_type = 0, .timeout = 5},   5},
  };
  // clang-format on
  for (const auto& c : cases) {
    bring_up();
    const uint64_t start = fake::now();
    serve(record(c.asked));
    EXPECT_EQ(fake::now() - start, c.seconds * 1000) << c.asked.text;
    EXPECT_EQ(mdx_state.last_client_msg.load().timeout, c.asked.timeout) << "shown as it was asked";
  }
}

TEST_F(ClientRequest, TheStoredReportComesWithoutTheModem) {
  at_msg_t get = record({.text = "rubbish", .req_type = GET_REPORT, .match = "rubbish"});
  get.rep_type = RSSI_REPORT;
  for (const std::string line : {"^RSSI: 12, and forty characters or so of more", "^RSSI: 7"}) {
    answered({}, {line + "\r\n"});
    fake::journal.clear();
    EXPECT_EQ(serve(get), 0);
    const at_msg_t reply = fake::replies().at(0);
    EXPECT_EQ(reply.ret_val, AT_OK);
    EXPECT_EQ(std::string(reply.snd_rcv_msg.rmsg, 1500), text(line, 1500));
    EXPECT_EQ(text_of(reply.at_match_str, kMatchSize), "");
    EXPECT_THAT(fake::writes(), IsEmpty());
  }
  get.rep_type = 1;
  serve(get);
  EXPECT_EQ(fake::replies().back().ret_val, 0);
  EXPECT_EQ(text_of(fake::replies().back()), "");
  EXPECT_EQ(fake::traces(2).back(), failed(1));
}

TEST_F(ClientRequest, AWaitForAReportDiscardsOneDelivery) {
  fake::deliver({{500, "^RSSI: 5\r\n"}});
  EXPECT_EQ(serve(record({.req_type = ACTIVE_REPORT})), 0);
  EXPECT_EQ(fake::now(), 1500u);
  EXPECT_EQ(stored_rssi(), "");
  EXPECT_EQ(serve(record({.req_type = ACTIVE_REPORT})), -1);
  EXPECT_THAT(fake::traces(2), ElementsAre(failed(-1)));
}

TEST_F(ClientRequest, WhatGoesWrongIsTracedAndLosesAtMostOneAnswer) {
  EXPECT_EQ(process_msg_queue(&retcode), -1) << "nothing there";
  EXPECT_THAT(fake::journal, IsEmpty());

  bring_up();
  serve(record({.text = "HELLO"}));
  EXPECT_THAT(fake::traces(2), ElementsAre("process_msg_queue:HELLO is not AT start!\n"));

  bring_up();
  fake::fail.reply_send = 1;
  EXPECT_EQ(serve(record({.req_type = 4})), -1);
  EXPECT_THAT(fake::traces(2), ElementsAre(failed(EAGAIN)));
  EXPECT_EQ(serve(record({.req_type = 4})), 0);
  EXPECT_EQ(fake::replies().size(), 1u);
  EXPECT_THAT(fake::traces(8), Contains("Client AT cmd= ***, Id= 77, seq = 23\n"));
}

}  // namespace
}  // namespace unit
