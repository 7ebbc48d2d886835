// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxsim/script.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tools/line/escape.h"
#include "tools/mdxsim/scripted_modem.h"

namespace mdxsim {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

Script parsed(const std::string& text) {
  std::istringstream stream(text);
  return parse_script(stream, "s");
}

TEST(ScriptFile, SaysWhereItIsWrongAndWhatIsAllowed) {
  // clang-format off
  const struct { std::string text; const char* begins; const char* allowed; } cases[] = {
      {"# a remark\n\n",                      "s:2: the script is empty",         ""                 },
      {"on AT -> OK\non: AT -> OK",           "s:2: 'on:' begins no line",        "on, also, else, expect" },
      {"on AT -> ",                           "s:1: this is not understood",      "-> ANSWER"        },
      {"on AT -> {1..2",                      "s:1: a { begins a range",          "{10..30}"         },
      {"on AT -> A\\tB",                      "s:1: a backslash needs",           "xHH"              },
      {"on AT after 0s -> OK",                "s:1: '0s' is no time",             "300ms"            },
      {"on AT after 5s -> living",            "s:1: the living modem answers",    "leave out"        },
      {"on AT+C* -> OK\non at+csq -> OK",     "s:2: this never applies: line 1",  "'once'"           },
      {"also -> OK",                          "s:1: 'also' adds to the 'on' line","above"            },
      {"on AT -> OK\nalso -> prompt",         "s:2: what is said besides",        "a text"           },
      {"on AT -> OK\nalso after -> OK",       "s:2: this is not understood",      "also [after TIME]"},
      {"fault drop 101%",                     "s:1: '101%' is no share",          "1% to 100%"       },
      {"expect no AT within 5s",              "s:1: what may not come",           "leave out"        },
      {"expect no AT\nend when expected",     "s:2: 'end when expected' needs",   "expect"           },
      {"on AT -> hang-up",                    "s:1: 'hang-up' needs",             "3s"               },
      {"on AT -> raw",                        "s:1: 'raw' needs",                 "BYTES"            },
      {"on AT after -> OK",                   "s:1: 'after' stands alone",        "\\x20"            },
      {"expect AT within",                    "s:1: 'within' stands alone",       "\\x20"            },
      {"on pdu -> OK",                        "s:1: 'pdu' needs",                 "pdu *"            },
      {"else OK\nelse ERROR",                 "s:2: there is an else line",       "above"            },
      {"end after 1s\nend after 2s",          "s:2: there is an 'end after'",     "above"            },
      {"on " + std::string(5000, 'A') + " -> OK", "s:1: the line is too long",    "4096"             },
  };
  // clang-format on
  for (const auto& [text, begins, allowed] : cases) {
    try {
      parsed(text);
      ADD_FAILURE() << text;
    } catch (const std::invalid_argument& error) {
      EXPECT_THAT(error.what(), testing::AllOf(StartsWith(begins), HasSubstr(allowed))) << text;
    }
  }
  EXPECT_NO_THROW(parsed("on AT+C* once -> OK\r\n\ton\tAT+CSQ -> OK\non AT* 2 times -> OK"));
}

TEST(ScriptFile, PatternsCoverTheWholeLine) {
  // clang-format off
  const struct { const char* pattern; const char* text; bool fits; } cases[] = {
      {"AT+CSQ", "at+csq",     true }, {"AT+CSQ",  "AT+CSQ?",  false}, {"AT+CSQ", "AT+CS",   false},
      {"AT*",    "AT",         true }, {"*",       "",         true }, {"AT?",    "ATI",     false},
      {"a*b*c",  "aXbXbXc",    true }, {"a*b*c",   "aXbXbX",   false}, {"*Q*",    "AT+CSQ",  true },
      {"**a",    "bba",        true }, {"AT+X=*1", "AT+X=121", true }, {"",       "A",       false},
  };
  // clang-format on
  for (const auto& [pattern, text, fits] : cases) {
    EXPECT_EQ(matches(pattern, text), fits) << pattern << " on " << text;
  }
}

struct Input {
  int ms;
  std::string bytes;  // "close" and "open": what the host does with the device
};

// Plays a script to a host that opens the device at 0 and reads at once, up to its end or ten
// seconds. What it gets comes as "MS:BYTES" lines, a hang-up as "MS:gone" and "MS:back", then the
// ending.
std::string played(const std::string& script, const std::vector<Input>& inputs, unsigned seed = 1) {
  LivingOptions options;
  options.seed = seed;
  ScriptedModem modem(parsed(script), options);
  std::string log;
  bool plugged = true;
  size_t next = 0;
  modem.attached(Time{0});
  for (Time now{0}; now <= Time{10000} && !modem.ending(); ++now) {
    for (; next < inputs.size() && Time{inputs[next].ms} <= now; ++next) {
      const std::string& bytes = inputs[next].bytes;
      if (bytes == "close") modem.detached(now);
      if (bytes == "open") modem.attached(now);
      if (bytes != "close" && bytes != "open") modem.receive(bytes, now);
    }
    const std::string time = std::to_string(now.count()) + ":";
    const auto due = modem.next_due();
    modem.advance(now);
    for (std::string got; !(got = modem.transmit(now)).empty();) log += time + escape(got) + "\n";
    if (plugged == modem.plugged()) continue;
    plugged = !plugged;
    EXPECT_TRUE(due && *due <= now) << "nobody would have asked at " << time;
    log += time + (plugged ? "back\n" : "gone\n");
    plugged ? modem.attached(now) : modem.detached(now);
  }
  if (modem.ending()) log += modem.ending()->message;
  return log;
}

TEST(ScriptedModem, DoesAsTheScriptSays) {
  const std::string rules =
      "echo off\non AT+A once -> +A: 1 | OK\non AT+A after 2s -> ERROR\non AT+M -> prompt\n"
      "on pdu 00* -> +M: 5 | OK\non AT+N -> nothing\non AT+R -> raw a\\r|b\non AT+H -> hang-up 3s\n"
      "else +CME ERROR: 4\n";
  // clang-format off
  const struct { std::string script; std::vector<Input> inputs; const char* log; } cases[] = {
      {"",                           {{5, "AT+"}, {7, "A\rAT+A\r\n"}, {9, "AT+R\r"}},
       "7:\\r\\n+A: 1\\r\\n\\r\\nOK\\r\\n\n9:a\\r|b\n2007:\\r\\nERROR\\r\\n\n"},
      {"",                           {{1, "at+m\r0011\x1a\rAT+N\rAT+Q\r"}, {2, "noise\r"}},
       "1:\\r\\n> \\r\\n+M: 5\\r\\n\\r\\nOK\\r\\n\\r\\n+CME ERROR: 4\\r\\n\n"},
      {"",                           {{1, "AT+M\r"}, {2, "11\x1a"}, {3, "AT+M\r"}, {4, "00\x1b"}},
       "1:\\r\\n> \n2:\\r\\nERROR\\r\\n\n3:\\r\\n> \n4:\\r\\nOK\\r\\n\n"},
      {"",                           {{1, "AT+M\r00"}, {2, "close"}, {3, "open"}, {4, "AT+R\r"}},
       "1:\\r\\n> \n4:a\\r|b\n"},
      {"on AT\\*\\\\ then echo on -> B\nalso after 1s -> C\non A* -> D",  {{1, "AT*\\\r"}, {2, "AT\\\r"}},
       "1:\\r\\nB\\r\\n\n2:AT\\\\\\r\\r\\nD\\r\\n\n1001:\\r\\nC\\r\\n\n"},
      {"echo on\nfault delay 30ms",  {{1, "AT+R\r"}},        "1:AT+R\\r\n31:a\\r|b\n"},
      {"fault drop 100%",            {{1, "AT+R\r"}},        ""},
      {"end after 5s\non AT+B after 9s -> OK",  {{1, "AT+A\r"}, {2, "AT+H\r"}, {9, "AT+B\r"}},
       "1:\\r\\n+A: 1\\r\\n\\r\\nOK\\r\\n\n2:gone\n3002:back\ns: played, nothing is missing"},
      {"end after 5s\non open -> ^HI\nat 4s report A | B\nevery 2s report C", {{1, "AT+H\r"}},
       "0:\\r\\n^HI\\r\\n\n1:gone\n3001:back\n3002:\\r\\n^HI\\r\\n\n"
       "4000:\\r\\nA\\r\\n\\r\\nB\\r\\n\\r\\nC\\r\\n\ns: played, nothing is missing"},
  };
  // clang-format on
  for (const auto& [script, inputs, log] : cases) {
    EXPECT_EQ(played(rules + script, inputs), log) << script;
  }
}

TEST(ScriptedModem, LeavesTheRestToTheLivingModem) {
  const std::string pdu = "0001000B914497381100000000A054747A0E4ACF41\x1a";
  const std::vector<Input> message = {{1, "ATE0\r"}, {2, "AT+CMGS=20\r"}, {3, pdu}};
  EXPECT_THAT(played("on AT+CSQ -> OK", message), HasSubstr("3:\\r\\n+CM"));
  EXPECT_EQ(played("echo off\non pdu * -> NO", message),
            "1:\\r\\nOK\\r\\n\n2:\\r\\n> \n3:\\r\\nNO\\r\\n\n");
}

TEST(ScriptedModem, EndsWithWhatIsMissing) {
  // clang-format off
  const struct { std::string script; std::vector<Input> inputs; const char* ends; } cases[] = {
      {"expect 2 AT within 3s",               {{1, "AT\r"}, {2, "AT\r"}},  "2:\\r\\nOK\\r\\n\n"},
      {"\nexpect 2 AT within 3s",             {{1, "AT\r"}, {3001, "AT\r"}},
       "s:3: AT is expected 2 times, it came once; heard last: AT"},
      {"end after 2s\nexpect AT+Q",           {},
       "s:3: AT+Q is expected once, it did not come; heard last: open"},
      {"expect no AT+Q*",                     {{1, "AT+Q=1\r"}},
       "s:2: AT+Q* is expected never, it came once; heard last: AT+Q=1"},
      {"end when expected\non AT after 9s -> X\nexpect AT\nexpect no ATZ", {{1, "AT\r"}},
       "9001:\\r\\nX\\r\\n\ns: played, nothing is missing"},
      {"end when expected\nexpect AT+COPS=?", {{1, "AT+COPS=?\r"}},        "nothing is missing"},
      {"end when expected\nexpect 2 open\nat 1s hang-up 1s", {},
       "1000:gone\n2000:back\ns: played, nothing is missing"},
  };
  // clang-format on
  for (const auto& [script, inputs, ends] : cases) {
    EXPECT_THAT(played("echo off\n" + script, inputs), testing::EndsWith(ends)) << script;
  }
}

TEST(ScriptedModem, RepeatsItselfWithTheSameSeed) {
  const std::string script =
      "every 100ms report ^RSSI:{10..30}\nfault drop 20%\nfault garbage 20%\nend after 5s";
  EXPECT_EQ(played(script, {}, 7), played(script, {}, 7));
  EXPECT_NE(played(script, {}, 7), played(script, {}, 8));
}

}  // namespace
}  // namespace mdxsim
