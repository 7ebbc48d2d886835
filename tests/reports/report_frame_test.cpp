// How handlers treat the field chain. The parser here is a script, so that a chain can hold what
// the real one never makes and its release can be seen.

#include <gmock/gmock.h>

#include <algorithm>
#include <deque>

#include "platform/at_fields.h"
#include "tests/fake_platform/fake_platform.h"
#include "tests/reports/report_journal.h"

using testing::ElementsAre;

namespace {

int parser_result = 0;
std::deque<at_field_t> parser_chain;

void parser_gives(int result, std::initializer_list<std::pair<const char*, const char*>> fields) {
  parser_result = result;
  parser_chain.clear();
  for (const auto& [name, value] : fields) {
    parser_chain.push_back({name, value, 0, nullptr});
    if (parser_chain.size() > 1) parser_chain[parser_chain.size() - 2].next = &parser_chain.back();
  }
}

}  // namespace

int at_cmd_parse(at_field_t** chain, const char*, const char*, int group, int kind) {
  EXPECT_EQ(*chain, nullptr);
  EXPECT_EQ(group, 0);
  EXPECT_EQ(kind, 3);
  fake::journal.push_back({.what = fake::kind::CALL, .name = "at_cmd_parse"});
  if (!parser_chain.empty()) *chain = &parser_chain.front();
  return parser_result;
}

void free_at_cmd(at_field_t* chain) {
  EXPECT_EQ(chain, &parser_chain.front());
  for (at_field_t& field : parser_chain) field = {};
  fake::journal.push_back({.what = fake::kind::CALL, .name = "free_at_cmd"});
}

TEST(ReportFrame, OfTwoFieldsOfOneNameTheLastCountsUnlessTheWalkStops) {
  // clang-format off
  const struct { const char* line; const char* name; const char* first; const char* last; std::string packet; } cases[] = {
      {"^ANLEVEL",    "level",      "1",   "2",  notify(19, 19011, 2, 0)},
      {"^WAKEUPIN",   "value",      "123", "4",  notify(55, 55013, 4, -1)},
      {"+CMTI",       "mem",        "LONG", "S", notify(1, 1008, words({0}) + text("S", 16) + words({0}))},
      {"^SRVST",      "srv_status", "1",   "3",  dialup(166661, words({1}))},
      {"^SIMREFRESH", "file_type",  "1",   "2",  notify(7, 7043, 1, 0)},
      {"^SMMEMFULL",  "mem_type",   "SM",  "ME", notify(1, 1001, 0, 0)},
  };
  // clang-format on
  for (const auto& c : cases) {
    parser_gives(0, {{"other", "9"}, {c.name, c.first}, {c.name, c.last}});
    const journal_t packets = packets_of(report(c.line));
    ASSERT_FALSE(packets.empty()) << c.line;
    EXPECT_EQ(packets[0], c.packet) << c.line;
    const auto calls =
        fake::lines({fake::kind::CALL, fake::kind::NOTIFICATION, fake::kind::SERVICE});
    ASSERT_GE(calls.size(), 3u) << c.line;
    EXPECT_EQ(calls[1], "free_at_cmd") << c.line << ": before anything is sent";
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "free_at_cmd"), 1) << c.line;
  }
}

TEST(ReportFrame, AnyResultButZeroIsAFailureExceptForSupplementaryReports) {
  parser_gives(7, {});
  EXPECT_THAT(report("^ANLEVEL"),
              ElementsAre(trace(8, "anelvel_report_callback, error,and the ret = 7")));
  EXPECT_THAT(report("+CSSI"), ElementsAre(trace(8, "enter cssi_report_callback\n"),
                                           trace(8, "finish cssi_report_callback\n")));
}
