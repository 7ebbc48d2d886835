// SPDX-License-Identifier: Apache-2.0

// mdxctl beside a server that does as it is told: what people and scripts see of an answer.

#include <gmock/gmock.h>
#include <signal.h>

#include <nlohmann/json.hpp>

#include "tests/client/run_mdxctl.h"
#include "tests/client/stand_in_server.h"
#include "tools/mdxctl/output.h"
#include "tools/mdxctl/shell_line.h"
#include "tools/words/collection.h"

namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

/// Answers as the command's number says, in the way the record's kind has the server collect.
void answer_by_number(StandInServer& server, const at_msg_t& record) {
  const std::string command = record.snd_rcv_msg.smsg;
  const bool raw = record.req_type == TRANSPARENT_CMD;
  const int number = std::atoi(command.c_str() + 2);
  const std::string line = number == 2 ? "OK" : number == 3 ? "+CME ERROR: 10" : "ERROR";
  at_msg_t reply = with_text(record, raw ? "one\r\ntwo\r\n" + line + "\r\n" : "onetwo", number);
  if (number == 98) {
    reply = with_text(record, "", AT_NOT_SUPPORTED);
    std::memset(reply.at_match_str, 0, sizeof(reply.at_match_str));
  }
  if (number == 99) reply.ret_val = AT_NONE;
  server.answer(reply);
}

TEST(Mdxctl, ShowsTextAndResultAndExitsByIt) {
  StandInServer server(answer_by_number);
  // clang-format off
  const struct { const char* arguments; int code; const char* output; } cases[] = {
    {"at AT2",                 0, "one\ntwo\nOK\n"                    },
    {"at --transparent AT2",   0, "one\ntwo\nOK\nOK\n"                },
    {"at --multi-line AT2",    0, "onetwo\nOK\n"                      },
    {"at AT3",                 1, "+CME ERROR: 10\n"                  },
    {"at AT5",                 1, "one\ntwo\nERROR\n"                 },
    {"at AT98",                5, "refused: the server could not write to the modem; check that it is plugged in: mdxctl status\n"},
  };
  // clang-format on
  for (const auto& c : cases) {
    const Outcome outcome = mdxctl(c.arguments);
    EXPECT_EQ(outcome.code, c.code) << c.arguments;
    EXPECT_EQ(outcome.output, c.output) << c.arguments;
  }
  EXPECT_EQ(mdxctl("at AT99").code, 3);
  EXPECT_THAT(mdxctl("at --timeout 7 AT99").output, HasSubstr("the modem had 7 s for it"));
  EXPECT_THAT(mdxctl("at AT99 --json").output, HasSubstr("--timeout SECONDS allows more"));
  EXPECT_EQ(mdxctl("at -", "AT2\n\nAT5\r\nAT98\n").code, 1) << "the first that failed";
  const Outcome listed = mdxctl("at -", "\\357\\273\\277# a remark\n  AT2 \r\n#\n");
  EXPECT_EQ(listed.output, "one\ntwo\nOK\n");
  EXPECT_EQ(listed.code, 0);
}

TEST(Mdxctl, SaysWhatCouldNotBeReadOrWritten) {
  StandInServer server(answer_by_number);
  for (const char* arguments : {"at AT2 >/dev/full", "at AT2 --json >/dev/full",
                                "status >/dev/full", "at - >/dev/full", "--version >/dev/full"}) {
    const Outcome outcome = mdxctl(std::string(arguments), "AT2\n");
    EXPECT_EQ(outcome.code, 5) << arguments;
  }
  const Outcome directory = mdxctl("at - </");
  EXPECT_EQ(directory.code, 2);
  EXPECT_THAT(directory.output, HasSubstr("Is a directory"));
}

TEST(Mdxctl, JsonHoldsTheTextAsItCame) {
  StandInServer server([](StandInServer& self, const at_msg_t& record) {
    self.answer(with_text(record, "caf\xe9 \x1a\r\nOK\r\n"));
  });
  const json object = json::parse(mdxctl("at ATI --json").output);
  EXPECT_EQ(object["command"], "ATI");
  EXPECT_EQ(object["result"]["name"], "OK");
  EXPECT_EQ(object["result"]["number"], 2);
  EXPECT_EQ(object["text"], "caf\xef\xbf\xbd \x1a");
  EXPECT_GT(object["seconds"], 0.0);
}

TEST(Mdxctl, MistakesEndWithTwo) {
  for (const char* arguments :
       {"", "at", "at AT --timeout x", "at AT --multi-line --transparent", "fly", "report csq",
        "sms-pdu AT+CMGS=2", "console display", "watch --count 0", "watch --service a --module 1",
        "sms send x a", "stats --json --prometheus",
        "at AT --match 0123456789012345678901234567890123456789012345678901234567890123"}) {
    EXPECT_EQ(mdxctl(arguments).code, 2) << arguments;
  }
}

TEST(Mdxctl, NamesTheMistake) {
  // clang-format off
  const struct { const char* arguments; const char* input; const char* output; } cases[] = {
    {"at hello",                      "", "a command begins with AT"                               },
    {"at \"$(printf 'AT\\rATI')\"",   "", "the command holds CR at position 3: it would end there"},
    {"at \"$(printf 'AT+X\\033')\"",  "", "the command holds ESC at position 5"                    },
    {"at -",  "AT2\\r\\n\\nA\\000T\\n",    "line 3: the command holds NUL at position 2"            },
    {"at AT+CMGS=?  --match +CMGS",   "", "ask with --transparent"                                 },
    {"at --transparent at+cmgs=22",   "", "use: mdxctl sms send NUMBER TEXT, or: mdxctl sms-pdu 'at+cmgs=22' PDU"},
    {"at AT+CNMA=1,5",                "", "AT+CNMA acknowledges without one"                       },
    {"at AT$(printf %0640d)",         "", "a command of 642 bytes is too long: 638 are the most"   },
    {"at AT --match \"$(printf 'a\\tb')\"", "", "the match string holds Tab at position 2"             },
    {"at 'AT+CREG?;+CLIP?'",          "", "send each by itself"                                    },
    {"at 'at e0 v'",                  "", "everybody's commands would time out; --yes sends it"    },
    {"at 'ATS7=60Q1'",                "", "everybody's commands would time out"                    },
    {"at 'AT S0?V0'",                 "", "everybody's commands would time out"                    },
    {"at 'ATE0S3=10'",                "", "everybody's commands would time out"                    },
    {"at 'ATS04='",                   "", "everybody's commands would time out"                    },
    {"at ATS5=65",                    "", "everybody's commands would time out"                    },
    {"at 'AT+CSQ;+ipr=9600'",         "", "everybody's commands would time out"                    },
    {"at AT+ICF=3,3",                 "", "everybody's commands would time out"                    },
    {"at 'ATE0 +CMUX=0;I'",           "", "everybody's commands would time out"                    },
    {"sms send 1 -x -y",              "", "'-x', '-y' are not expected here; the text is one word or stands in quotes"},
    {"sms send 1 hello -x",           "", "'-x' is not expected here; the text"                   },
    {"at AT+CSQ AT",                  "", "'AT' is not expected here; see: mdxctl at --help"       },
    {"stats --prometheus --output ''", "", "--output: the name is empty"                            },
    {"watch --exec '' --last",        "", "--exec: the name is empty"                              },
    {"init ''",                       "", "file: the name is empty"                                },
    {"ussd --reply 1 '*99#' x",       "", "'x' is not expected here"                               },
    {"sms-pdu AT+CSQ 00",             "", "such as AT+CMGS=22"                                     },
    {"sms-pdu AT+CMGS=2 123",         "", "the PDU has 3 digits: each byte takes two"              },
    {"sms-pdu AT+CMGS=2 0x",          "", "position 2 of the PDU is no hexadecimal digit"          },
  };
  // clang-format on
  StandInServer server(answer_by_number);
  for (const auto& c : cases) {
    const Outcome outcome = mdxctl(c.arguments, c.input);
    EXPECT_EQ(outcome.code, 2) << c.arguments;
    EXPECT_THAT(outcome.output, HasSubstr(c.output)) << c.arguments;
  }
}

TEST(Mdxctl, AsksBeforeResultsAreTurnedOffAndNotElse) {
  StandInServer server([](StandInServer& self, const at_msg_t& record) {
    self.answer(with_text(record, "OK\r\n"));
  });
  for (const char* arguments :
       {"at --yes ATV0", "at ATV1Q0E0", "at ATDV0", "at AT+CSQV0", "at AT\\&FV1",
        "at 'AT+X=\"V0\"'", "at 'ATS3=013S4=10S5=8S3?'", "at 'AT+IPR?'", "at 'AT+CMUX=?'",
        "at AT+IPRX=1", "at --yes AT+IPR=9600"}) {
    EXPECT_EQ(mdxctl(arguments).code, 0) << arguments;
  }
}

TEST(Mdxctl, SaysWhatAnAnswerLacks) {
  StandInServer server([](StandInServer& self, const at_msg_t& record) {
    at_msg_t answer = with_text(record, "");
    answer.rsp_len = MAX_ATCMD_REPORT_SIZE;
    self.answer(answer);
  });
  EXPECT_THAT(mdxctl("at AT+CMGL=4").output, HasSubstr("longer than 1499 bytes"));
  EXPECT_THAT(mdxctl("at AT+CPIN?").output, HasSubstr("nothing but its result"));
  EXPECT_THAT(mdxctl("at AT+CPIN=?").output, Not(HasSubstr("nothing but its result")));
  EXPECT_THAT(mdxctl("at --json AT+CMGL=4").output, HasSubstr("\"truncated\":true"));
  for (const char* message : {"sms-pdu AT+CMGS=2 00", "sms-pdu --json AT+CMGS=2 00", "sms send 1 a",
                              "sms send --json 1 a"}) {
    const Outcome outcome = mdxctl(message);
    EXPECT_EQ(outcome.code, 3) << message;
    EXPECT_THAT(outcome.output, HasSubstr("did not confirm the message")) << message;
    EXPECT_THAT(outcome.output, Not(HasSubstr("+CMGS: null"))) << message;
  }
}

/// Starts mdxctl, silent. @return its process id
pid_t start_mdxctl(const std::string& arguments, bool without_hang_up = false) {
  const pid_t child = fork();
  if (child != 0) return child;
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) signal(number, SIG_DFL);
  if (without_hang_up) signal(SIGHUP, SIG_IGN);
  const std::string command = "exec '" MDXCTL "' " + arguments + " >/dev/null 2>&1";
  execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
  _exit(127);
}

bool waits_in_queue(StandInServer& server) {
  for (int i = 0; i < 30000 && server.waiting(2) == 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return server.waiting(2) != 0;
}

int ending_signal(pid_t child) {
  int status = 0;
  waitpid(child, &status, 0);
  return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

TEST(Mdxctl, SignalTakesTheRequestBack) {
  StandInServer server([](StandInServer&, const at_msg_t&) {}, false);
  const struct {
    const char* arguments;
    int signal;
  } cases[] = {
      {"at AT+CFUN=0", SIGINT},  {"at AT+CFUN=0", SIGTERM},     {"at AT+CFUN=0", SIGHUP},
      {"at AT+CFUN=0", SIGQUIT}, {"at - <<x\nAT\nx\n", SIGINT}, {"sms-pdu AT+CMGS=2 00", SIGINT},
      {"sms send 1 a", SIGINT},  {"report rssi", SIGINT},       {"status", SIGINT},
  };
  for (const auto& c : cases) {
    const pid_t child = start_mdxctl(c.arguments);
    ASSERT_TRUE(waits_in_queue(server)) << c.arguments;
    kill(child, c.signal);
    EXPECT_EQ(ending_signal(child), c.signal) << c.arguments;
    EXPECT_EQ(server.waiting(2), 0) << c.arguments << ", signal " << c.signal;
    at_msg_t left;
    while (server.take(&left)) continue;
  }
  const pid_t child = start_mdxctl("at AT", true);
  ASSERT_TRUE(waits_in_queue(server));
  kill(child, SIGHUP);
  kill(child, SIGTERM);
  EXPECT_EQ(ending_signal(child), SIGTERM) << "as under nohup";
}

TEST(Mdxctl, WithoutServerEndsWithFour) {
  for (const char* arguments :
       {"at AT", "sms-pdu AT+CMGS=1 00", "report rssi", "console display state", "watch", "status",
        "stats", "sms send 1 a"}) {
    EXPECT_EQ(mdxctl(arguments).code, 4) << arguments;
  }
}

TEST(Mdxctl, ChoosesHowToCollect) {
  // clang-format off
  const struct { const char* command; const char* match; bool transparent; } cases[] = {
    {"AT+CREG?",           "+CREG:",  false}, {"at^hcsq?",          "^HCSQ:", false}, {"AT+CMGSX?",          "",       true},
    {"AT+CREG=?",          "+CREG:",  false}, {"AT+CREG=1",         "",       true }, {"AT+CCWA=1,2",        "+CCWA:", false},
    {"AT+CCWA=1",          "",        true }, {"AT + CREG ?",       "+CREG:", false}, {"AT+CUSD=1,\"*1#\"",  "",       true},
    {"AT^NDISSTATQRY?",    "^NDISSTATQRY:", false}, {"AT+ZPAS?",    "",       true }, {"AT+CEER",            "+CEER:", true},
    {"AT+COPS=?",          "+COPS:",  true }, {"AT+CMGS=?",         "",       true }, {"AT+CSQ",             "",       true},
    {"AT+CSQ;+CREG?",      "+CREG:",  false}, {"ATE0+CREG?",        "+CREG:", false}, {"AT+CREG?;+CGREG?",   "REG:",   false},
    {"AT+X=\";+CREG?\"",   "",        true }, {"AT+CREG?;+CMGS=?",  "",       true }, {"ATD+CREG?",          "",       true},
    {"AT+X=\"",            "",        true }, {"AT\"",              "",       true },
    {"ATI",                "",        true }, {"AT?",               "",       true }, {"A?",                 "",       true},
    {"",                   "",        true }, {"AT+?",              "",       true }, {"AT+CREG?;+CLIP?",    "",       true},
  };
  // clang-format on
  for (const auto& c : cases) {
    const collection_t collection = collection_for(c.command, false);
    EXPECT_EQ(collection.match, c.match) << c.command;
    EXPECT_EQ(collection.transparent, c.transparent) << c.command;
  }
  EXPECT_TRUE(collection_for("AT+COPS=?", true).multi_line) << "or the time-out would not count";
  EXPECT_TRUE(collection_for("AT+CREG?;+CLIP?", false).mixed);
}

TEST(Mdxctl, LinesOfAnAnswerStandApart) {
  // clang-format off
  const struct { const char* command; int ret_val; const char* text; const char* shown; } cases[] = {
    {"AT+CSQ;+CREG?", 2, "+CSQ: 1,99+CREG: 0,1\r\n",              "+CSQ: 1,99\r\n+CREG: 0,1"        },
    {"AT+CREG?;+CSQ", 2, "+CREG: 0,1\r\n+CSQ: 1,99",              "+CREG: 0,1\r\n+CSQ: 1,99"        },
    {"AT+COPS?",      2, "+COPS: 0,0,\"RING OK\"OK\r\n",          "+COPS: 0,0,\"RING OK\""          },
    {"AT+CPBR=1,2",   2, "+CPBR: 1,\"a\"+CPBR: 2,\"b\"OK\r\n",    "+CPBR: 1,\"a\"\r\n+CPBR: 2,\"b\""},
    {"AT+CNUM",       3, "+CNUM: \"a\"+CME ERROR: 13\r\n",        "+CME ERROR: 13"                  },
    {"AT+CEER",       5, "+CEER: nothingERROR\r\n",               "+CEER: nothing"                  },
    {"AT+COPS?",      2, "OK\r\n",                                ""                                },
  };
  // clang-format on
  for (const auto& c : cases) {
    mdx_result_t result = MDX_RESULT_INIT;
    result.ret_val = c.ret_val;
    result.text = c.text;
    result.length = static_cast<uint32_t>(std::strlen(c.text));
    const std::string shown = shown_text(result, collection_for(c.command, false));
    EXPECT_EQ(shown, c.shown) << c.command;
  }
}

TEST(Mdxctl, NothingShownMovesTheCursor) {
  // clang-format off
  const struct { std::string text; std::string shown; } cases[] = {
    {"\x1b[2Ja\r\nb", "?[2Ja\nb\n"}, {"z\xc5\x82\t\xe2\x82\xac", "z\xc5\x82\t\xe2\x82\xac\n"},
    {"\xc2\x9bm\x9b\x7f", "\xc2?m??\n"}, {"\xe9t\xe9", "\xe9t\xe9\n"}, {"", ""},
  };
  // clang-format on
  for (const auto& c : cases) EXPECT_EQ(harmless_lines(c.text), c.shown);
}

TEST(Mdxctl, KeepsNoSecretInItsHistory) {
  for (const char* line : {"AT+CPIN =\"4713\"", "at + cpin=4713", "AT+CGAUTH=1,2,\"u\",\"p\"",
                           "AT^AUTHDATA=1,2,,\"p\",\"u\"", "AT+QICSGP=1,1,\"a\",\"u\",\"p\",1",
                           "ATD**05*12345678*1234*1234#;", "AT+CLCK=\"SC\",0,\"1234\"",
                           "AT+CUSD=1,\"**04*1234*4321*4321#\""}) {
    EXPECT_FALSE(fit_for_history(line)) << line;
  }
  for (const char* line : {"AT+CPIN?", "AT+CSQ", "ATD*99#", "AT+CGDCONT=1,\"IP\",\"internet\""}) {
    EXPECT_TRUE(fit_for_history(line)) << line;
  }
}

}  // namespace
