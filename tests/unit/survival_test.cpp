// Whatever bytes come, the parser ends and stays within its buffers; and for conversations that a
// modem could hold, a plain re-statement of the rules must find the same answer.
#include <random>

#include "tests/unit/server_test.h"

namespace unit {
namespace {

using generator = std::mt19937;

size_t below(generator& random, size_t limit) {
  return std::uniform_int_distribution<size_t>(0, limit - 1)(random);
}
template <class T, size_t N>
const T& one_of(generator& random, const T (&choices)[N]) {
  return choices[below(random, N)];
}

class Survival : public Server, public testing::WithParamInterface<unsigned> {
 protected:
  generator random{GetParam()};
};

std::string arbitrary_delivery(generator& random) {
  static const std::string pieces[] = {"\r\n",
                                       "\r\n",
                                       "\r",
                                       "\n",
                                       "\r\r\n",
                                       "\x1a",
                                       "\x1a\r\n",
                                       ">",
                                       "> ",
                                       "\0"s,
                                       ":",
                                       ",",
                                       "\"",
                                       "%s%n",
                                       "OK",
                                       "ERROR",
                                       "+CME ERROR: 3",
                                       "CONNECT",
                                       "BUSY",
                                       "+CMGR: 1",
                                       "+CMGL: 1",
                                       "^HCMGR: 1\r\n",
                                       "+CBM: 88\r\n",
                                       "+CMT: ,35\r\n",
                                       "+CREG: 1,",
                                       "^RSSI: 7",
                                       "RING",
                                       "^CPINNTY:READY",
                                       "+CSQ: 1",
                                       "+X",
                                       "^NDISSTAT: 1,,,\"IPV4\"",
                                       "+CUSD: 0,\"a\",15",
                                       "+CLIP: \"123\",129",
                                       "^SYSINFO:2,1,0,5"};
  const size_t wanted = below(random, 4) == 0 ? 1499 : 1 + below(random, 300);
  std::string bytes;
  while (bytes.size() < wanted) {
    switch (below(random, 8)) {
      case 0:
        bytes += std::string(below(random, 700), 'x');
        break;
      case 1:
        bytes += static_cast<char>(below(random, 256));
        break;
      default:
        bytes += one_of(random, pieces);
    }
  }
  return bytes.substr(0, wanted);
}

TEST_P(Survival, AnyBytesUnderAnyRequest) {
  const uint32_t req_types[] = {NORMAL_CMD, ACTIVE_REPORT, GET_REPORT, TRANSPARENT_CMD};
  const int32_t multi_lines[] = {0, 1, 7};
  const char* const matches[] = {"", "+CSQ", "OK", "x"};
  for (int round = 0; round < 150; ++round) {
    const ask asked = {.req_type = one_of(random, req_types),
                       .multi_line = one_of(random, multi_lines),
                       .match = one_of(random, matches)};
    std::string delivery = arbitrary_delivery(random);
    SCOPED_TRACE(testing::Message()
                 << "seed " << GetParam() << " round " << round << " type " << asked.req_type
                 << " multi_line " << asked.multi_line << " match " << asked.match << ' '
                 << testing::PrintToString(delivery));
    fake::journal.clear();
    const at_msg_t msg = answered(asked, {delivery});

    ASSERT_EQ(at_sm_is_rcv_buf_empty(&mdx_state.stream), 0);
    ASSERT_GE(mdx_state.nas_response_legth, 0);
    ASSERT_LE(mdx_state.nas_response_legth, 1499);
    ASSERT_GE(msg.rsp_len, 0);
    ASSERT_LE(msg.rsp_len, 1500);
    ASSERT_LT(text_of(msg).size(), 1500u) << "a NUL within its size";
    ASSERT_EQ(mdx_state.line_buf[1500], '\0');
    ASSERT_EQ(text_of(msg.at_match_str, kMatchSize), asked.match);
    ASSERT_TRUE(msg.ret_val == -1 || (msg.ret_val >= 2 && msg.ret_val <= 13)) << msg.ret_val;
    ASSERT_GE(mdx_state.line_state, 0);
    ASSERT_LE(mdx_state.line_state, 2);
  }
}

// One line of a conversation and what the rules call it.
struct said {
  enum what_t { TEXT, PATTERN, REPORT, UPDATE } what;
  std::string line;
};

std::string expected_text(const ask& asked, const std::vector<said>& lines,
                          const std::string& result) {
  const bool transparent = asked.req_type == TRANSPARENT_CMD;
  std::string text;
  for (const said& s : lines) {
    if (s.what == said::TEXT) text += s.line + (transparent ? "\r\n" : "");
    if (s.what == said::PATTERN) text += s.line + (asked.multi_line == 1 ? "\r\n" : "");
  }
  if (transparent) return text + result + "\r\n";
  if (result.starts_with("+CM")) return result;
  return asked.multi_line == 1 && result != "OK" ? "" : text;
}

TEST_P(Survival, AnAnswerIsTheSameWhereverItIsCutBetweenLines) {
  const said sayings[] = {
      {said::TEXT, "some text"},  {said::TEXT, "+OWN: 1"},      {said::TEXT, "12345"},
      {said::PATTERN, "+PAT: 1"}, {said::PATTERN, "OK +PAT"},   {said::REPORT, "^RSSI: 3"},
      {said::REPORT, "RING"},     {said::REPORT, "^ECLSTAT:1"}, {said::UPDATE, "^CPINNTY:READY"}};
  const std::string results[] = {"OK", "ERROR", "+CME ERROR: 10", "+CMS ERROR: 1", "NO CARRIER"};
  const struct {
    uint32_t req_type;
    int32_t multi_line;
  } kinds[] = {{NORMAL_CMD, 0}, {NORMAL_CMD, 1}, {TRANSPARENT_CMD, 0}};
  for (int round = 0; round < 60; ++round) {
    const auto kind = one_of(random, kinds);
    const ask asked = {.text = "AT+OWN",
                       .req_type = kind.req_type,
                       .multi_line = kind.multi_line,
                       .match = "+PAT"};
    std::vector<said> lines(below(random, 12));
    for (said& s : lines) s = one_of(random, sayings);
    const std::string result = one_of(random, results);
    strings deliveries = {""};
    for (const said& s : lines) {
      deliveries.back() += s.line + "\r\n";
      if (below(random, 3) == 0) deliveries.push_back(below(random, 2) == 0 ? "\r\n" : "");
    }
    deliveries.back() += "\r\n" + result + "\r\n";
    const at_msg_t msg = answered(asked, deliveries);
    ASSERT_EQ(text_of(msg), expected_text(asked, lines, result))
        << "seed " << GetParam() << ' ' << testing::PrintToString(deliveries);
    ASSERT_EQ(msg.rsp_len, static_cast<int32_t>(text_of(msg).size()));
    ASSERT_NE(msg.ret_val, AT_NONE);
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, Survival, testing::Range(1u, 11u));

}  // namespace
}  // namespace unit
