// SPDX-License-Identifier: Apache-2.0

// What the bridge lets in and out, and what it keeps while the broker is away.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "tools/mdxbridge/figures.h"
#include "tools/mdxbridge/limits.h"
#include "tools/mdxbridge/outbox.h"
#include "tools/mdxbridge/patterns.h"
#include "tools/mdxbridge/privacy.h"
#include "tools/mdxbridge/request.h"
#include "tools/mdxbridge/settings.h"

namespace {

using namespace mdxbridge;
using testing::ElementsAre;
using testing::HasSubstr;
using strings_t = std::vector<std::string>;

TEST(Patterns, StarStaysInsideOneCommand) {
  // clang-format off
  const struct { std::string pattern; std::string command; bool allowed; } cases[] = {
    {"AT+CSQ",       "AT+CSQ",                true },
    {"AT+CSQ",       "at + csq",              true },
    {"AT+CSQ",       "AT+CSQ?",               false},
    {"AT+CREG?",     "AT+CREG=",              false},
    {"AT+CSQ",       "AT+CS",                 false},
    {"AT+C*?",       "AT+CREG?",              true },
    {"AT+C*?",       "AT+CREG?;+CFUN?",       false},
    {"AT*",          "AT+CFUN=0",             false},
    {"AT*",          "ATI",                   true },
    {"AT+CSQ*",      "AT+CSQ+CFUN=0",         false},
    {"AT+CSQ;+COPS?","at+csq;+cops?",         true },
    {"AT+CPBW=*",    "AT+CPBW=1,\"+49\"",     true },
    {"AT+CPBW=*",    "AT+CPBW=1,\"a;b\"",     false},
    {"ATD*99#",      "ATD*99#",               true },
    {"ATD*99#",      "ATD0190;+X99#",         false},
    {"ATE*",         "ATE0D0190",             false},
    {"ATE*",         "ATE0Z",                 false},
    {"ATS0=*",       "ATS0=1",                true },
    {"ATI*",         "ATI*CIMI",              false},
    {"AT*",          "AT*CIMI",               false},
    {"AT*",          "ATD0151T1W2",           true },
    {"AT*",          "ATE0V1",                false},
    {"AT&*",         "AT&F",                  true },
    {"AT&*",         "AT&F&W",                false},
    {"AT&*",         "AT&FZ",                 false},
    {"AT+CPBW=*",    "AT+CPBW=1,\"a+b\"",     true },
    {"AT+CPBW=*",    "AT+CPBW=1,\"+CFUN=0",   false},
    {"AT+A*B*C",     "AT+AxBxBxC",            true },
    {"AT+A*B*C",     "AT+AxCxB",              false},
  };
  // clang-format on
  for (const auto& c : cases) {
    EXPECT_EQ(allows_command({c.pattern}, c.command), c.allowed)
        << c.pattern << " for " << c.command;
  }
  EXPECT_FALSE(allows_command({}, "AT"));
  EXPECT_TRUE(allows_number({"+1", "+49*"}, "+49 151/123-4"));
  EXPECT_FALSE(allows_number({"+49*"}, "0049151"));
}

TEST(Patterns, NoneAllowsWhatTakesTheResultsFromAll) {
  settings_t settings;
  settings.allow_commands = {"AT*", "ATS*", "AT+I*", "AT+C*"};
  for (const char* command : {"ATV0", "ATS3=0", "ATS4=65", "AT+IPR=9600", "AT+CMUX=0"}) {
    request_t request;
    request.command = command;
    EXPECT_THAT(refusal(request, settings), HasSubstr("time out")) << command;
  }
  request_t request;
  request.command = "AT+IPR?";
  EXPECT_EQ(refusal(request, settings), "");
}

TEST(Outbox, OldestGoesAndTheNextSaysSo) {
  lane_t lane(2);
  for (const char* text : {R"({"n":1})", R"({"n":2})", "", R"({"n":3})", R"({"n":4})"}) {
    lane.add({"t", text});
  }
  ASSERT_NE(lane.next(), nullptr);
  EXPECT_EQ(text_of(*lane.next()), R"({"dropped":2,"n":3})");
  EXPECT_EQ(lane.dropped(), 2U);
}

TEST(Outbox, WhatWasNotConfirmedGoesAgainInOrder) {
  lane_t lane(2);
  const auto send = [&](int mid) {
    const std::string text = lane.next()->text;
    lane.sent(mid);
    return text;
  };
  lane.add({"t", R"({"n":1})"});
  lane.add({"t", R"({"n":2})"});
  EXPECT_THAT((strings_t{send(7), send(8)}), ElementsAre(R"({"n":1})", R"({"n":2})"));
  lane.add({"t", R"({"n":3})"});
  lane.add({"t", R"({"n":4})"});  // two wait, and two are on their way
  EXPECT_FALSE(lane.confirmed(6));
  EXPECT_TRUE(lane.confirmed(8));
  lane.rewind();
  EXPECT_THAT((strings_t{send(1), send(2), send(3)}),
              ElementsAre(R"({"n":1})", R"({"n":3})", R"({"n":4})"));
  for (const int mid : {1, 2, 3}) EXPECT_TRUE(lane.confirmed(mid));
  EXPECT_TRUE(lane.empty());
  EXPECT_EQ(lane.dropped(), 0U);
}

TEST(Outbox, WhatEndsEachConnectionGoes) {
  lane_t lane(8, 2);
  lane.add({"t", R"({"n":1})"});
  for (int connection = 0; connection < 2; ++connection) {
    ASSERT_EQ(text_of(*lane.next()), R"({"n":1})");
    lane.sent(1);
    lane.add({"t", R"({"n":2})"});
    lane.rewind();
  }
  ASSERT_EQ(text_of(*lane.next()), R"({"dropped":1,"n":2})") << "it did not get that far";
  lane.drop_next();
  EXPECT_EQ(text_of(*lane.next()), R"({"dropped":2,"n":2})");
}

TEST(Outbox, CountOutlivesAQueueWithNobodyBehind) {
  lane_t lane(1);
  lane.add({"t", R"({"n":1})"});
  lane.add({"t", ""});  // takes the place of the only one
  lane.add({"t", R"({"n":2})"});
  EXPECT_EQ(text_of(*lane.next()), R"({"dropped":1,"n":2})");
}

TEST(Limits, SoManyInAnySecond) {
  rate_limit_t limit(2);
  const clock_type::time_point start;
  const auto after = [&](int ms) { return start + std::chrono::milliseconds(ms); };
  EXPECT_TRUE(limit.take(after(0)));
  EXPECT_TRUE(limit.take(after(900)));
  EXPECT_FALSE(limit.take(after(999)));
  EXPECT_TRUE(limit.take(after(1000)));
  EXPECT_FALSE(limit.take(after(1899)));
}

TEST(Limits, RepeatsAreRememberedForAMinute) {
  repeats_t repeats;
  const clock_type::time_point start;
  const auto after = [&](int s) { return start + std::chrono::seconds(s); };
  EXPECT_EQ(repeats.find("a", start), nullptr);
  repeats.begun("a", start);
  ASSERT_NE(repeats.find("a", after(100)), nullptr) << "it still runs";
  EXPECT_FALSE(repeats.find("a", after(100))->done);
  repeats.done("a", "answer");
  EXPECT_EQ(repeats.find("a", after(60))->answer, "answer");
  EXPECT_EQ(repeats.find("a", after(61)), nullptr);
  repeats.begun("a", after(61));
  repeats.done("a", std::string(300000, 'x'));
  EXPECT_EQ(repeats.find("a", after(62))->answer, "") << "too long to be kept, but it was run";
}

TEST(Settings, MistakesAreToldWithLineAndKey) {
  settings_t settings;
  std::istringstream file(
      "host = h\r\n\n  port=1\nqueue = 1e3\nopen = all\nallow-command = AT+CSQ\nallow-command=x\n");
  EXPECT_THAT(read_settings(file, "f", &settings),
              ElementsAre(HasSubstr("f:4: queue: '1e3' is no number from 1 to 1000000"),
                          HasSubstr("f:5: open: 'all' is none of messages, ussd"),
                          HasSubstr("f:7: allow-command: 'x' allows no command")));
  EXPECT_EQ(settings.host, "h");
  EXPECT_EQ(settings.port, 1);
  EXPECT_THAT(settings.allow_commands, ElementsAre("AT+CSQ"));
}

TEST(Settings, WhatNoBrokerCouldTake) {
  settings_t settings;
  std::istringstream file("\xef\xbb\xbfhost = a b\nid = \xff\xfe\nca-file = /\nid = x\n");
  EXPECT_THAT(read_settings(file, "f", &settings),
              ElementsAre("f:2: id: holds bytes that are no UTF-8", HasSubstr("f:4: id")));
  EXPECT_THAT(check_settings(&settings, "f"),
              ElementsAre("f:1: host: holds a blank", "f:3: ca-file: / is a directory"));
  std::string error;
  read_secret("/", &error);
  EXPECT_THAT(error, HasSubstr("/ cannot be read"));
}

TEST(Settings, OneValueForEachKeyThatIsNoList) {
  settings_t settings;
  std::istringstream file("host = a\nleave-out = A\nleave-out = B\nhost = b\n");
  EXPECT_THAT(read_settings(file, "f", &settings), ElementsAre("f:4: host: stands in f:1 already"));
}

TEST(Settings, NamesThatTopicsCannotHold) {
  for (const char* id : {"", "a/b", "a+", "#", "$SYS", "localhost"}) {
    settings_t settings;
    settings.host = "h";
    settings.id = id;
    const bool machine = settings.id.empty();
    const std::vector<std::string> mistakes = check_settings(&settings, "f");
    EXPECT_EQ(mistakes.empty(), machine && settings.id != "localhost") << id;
  }
  settings_t settings;
  settings.host = "h";
  settings.id = "x";
  settings.prefix = "a/b";
  settings.psk_identity = "x";
  EXPECT_THAT(check_settings(&settings, "f"),
              ElementsAre("f: psk-identity: needs psk-file beside it"));
  EXPECT_EQ(settings.topic("state"), "a/b/x/state");
}

TEST(Answers, GoToTopicsThatAreNoneOfOthers) {
  settings_t settings;
  settings.prefix = "fleet";
  settings.id = "a";
  for (const char* good : {"fleet/a/answer", "fleet/a/answer/1", "desk/7", "fleets/b"})
    EXPECT_TRUE(may_answer_at(good, settings)) << good;
  for (const char* bad : {"", "fleet/a/answers", "fleet/a/command", "fleet/b/answer", "fleet/",
                          "desk/+", "#", "$SYS/x", "desk/\n"})
    EXPECT_FALSE(may_answer_at(bad, settings)) << bad;
  EXPECT_FALSE(may_answer_at(std::string(300, 'x'), settings));
  EXPECT_FALSE(may_answer_at(std::string(100, '/') + "x", settings));
}

TEST(Privacy, AnswersWithoutIdentities) {
  EXPECT_EQ(published_answer("a 1234567890123 b 49015420323751", {}, {}),
            "a 1234567890123 b **************");
  EXPECT_EQ(published_answer("490154203237518", {}, {"identities"}), "490154203237518");
  EXPECT_EQ(withheld_by_command("at+c imi", {}), "identities");
  EXPECT_EQ(withheld_by_command("AT+CSQ;+CNUM", {"identities"}), "numbers");
  EXPECT_EQ(withheld_by_command("AT+CRSM=176,12258,0,0,10", {"identities"}), "unknown");
  EXPECT_EQ(withheld_by_command("AT+CGAUTH?", {}), "unknown");
  EXPECT_EQ(withheld_by_command("AT+CSVM?", {}), "numbers");
  EXPECT_EQ(withheld_by_command("AT+COPS?", {}), "");
}

TEST(Privacy, ReportsBetweenTheLinesOfAnAnswer) {
  const std::string text =
      "^CALLER: \"+4915\",1,4915112\r\n+CNAP: \"Bob\"\r\n+CGDCONT: 1,\"IP\",\"web\"";
  EXPECT_EQ(published_answer(text, {"+CGDCONT:"}, {}),
            "^CALLER: \"*****\",1,*******\r\n+CNAP: \"***\"\r\n+CGDCONT: 1,\"IP\",\"web\"");
  EXPECT_EQ(published_answer(text, {"+CGDCONT:"}, {"unknown"}), text);
  EXPECT_EQ(published_answer("+cgdcont: \"IP\"", {"+CGDCONT:"}, {}), "+cgdcont: \"IP\"");
}

TEST(Privacy, NamesOfCommandsInTheJournal) {
  // clang-format off
  const struct { const char* command; const char* shown; } cases[] = {
    {"AT+CPIN=\"4711\"", "AT+CPIN=..."},
    {"ATD+4915112345;",  "ATD+...;"   },
    {"AT+CSQ;D0151",     "AT+CSQ;D..."},
    {"ATE0V1",           "ATE0V1"     },
    {"AT+CREG?",         "AT+CREG?"   },
    {"AT+CMGW\rsecret",  "AT+CMGW..." },
    {"ATD>\"Mum\";",     "ATD..."     },
    {"to Bob: secret",   "request"    },
    {"at home: secret",  "at..."      },
  };
  // clang-format on
  for (const auto& c : cases) {
    request_t request;
    request.command = c.command;
    EXPECT_EQ(request.name(), c.shown);
  }
}

TEST(Privacy, UnknownPacketsStay) {
  mdx_packet_t packet = MDX_PACKET_INIT;
  packet.kind = MDX_KIND_NOTIFICATION;
  packet.module = 99;
  packet.payload = "secret";
  packet.length = 6;
  EXPECT_EQ(published_packet(packet, {}).at("payload"), nullptr);
  EXPECT_EQ(published_packet(packet, {"unknown"}).at("payload"), "736563726574");
}

TEST(Figures, LinesOfPrometheus) {
  nlohmann::ordered_json object;
  add_figures_of("# HELP a b\na 1\nb{x=\"y z\"} 2.5\nbad\nc NaNa\nd 18446744073709551615\n",
                 &object);
  EXPECT_EQ(object.dump(), R"({"a":1,"b{x=\"y z\"}":2.5,"d":1.8446744073709552e+19})");
}

}  // namespace
