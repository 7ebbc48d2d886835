// What a subscriber gets from a hub that behaves, misbehaves, and goes away.

#include <gmock/gmock.h>
#include <poll.h>

#include <string>

#include "client/mdxclient.h"
#include "tests/client/stand_in_hub.h"

namespace {

struct Subscription {
  explicit Subscription(const char* service, uint32_t module = 0) {
    EXPECT_EQ(mdx_subscribe(&handle, service, module), MDX_OK);
  }
  ~Subscription() { mdx_unsubscribe(handle); }
  Subscription(const Subscription&) = delete;
  Subscription& operator=(const Subscription&) = delete;
  mdx_subscription_t* handle = nullptr;
};

TEST(Subscription, AsksForWhatItIsTold) {
  StandInHub hub;
  const Subscription everything(MDX_EVERYTHING, 7);
  mdx_packet_header_t header = hub.take_subscription();
  EXPECT_EQ(header.kind, MDX_PACKET_SUBSCRIPTION);
  EXPECT_STREQ(header.to, "*");
  hub.hang_up();
  const Subscription module(MDX_BY_MODULE, 19);
  header = hub.take_subscription();
  EXPECT_STREQ(header.to, "");
  EXPECT_EQ(header.module, 19u);
  hub.hang_up();
  const Subscription service("elevenbytes");
  EXPECT_STREQ(hub.take_subscription().to, "elevenbytes");

  mdx_subscription_t* none = nullptr;
  EXPECT_EQ(mdx_subscribe(&none, "twelve bytes", 0), MDX_ERR_ARGUMENT);
}

TEST(Subscription, YieldsPacketsWholeAndInOrder) {
  StandInHub hub;
  const Subscription subscription(MDX_EVERYTHING);
  hub.take_subscription();
  mdx_packet_t packet = MDX_PACKET_INIT;
  EXPECT_EQ(mdx_next_packet(subscription.handle, 0, &packet), MDX_ERR_TIMEOUT);
  EXPECT_EQ(mdx_next_packet(subscription.handle, 20, &packet), MDX_ERR_TIMEOUT);

  const mdx_packet_header_t full = {18002, 2, "elevenbyteX", 3, 18, -1, INT32_MIN, 0};
  const std::string large(20000, 'p');
  hub.send_packet(full, large);
  hub.send_packet({8907, 3, {}, 0, 0, 11, 0, 0}, "");
  pollfd ready = {mdx_subscription_fd(subscription.handle), POLLIN, 0};
  EXPECT_EQ(poll(&ready, 1, 1000), 1);
  ASSERT_EQ(mdx_next_packet(subscription.handle, -1, &packet), MDX_OK);
  EXPECT_EQ(packet.type, 18002u);
  EXPECT_EQ(packet.kind, MDX_KIND_NOTIFICATION);
  EXPECT_STREQ(packet.to, "elevenbyteX");
  EXPECT_EQ(packet.lost, 3u);
  EXPECT_EQ(packet.module, 18u);
  EXPECT_EQ(packet.a, -1);
  EXPECT_EQ(packet.b, INT32_MIN);
  EXPECT_EQ(std::string(static_cast<const char*>(packet.payload), packet.length), large);
  ASSERT_EQ(mdx_next_packet(subscription.handle, 0, &packet), MDX_OK);
  EXPECT_EQ(packet.kind, MDX_KIND_VOICE);
  EXPECT_EQ(packet.length, 0u);
}

TEST(Subscription, PassesOverWhatIsNoPacket) {
  StandInHub hub;
  const Subscription subscription(MDX_EVERYTHING);
  hub.take_subscription();
  hub.send_bytes("short");
  hub.send_bytes(std::string(sizeof(mdx_packet_header_t) - 1, '\0'));
  hub.send_packet({1, 1, "cms", 0, 0, 0, 0, 0}, "1234", -1);
  hub.send_packet({2, 1, "cms", 0, 0, 0, 0, 0}, "1234", +1);
  hub.send_packet({3, 1, "cms", 0, 0, 0, 0, 0}, "1234");
  mdx_packet_t packet = MDX_PACKET_INIT;
  ASSERT_EQ(mdx_next_packet(subscription.handle, 0, &packet), MDX_OK);
  EXPECT_EQ(packet.type, 3u);
}

TEST(Subscription, LostServerIsToldAfterTheLastPacket) {
  mdx_subscription_t* none = nullptr;
  EXPECT_EQ(mdx_subscribe(&none, MDX_EVERYTHING, 0), MDX_ERR_NO_SERVER);
  StandInHub hub;
  const Subscription subscription("dialup");
  hub.take_subscription();
  hub.send_packet({1, 1, "dialup", 0, 0, 0, 0, 0}, "");
  hub.hang_up();
  mdx_packet_t packet = MDX_PACKET_INIT;
  EXPECT_EQ(mdx_next_packet(subscription.handle, -1, &packet), MDX_OK);
  EXPECT_EQ(mdx_next_packet(subscription.handle, -1, &packet), MDX_ERR_SERVER_GONE);
  EXPECT_EQ(mdx_next_packet(subscription.handle, 0, &packet), MDX_ERR_SERVER_GONE);
}

}  // namespace
