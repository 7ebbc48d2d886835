// SPDX-License-Identifier: Apache-2.0

// What the library promises a caller, whatever the server does.

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>

#include <chrono>
#include <future>
#include <thread>

#include "tests/client/client_tools.h"
namespace {

TEST(Client, RequestAndAnswerAgree) {
  const pid_t task = gettid();
  StandInServer server([task](StandInServer& self, at_msg_t record) {
    EXPECT_EQ(record.msg_type, task);
    EXPECT_EQ(record.req_type, NORMAL_CMD);
    EXPECT_EQ(record.timeout, 7);
    EXPECT_EQ(record.multi_line, 1);
    EXPECT_STREQ(record.at_match_str, "+CSQ");
    EXPECT_STREQ(record.snd_rcv_msg.smsg, "AT+CSQ");
    EXPECT_EQ(record.snd_rcv_msg.command.cmd_len, 0);
    record.timeout = 5;
    self.answer(with_text(record, "+CSQ: 20,99\r\n"));
  });
  Handle client;
  ASSERT_EQ(client.error, MDX_OK);
  mdx_options_t options = MDX_OPTIONS_INIT;
  options.timeout_s = 7;
  options.match = "+CSQ";
  options.multi_line = 1;
  mdx_result_t result = MDX_RESULT_INIT;
  ASSERT_EQ(mdx_send(client, "AT+CSQ\r\n", &options, &result), MDX_OK);
  EXPECT_EQ(result.ret_val, MDX_RESULT_OK);
  EXPECT_STREQ(result.text, "+CSQ: 20,99\r\n");
  EXPECT_EQ(result.length, 13u);
  EXPECT_EQ(result.timeout_left_s, 5);
}

TEST(Client, RefusesWhatCanNeverBeServed) {
  StandInServer server(ignore, false);
  Handle client;
  mdx_result_t result = MDX_RESULT_INIT;
  constexpr int kServed = MDX_MISTAKE_NONE;
  const std::string fits = "AT" + std::string(636, 'x');
  // clang-format off
  const struct { std::string command; int mistake; int transparently; } cases[] = {
    {fits + "\r\n",             kServed,                     kServed                    },
    {fits + "x",                MDX_MISTAKE_TOO_LONG,        MDX_MISTAKE_TOO_LONG       },
    {"",                        MDX_MISTAKE_NOT_AT,          MDX_MISTAKE_NOT_AT         },
    {"A",                       MDX_MISTAKE_NOT_AT,          MDX_MISTAKE_NOT_AT         },
    {"at",                      kServed,                     kServed                    },
    {"AT\rAT+ECHO=1",           MDX_MISTAKE_CONTROL,         MDX_MISTAKE_CONTROL        },
    {"AT\nAT+ECHO=1",           MDX_MISTAKE_CONTROL,         MDX_MISTAKE_CONTROL        },
    {"AT\x1a",                  MDX_MISTAKE_CONTROL,         MDX_MISTAKE_CONTROL        },
    {"AT+X=\"\x1b\"",           MDX_MISTAKE_CONTROL,         MDX_MISTAKE_CONTROL        },
    {"AT+X\x7f",                MDX_MISTAKE_CONTROL,         MDX_MISTAKE_CONTROL        },
    {"AT+X=\"\xc3\xa9 ~\"",     kServed,                     kServed                    },
    {"AT+CMGS=22",              MDX_MISTAKE_NEEDS_PDU,       MDX_MISTAKE_NEEDS_PDU      },
    {"at+cmgs=22",              MDX_MISTAKE_NEEDS_PDU,       MDX_MISTAKE_NEEDS_PDU      },
    {"AT + C MGW =5",           MDX_MISTAKE_NEEDS_PDU,       MDX_MISTAKE_NEEDS_PDU      },
    {"AT+CMGF=1;+CMGW",         MDX_MISTAKE_NEEDS_PDU,       MDX_MISTAKE_NEEDS_PDU      },
    {"AT+X=\"a;b\";^hcmgs=\"1\"", MDX_MISTAKE_NEEDS_PDU,     MDX_MISTAKE_NEEDS_PDU      },
    {"AT+CMGC=5",               MDX_MISTAKE_UNKNOWN_PROMPT,  MDX_MISTAKE_UNKNOWN_PROMPT },
    {"AT+CNMA=1,5",             MDX_MISTAKE_UNKNOWN_PROMPT,  MDX_MISTAKE_UNKNOWN_PROMPT },
    {"AT+CNMA=1;+X=1,2",        kServed,                     kServed                    },
    {"AT+CMSS=1",               kServed,                     kServed                    },
    {"at+cmgs=?",               kServed,                     kServed                    },
    {"AT+CMGS=?",               MDX_MISTAKE_NOT_TRANSPARENT, kServed                    },
    {"AT+CMGW?",                MDX_MISTAKE_NOT_TRANSPARENT, kServed                    },
    {"AT+CMGSX=1",              MDX_MISTAKE_NOT_TRANSPARENT, kServed                    },
    {"AT+CUSD=1,\"+CMGS=1\"",   MDX_MISTAKE_NOT_TRANSPARENT, kServed                    },
  };
  // clang-format on
  for (const auto& c : cases) {
    for (const int transparent : {0, 1}) {
      const int mistake = transparent == 0 ? c.mistake : c.transparently;
      mdx_options_t options = within(1);
      options.transparent = transparent;
      EXPECT_EQ(mdx_check(c.command.c_str(), nullptr, &options, nullptr), mistake) << c.command;
      EXPECT_EQ(mdx_send(client, c.command.c_str(), &options, &result),
                mistake == kServed ? MDX_ERR_BUSY : MDX_ERR_ARGUMENT)
          << c.command << " transparent " << transparent;
    }
  }
}

TEST(Client, RefusesOptionsThatCanNeverBeServed) {
  StandInServer server(ignore, false);
  Handle client;
  mdx_result_t result = MDX_RESULT_INIT;
  // clang-format off
  const struct { int mistake; void (*change)(mdx_options_t&); } cases[] = {
    {MDX_MISTAKE_OPTIONS,        [](mdx_options_t& o) { o.transparent = o.multi_line = 1; }},
    {MDX_MISTAKE_OPTIONS,        [](mdx_options_t& o) { o.multi_line = 2; }},
    {MDX_MISTAKE_OPTIONS,        [](mdx_options_t& o) { o.timeout_s = -1; }},
    {MDX_MISTAKE_MATCH_TOO_LONG, [](mdx_options_t& o) { static const std::string text(64, 'm');
                                                        o.match = text.c_str(); }},
    {MDX_MISTAKE_MATCH_CONTROL,  [](mdx_options_t& o) { o.match = "OK\r"; }},
  };
  // clang-format on
  for (const auto& c : cases) {
    mdx_options_t options = within(1);
    c.change(options);
    EXPECT_EQ(mdx_check("AT", nullptr, &options, nullptr), c.mistake);
    EXPECT_EQ(mdx_send(client, "AT", &options, &result), MDX_ERR_ARGUMENT) << c.mistake;
    EXPECT_EQ(mdx_get_report(client, MDX_REPORT_RSSI, &options, &result), MDX_ERR_ARGUMENT);
  }
}

TEST(Client, MessageGoesOutAsTheServerKnowsIt) {
  StandInServer server(ignore, false);
  Handle client;
  // clang-format off
  const struct { const char* head; std::string pdu; int mistake; const char* sent; } cases[] = {
    {"AT+CMGS=2",            "00",                MDX_MISTAKE_NONE,  "AT+CMGS=2\r00\x1a"            },
    {"at + cmgs =2",         "aF",                MDX_MISTAKE_NONE,  "AT+CMGS=2\raF\x1a"            },
    {"at+x=\"a b\";^hcmgw=1", "00",               MDX_MISTAKE_NONE,  "AT+X=\"a b\";^HCMGW=1\r00\x1a"},
    {"AT+CMGS=2",            "",                  MDX_MISTAKE_PDU,   nullptr},
    {"AT+CMGS=2",            "0",                 MDX_MISTAKE_PDU,   nullptr},
    {"AT+CMGS=2",            "0G",                MDX_MISTAKE_PDU,   nullptr},
    {"AT+CMGS=2",            std::string(628, '0'), MDX_MISTAKE_TOO_LONG, nullptr},
    {"AT+CSQ",               "00",                MDX_MISTAKE_NO_MESSAGE, nullptr},
    {"AT+CMGS=?",            "00",                MDX_MISTAKE_NO_MESSAGE, nullptr},
    {"AT+CMGS=2;+CSQ",       "00",                MDX_MISTAKE_NO_MESSAGE, nullptr},
    {"AT+CMGC=2",            "00",                MDX_MISTAKE_UNKNOWN_PROMPT, nullptr},
    {"AT+CMGS=2\r",          "00",                MDX_MISTAKE_CONTROL, nullptr},
  };
  // clang-format on
  for (const auto& c : cases) {
    EXPECT_EQ(mdx_check(c.head, c.pdu.c_str(), nullptr, nullptr), c.mistake) << c.head;
    const int error = mdx_begin_pdu(client, c.head, c.pdu.c_str(), nullptr);
    ASSERT_EQ(error, c.mistake == MDX_MISTAKE_NONE ? MDX_OK : MDX_ERR_ARGUMENT) << c.head;
    if (error != MDX_OK) continue;
    at_msg_t taken;
    ASSERT_TRUE(server.take(&taken));
    EXPECT_STREQ(taken.snd_rcv_msg.smsg, c.sent);
    mdx_cancel(client);
  }
}

/// A message counts as sent when the modem has given its reference, and not before.
TEST(Client, OkWithoutReferenceIsNoSuccess) {
  // clang-format off
  static const struct { const char* head; const char* match; const char* text; int said; int counts_as; } cases[] = {
    {"AT+CMGS=2",       nullptr, "+CMGS: 12",       MDX_RESULT_OK,      MDX_RESULT_OK        },
    {"at+cmgw=2",       nullptr, "+CSQ: 9+CMGW :0", MDX_RESULT_OK,      MDX_RESULT_OK        },
    {"AT+CMGS=2",       nullptr, "",                MDX_RESULT_OK,      MDX_RESULT_NO_VERDICT},
    {"AT+CMGS=2",       nullptr, "+CSQ: 17,99",     MDX_RESULT_OK,      MDX_RESULT_NO_VERDICT},
    {"AT+CMGS=2",       nullptr, "+CMGS: ",         MDX_RESULT_OK,      MDX_RESULT_NO_VERDICT},
    {"AT+CMGS=2",       nullptr, "",                MDX_RESULT_CONNECT, MDX_RESULT_NO_VERDICT},
    {"AT+CMGS=2",       nullptr, nullptr,           MDX_RESULT_OK,      MDX_RESULT_NO_VERDICT},
    {"AT+CMGS=2",       "",      nullptr,           MDX_RESULT_OK,      MDX_RESULT_NO_VERDICT},
    {"AT+CMGS=2",       "+CMGS:", "",               MDX_RESULT_OK,      MDX_RESULT_NO_VERDICT},
    {"AT+CMGS=2",       "",      "",                MDX_RESULT_OK,      MDX_RESULT_OK        },
    {"AT^HCMGS=\"1\"",  nullptr, "",                MDX_RESULT_OK,      MDX_RESULT_OK        },
    {"AT+CMGS=2",       nullptr, "",                MDX_RESULT_ERROR,   MDX_RESULT_ERROR     },
  };
  // clang-format on
  StandInServer server([](StandInServer& self, at_msg_t record) {
    const auto& c = cases[record.timeout];
    record.ret_val = c.said;  // when the head ends it, the text is still the request's own
    self.answer(c.text == nullptr ? record : with_text(record, c.text, c.said));
  });
  Handle client;
  for (const auto& c : cases) {
    mdx_options_t options = within(0, static_cast<int32_t>(&c - cases));
    options.match = c.match;
    mdx_result_t result = MDX_RESULT_INIT;
    const char* text = c.text == nullptr ? "" : c.text;
    ASSERT_EQ(mdx_send_pdu(client, c.head, "00", &options, &result), MDX_OK);
    EXPECT_EQ(result.ret_val, c.counts_as) << c.head << ' ' << text;
    EXPECT_STREQ(result.text, text);
  }
}

TEST(Client, TellsThatTextIsMissing) {
  static const std::string full(1499, 'x');
  // clang-format off
  static const struct { std::string_view text; int32_t rsp_len; int truncated; } cases[] = {
    {full, 1499, 0}, {full, 1500, 1}, {"tail", 1499, 1}, {"tail", 4, 0}, {"tail", 20, 0}, {"", 1500, 1},
  };
  // clang-format on
  StandInServer server([](StandInServer& self, const at_msg_t& record) {
    at_msg_t answer = with_text(record, cases[record.timeout].text);
    answer.rsp_len = cases[record.timeout].rsp_len;
    self.answer(answer);
  });
  Handle client;
  for (const auto& c : cases) {
    const mdx_options_t options = within(0, static_cast<int32_t>(&c - cases));
    mdx_result_t result = MDX_RESULT_INIT;
    ASSERT_EQ(mdx_send(client, "AT", &options, &result), MDX_OK);
    EXPECT_EQ(result.truncated, c.truncated) << c.text.size() << ' ' << c.rsp_len;
  }
}

TEST(Client, NewerCallersOptionsAreServedWhileTheNewFieldsAreZero) {
  StandInServer server(echo);
  Handle client;
  struct {
    mdx_options_t known = MDX_OPTIONS_INIT;
    int64_t added = 0;
  } newer;
  newer.known.size = sizeof(newer);
  mdx_result_t result = MDX_RESULT_INIT;
  EXPECT_EQ(mdx_send(client, "AT", &newer.known, &result), MDX_OK);
  newer.added = 1;
  EXPECT_EQ(mdx_send(client, "AT", &newer.known, &result), MDX_ERR_ARGUMENT);
}

TEST(Client, TextIsBoundedAndOnlyTheModems) {
  StandInServer server([](StandInServer& self, at_msg_t record) {
    const std::string command = record.snd_rcv_msg.smsg;
    if (command == "ATendless") {
      std::memset(record.snd_rcv_msg.rmsg, 'x', sizeof(record.snd_rcv_msg.rmsg));
    } else if (command == "ATraw") {
      record = with_text(record, "\0\0\0+COPS: 1"s, AT_NONE);
    } else {
      record.ret_val = AT_CMS_ERROR;  // the server gives the request's own text back
    }
    self.answer(record);
  });
  Handle client;
  mdx_result_t result = MDX_RESULT_INIT;
  ASSERT_EQ(mdx_send(client, "ATendless", nullptr, &result), MDX_OK);
  EXPECT_EQ(result.length, 1500u);
  EXPECT_EQ(result.text[1500], '\0');

  mdx_options_t options = MDX_OPTIONS_INIT;
  options.transparent = 1;
  ASSERT_EQ(mdx_send(client, "ATraw", &options, &result), MDX_OK);
  EXPECT_STREQ(result.text, "+COPS: 1");

  ASSERT_EQ(mdx_send_pdu(client, "AT+CMGS=2", "0000", nullptr, &result), MDX_OK);
  EXPECT_EQ(result.ret_val, MDX_RESULT_CMS_ERROR);
  EXPECT_STREQ(result.text, "");
}

TEST(Client, TellsTheServersRefusalFromTheModems) {
  StandInServer server([](StandInServer& self, at_msg_t record) {
    const bool refused = record.snd_rcv_msg.smsg[2] == 'S';
    record = with_text(record, "", AT_NOT_SUPPORTED);
    if (refused) std::memset(record.at_match_str, 0, sizeof(record.at_match_str));
    self.answer(record);
  });
  Handle client;
  const std::string longest(MDX_MATCH_MAX, 'm');
  for (const char* match : {"", longest.c_str()}) {
    mdx_options_t options = MDX_OPTIONS_INIT;
    options.match = match;
    mdx_result_t result = MDX_RESULT_INIT;
    ASSERT_EQ(mdx_send(client, "AT modem", &options, &result), MDX_OK);
    EXPECT_EQ(result.refused, 0) << match;
    ASSERT_EQ(mdx_send(client, "ATServer", &options, &result), MDX_OK);
    EXPECT_EQ(result.refused, 1) << match;
  }
}

TEST(Client, PassesOverWhatIsNotItsAnswer) {
  StandInServer server([](StandInServer& self, const at_msg_t& record) {
    at_msg_t other = with_text(record, "wrong");
    other.seq ^= 1;
    self.answer(other);
    self.put(1, other, record.msg_type, 12);
    self.put(1, other, record.msg_type + 1, sizeof(other));
    self.answer(with_text(record, "right"));
  });
  Handle client;
  mdx_result_t result = MDX_RESULT_INIT;
  ASSERT_EQ(mdx_send(client, "AT", nullptr, &result), MDX_OK);
  EXPECT_STREQ(result.text, "right");
  EXPECT_EQ(server.waiting(1), 1) << "another client's answer stays where it is";
}

TEST(Client, WithoutServerOpenSaysSo) {
  mdx_client_t* client = nullptr;
  EXPECT_EQ(mdx_open(&client), MDX_ERR_NO_SERVER) << "no directory";
  { StandInServer dead(ignore); }
  EXPECT_EQ(mdx_open(&client), MDX_ERR_NO_SERVER) << "all left behind, nobody reads";
  StandInServer server(ignore);
  unlink(kMdxServerLink);
  ASSERT_EQ(symlink("/tmp/elsewhere", kMdxServerLink), 0);
  EXPECT_EQ(mdx_open(&client), MDX_ERR_NO_SERVER) << "the link leads elsewhere";
  EXPECT_EQ(client, nullptr);
}

TEST(Client, OfAnotherPidNamespaceIsRefused) {
  StandInServer server(echo);
  char own[kPidNamespaceSize];
  ASSERT_TRUE(read_pid_namespace("/proc/self/ns/pid", own));
  const auto open_where_server_is_in = [](const char* name) {
    unlink(kMdxPidNamespaceLink);
    EXPECT_EQ(symlink(name, kMdxPidNamespaceLink), 0);
    mdx_client_t* client = nullptr;
    const int error = mdx_open(&client);
    mdx_close(client);
    unlink(kMdxPidNamespaceLink);
    return error;
  };
  EXPECT_EQ(open_where_server_is_in("pid:[1]"), MDX_ERR_NAMESPACE);
  EXPECT_EQ(open_where_server_is_in(own), MDX_OK);
}

TEST(Client, WaitsForItsNameThatSomebodyHasTaken) {
  StandInServer server(echo);
  mdx_client_t* client = nullptr;
  char path[kEventPathSize];
  event_fifo_path(gettid(), path);
  ASSERT_EQ(mkdir(path, 0700), 0);
  EXPECT_EQ(mdx_open(&client), MDX_ERR_TAKEN);
  std::thread free_again([&path] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    rmdir(path);
  });
  EXPECT_EQ(mdx_open(&client), MDX_OK);
  free_again.join();
  mdx_close(client);
}

TEST(Client, WaitsForAServerWhoseNameSomebodyHasRemoved) {
  StandInServer server(echo);
  mdx_client_t* client = nullptr;
  const std::string removed = StandInServer::kFifo + ".removed"s;
  ASSERT_EQ(rename(StandInServer::kFifo, removed.c_str()), 0);
  std::thread make_again([&removed] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    rename(removed.c_str(), StandInServer::kFifo);
  });
  EXPECT_EQ(mdx_open(&client), MDX_OK);
  make_again.join();
  mdx_close(client);
}

TEST(Client, HandleIsOneThreads) {
  StandInServer server(echo);
  mdx_client_t* client = nullptr;
  ASSERT_EQ(mdx_open(&client), MDX_OK);
  char path[kEventPathSize];
  event_fifo_path(gettid(), path);
  EXPECT_EQ(access(path, F_OK), 0);
  mdx_client_t* second = nullptr;
  EXPECT_EQ(mdx_open(&second), MDX_ERR_THREAD);
  std::thread([&] {
    mdx_result_t result = MDX_RESULT_INIT;
    EXPECT_EQ(mdx_send(client, "AT", nullptr, &result), MDX_ERR_THREAD);
    Handle own;
    EXPECT_EQ(mdx_send(own, "AT", nullptr, &result), MDX_OK);
  }).join();
  const pid_t child = fork();
  if (child == 0) {
    mdx_result_t result = MDX_RESULT_INIT;
    const int error = mdx_send(client, "AT", nullptr, &result);
    mdx_close(client);
    _exit(error == MDX_ERR_THREAD ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0) << "a forked child is another task";
  EXPECT_EQ(access(path, F_OK), 0) << "and takes nothing away from its parent";
  mdx_close(client);
  EXPECT_NE(access(path, F_OK), 0);
  ASSERT_EQ(mdx_open(&client), MDX_OK) << "and again after a close";
  mdx_close(client);
}

}  // namespace
