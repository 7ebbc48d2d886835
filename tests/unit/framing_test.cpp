// SPDX-License-Identifier: Apache-2.0

// Lines out of deliveries that end anywhere.
#include "server/at_framing.h"

#include "tests/unit/server_test.h"

namespace unit {
namespace {

class Framing : public Server {
 protected:
  static strings lines_of(const strings& deliveries) {
    at_msg_t msg = record({});
    strings lines;
    for (const std::string& delivery : deliveries) {
      read(delivery, &msg);
      char line[MAX_ATCMD_REPORT_SIZE];
      for (int32_t size = 0; at_sm_getline(line, &size) == 0; size = 0)
        lines.emplace_back(line, static_cast<size_t>(size));
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

}  // namespace
}  // namespace unit
