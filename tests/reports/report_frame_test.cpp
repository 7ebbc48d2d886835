// How handlers treat the field chain. The parser here is a script, so that a chain can hold what
// the real one never makes and its release can be seen.

#include <gmock/gmock.h>

#include <deque>

#include "platform/at_fields.h"
#include "server/at_match.h"
#include "tests/fake_platform/fake_platform.h"
#include "tests/reports/report_journal.h"

using testing::ElementsAre;
using testing::IsEmpty;

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

TEST(ReportFrame, TheChainIsReleasedOnceBeforeAnythingIsSent) {
  for (const at_report_row_t* row = at_report_table; row->literal != nullptr; ++row) {
    parser_gives(0, {{"mem_type", "SM"}, {"file_type", "1"}, {"roaming_status", "1"}});
    std::string line = row->literal;
    if (line[0] >= 'A') line.insert(0, 1, '+');
    report(line);
    bool lives = false;
    for (const fake::entry& e : fake::journal) {
      if (e.what == fake::kind::TRACE) continue;
      if (e.name == "at_cmd_parse") {
        lives = true;
      } else if (e.name == "free_at_cmd") {
        EXPECT_TRUE(lives) << row->literal;
        lives = false;
      } else {
        EXPECT_FALSE(lives) << row->literal << " " << e.line();
      }
    }
    EXPECT_FALSE(lives) << row->literal;
  }
}

TEST(ReportFrame, OfTwoFieldsOfOneNameTheLastCountsUnlessTheWalkStops) {
  // clang-format off
  const struct { const char* line; const char* name; const char* first; const char* last; std::string packet; } cases[] = {
      {"^ANLEVEL",    "level",      "1",   "2",  notify(19, 19011, 2, 0)},
      {"^WAKEUPIN",   "value",      "123", "4",  notify(55, 55013, 4, -1)},
      {"^MODE",       "sys_mode",   "123", "4",  dialup(166661, words({4}))},
      {"+CMTI",       "mem",        "LONG", "S", notify(1, 1008, words({0}) + text("S", 16) + words({0}))},
      {"^SRVST",      "srv_status", "1",   "3",  dialup(166661, words({1}))},
      {"^SIMREFRESH", "file_type",  "1",   "2",  notify(7, 7043, 1, 0)},
      {"^SMMEMFULL",  "mem_type",   "ME",  "SM", notify(1, 1001, 0, 0)},
      {"^SMMEMFULL",  "mem_type",   "SM",  "ME", notify(1, 1001, 0, 0)},
  };
  // clang-format on
  for (const auto& c : cases) {
    parser_gives(0, {{"other", "9"}, {c.name, c.first}, {c.name, c.last}});
    const journal_t packets = packets_of(report(c.line));
    ASSERT_FALSE(packets.empty()) << c.line;
    EXPECT_EQ(packets[0], c.packet) << c.line;
  }
}

TEST(ReportFrame, AFieldOfNoNameThatAHandlerKnowsIsSkipped) {
  parser_gives(0, {{"other", "9"}});
  EXPECT_THAT(packets_of(report("^SIMREFRESH")), ElementsAre(notify(7, 7043, 0, 0)));
  EXPECT_THAT(packets_of(report("^SIMST")).size(), 5u);
  EXPECT_THAT(packets_of(report("^SMMEMFULL")), IsEmpty());
}

TEST(ReportFrame, AnyResultButZeroIsAFailure) {
  parser_gives(7, {});
  EXPECT_THAT(report("^ANLEVEL"),
              ElementsAre(trace(8, "anelvel_report_callback, error,and the ret = 7")));
}

TEST(ReportFrame, SupplementaryReportsFailOnMinusOneAlone) {
  parser_gives(7, {});
  EXPECT_THAT(report("+CSSI"), ElementsAre(trace(8, "enter cssi_report_callback\n"),
                                           trace(8, "finish cssi_report_callback\n")));
}
