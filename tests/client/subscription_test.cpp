// SPDX-License-Identifier: Apache-2.0

// What a subscriber gets from a hub that behaves, misbehaves, and goes away.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "client/mdxclient.h"
#include "wire/border.h"

namespace {

constexpr mdx_packet_header_t kLinkUp = {1, kMdxPacketRemembered | 1, "link", 0, 0, 0, 0, 0};
constexpr mdx_packet_header_t kFull = {MDX_FAREWELL_FULL, MDX_PACKET_FAREWELL, "", 0, 0, 0, 0, 0};

/// Waits at the hub's name for one receiver.
class Listener {
 public:
  Listener() : fd_(socket(AF_UNIX, SOCK_SEQPACKET, 0)) {
    mkdir(kMdxDirectory, 0770);
    unlink(kMdxHubPath);
    sockaddr_un address{AF_UNIX, {}};
    std::memcpy(address.sun_path, kMdxHubPath, sizeof(kMdxHubPath));
    EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_EQ(listen(fd_, 1), 0);
  }
  ~Listener() { close(fd_); }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  int accept_one() const { return accept(fd_, nullptr, nullptr); }

 private:
  int fd_;
};

void tell(int hub, const mdx_packet_header_t& header) {
  EXPECT_EQ(send(hub, &header, sizeof(header), 0), static_cast<ssize_t>(sizeof(header)));
}

TEST(Subscribe, ReturnsWhenTheHubHasNotedIt) {
  const mdx_packet_header_t signal = {19011, kMdxPacketRemembered | 2, "", 0, 19, 0, 0, 0};
  const mdx_packet_header_t news = {1008, 2, "", 0, 1, 0, 0, 0};
  // clang-format off
  const struct { const char* what; const char* service; int last; std::vector<mdx_packet_header_t> words;
                 int error; std::vector<uint32_t> then; } cases[] = {
    {"all",                   "*",    0, {signal, kLinkUp, news}, MDX_OK,          {1008}},
    {"states first",          "*",    1, {signal, kLinkUp, news}, MDX_OK,          {19011, 1, 1008}},
    {"a module",              "",     0, {signal, kLinkUp, news}, MDX_OK,          {1008}},
    {"an older hub's module", "",     0, {signal},                MDX_OK,          {}},
    {"an older hub, no word", "cms",  1, {},                      MDX_OK,          {}},
    {"a hub without a place", "link", 1, {kFull},                 MDX_ERR_REFUSED, {}},
  };
  // clang-format on
  for (const auto& row : cases) {
    const Listener listener;
    std::atomic<bool> noted = false;
    int hub = -1;
    std::thread server([&] {
      hub = listener.accept_one();
      usleep(100000);
      mdx_packet_header_t header{};
      EXPECT_EQ(recv(hub, &header, sizeof(header), 0), static_cast<ssize_t>(sizeof(header)));
      noted = true;
      for (const mdx_packet_header_t& word : row.words) tell(hub, word);
    });
    mdx_subscribe_options_t options = MDX_SUBSCRIBE_OPTIONS_INIT;
    options.service = row.service;
    options.last = row.last;
    mdx_subscription_t* receiver = nullptr;
    EXPECT_EQ(mdx_subscribe_with(&receiver, &options), row.error) << row.what;
    EXPECT_TRUE(noted) << row.what;
    server.join();
    mdx_packet_t packet = MDX_PACKET_INIT;
    for (const uint32_t type : row.then) {
      EXPECT_EQ(mdx_next_packet(receiver, -1, &packet), MDX_OK) << row.what;
      EXPECT_EQ(packet.type, type) << row.what;
    }
    if (receiver != nullptr) {
      EXPECT_EQ(mdx_next_packet(receiver, 0, &packet), MDX_ERR_TIMEOUT) << row.what;
    }
    mdx_unsubscribe(receiver);
    close(hub);
  }
}

/// Has SIGALRM do nothing but cut waits short. @return what it did before
struct sigaction ignore_alarms() {
  struct sigaction handler = {};
  handler.sa_handler = [](int) {};
  struct sigaction previous = {};
  sigaction(SIGALRM, &handler, &previous);
  return previous;
}

/// A hub with one receiver, which asked for everything, the last of each state first.
class Subscription : public testing::Test {
 protected:
  Subscription() {
    const Listener listener;
    std::thread server([&] {
      hub_ = listener.accept_one();
      mdx_packet_header_t header{};
      EXPECT_EQ(recv(hub_, &header, sizeof(header), 0), static_cast<ssize_t>(sizeof(header)));
      EXPECT_EQ(header.kind, MDX_PACKET_SUBSCRIPTION);
      EXPECT_STREQ(header.to, "*");
      EXPECT_EQ(header.module, 0u);
      EXPECT_EQ(header.a, kMdxSubscribeWithStates);
      tell(hub_, kLinkUp);
    });
    mdx_subscribe_options_t options = MDX_SUBSCRIBE_OPTIONS_INIT;
    options.module = 7;
    options.last = 1;
    EXPECT_EQ(mdx_subscribe_with(&receiver_, &options), MDX_OK);
    server.join();
    EXPECT_EQ(next(0), MDX_OK) << "the link";
  }
  ~Subscription() override {
    mdx_unsubscribe(receiver_);
    close(hub_);
  }

  void say(mdx_packet_header_t header, const std::string& payload, int lie = 0) const {
    header.length = static_cast<uint32_t>(static_cast<int>(payload.size()) + lie);
    say_bytes(std::string(reinterpret_cast<const char*>(&header), sizeof(header)) + payload);
  }
  void say_bytes(const std::string& bytes) const {
    EXPECT_EQ(send(hub_, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
  }
  int next(int wait_ms) { return mdx_next_packet(receiver_, wait_ms, &packet_); }

  mdx_subscription_t* receiver_ = nullptr;
  mdx_packet_t packet_ = MDX_PACKET_INIT;
  int hub_ = -1;
};

TEST_F(Subscription, YieldsPacketsWholeAndInOrder) {
  EXPECT_EQ(next(0), MDX_ERR_TIMEOUT);
  EXPECT_EQ(next(20), MDX_ERR_TIMEOUT);
  const std::string large(20000, 'p');
  say({18002, 2, "elevenbyteX", 3, 18, -1, INT32_MIN, 0}, large);
  say({8907, 3, {}, 0, 0, 11, 0, 0}, "");
  pollfd ready = {mdx_subscription_fd(receiver_), POLLIN, 0};
  EXPECT_EQ(poll(&ready, 1, 60000), 1);
  ASSERT_EQ(next(-1), MDX_OK);
  EXPECT_EQ(packet_.type, 18002u);
  EXPECT_EQ(packet_.kind, MDX_KIND_NOTIFICATION);
  EXPECT_STREQ(packet_.to, "elevenbyteX");
  EXPECT_EQ(packet_.lost, 3u);
  EXPECT_EQ(packet_.module, 18u);
  EXPECT_EQ(packet_.a, -1);
  EXPECT_EQ(packet_.b, INT32_MIN);
  EXPECT_EQ(std::string(static_cast<const char*>(packet_.payload), packet_.length), large);
  ASSERT_EQ(next(0), MDX_OK);
  EXPECT_EQ(packet_.kind, MDX_KIND_VOICE);
  EXPECT_EQ(packet_.length, 0u);
}

// The program may have handlers that cut reads short, and a descriptor that never waits.
TEST_F(Subscription, WaitsNoLessThanAskedWhateverTheProgramDoes) {
  const itimerval often = {{0, 5000}, {0, 5000}};
  const itimerval never = {};
  const struct sigaction previous = ignore_alarms();
  for (const bool nonblocking : {false, true}) {
    const int fd = mdx_subscription_fd(receiver_);
    fcntl(fd, F_SETFL, nonblocking ? O_NONBLOCK : 0);
    setitimer(ITIMER_REAL, &often, nullptr);
    for (const int wait_ms : {150, 30}) {
      const auto start = std::chrono::steady_clock::now();
      EXPECT_EQ(next(wait_ms), MDX_ERR_TIMEOUT) << nonblocking;
      EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(wait_ms - 1));
    }
    for (const int wait_ms : {-1, 60000}) {
      std::thread later([&] {
        usleep(50000);
        say_bytes("no packet");
        say({5, 1, "cms", 0, 0, 0, 0, 0}, "");
      });
      EXPECT_EQ(next(wait_ms), MDX_OK) << nonblocking;
      later.join();
    }
    setitimer(ITIMER_REAL, &never, nullptr);
    EXPECT_EQ(next(0), MDX_ERR_TIMEOUT);
  }
  sigaction(SIGALRM, &previous, nullptr);
}

TEST_F(Subscription, OfAForkedChildChangesNoWaitOfItsParents) {
  EXPECT_EQ(next(10), MDX_ERR_TIMEOUT);
  const pid_t child = fork();
  if (child == 0) _exit(next(120000));
  usleep(100000);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(next(10), MDX_ERR_TIMEOUT);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

TEST_F(Subscription, MarksWhatWasToldBeforeForCallersOfAnyVersion) {
  const std::string connection(8, '\1');
  say({166657, kMdxPacketRemembered | 1, "dialup", 77, 0, 0, 0, 0}, connection);
  say({2, kMdxPacketRemembered | 1, "link", 5, 0, 0, 0, 0}, "");
  say({2, 1, "link", 5, 0, 0, 0, 0}, "");
  ASSERT_EQ(next(-1), MDX_OK);
  EXPECT_EQ(packet_.kind, MDX_KIND_SERVICE);
  EXPECT_EQ(packet_.remembered, 1u);
  EXPECT_EQ(packet_.age_s, 77u);
  EXPECT_EQ(packet_.lost, 0u);
  EXPECT_STREQ(mdx_packet_name(&packet_), "DIALUP_MSG_V4_UP");
  packet_.size = offsetof(mdx_packet_t, remembered);
  ASSERT_EQ(next(-1), MDX_OK);
  EXPECT_EQ(packet_.age_s, 77u) << "not the library's, for a program of an earlier version";
  EXPECT_EQ(packet_.lost, 0u);
  packet_.size = sizeof(packet_);
  ASSERT_EQ(next(-1), MDX_OK);
  EXPECT_EQ(packet_.remembered, 0u);
  EXPECT_EQ(packet_.age_s, 0u);
  EXPECT_EQ(packet_.lost, 5u);
}

TEST_F(Subscription, PassesOverWhatIsNoPacketAndTellsTheEndBehindTheLast) {
  say_bytes(std::string(sizeof(mdx_packet_header_t) - 1, '\0'));
  say({1, 1, "cms", 0, 0, 0, 0, 0}, "1234", -1);
  say({2, 1, "cms", 0, 0, 0, 0, 0}, "1234", +1);
  say({3, 1, "cms", 0, 0, 0, 0, 0}, "1234");
  shutdown(hub_, SHUT_RDWR);
  ASSERT_EQ(next(-1), MDX_OK);
  EXPECT_EQ(packet_.type, 3u);
  EXPECT_EQ(next(-1), MDX_ERR_SERVER_GONE);
  EXPECT_EQ(next(0), MDX_ERR_SERVER_GONE);
}

TEST_F(Subscription, TheHubsFarewellIsNoDeathOfTheServer) {
  say({4, 1, "cms", 0, 0, 0, 0, 0}, "1234");
  mdx_packet_header_t farewell{};
  farewell.kind = MDX_PACKET_FAREWELL;
  farewell.type = MDX_FAREWELL_DISPLACED;
  say(farewell, "");
  // What the hub has not read makes the receiver's next read fail once.
  EXPECT_GT(send(mdx_subscription_fd(receiver_), "unread", 6, 0), 0);
  close(std::exchange(hub_, -1));
  ASSERT_EQ(next(-1), MDX_OK);
  EXPECT_EQ(packet_.type, 4u);
  EXPECT_EQ(next(-1), MDX_ERR_REFUSED);
  EXPECT_EQ(next(0), MDX_ERR_REFUSED);
}

}  // namespace
