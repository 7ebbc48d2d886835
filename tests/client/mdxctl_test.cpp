// SPDX-License-Identifier: Apache-2.0

// mdxctl beside a server that does as it is told: what people and scripts see of an answer.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/client/run_mdxctl.h"
#include "tests/client/stand_in_server.h"
#include "tools/mdxctl/collection.h"

namespace {

using nlohmann::json;

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
    {"at AT3",                 1, "+CME ERROR: 10\n+CME ERROR\n"      },
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
  EXPECT_EQ(mdxctl("at -", "AT2\n\nAT5\r\nAT98\n").code, 1) << "the first that failed";
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
  StandInServer server([](StandInServer&, const at_msg_t&) {}, false);
  for (const char* arguments : {"at hello", "at AT+CMGS=22", "sms-pdu AT+CMGS=2 123"}) {
    EXPECT_EQ(mdxctl(arguments).code, 2) << arguments;
  }
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
  const struct { const char* command; const char* match; } cases[] = {
    {"AT+CREG?",       "+CREG:" }, {"at^hcsq?", "^HCSQ:"}, {"AT+CMGS?", ""}, {"AT+COPS=?", ""},
    {"AT+CMGS=?",      ""       }, {"AT+CSQ",   ""      }, {"ATI",      ""}, {"AT?",       ""},
    {"AT+CREG?;+CSQ?", ""       }, {"AT",       ""      }, {"A?",       ""}, {"AT+?",      ""},
  };
  // clang-format on
  for (const auto& c : cases) {
    const auto collection = collection_for(c.command, false);
    ASSERT_TRUE(collection.has_value()) << c.command;
    EXPECT_EQ(collection->match, c.match) << c.command;
    EXPECT_EQ(collection->transparent, *c.match == '\0') << c.command;
  }
  EXPECT_EQ(collection_for("AT+COPS=?", true)->match, "+COPS:");
  for (const char* command : {"AT+CMGS=22", "at+cmgw=1", "AT+CMGF=0;+CMGS=22", "AT^HCMGS=\"1\""}) {
    EXPECT_FALSE(collection_for(command, false).has_value()) << command;
  }
}

}  // namespace
