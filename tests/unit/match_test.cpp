// SPDX-License-Identifier: Apache-2.0

// Which line is a result, which a report, and for whom an unknown plus or caret line is text.
#include "server/at_literals.h"
#include "server/at_match.h"

#include <random>

#include "server/at_framing.h"
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

std::vector<std::string> literals_of(const auto* row) {
  std::vector<std::string> literals;
  for (; at_row_text(*row) != nullptr; ++row) literals.push_back(at_row_text(*row));
  return literals;
}

/// The first of them that stands in the line, -1 for none.
int32_t first_in(const std::string& line, const std::vector<std::string>& literals) {
  const auto hit = std::find_if(literals.begin(), literals.end(), [&](const std::string& literal) {
    return std::strstr(line.c_str(), literal.c_str()) != nullptr;
  });
  return hit == literals.end() ? -1 : static_cast<int32_t>(hit - literals.begin());
}

TEST_F(Match, TheFirstRowOfEachTableIsFoundWhereverItStandsInALine) {
  const auto headers = literals_of(at_sms_headers);
  const auto notifications = literals_of(literal_notify_table);
  const auto reports = literals_of(at_report_table);
  std::vector<std::string> literals = reports;
  literals.insert(literals.end(), headers.begin(), headers.end());
  literals.insert(literals.end(), notifications.begin(), notifications.end());
  const strings others = {"+", "^", "R", "N", ": 1,2", "\"SM\",", "OK", "\x80", "CC", "a\0b"s};

  const uint32_t seed = std::random_device{}();
  std::mt19937 random(seed);
  const auto below = [&](size_t limit) { return random() % limit; };
  const auto piece = [&] {
    const std::string& literal = literals[below(literals.size())];
    const size_t choice = below(3);
    if (choice == 0) return literal;
    if (choice == 1) return literal.substr(below(literal.size()), 1 + below(literal.size()));
    return others[below(others.size())];
  };
  for (int i = 0; i < 20000; ++i) {
    std::string line;
    for (size_t pieces = below(9); pieces > 0; --pieces) line += piece();
    const at_findings_t found = at_look_through(line.c_str());
    ASSERT_EQ(found.sms_header, first_in(line, headers)) << line << ", seed " << seed;
    ASSERT_EQ(found.notification, first_in(line, notifications)) << line << ", seed " << seed;
    ASSERT_EQ(found.report, first_in(line, reports)) << line << ", seed " << seed;
  }
}

}  // namespace
}  // namespace unit
