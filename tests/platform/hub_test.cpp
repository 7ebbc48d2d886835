// SPDX-License-Identifier: Apache-2.0

// Who gets which packet, what a receiver is told about those it missed, and what the hub takes from
// it.

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/counters.h"
#include "platform/linux/hub_backlog.h"
#include "platform/linux/hub_places.h"
#include "tests/platform/other_process.h"
#include "tests/platform/shifted_clock.h"
#include "wire/border.h"
#include "wire/destinations.h"
#include "wire/report_records.h"

namespace {

using testing::ElementsAre;

constexpr int kWaitMs = 60000;

struct Packet {
  mdx_packet_header_t header{};
  std::string payload;
};

mdx_packet_header_t header_to(mdx_packet_kind_t kind, const char* to, uint32_t type = 0) {
  mdx_packet_header_t header{};
  header.kind = kind;
  header.type = type;
  strncpy(header.to, to, sizeof(header.to) - 1);
  return header;
}

class Receiver {
 public:
  Receiver() : fd_(connect_to(kMdxHubPath, SOCK_SEQPACKET)) {}
  explicit Receiver(const char* name, uint32_t module = 0, int32_t with = 0) : Receiver() {
    const uint64_t subscribed = counter_value(COUNT_RECEIVERS);
    mdx_packet_header_t subscription = header_to(MDX_PACKET_SUBSCRIPTION, name);
    subscription.module = module;
    subscription.a = with;
    send(std::string(reinterpret_cast<const char*>(&subscription), sizeof(subscription)));
    while (counter_value(COUNT_RECEIVERS) == subscribed) std::this_thread::yield();
  }
  ~Receiver() { close(fd_); }
  Receiver(const Receiver&) = delete;
  Receiver& operator=(const Receiver&) = delete;

  bool send(const std::string& bytes) const {
    return ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
  }
  /// The next packet; type 0 when none comes.
  Packet next(int wait_ms = kWaitMs) const {
    Packet packet;
    char buffer[10000];
    pollfd readable = {fd_, POLLIN, 0};
    if (poll(&readable, 1, wait_ms) != 1) return packet;
    const ssize_t size = recv(fd_, buffer, sizeof(buffer), 0);
    if (size < static_cast<ssize_t>(sizeof(packet.header))) return packet;
    memcpy(&packet.header, buffer, sizeof(packet.header));
    packet.payload.assign(buffer + sizeof(packet.header),
                          static_cast<size_t>(size) - sizeof(packet.header));
    return packet;
  }
  std::vector<uint32_t> types_waiting() const {
    std::vector<uint32_t> types;
    for (Packet packet = next(0); packet.header.type != 0; packet = next(0))
      types.push_back(packet.header.type);
    return types;
  }
  bool hung_up() const {
    pollfd gone = {fd_, POLLIN, 0};
    return poll(&gone, 1, kWaitMs) == 1 && (gone.revents & POLLHUP) != 0;
  }

 private:
  int fd_;
};

std::atomic<int> messages{0};
std::atomic<uint32_t> last_type{0};
std::atomic<uint32_t> last_length{0};

void take_message(const void* packet) {
  uint32_t words[10];
  memcpy(words, packet, sizeof(words));
  last_type = words[0];
  last_length = words[9];
  ++messages;
}

class Hub : public testing::Test {
 protected:
  Hub() {
    be_the_server();
    serve_the_hub(take_message);
  }
};

// What is about persons is not kept; of what tells a state the last packet is, whoever got it live.
TEST_F(Hub, ShowsTheLastOfEachStateToWhoAsksForIt) {
  const char number[512] = "+491701234567";
  EXPECT_EQ(MDX_post_notify_ex(NOTIFY_MODULE_2, EVT_AT_USSD, number, sizeof(number), 0, 0), 0);
  EXPECT_EQ(MDX_post_notify_ex(NOTIFY_MODULE_1, EVT_AT_SMS_NEW, number, 24, 0, 0), 0);
  EXPECT_EQ(KRP_UTIL_SendMsgToVoice2(VOICE_MSG, VOICE_CLIP, 0, number, 36), 0);
  const dialup_conn_msg connection = {3, 0};
  for (const auto news : {DIALUP_MSG_V4_UP, DIALUP_MSG_V4_DOWN})
    EXPECT_EQ(KRP_MSG_SendMsgData("dialup", news, &connection, sizeof(connection)), 0);
  EXPECT_EQ(MDX_post_notify(NOTIFY_MODULE_19, EVT_AT_SIGNAL_LEVEL, 4, 0), 0);
  EXPECT_EQ(MDX_post_notify(NOTIFY_MODULE_19, EVT_AT_SIGNAL_LEVEL, 5, 0), 0);

  const Receiver everything("*", 0, kMdxSubscribeWithStates);
  std::vector<uint32_t> types;
  Packet packet = everything.next();
  for (; packet.header.type != LINK_MSG_GONE; packet = everything.next()) {
    EXPECT_NE(packet.header.kind & kMdxPacketRemembered, 0u);
    EXPECT_LE(packet.header.lost, 60u) << "seconds old";
    types.push_back(packet.header.type);
    if (packet.header.type == EVT_AT_SIGNAL_LEVEL) {
      EXPECT_EQ(packet.header.a, 5);
    }
    if (packet.header.type == DIALUP_MSG_V4_DOWN) {
      EXPECT_EQ(packet.payload, std::string("\3\0\0\0\0\0\0\0", 8));
    }
  }
  EXPECT_STREQ(packet.header.to, kServiceLink) << "the link is the last, and always known";
  EXPECT_THAT(types, testing::UnorderedElementsAre(DIALUP_MSG_V4_DOWN, EVT_AT_SIGNAL_LEVEL));
  EXPECT_THAT(everything.types_waiting(), ElementsAre());

  const Receiver of_module("", NOTIFY_MODULE_19, kMdxSubscribeWithStates);
  const Receiver does_not_ask("*");
  EXPECT_EQ(of_module.next().header.a, 5);
  EXPECT_STREQ(of_module.next().header.to, kServiceLink) << "tells that the subscription is noted";
  EXPECT_EQ(MDX_post_notify(NOTIFY_MODULE_19, EVT_AT_SIGNAL_LEVEL, 6, 0), 0);
  EXPECT_EQ(of_module.next().header.kind, MDX_PACKET_NOTIFICATION);
  EXPECT_EQ(does_not_ask.next().header.a, 6);
}

TEST_F(Hub, EachReceiverGetsWhatItAskedFor) {
  const Receiver all("*"), dialup("dialup"), voice("voice"), module12("", 12), nothing;
  EXPECT_EQ(KRP_MSG_SendMsgData("dialup", 101, "ab", 2), 0);
  EXPECT_EQ(KRP_MSG_SendSimpleMsg("cms", 102, 0), 0);
  EXPECT_EQ(KRP_MSG_SendSimpleMsg("dialup2", 103, 0), 0);
  EXPECT_EQ(MDX_post_notify_ex(12, 104, "payload", 7, 5, -1), 0);
  EXPECT_EQ(MDX_post_notify(13, 105, 0, 0), 0);
  EXPECT_EQ(KRP_UTIL_SendMsgToVoice2(8907, 42, 0, "call", 4), 0);
  EXPECT_THAT(all.types_waiting(), ElementsAre(101, 102, 103, 104, 105, 8907));
  EXPECT_THAT(dialup.types_waiting(), ElementsAre(101));
  const Packet call = voice.next();
  EXPECT_EQ(call.header.type, 8907u);
  EXPECT_EQ(call.header.kind, MDX_PACKET_VOICE);
  EXPECT_EQ(call.header.a, 42);
  EXPECT_EQ(call.payload, "call");
  const Packet notification = module12.next();
  EXPECT_EQ(notification.header.type, 104u);
  EXPECT_EQ(notification.header.kind, MDX_PACKET_NOTIFICATION);
  EXPECT_EQ(notification.header.module, 12u);
  EXPECT_EQ(notification.header.a, 5);
  EXPECT_EQ(notification.header.b, -1);
  EXPECT_EQ(notification.payload, "payload");
  EXPECT_THAT(voice.types_waiting(), ElementsAre());
  EXPECT_THAT(module12.types_waiting(), ElementsAre());
  EXPECT_THAT(nothing.types_waiting(), ElementsAre());
}

// One that reads nothing for a while gets all that was kept for it, and is told of what was not: of
// the last as well, since the last packet is always kept.
TEST_F(Hub, KeepsWhatAReceiverHasNoRoomForYet) {
  const struct {
    uint32_t packets;
    size_t bytes;
    bool all;
  } cases[] = {{10000, 24, true}, {1000, 8192, false}};
  for (const auto& [packets, bytes, all] : cases) {
    const Receiver sleeps("cms"), reads("cms"), leaves("cms");
    const std::string payload(bytes, 'p');
    for (uint32_t n = 1; n <= packets; ++n) {
      ASSERT_EQ(KRP_MSG_SendMsgData("cms", n, payload.data(), static_cast<uint32_t>(bytes)), 0);
      ASSERT_EQ(reads.next().header.type, n);
    }
    uint32_t before = 0;
    uint32_t lost = 0;
    while (before != packets) {
      const Packet packet = sleeps.next();
      lost += packet.header.lost;
      ASSERT_EQ(packet.header.type, before + packet.header.lost + 1);
      ASSERT_EQ(packet.payload, payload);
      before = packet.header.type;
    }
    EXPECT_EQ(lost == 0, all) << lost;
    EXPECT_LT(lost, packets - hub_backlog::kBytes / (bytes + 48)) << "what fits is kept";
    EXPECT_THAT(sleeps.types_waiting(), ElementsAre());
  }
}

TEST(HubBacklog, HoldsTheNewestWhole) {
  hub_backlog backlog;
  std::deque<std::string> kept;
  std::minstd_rand random(7);
  for (uint32_t n = 0; n < 20000; ++n) {
    mdx_packet_header_t header = header_to(MDX_PACKET_SERVICE, "cms", n);
    header.length = n % 100 == 0 ? 8192 : static_cast<uint32_t>(random() % 600);
    std::string payload(header.length, static_cast<char>(random() % 256));
    for (; !backlog.has_room(header.length); backlog.forget_oldest()) kept.pop_front();
    ASSERT_TRUE(backlog.append(header, payload.data()));
    kept.push_back(std::move(payload));
    if (n % 500 != 0) continue;
    auto place = backlog.oldest();
    for (size_t i = 0; i < kept.size(); ++i, place = backlog.behind(place)) {
      const mdx_packet_header_t found = backlog.header_at(place);
      ASSERT_EQ(found.type, n + 1 - kept.size() + i);
      std::string bytes(found.length, '\0');
      backlog.payload_at(place, found.length, bytes.data());
      ASSERT_EQ(bytes, kept[i]);
    }
    ASSERT_EQ(place, backlog.end());
    if (n == 10000) {
      backlog.clear();
      kept.clear();
    }
  }
  EXPECT_GT(kept.size(), 1024u);
}

TEST_F(Hub, RefusesWhatNoPacketHolds) {
  EXPECT_EQ(KRP_MSG_SendSimpleMsg("elevenchars", 1, 0), 0);
  EXPECT_EQ(KRP_MSG_SendSimpleMsg("twelve chars", 1, 0), -1);
  EXPECT_EQ(KRP_MSG_SendSimpleMsg("", 1, 0), -1);
  EXPECT_EQ(KRP_MSG_SendSimpleMsg(nullptr, 1, 0), -1);
  EXPECT_EQ(KRP_MSG_SendMsgData("cms", 1, nullptr, 1), -1);
  const std::string large(8193, 'x');
  EXPECT_EQ(KRP_MSG_SendMsgData("cms", 1, large.data(), 8192), 0);
  EXPECT_EQ(KRP_MSG_SendMsgData("cms", 1, large.data(), 8193), -1);
}

TEST_F(Hub, MessagesForTheServerReachItsProcedure) {
  const Receiver sender;
  const int before = messages;
  mdx_packet_header_t header = header_to(MDX_PACKET_SERVICE, "mdxgate", 0x8804);
  header.length = 3;
  ASSERT_TRUE(sender.send(std::string(reinterpret_cast<char*>(&header), sizeof(header)) + "abc"));
  while (messages == before) std::this_thread::yield();
  EXPECT_EQ(last_type, 0x8804u);
  EXPECT_EQ(last_length, 3u);
}

TEST_F(Hub, RubbishIsDroppedAndCounted) {
  const auto packet = [](mdx_packet_header_t header, uint32_t length, size_t payload) {
    header.length = length;
    return std::string(reinterpret_cast<char*>(&header), sizeof(header)) +
           std::string(payload, 'x');
  };
  mdx_packet_header_t endless_name = header_to(MDX_PACKET_SERVICE, "mdxgate");
  memset(endless_name.to, 'm', sizeof(endless_name.to));
  const mdx_packet_header_t message = header_to(MDX_PACKET_SERVICE, "mdxgate");
  // clang-format off
  const struct { const char* what; std::string bytes; } cases[] = {
      {"a byte short",        packet(message, 0, 0).substr(0, 39)},
      {"length too large",    packet(message, 5, 4)},
      {"length near 2^32",    packet(message, 0xffffffd8, 0)},
      {"name without end",    packet(endless_name, 0, 0)},
      {"a notification",      packet(header_to(MDX_PACKET_NOTIFICATION, ""), 0, 0)},
      {"unknown kind",        packet(header_to(mdx_packet_kind_t{99}, "mdxgate"), 0, 0)},
      {"another service",     packet(header_to(MDX_PACKET_SERVICE, "cms"), 0, 0)},
      {"second subscription", packet(header_to(MDX_PACKET_SUBSCRIPTION, "dialup"), 0, 0)},
  };
  // clang-format on
  const Receiver receiver("cms");
  const int taken = messages;
  for (const auto& [what, bytes] : cases) {
    const uint64_t refused = counter_value(COUNT_PACKETS_REFUSED);
    ASSERT_TRUE(receiver.send(bytes)) << what;
    while (counter_value(COUNT_PACKETS_REFUSED) == refused) std::this_thread::yield();
  }
  EXPECT_EQ(messages, taken);
  KRP_MSG_SendSimpleMsg("cms", 7, 0);
  EXPECT_EQ(receiver.next().header.type, 7u) << "and it still gets what it asked for";
}

TEST_F(Hub, RefusesOneReceiverTooManyUntilAnotherLeaves) {
  std::vector<std::unique_ptr<Receiver>> receivers;
  const uint64_t refused = counter_value(COUNT_RECEIVERS_REFUSED);
  for (int i = 0; i < 128; ++i) receivers.push_back(std::make_unique<Receiver>("cms"));
  EXPECT_EQ(counter_value(COUNT_RECEIVERS_REFUSED), refused);
  const Receiver one_too_many;
  EXPECT_EQ(one_too_many.next().header.type, MDX_FAREWELL_FULL);
  EXPECT_TRUE(one_too_many.hung_up());
  receivers.erase(receivers.begin() + 50);
  const Receiver late("cms");
  EXPECT_EQ(KRP_MSG_SendSimpleMsg("cms", 8, 0), 0);
  EXPECT_EQ(late.next().header.type, 8u);
}

TEST_F(Hub, HangsUpWhoDoesNotSubscribe) {
  hold_clock(true);
  const uint64_t hung_up = counter_value(COUNT_RECEIVERS_SILENT);
  const Receiver silent, subscribed("cms");
  shift_clock(4000);
  { const Receiver other("cms"); }  // it looks at all of them
  EXPECT_EQ(counter_value(COUNT_RECEIVERS_SILENT), hung_up);
  shift_clock(1000);
  { const Receiver other("cms"); }
  EXPECT_EQ(silent.next().header.type, MDX_FAREWELL_SILENT);
  EXPECT_TRUE(silent.hung_up());
  KRP_MSG_SendSimpleMsg("cms", 9, 0);
  EXPECT_EQ(subscribed.next().header.type, 9u);
  EXPECT_EQ(counter_value(COUNT_RECEIVERS_SILENT), hung_up + 1);
  hold_clock(false);
}

TEST(HubPlaces, TheUserWithTheMostGivesUpItsYoungest) {
  // The users of connections in the order of their numbers, and of the newcomer.
  // clang-format off
  const struct { const char* users; char newcomer; size_t given_up; const char* why; } cases[] = {
      {"aaaaaa", 'a', 6, "the same user"},
      {"aaaaaa", 'b', 5, "another"},
      {"baaaab", 'c', 4, "the youngest of the one with most"},
      {"aaaabb", 'b', 3, "as many as the other then"},
      {"aaabbc", 'b', 6, "it would have as many as the other has, or more"},
      {"aaabbb", 'c', 5, "as many: the youngest of both"},
      {"abcdef", 'g', 6, "one each"},
      {"aabcde", 'g', 1, "and where one has two"},
  };
  // clang-format on
  for (const auto& [users, newcomer, given_up, why] : cases) {
    std::vector<hub_place_t> places;
    for (const char user : std::string(users)) places.push_back({uid_t(user), places.size()});
    EXPECT_EQ(place_to_give_up(places.data(), places.size(), uid_t(newcomer)), given_up) << why;
    std::reverse(places.begin(), places.end());
    const size_t there = given_up == places.size() ? given_up : places.size() - 1 - given_up;
    EXPECT_EQ(place_to_give_up(places.data(), places.size(), uid_t(newcomer)), there) << why;
  }
}

TEST_F(Hub, ReceiversComeAndGoWhileItSends) {
  std::atomic<bool> over{false};
  std::thread coming_and_going([&over] {
    for (int i = 0; i < 300; ++i) {
      const Receiver receiver("*");
      receiver.next(i % 3);
    }
    over = true;
  });
  while (!over) ASSERT_EQ(MDX_post_notify(1, 1, 2, 3), 0);
  coming_and_going.join();
}

}  // namespace
