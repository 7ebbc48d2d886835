// Which line is a result, which a report, and for whom an unknown plus or caret line is text.
#include "server/at_match.h"

#include <random>

#include "tests/unit/server_test.h"

namespace unit {
namespace {

constexpr int kUntouched = 99;

class Match : public Server {};

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
      {"+CMTI: \"SM\",1",        0, 0},   {"+CMT: ,35",              0, 1},
      {"+CDSI: \"SM\",3",        0, 2},   {"+CDS: 25",               0, 3},
      {"^NDISSTATEX:1,1,,,\"IPV4\"", 0, 55}, {"^NDISSTAT:1,,,\"IPV4\"", 0, 77},
      {"^NDISSTATQRY:1",         0, 77},  {"RING",                   0, 6},
      {"IRING",                  0, 6},   {"a RINGing line",         0, 6},
      {"ring",                  -1, -1},  {"RIN",                   -1, -1},
      {"+X: \"RING\" +CLIP",     0, 6},   {"+CMT: RING",             0, 1},
      {"CONNECT 9600",           0, 7},   {"to CONNECT",             0, 7},
      {"^CONN:1,0",              0, 16},  {"^DCONN:1,\"IPV4\"",      0, 26},
      {"^TIME: 1",               0, 36},  {"^NWTIME:18/12/13,06:20:04+28,00", 0, 37},
      {"^SIMST:1",               0, 10},  {"^EXSIMST:1",             0, 80},
      {"+CREG: 1",               0, 14},  {"+CGREG: 1",              0, 35},
      {"^CARDLOCKNTY:PIN",       0, 41},  {"^SIMREFRESH:1",          0, 76},
      {"XLEMA: 1,2",            -1, -1},  {"^XLEMA: 1,2,112,0,1,fff", 0, 56},
      {"text with ^SIMST:1",    -1, -1},  {"+X ^SRVST:2",            0, 9},
      {">",                      0, -1},  {"> ",                     0, -1},
      {" >",                    -1, -1},  {">+CMTI: \"SM\",1",       0, -1},
      {"0123456789",            -1, -1},  {"",                      -1, -1},
  };
  // clang-format on
  for (const uint32_t req_type : {NORMAL_CMD, ACTIVE_REPORT, TRANSPARENT_CMD}) {
    const at_msg_t msg = record({.req_type = req_type});
    for (const auto& c : cases) {
      std::string line = c.line;
      line.resize(MAX_ATCMD_REPORT_SIZE);
      int index = kUntouched;
      int code = kUntouched;
      EXPECT_EQ(
          Is_report_msg(&msg, line.data(), static_cast<int32_t>(strlen(c.line)), &index, &code),
          c.result)
          << c.line;
      EXPECT_EQ(index, c.index) << c.line;
      EXPECT_EQ(code, kUntouched) << c.line;
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
      {NORMAL_CMD,      "",         "+CSQ: 1",        0},
      {NORMAL_CMD,      "AT+CGMI",  "+CSQ 1",        -1},     // no colon: no prefix to compare
      {NORMAL_CMD,      "AT+CGMI",  "^UNKNOWN",      -1},
      {NORMAL_CMD,      "AT" + p63, p63 + ": 1",      0},     // the head holds 63 bytes of "AT^PP…"
      {NORMAL_CMD,      p63,        p63 + ": 1",     -1},
      {NORMAL_CMD,      p63,        p63 + "P: 1",     0},
      {NORMAL_CMD,      p63,        p63 + std::string(900, 'P') + ": 1", 0},
      {TRANSPARENT_CMD, "AT+CGMI",  "+CSQ: 1",       -1},
      {TRANSPARENT_CMD, "AT+CGMI",  "+CSQ 1",        -1},
      {ACTIVE_REPORT,   "AT+CSQ",   "+CSQ: 1",        0},
      {ACTIVE_REPORT,   "AT+CSQ",   "^UNKNOWN",       0},
  };
  // clang-format on
  for (const auto& c : cases) {
    std::memset(mdx_state.sent_cmd_head, 0, kSentHeadSize);
    c.sent.copy(mdx_state.sent_cmd_head, kSentHeadSize - 1);
    const at_msg_t msg = record({.req_type = c.req_type});
    std::string line = c.line;
    int index = kUntouched;
    int code = 0;
    EXPECT_EQ(Is_report_msg(&msg, line.data(), static_cast<int32_t>(line.size()), &index, &code),
              c.result)
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
      case 1:
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
  const at_msg_t msg = record({.req_type = ACTIVE_REPORT});
  for (int i = 0; i < 20000; ++i) {
    std::string line = "^" + random_line(&random);
    const at_report_row_t* row = at_report_table;
    while (row->literal != nullptr && line.find(row->literal) == std::string::npos) ++row;
    int index = kUntouched;
    int code = 0;
    const std::string shown = line;
    Is_report_msg(&msg, line.data(), static_cast<int32_t>(line.size()), &index, &code);
    ASSERT_EQ(index, row->literal == nullptr ? -1 : row->id) << shown << ", seed " << seed;
    fake::journal.clear();
  }
}

}  // namespace
}  // namespace unit
