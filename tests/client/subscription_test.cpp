// SPDX-License-Identifier: Apache-2.0

// What a subscriber gets from a hub that behaves, misbehaves, and goes away.

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <utility>

#include "client/mdxclient.h"
#include "wire/border.h"

namespace {

/// A hub with one receiver, which asked for everything, the last of each state first.
class Subscription : public testing::Test {
 protected:
  Subscription() {
    mkdir(kMdxDirectory, 0770);
    unlink(kMdxHubPath);
    sockaddr_un address{AF_UNIX, {}};
    std::memcpy(address.sun_path, kMdxHubPath, sizeof(kMdxHubPath));
    const int listener = socket(AF_UNIX, SOCK_SEQPACKET, 0);
    EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_EQ(listen(listener, 1), 0);
    mdx_subscribe_options_t options = MDX_SUBSCRIBE_OPTIONS_INIT;
    options.module = 7;
    options.last = 1;
    EXPECT_EQ(mdx_subscribe_with(&receiver_, &options), MDX_OK);
    hub_ = accept(listener, nullptr, nullptr);
    close(listener);
    mdx_packet_header_t header{};
    EXPECT_EQ(recv(hub_, &header, sizeof(header), 0), static_cast<ssize_t>(sizeof(header)));
    EXPECT_EQ(header.kind, MDX_PACKET_SUBSCRIPTION);
    EXPECT_STREQ(header.to, "*");
    EXPECT_EQ(header.module, 0u);
    EXPECT_EQ(header.a, kMdxSubscribeWithStates);
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
