// SPDX-License-Identifier: Apache-2.0

// The modem channel on real devices: a pseudo terminal or a socket stands at /dev/smd6 of the box.
// The test is the task that binds the channel, so the modem is read while it waits.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/counters.h"
#include "platform/linux/line_memory.h"
#include "platform/linux/modem_channel.h"
#include "platform/linux/modem_device.h"
#include "platform/mdx_platform.h"

namespace {

using namespace std::chrono_literals;
using std::string;
using clock_type = std::chrono::steady_clock;

constexpr char kChannel[] = "/dev/smd6";
constexpr int32_t kNumber = 6;

constexpr uint32_t kAnyEvent = 7;

constexpr auto kPatience = 60s;  // of a test that would wait for ever

template <typename Condition>
bool soon(Condition condition) {
  const auto end = clock_type::now() + kPatience;
  while (!condition()) {
    if (clock_type::now() > end) return false;
    modem_channel_sleep(2);
  }
  return true;
}

/// What the callback got, and what it does with it.
struct server_t {
  std::vector<string> deliveries;
  int refusals_left = 0;

  void expect_anew(int refusals = 0) { *this = {{}, refusals}; }

  bool has(const std::vector<string>& expected) const {
    return soon([&] { return deliveries == expected; });
  }
} server;

int32_t receive(int32_t, const char* data, uint32_t length) {
  if (server.refusals_left-- > 0) return 1;
  server.deliveries.emplace_back(data, length);
  return 0;
}

class ModemChannel : public testing::Test {
 protected:
  void SetUp() override {
    signal(SIGPIPE, SIG_IGN);  // as the server does
    ASSERT_NE(getenv("MDXGATE_IN_BOX"), nullptr) << "run me with scripts/box";
    MDX_event_init(kAnyEvent);
    server.expect_anew();
  }

  void TearDown() override {
    Q7_App_Ungister();
    unplug();
  }

  void plug() {
    modem_ = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_TRUE(grantpt(modem_) == 0 && unlockpt(modem_) == 0);
    ASSERT_EQ(symlink(ptsname(modem_), kChannel), 0);
  }

  /// Binds to a socket as well, since a socket is there when it is connected.
  void plug_socket() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::copy_n(kChannel, sizeof(kChannel), address.sun_path);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_EQ(listen(listener, 1), 0);
    ASSERT_TRUE(soon([&] { return bind(); }));
    modem_ = accept(listener, nullptr, nullptr);
    close(listener);
  }

  void unplug() {
    unlink(kChannel);
    if (modem_ >= 0) close(modem_);
    modem_ = -1;
  }

  bool bind() {
    mdx_send_function_t slot = nullptr;
    const int32_t result = Q7_APP_RegCallBack(kNumber, receive, &slot);
    EXPECT_EQ(result == 0, slot != nullptr);
    if (slot != nullptr) send_ = slot;
    return slot != nullptr;
  }

  bool send(const string& bytes) const {
    return send_(kNumber, bytes.data(), static_cast<uint32_t>(bytes.size())) == 0;
  }

  void say(const string& bytes) const {
    ASSERT_EQ(write(modem_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }

  string heard(size_t size) const {
    string bytes;
    pollfd source{modem_, POLLIN, 0};
    while (bytes.size() < size && poll(&source, 1, 60000) == 1) {
      char byte = 0;
      if (read(modem_, &byte, 1) != 1) break;
      bytes += byte;
    }
    return bytes;
  }

  int modem_ = -1;
  mdx_send_function_t send_ = nullptr;
};

TEST_F(ModemChannel, IsBoundOnceTheDeviceIsThereAndForUsAlone) {
  EXPECT_FALSE(bind());
  ASSERT_EQ(symlink("/dev/ptmx", kChannel), 0);
  EXPECT_FALSE(bind()) << "it would never come back from there";
  unlink(kChannel);
  ASSERT_NO_FATAL_FAILURE(plug());
  ASSERT_TRUE(soon([&] { return bind(); }));
  EXPECT_TRUE(bind());
  mdx_send_function_t other = nullptr;
  EXPECT_NE(Q7_APP_RegCallBack(kNumber + 1, receive, &other), 0);
  EXPECT_EQ(other, nullptr);
  EXPECT_EQ(open(kChannel, O_RDWR | O_NOCTTY), -1);
  EXPECT_EQ(errno, EBUSY);
  Q7_App_Ungister();
  EXPECT_TRUE(soon([] {
    const int fd = open(kChannel, O_RDWR | O_NOCTTY);
    if (fd >= 0) close(fd);
    return fd >= 0;
  }));
}

TEST_F(ModemChannel, CarriesACommandAndItsTornAnswer) {
  ASSERT_NO_FATAL_FAILURE(plug());
  ASSERT_TRUE(soon([&] { return bind(); }));
  ASSERT_TRUE(send("AT+CSQ\r"));
  EXPECT_FALSE(send_(kNumber + 1, "AT\r", 3) == 0);
  EXPECT_EQ(heard(7), "AT+CSQ\r");
  for (const char byte : string("AT+CSQ\r\r\n+CSQ: 1,9\r\n\r\nOK\r\n")) say({byte});
  EXPECT_TRUE(server.has({"+CSQ: 1,9\r\n\r\nOK\r\n"}));
  say("\r\n^RSSI");
  EXPECT_TRUE(server.has({"+CSQ: 1,9\r\n\r\nOK\r\n", "\r\n^RSSI"}));
}

TEST_F(ModemChannel, OffersARefusedDeliveryAgain) {
  ASSERT_NO_FATAL_FAILURE(plug());
  ASSERT_TRUE(soon([&] { return bind(); }));
  const uint64_t held = counter_value(COUNT_DELIVERIES_HELD);
  server.expect_anew(2);
  say("^A:1\r\n");
  ASSERT_TRUE(soon([&] { return counter_value(COUNT_DELIVERIES_HELD) > held; }));
  say("^B:1\r\n");
  EXPECT_TRUE(server.has({"^A:1\r\n", "^B:1\r\n"}));
  EXPECT_EQ(counter_value(COUNT_DELIVERIES_HELD), held + 2);
}

TEST_F(ModemChannel, IsNotCleanWhileAnAnswerIsRefused) {
  ASSERT_NO_FATAL_FAILURE(plug());
  ASSERT_TRUE(soon([&] { return bind() && modem_channel_is_clean(); }));
  const uint64_t held = counter_value(COUNT_DELIVERIES_HELD);
  server.expect_anew(INT32_MAX);
  ASSERT_TRUE(send("AT\r"));
  say("\r\nOK\r\n");
  ASSERT_TRUE(soon([&] { return counter_value(COUNT_DELIVERIES_HELD) > held; }));
  EXPECT_FALSE(modem_channel_is_clean());
  server.expect_anew();
  EXPECT_TRUE(soon([] { return modem_channel_is_clean(); }));
  EXPECT_EQ(server.deliveries, std::vector<string>{"\r\nOK\r\n"});
}

TEST_F(ModemChannel, ComesBackBehindAnotherDevice) {
  ASSERT_NO_FATAL_FAILURE(plug());
  ASSERT_TRUE(soon([&] { return bind(); }));
  ASSERT_TRUE(send("AT\r"));
  say("^A:1\r\n");
  EXPECT_TRUE(server.has({"^A:1\r\n"}));
  unplug();
  server.expect_anew();
  EXPECT_FALSE(send("AT\r"));

  ASSERT_NO_FATAL_FAILURE(plug());
  ASSERT_TRUE(soon([] { return modem_channel_answer_is_lost(); }));
  EXPECT_FALSE(send("AT\r")) << "another modem has not heard the first half";
  ASSERT_TRUE(soon([&] { return modem_channel_is_clean() && send("AT\r"); }));
  server.expect_anew();
  EXPECT_EQ(heard(3), "AT\r");
  say("\r\nOK\r\n");
  EXPECT_TRUE(server.has({"\r\nOK\r\n"}));
}

// A server with commands to serve all the time waits for nothing but them.
TEST_F(ModemChannel, IsLookedForWhileSendsFailAtOnce) {
  ASSERT_NO_FATAL_FAILURE(plug());
  ASSERT_TRUE(soon([&] { return bind(); }));
  unplug();
  ASSERT_TRUE(soon([&] { return !send("AT\r"); }));
  ASSERT_NO_FATAL_FAILURE(plug());
  bool is_back = false;
  for (const auto end = clock_type::now() + kPatience; !is_back && clock_type::now() < end;) {
    modem_channel_is_clean();
    is_back = send("AT\r");
  }
  EXPECT_TRUE(is_back);
}

// The late answer is not shown to the next exchange, nor is the next exchange begun before it.
TEST_F(ModemChannel, CollectsWhatAnExchangeIsOwed) {
  ASSERT_NO_FATAL_FAILURE(plug());
  ASSERT_TRUE(soon([&] { return bind(); }));
  const uint64_t absorbed = counter_value(COUNT_LATE_ANSWERS_ABSORBED);
  const uint64_t escapes = counter_value(COUNT_PROMPTS_ESCAPED);
  ASSERT_TRUE(send("AT+COPS=?\r"));
  EXPECT_FALSE(modem_channel_is_clean());
  say("\r\nlate text\r\n\r\nOK\r\n");
  EXPECT_TRUE(soon([] { return modem_channel_is_clean(); }));
  EXPECT_EQ(server.deliveries, std::vector<string>{"\r\n\r\nOK\r\n"});
  EXPECT_EQ(counter_value(COUNT_LATE_ANSWERS_ABSORBED), absorbed + 1);

  ASSERT_TRUE(send("AT+CMGS=22\r"));
  say("\r\n> ");
  server.expect_anew();
  EXPECT_TRUE(server.has({"\r\n> "}));
  EXPECT_FALSE(modem_channel_is_clean());
  EXPECT_EQ(heard(22), "AT+COPS=?\rAT+CMGS=22\r\x1b");
  say("\r\nOK\r\n");
  EXPECT_TRUE(soon([] { return modem_channel_is_clean(); }));
  EXPECT_EQ(counter_value(COUNT_PROMPTS_ESCAPED), escapes + 1);
}

/// With what it has left of the device that is there now.
int lock_of_an_earlier_server() {
  const modem_device_t device = modem_device_open(kChannel);
  modem_device_close(device);
  const uint32_t left_behind[] = {0x4D444C34, 1, 0, 0, 3, device.mark};
  const int lock = memfd_create("lock", 0);
  EXPECT_EQ(write(lock, left_behind, sizeof(left_behind)), ssize_t{sizeof(left_behind)});
  return lock;
}

TEST_F(ModemChannel, KnowsOnlyOnceWhatAnEarlierServerLeft) {
  ASSERT_NO_FATAL_FAILURE(plug());
  ASSERT_TRUE(soon([] { return access(kChannel, R_OK) == 0; }));
  const int lock = lock_of_an_earlier_server();
  line_memory_attach(lock);
  const string half_a_command_erased = "\b\b\bAT\r";
  for (const auto& [owed, sent] : {std::pair{1u, half_a_command_erased}, {0u, "AT\r"}}) {
    ASSERT_TRUE(soon([&] { return bind(); }));
    const uint64_t absorbed = counter_value(COUNT_LATE_ANSWERS_ABSORBED);
    say("\r\nOK\r\n");
    EXPECT_TRUE(soon([] { return modem_channel_is_clean(); }));
    EXPECT_EQ(counter_value(COUNT_LATE_ANSWERS_ABSORBED), absorbed + owed);
    ASSERT_TRUE(send("AT\r"));
    EXPECT_EQ(heard(sent.size()), sent);
    Q7_App_Ungister();
    unplug();
    ASSERT_NO_FATAL_FAILURE(plug());
  }
  close(lock);
}

TEST_F(ModemChannel, MayBeASocket) {
  ASSERT_NO_FATAL_FAILURE(plug_socket());
  ASSERT_TRUE(send("AT\r"));
  EXPECT_EQ(heard(3), "AT\r");
  say("AT\r\r\nOK\r\n");
  EXPECT_TRUE(server.has({"OK\r\n"}));
  unplug();
  EXPECT_TRUE(soon([&] { return !send("AT\r"); }));
}

// A modem that says a lot while it takes nothing is listened to; the send gives up after its 5
// seconds, and holds the end of the binding back as long. On a socket, because the kernel moves the
// bytes of a pseudo terminal on in its own time.
TEST_F(ModemChannel, GivesUpOnAModemThatTakesNothing) {
  ASSERT_NO_FATAL_FAILURE(plug_socket());
  clock_type::time_point started;
  clock_type::time_point unbound;
  std::thread others([&] {
    for (uint64_t before = UINT64_MAX; counter_value(COUNT_CHANNEL_SENDS) != before;) {
      before = counter_value(COUNT_CHANNEL_SENDS);
      std::this_thread::sleep_for(1s);
    }
    say("^A:1\r\n");
    Q7_App_Ungister();
    unbound = clock_type::now();
  });
  do {
    started = clock_type::now();
  } while (send(string(600, 'x')));
  EXPECT_GE(clock_type::now() - started, 5s);
  EXPECT_EQ(server.deliveries, std::vector<string>{"^A:1\r\n"});
  others.join();
  EXPECT_GE(unbound - started, 5s);
  EXPECT_FALSE(send("AT\r"));
}

TEST_F(ModemChannel, AQueueThatIsDeletedEndsTheReadersWait) {
  ASSERT_NO_FATAL_FAILURE(plug());
  ASSERT_TRUE(soon([&] { return bind(); }));
  const int32_t queue = MDX_msgQ_create(3, 1, 12);
  std::thread deleter([queue] {
    std::this_thread::sleep_for(20ms);
    MDX_msgQ_delete(queue);
  });
  char element[12];
  EXPECT_EQ(MDX_msgQ_recv(queue, element, sizeof(element), INT32_MAX), -1);
  deleter.join();
}

}  // namespace
