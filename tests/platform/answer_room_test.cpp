// SPDX-License-Identifier: Apache-2.0

// Which answer is lost on a full queue.

#include "platform/linux/answer_room.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace {

/// Answers as words, the oldest first: the user's letter, the task's digit, and the age where it is
/// not long; the new one is the last.
std::vector<unread_answer_t> read_answers(const std::string& text) {
  std::vector<unread_answer_t> answers;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    const uint32_t age = word.size() > 2 ? static_cast<uint32_t>(std::stoul(word.substr(2))) : 1000;
    answers.push_back({word[1] - '0', static_cast<uid_t>(word[0]), age});
  }
  answers.back().age_ms = 0;
  return answers;
}

TEST(AnswerRoom, TheUserWithTheMostLosesTheOldestOfItsTaskWithTheMost) {
  // clang-format off
  const struct { const char* answers; size_t lost; const char* why; } cases[] = {
      {"a0 a1 a2 a3 a4 a5 a6 a7 a8 a9 b1",              0, "ten tasks of one user"},
      {"b1 a0 a1 a2 a3 a4 a5 a6 a7 a8 b2",              1, "and where another user has one"},
      {"b1 a1 a1 a1 a1 a1 a1 a1 a1 a1 b2",              1, "one task of one user"},
      {"a1 a2 b3 b4 a5 a5 b6 b7 a8 a9 c1",              4, "a task with two before tasks with one"},
      {"a1300 a2 a3 a4 a5 a6 a7 a8 a9 a0 b1",           0, "old enough"},
      {"a1299 a2299 a3 a4 a5 a6 a7 a8 a9 a0 b1",       11, "its task may be about to take it"},
      {"a1299 a1299 a3 a4 a5 a6 a7 a8 a9 a0 b1",        0, "who takes one at a time has no two"},
      {"a0 a1 a2 a3 a4 a5 a6 a7 a8 a9 a9",              9, "the new one counts for its task"},
      {"a0 a1 a2 a3 a4 b5 b6 b7 b8 b9 b4",              5, "and for its user"},
      {"b5 a0 a1 a2 a3 a4 b6 b7 b8 b9 c1",              0, "of two users with as many the oldest"},
      {"a0 b1 c2 d3 e4 f5 g6 h7 i8 j9 k1",             11, "one each"},
      {"a0 b0 c0 d0 e0 f0 g0 h0 i0 j0 k0",             11, "one each, though of one number"},
      {"b1",                                            1, "nobody is in the way"},
  };
  // clang-format on
  for (const auto& [text, lost, why] : cases) {
    const auto answers = read_answers(text);
    EXPECT_EQ(answer_to_lose(answers.data(), answers.size()), lost) << text << ": " << why;
  }
}

TEST(AnswerRoom, PatienceInVainIsRememberedForAWhile) {
  answer_patience patience;
  const uint32_t now = UINT32_MAX - 5;  // the counter wraps in between
  EXPECT_FALSE(patience.is_over(0, now));
  patience.was_in_vain(0, now);
  patience.was_in_vain(7, now);
  EXPECT_TRUE(patience.is_over(0, now + 9999));
  EXPECT_TRUE(patience.is_over(7, now + 9999));
  EXPECT_FALSE(patience.is_over(8, now));
  EXPECT_FALSE(patience.is_over(7, now + 10000));
}

}  // namespace
