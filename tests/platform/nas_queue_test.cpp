// SPDX-License-Identifier: Apache-2.0

// Modem data between two threads: order, room, and the time-outs of both sides.

#include <gmock/gmock.h>

#include <chrono>
#include <string>
#include <thread>

#include "platform/mdx_platform.h"

namespace {

using namespace std::chrono_literals;

constexpr int32_t kDepth = 4;
constexpr uint32_t kSize = 12;

class NasQueue : public testing::Test {
 protected:
  NasQueue() : id_(MDX_msgQ_create(3, kDepth, kSize)) {}
  ~NasQueue() override { MDX_msgQ_delete(id_); }

  int32_t send(const std::string& text) const {
    return MDX_msgQ_send(id_, text.data(), static_cast<uint32_t>(text.size()), 0);
  }
  std::string receive(int32_t wait_ms = 0) const {
    char buffer[kSize];
    const int32_t size = MDX_msgQ_recv(id_, buffer, sizeof(buffer), wait_ms);
    return size < 0 ? "nothing" : std::string(buffer, static_cast<size_t>(size));
  }
  int32_t id_;
};

TEST_F(NasQueue, KeepsOrderAndLengths) {
  ASSERT_NE(id_, -1);
  EXPECT_EQ(MDX_get_msgQ_id(3), id_);
  EXPECT_EQ(receive(), "nothing");
  for (int round = 0; round < 3; ++round) {
    for (const char* text : {"a", "", "123456789012"}) EXPECT_EQ(send(text), 1);
    EXPECT_EQ(send("1234567890123"), 0) << "one byte too long";
    EXPECT_EQ(MDX_msgQ_num(id_), 3);
    for (const char* text : {"a", "", "123456789012"}) EXPECT_EQ(receive(), text);
  }
  send("abcdef");
  char cut[] = "xxxxx";
  EXPECT_EQ(MDX_msgQ_recv(id_, cut, 3, 0), 3);
  EXPECT_STREQ(cut, "abcxx");
}

TEST_F(NasQueue, AFullQueueIsWaitedForOneSecond) {
  for (int32_t i = 0; i < kDepth; ++i) ASSERT_EQ(send("x"), 1);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(send("y"), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 1000ms);
  EXPECT_EQ(MDX_msgQ_num(id_), kDepth);
}

TEST_F(NasQueue, HandsEachElementOverOnce) {
  constexpr int kElements = 20000;
  std::thread sender([this] {
    for (int i = 0; i < kElements; ++i) ASSERT_EQ(send(std::to_string(i)), 1);
  });
  for (int i = 0; i < kElements; ++i) ASSERT_EQ(receive(60000), std::to_string(i));
  sender.join();
  EXPECT_EQ(receive(), "nothing");
}

TEST_F(NasQueue, DeletingReleasesWhoeverWaits) {
  std::thread receiver([this] { EXPECT_EQ(receive(60000), "nothing"); });
  std::this_thread::sleep_for(20ms);
  MDX_msgQ_delete(id_);
  receiver.join();
  EXPECT_EQ(MDX_get_msgQ_id(3), -1);
  EXPECT_EQ(send("x"), 0);
  EXPECT_EQ(receive(), "nothing");
  EXPECT_EQ(MDX_msgQ_num(id_), 0);
}

}  // namespace
