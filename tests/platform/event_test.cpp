// SPDX-License-Identifier: Apache-2.0

// A raise is never lost, whoever raises and whatever else is written into the FIFO.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <thread>

#include "platform/linux/events.h"
#include "platform/linux/served_client.h"
#include "platform/mdx_platform.h"
#include "tests/platform/other_process.h"
#include "wire/border.h"
#include "wire/event_fifo.h"

namespace {

using namespace std::string_literals;

constexpr uint32_t kMask = 7;
constexpr uint32_t kUntouched = 0xdead;

/// The bits pending now.
uint32_t pending(uint32_t mask = kMask) {
  uint32_t bits = kUntouched;
  const int32_t result = MDX_event_recv(mask, 0, &bits);
  EXPECT_EQ(result == 0, bits == kUntouched);
  return result == 0 ? 0 : bits;
}

class Events : public testing::Test {
 protected:
  Events() {
    be_the_server();
    MDX_event_init(kMask);
    server_fifo_path(MDX_task_getid(), path_);
  }
  ~Events() override {
    while (pending() != 0) {
    }
  }
  char path_[kEventPathSize];
};

TEST_F(Events, StayPendingUntilTaken) {
  EXPECT_EQ(pending(), 0u);
  EXPECT_EQ(MDX_event_send(MDX_task_getid(), 1), 1);
  EXPECT_EQ(MDX_event_send(MDX_task_getid(), 4), 1);
  EXPECT_EQ(pending(2), 0u);
  EXPECT_EQ(pending(1), 1u);
  EXPECT_EQ(pending(), 4u);
  EXPECT_EQ(pending(), 0u);
}

TEST_F(Events, NoRaiseOfAThreadIsLost) {
  constexpr int kRounds = 20000;
  const int32_t receiver = MDX_task_getid();
  std::atomic<int> sent{0}, received{0};
  std::thread raiser([&] {
    while (sent < kRounds) {
      if (sent != received) continue;
      ++sent;
      MDX_event_send(receiver, 2);
    }
  });
  uint32_t bits = 0;
  while (received < kRounds && MDX_event_recv(kMask, 60000, &bits) == 1) ++received;
  EXPECT_EQ(received, kRounds);
  sent = kRounds;
  raiser.join();
}

TEST_F(Events, AFullPipeLosesNothing) {
  OtherProcess raiser([this] {
    const int fd = event_fifo_open(path_);
    while (event_fifo_raise(fd, 4) == 0) {
    }
    return event_fifo_raise(fd, 1) == EAGAIN ? 0 : 1;
  });
  ASSERT_EQ(raiser.wait(), 0);
  EXPECT_EQ(MDX_event_send(MDX_task_getid(), 2), 1);
  const uint32_t first = pending();
  EXPECT_EQ(first | pending(), 7u) << "of two waits one looks what others have raised";
  EXPECT_EQ(pending(), 0u);
}

TEST_F(Events, RubbishHidesNoRaise) {
  const std::string raise = "\1\0\0\0"s;
  // clang-format off
  const struct { const char* what; std::string bytes; } cases[] = {
      {"three bytes",       raise + "abc"},
      {"two halves",        "\0"s + raise + "\0\0\0"s},
      {"unknown bits",      "\xff\xff\xff\xff"s + raise},
      {"much",              std::string(5000, 'x') + raise},
  };
  // clang-format on
  for (const auto& [what, bytes] : cases) {
    const int fd = event_fifo_open(path_);
    ASSERT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size())) << what;
    close(fd);
    const uint32_t got = pending();
    EXPECT_EQ(got & 1u, 1u) << what;
    EXPECT_EQ(got & ~kMask, 0u) << what;
    EXPECT_EQ(pending(), 0u) << what;
  }
}

TEST_F(Events, ARaiseInAFifoThatIsRemovedIsNotLost) {
  const int fd = event_fifo_open(path_);
  unlink(path_);
  ASSERT_EQ(event_fifo_raise(fd, 1), 0);
  close(fd);
  ASSERT_TRUE(event_fifos_restore());
  EXPECT_EQ(pending() & 1u, 1u);
}

TEST_F(Events, FindATaskInTheFifoThatItMadeAnew) {
  constexpr int32_t kTask = 4003;
  char path[kEventPathSize];
  event_fifo_path(kTask, path);
  const int held_by_a_child = event_fifo_create(path);
  ASSERT_EQ(MDX_event_send(kTask, 1), 1);
  EXPECT_EQ(event_fifo_take(held_by_a_child), 1u);
  const int fresh = event_fifo_create(path);
  ASSERT_GE(event_task_open(kTask), 0);
  EXPECT_EQ(MDX_event_send(kTask, 1), 1);
  EXPECT_EQ(event_fifo_take(fresh), 1u);
  close(held_by_a_child);
  close(fresh);
  unlink(path);
}

TEST_F(Events, AClientIsLookedForAnewUnlessItGoesOnCounting) {
  constexpr int32_t kTask = 4004;
  char path[kEventPathSize];
  event_fifo_path(kTask, path);
  const int held_by_a_child = event_fifo_create(path);
  ASSERT_TRUE(served_client_begin(kTask, 7));
  const int fresh = event_fifo_create(path);
  EXPECT_TRUE(served_client_begin(kTask, 1));
  EXPECT_EQ(MDX_event_send(kTask, 1), 1);
  EXPECT_EQ(event_fifo_take(fresh), 1u) << "the FIFO that the task made anew";
  close(held_by_a_child);

  EXPECT_TRUE(served_client_begin(kTask, 2));
  close(fresh);
  EXPECT_FALSE(served_client_begin(kTask, 3));
  unlink(path);
}

TEST_F(Events, AreWrittenToFifosOnly) {
  constexpr int32_t kTask = 4002;
  char path[kEventPathSize];
  event_fifo_path(kTask, path);
  const std::string file = testing::TempDir() + "precious";
  std::ofstream(file) << "text";
  ASSERT_EQ(symlink(file.c_str(), path), 0);
  EXPECT_EQ(MDX_event_send(kTask, 1), 0) << "a link";
  unlink(path);
  std::ofstream(path) << "text";
  EXPECT_EQ(MDX_event_send(kTask, 1), 0) << "a file";
  for (const std::string& name : {file, std::string(path)}) {
    std::string content;
    std::getline(std::ifstream(name), content);
    EXPECT_EQ(content, "text") << name;
    unlink(name.c_str());
  }
}

}  // namespace
