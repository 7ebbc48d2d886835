// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxsim/session_player.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "tools/line/escape.h"

namespace mdxsim {
namespace {

using namespace std::string_view_literals;
using testing::ElementsAre;
using testing::HasSubstr;

Session parsed(const std::string& text) {
  std::istringstream stream(text);
  return parse_session(stream, "s.txt");
}

TEST(SessionFile, SaysInWhichLineItIsWrong) {
  // clang-format off
  const struct { std::string_view text; std::string_view begins; } cases[] = {
      {"",                             "s.txt:0: the session is empty"    },
      {"> AT\\r\nAT\\r\n",             "s.txt:2: a line begins with"      },
      {"# a\n\n>AT\\r\n",              "s.txt:3: a line begins with"      },
      {"> \n",                         "s.txt:1: nothing is sent"         },
      {"> AT\\r\n< \\t\n",             "s.txt:2: a backslash needs"       },
      {"< \\x1g",                      "s.txt:1: a backslash needs"       },
      {"< a\tb\n",                     "s.txt:1: control character"       },
  };
  // clang-format on
  for (const auto& [text, begins] : cases) {
    try {
      parsed(std::string(text));
      ADD_FAILURE() << text;
    } catch (const SessionError& error) {
      EXPECT_THAT(error.what(), testing::StartsWith(begins)) << text;
    }
  }
}

TEST(SessionFile, KeepsEachByteAndItsLine) {
  const Session session = parsed("# r\r\n> AT+A=\"\\\\\"\\r\r\n\n< \\r\\n> \n> 00\\x1A\\x00\n");
  ASSERT_EQ(session.steps.size(), 3U);
  EXPECT_EQ(session.steps[0].bytes, "AT+A=\"\\\"\r");
  EXPECT_EQ(session.steps[1].bytes, "\r\n> ");
  EXPECT_EQ(session.steps[1].line, 4);
  EXPECT_EQ(session.steps[2].bytes, "00\x1a\0"sv);
  EXPECT_TRUE(session.steps[2].from_host);

  const std::string cut_off = "# recorded by mdxtap 0\n> AT\\r\n< \\r\\nO\\";
  EXPECT_EQ(parsed(cut_off).steps.size(), 1U) << "a power cut may end a recording anywhere";

  std::string all;
  for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
  EXPECT_EQ(unescape(escape(all)), all);
}

// Plays a session against a host that speaks in `receive`; time passes as the player asks for it.
class Played {
 public:
  explicit Played(const std::string& text, ReplayOptions options = {})
      : player_(parsed(text), options) {
    player_.attached(now_);
    run();
  }

  void receive(std::string_view bytes) {
    player_.receive(bytes, now_);
    run();
  }

  // Until the player waits for the host.
  void run() {
    for (auto due = player_.next_due(); due; due = player_.next_due()) {
      const Time then = std::max(now_, *due);
      const std::string read = player_.transmit(then);
      if (read.empty()) return;
      now_ = then;
      reads.push_back(read);
    }
  }

  void pass(Time duration) {
    now_ += duration;
    player_.advance(now_);
  }

  std::string outcome() const {
    if (!player_.ending()) return "goes on";
    return player_.ending()->as_expected ? "played" : player_.ending()->message;
  }

  std::vector<std::string> reads;

 private:
  SessionPlayer player_;
  Time now_{0};
};

const ReplayOptions kNoPrelude{.prelude = false};

TEST(Replay, RefusesEachByteThatIsNotExpected) {
  // clang-format off
  const struct { std::string_view sent; std::string_view outcome; } cases[] = {
      {"AT+CSQ",            "goes on"                                              },
      {"at",                "byte 1 is \"a\" instead of \"A\""                     },
      {"AT+CSQ?\r",         "byte 7 is \"?\" instead of \"\\r\""                   },
      {"AT+CMEE=1\rAT+C\r", "byte 5 is \"\\r\" instead of \"S\""                   },
      {"AT+CSQ\rA",         "expected: the end of the session\n  got:      \"A\""  },
      {"AT+CSQ\r",          "played"                                               },
      {"AT+CMEE=1\rAT+CSQ\r", "played"                                             },
  };
  // clang-format on
  for (const auto& [sent, outcome] : cases) {
    Played played("> AT+CSQ\\r\n< \\r\\nOK\\r\\n\n");
    played.receive(sent);
    EXPECT_THAT(played.outcome(), HasSubstr(outcome)) << escape(sent);
  }
}

TEST(Replay, AnswersTheSetUpCommandOnceInFront) {
  Played played("> AT+CSQ\\r\n< A\n");
  played.receive("AT+CMEE=1\r");
  EXPECT_THAT(played.reads, ElementsAre("\r\nOK\r\n"));
  played.receive("AT+CMEE=1\r");
  EXPECT_THAT(played.outcome(), HasSubstr("byte 5 is \"M\" instead of \"S\""));

  Played own("> AT+CMEE=1\\r\n< own\n");
  own.receive("AT+CMEE=1\r");
  EXPECT_THAT(own.reads, ElementsAre("own"));
  EXPECT_EQ(own.outcome(), "played");

  Played without("> AT+CSQ\\r\n< A\n", kNoPrelude);
  without.receive("AT+CMEE=1\r");
  EXPECT_THAT(without.outcome(), HasSubstr("expected: \"AT+CSQ\\r\""));
}

TEST(Replay, GivesUpOnASilentHost) {
  const ReplayOptions patient{.patience = Time{1000}};
  Played played("> A\\r\n< OK\n> B\\r\n", patient);
  played.pass(Time{999});
  EXPECT_EQ(played.outcome(), "goes on");
  played.receive("A\r");
  played.pass(Time{999});
  played.receive("B");
  EXPECT_EQ(played.outcome(), "goes on");
  played.pass(Time{1});
  EXPECT_THAT(played.outcome(), HasSubstr("s.txt:3: the host did not send this in time"));
  EXPECT_THAT(played.outcome(), HasSubstr("got:      \"B\""));
}

}  // namespace
}  // namespace mdxsim
