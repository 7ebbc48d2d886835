// Which line is a result, which a report, and for whom an unknown plus or caret line is text.
#include "server/at_match.h"

#include <random>

#include "tests/unit/server_test.h"

namespace unit {
namespace {

constexpr int kUntouched = 99;

class Match : public Server {
 protected:
  int index = kUntouched;

  int32_t is_report(uint32_t req_type, std::string line) {
    const at_msg_t msg = record({.req_type = req_type});
    int code = kUntouched;
    const int32_t result =
        Is_report_msg(&msg, line.data(), static_cast<int32_t>(line.size()), &index, &code);
    EXPECT_EQ(code, kUntouched) << line;
    return result;
  }
};

TEST_F(Match, AResultStandsAtTheStartOfTheLine) {
  // clang-format off
  const struct { const char* line; int code; } cases[] = {
      {"OK", 2},  {"OKAY", 2}, {"O", kUntouched}, {"ok", kUntouched}, {" OK", kUntouched}, {"1 OK", kUntouched},
      {"+CME ERROR: 30", 3}, {"+CME ERROR", 3}, {"+CME  ERROR: 30", kUntouched}, {"CME ERROR", kUntouched},
      {"+CMS ERROR: 500", 4}, {"ERROR", 5}, {"ERR", kUntouched}, {"the ERROR", kUntouched},
      {"NO CARRIER", 6}, {"NO CARRIE", kUntouched}, {"NO ANSWER", 7}, {"COMMAND NOT SUPPORT", 8},
      {"COMMAND NOT SUPPORTED", 8}, {"TOO MANY PARAMETERS", 9}, {"ATE0", 10}, {"ATE", kUntouched},
      {"CONNECT 115200", 11}, {"NO DIALTONE", 12}, {"BUSY", 13}, {"", kUntouched},
  };
  // clang-format on
  for (const auto& c : cases) {
    int code = kUntouched;
    EXPECT_EQ(atcmd_match_result(c.line, &code), c.code == kUntouched ? -1 : 0) << c.line;
    EXPECT_EQ(code, c.code) << c.line;
  }
}

TEST_F(Match, AReportIsFoundAnywhereInItsLine) {
  // clang-format off
  const struct { const char* line; int result; int index; } cases[] = {
      {"^NDISSTATEX:1,1,,,\"IPV4\"", 0, 55}, {"^NDISSTAT:1,,,\"IPV4\"", 0, 77},
      {"IRING",                  0, 6},   {"a RINGing line",         0, 6},
      {"+X: \"RING\" +CLIP",     0, 6},   {"+CMT: RING",             0, 1},
      {"CONNECT 9600",           0, 7},   {"to CONNECT",             0, 7},
      {"XLEMA: 1,2",            -1, -1},  {"^XLEMA: 1,2,112,0,1,fff", 0, 56},
      {"text with ^SIMST:1",    -1, -1},  {"+X ^SRVST:2",            0, 9},
      {">",                      0, -1},  {"> ",                     0, -1},
      {" >",                    -1, -1},  {">+CMTI: \"SM\",1",       0, -1},
  };
  // clang-format on
  for (const uint32_t req_type : {NORMAL_CMD, ACTIVE_REPORT, TRANSPARENT_CMD}) {
    for (const auto& c : cases) {
      EXPECT_EQ(is_report(req_type, c.line), c.result) << c.line;
      EXPECT_EQ(index, c.index) << c.line;
    }
  }
}

TEST_F(Match, AnUnknownPlusOrCaretLineBelongsToTheCommandThatNamesIt) {
  const std::string p63 = "^" + std::string(62, 'P');
  // clang-format off
  const struct { uint32_t req_type; std::string sent; std::string line; int result; } cases[] = {
      {NORMAL_CMD,      "AT+CSQ",   "+CSQ: 1",       -1},
      {NORMAL_CMD,      "at+csq",   "+CSQ: 1",        0},
      {NORMAL_CMD,      "AT+CGMI",  "+CSQ: 1",        0},
      {NORMAL_CMD,      "AT+CSQ=1", "+CS: 1",        -1},     // a part of the name is enough
      {NORMAL_CMD,      "AT+CGMI",  "+CSQ 1",        -1},     // no colon: no prefix to compare
      {NORMAL_CMD,      "AT" + p63, p63 + ": 1",      0},     // the head holds 63 bytes of "AT^PP…"
      {NORMAL_CMD,      p63,        p63 + ": 1",     -1},
      {NORMAL_CMD,      p63,        p63 + "P: 1",     0},
      {NORMAL_CMD,      p63,        p63 + std::string(900, 'P') + ": 1", 0},
      {TRANSPARENT_CMD, "AT+CGMI",  "+CSQ: 1",       -1},
      {ACTIVE_REPORT,   "AT+CSQ",   "+CSQ: 1",        0},
  };
  // clang-format on
  for (const auto& c : cases) {
    std::memset(mdx_state.sent_cmd_head, 0, kSentHeadSize);
    c.sent.copy(mdx_state.sent_cmd_head, kSentHeadSize - 1);
    EXPECT_EQ(is_report(c.req_type, c.line), c.result)
        << c.req_type << ' ' << c.sent << ' ' << c.line;
    EXPECT_EQ(index, -1);
  }
}

/// Literals whole and cut, and what stands around them.
std::string random_line(std::mt19937* random) {
  constexpr std::string_view kOthers[] = {"+", "^", "R", ": 1,2", "\"SM\",", "OK", "\x80", "CC"};
  const auto below = [random](size_t limit) { return (*random)() % limit; };
  std::string line;
  for (size_t pieces = below(9); pieces > 0; --pieces) {
    const std::string literal = at_report_table[below(65)].literal;
    switch (below(3)) {
      case 0:
        line += literal;
        break;
      case 1:  // a piece of it
        line += literal.substr(below(literal.size()), 1 + below(literal.size()));
        break;
      default:
        line += kOthers[below(std::size(kOthers))];
    }
  }
  return line;
}

TEST_F(Match, TheFirstRowThatStandsInALineIsHitWhereverItStands) {
  const uint32_t seed = std::random_device{}();
  std::mt19937 random(seed);
  for (int i = 0; i < 20000; ++i) {
    const std::string line = "^" + random_line(&random);
    const at_report_row_t* row = at_report_table;
    while (row->literal != nullptr && line.find(row->literal) == std::string::npos) ++row;
    is_report(ACTIVE_REPORT, line);
    ASSERT_EQ(index, row->literal == nullptr ? -1 : row->id) << line << ", seed " << seed;
    fake::journal.clear();
  }
}

}  // namespace
}  // namespace unit
