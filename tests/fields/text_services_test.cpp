// SPDX-License-Identifier: Apache-2.0

// The small text services at the borders of what they hold.

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <utility>

#include "platform/at_fields.h"

namespace {

TEST(TextServices, NumbersAreTheNearestThatFit) {
  // clang-format off
  const std::pair<const char*, int32_t> decimal[] = {
      {nullptr, 0}, {"", 0}, {"-", 0}, {" \t-7x", -7}, {"+007", 7}, {"- 7", 0},
      {"2147483647", INT_MAX}, {"2147483648", INT_MAX},
      {"-2147483648", INT_MIN}, {"-2147483649", INT_MIN},
  };
  const std::pair<const char*, uint64_t> hexadecimal[] = {
      {nullptr, 0}, {"", 0}, {"eaG6", 0xea}, {"0x10", 0},
      {"FFFFFFFFFFFFFFFF", UINT64_MAX}, {"123456789ABCDEF01", 0x23456789abcdef01},
  };
  // clang-format on
  for (const auto& [text, number] : decimal)
    EXPECT_EQ(safe_atoi(text), number) << testing::PrintToString(text);
  for (const auto& [text, number] : hexadecimal)
    EXPECT_EQ(hex_str_to_uinteger(text), number) << testing::PrintToString(text);
}

TEST(TextServices, CopiesAreCutAndTerminated) {
  const struct {
    size_t size;
    size_t count;
    const char* copied;
  } cases[] = {{10, 9, "12345"}, {5, 5, "1234"}, {1, 5, ""}, {10, 2, "12"}, {10, 0, ""}};
  for (const auto& [size, count, copied] : cases) {
    std::string room(12, 'x');
    EXPECT_EQ(MDX_strncpy_s(room.data(), size, "12345", count), 0);
    EXPECT_STREQ(room.c_str(), copied);
    EXPECT_EQ(room[size], 'x');
    room.assign(12, 'x');
    EXPECT_EQ(new_snprintf_s("", 0, room.data(), size, count, "%s", "12345"),
              static_cast<int>(std::strlen(copied)));
    EXPECT_STREQ(room.c_str(), copied);
    EXPECT_EQ(room[size], 'x');
  }
  char room[] = "x";
  EXPECT_EQ(MDX_strncpy_s(room, 0, "1", 1), EINVAL);
  EXPECT_EQ(MDX_strncpy_s(room, 2, nullptr, 1), EINVAL);
  EXPECT_EQ(new_snprintf_s("", 0, room, 0, 1, "%s", "1"), -1);
  EXPECT_STREQ(room, "x");
}

TEST(TextServices, Compare) {
  EXPECT_EQ(safe_strcmp("IPV6", "IPV6"), 0);
  EXPECT_NE(safe_strcmp("IPV6", "IPV6 "), 0);
  EXPECT_NE(safe_strcmp(nullptr, ""), 0);
  EXPECT_EQ(At_strncasecmp("at+CMGS=1", "AT+cmgs", 7), 0);
  EXPECT_NE(At_strncasecmp("at", "AT+", 3), 0);
  EXPECT_NE(At_strncasecmp("[", "{", 1), 0);
}

}  // namespace
