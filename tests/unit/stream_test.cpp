// The receive stream: one delivery at a time, gone once read.
#include "tests/unit/server_test.h"

namespace unit {
namespace {

class Stream : public Server {
 protected:
  at_msg_t msg = record({.timeout = 0});

  static std::string rest() {
    std::string bytes;
    for (char ch = 0; at_sm_getchar(&ch) == 0;) bytes += ch;
    return bytes;
  }
  static int empty() { return at_sm_is_rcv_buf_empty(&mdx_state.stream); }
};

TEST_F(Stream, ADeliveryIsReadToItsLastByteAndWiped) {
  for (const size_t length : {0u, 1u, 1499u}) {
    std::string bytes(length, 'a');
    if (length > 0) bytes.back() = 'z';
    read(bytes, &msg);
    EXPECT_EQ(empty(), length == 0 ? 0 : -1);
    EXPECT_EQ(rest(), bytes);
    EXPECT_EQ(empty(), 0);
    EXPECT_EQ(std::string(mdx_state.stream.data, 1500), std::string(1500, '\0'));
  }
}

TEST_F(Stream, TheNextReadDropsWhatWasLeftEvenWhenNothingComes) {
  read("left over", &msg);
  std::memset(msg.snd_rcv_msg.rmsg, 'x', MAX_ATCMD_REPORT_SIZE);
  int retcode = 99;
  EXPECT_EQ(read_from_smd(&msg, &retcode), -1);
  EXPECT_EQ(retcode, 99);
  EXPECT_EQ(empty(), 0);
  EXPECT_EQ(std::string(msg.snd_rcv_msg.rmsg, 1500), std::string(1500, '\0'));
  EXPECT_THAT(fake::traces(4), ElementsAre("No data from NAS!\n"));
}

TEST_F(Stream, TakesAsManyBytesAsAskedForOrAllThereAre) {
  // clang-format off
  const struct { int32_t asked; int result; std::string got; std::string left; } cases[] = {
      {2,  0,  "ab",  "c"},
      {3,  0,  "abc", ""},
      {4,  -1, "abc", ""},
      {0,  -1, "",    "abc"},
      {-1, 0,  "",    "abc"},
  };
  // clang-format on
  for (const auto& c : cases) {
    read("abc", &msg);
    char buffer[8] = {};
    EXPECT_EQ(at_sm_get_buf(buffer, c.asked), c.result) << c.asked;
    EXPECT_EQ(buffer, c.got) << c.asked;
    EXPECT_EQ(rest(), c.left) << c.asked;
  }
}

TEST_F(Stream, FindsTheLastOccurrenceAmongTheUnread) {
  // clang-format off
  const struct { std::string bytes; int32_t taken; int32_t found; } cases[] = {
      {"ab\x1a""cd\x1a", 0, 6},
      {"ab\x1a""c",      0, 3},
      {"\x1a",           0, 1},
      {"\x1a""b",        1, 0},
      {"ab\x1a",         2, 1},
      {"abc",            0, 0},
      {"",               0, 0},
  };
  // clang-format on
  for (const auto& c : cases) {
    read(c.bytes, &msg);
    char taken[8];
    if (c.taken > 0) at_sm_get_buf(taken, c.taken);
    EXPECT_EQ(at_find_last_of_char(26), c.found) << testing::PrintToString(c.bytes);
    EXPECT_EQ(rest(), c.bytes.substr(static_cast<size_t>(c.taken))) << "it only looks";
  }
}

}  // namespace
}  // namespace unit
