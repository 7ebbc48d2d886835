// Lines out of deliveries that end anywhere, and what the headers of stored messages need.
#include "server/at_framing.h"

#include "tests/unit/server_test.h"

namespace unit {
namespace {

class Framing : public Server {
 protected:
  at_msg_t msg = record({});

  bool next_line(std::string* line) {
    std::memset(mdx_state.line_buf, 0, sizeof mdx_state.line_buf);
    int32_t pos = 0;
    if (at_sm_getline(mdx_state.line_buf, &pos) != 0) return false;
    *line = std::string(mdx_state.line_buf, static_cast<size_t>(pos));
    return true;
  }

  strings lines_of(const strings& deliveries) {
    strings lines;
    for (const std::string& delivery : deliveries) {
      read(delivery, &msg);
      for (std::string line; next_line(&line);) lines.push_back(line);
    }
    return lines;
  }
};

TEST_F(Framing, CutsLinesWhereverTheDeliveryEnds) {
  const std::string x1499(1499, 'x');
  // clang-format off
  const struct { strings deliveries; strings lines; int32_t state; } cases[] = {
      {{"\r\n\r\nOK\r\n"},         {"", "", "OK"},     LINE_DONE},
      {{"> "},                     {"> "},             LINE_IN_TEXT},
      {{"abc\r", "\ndef\r\n"},     {"", "def"},        LINE_DONE},        // abc is lost
      {{"abc\r", "def\r\n"},       {"def"},            LINE_DONE},
      {{"abc\r"},                  {},                 LINE_CR_PENDING},
      {{"\r", "x\n"},              {"x\n"},            LINE_IN_TEXT},
      {{"\r", "", "\n"},           {""},               LINE_DONE},
      {{"a\nb\r\n"},               {"a\nb"},           LINE_DONE},
      {{"a\rb\r\n"},               {"ab"},             LINE_DONE},
      {{"a\r\r\n"},                {"a\r\n"},          LINE_IN_TEXT},     // the second CR is text
      {{"a\0b\r\n"s},              {"a\0b"s},          LINE_DONE},
      {{x1499},                    {x1499},            LINE_IN_TEXT},
      {{x1499.substr(2) + "\r\n"}, {x1499.substr(2)},  LINE_DONE},
      {{""},                       {},                 LINE_IN_TEXT},     // as at the start
  };
  // clang-format on
  for (const auto& c : cases) {
    bring_up();
    EXPECT_EQ(lines_of(c.deliveries), c.lines) << testing::PrintToString(c.deliveries);
    EXPECT_EQ(mdx_state.line_state, c.state) << testing::PrintToString(c.deliveries);
    EXPECT_EQ(std::string(mdx_state.stream.data, 1500), zeros(1500)) << "what was read is gone";
  }
}

TEST_F(Framing, AnSmsHeaderGetsWhatItNeeds) {
  // clang-format off
  const struct {
    const char* name; uint32_t req_type; std::string delivery; std::string line; int raw_body; std::string rest;
  } cases[] = {
      {"plain",           NORMAL_CMD,      "+CSQ: 1\r\nx\r\n",        "+CSQ: 1",               0, "x\r\n"},
      {"stored",          NORMAL_CMD,      "+CMGR: 1\r\n07\r\n",      "+CMGR: 1\r\n",          0, "07\r\n"},
      {"within",          NORMAL_CMD,      "x +CMGR\r\n",             "x +CMGR\r\n",           0, ""},
      {"raw",             NORMAL_CMD,      "^HCMGR:1\r\nhi\x1a\r\n",  "^HCMGR:1\r\n",          1, "hi\x1a\r\n"},
      {"broadcast",       NORMAL_CMD,      "+CBM: 2\r\n0123\r\nx\r\n", "+CBM: 2\r\n0123",      0, "x\r\n"},
      {"broadcast, cut",  ACTIVE_REPORT,   "+CBM: 2\r\n",             "+CBM: 2\r\n",           0, ""},
      {"raw mode",        TRANSPARENT_CMD, "+CMGR: 1\r\n07\r\n",      "+CMGR: 1",              0, "07\r\n"},
  };
  // clang-format on
  for (const auto& c : cases) {
    bring_up();
    msg.req_type = c.req_type;
    read(c.delivery, &msg);
    std::string line;
    ASSERT_TRUE(next_line(&line)) << c.name;
    int32_t pos = static_cast<int32_t>(line.size());
    int32_t raw_body = 0;
    handle_sms_at(&msg, &pos, &raw_body);
    EXPECT_EQ(std::string(mdx_state.line_buf, static_cast<size_t>(pos)), c.line) << c.name;
    EXPECT_EQ(raw_body, c.raw_body) << c.name;
    EXPECT_EQ(std::string(mdx_state.stream.p_cur, mdx_state.stream.p_end), c.rest) << c.name;
  }
}

}  // namespace
}  // namespace unit
