// SPDX-License-Identifier: Apache-2.0

// The modem channel: deliveries come in whole or not at all, and each wakes the main thread.
#include "tests/unit/server_test.h"

namespace unit {
namespace {

class Channel : public Server {
 protected:
  static int32_t deliver(const std::string& bytes) {
    return mdx_get_data_from_nas(6, bytes.data(), static_cast<uint32_t>(bytes.size()));
  }
};

TEST_F(Channel, TakesADeliveryUpTo1499Bytes) {
  const struct {
    size_t length;
    int32_t result;
    size_t raised;
  } cases[] = {{0, 0, 1}, {1499, 0, 1}, {1500, 1, 0}};
  for (const auto& c : cases) {
    bring_up();
    EXPECT_EQ(deliver(std::string(c.length, 'x')), c.result) << c.length;
    EXPECT_EQ(MDX_msgQ_num(mdx_state.nas_queue_id), static_cast<int32_t>(c.raised)) << c.length;
    EXPECT_EQ(fake::lines({fake::kind::RAISE}), strings(c.raised, "raise 4711 2")) << c.length;
    EXPECT_EQ(fake::traces(2), strings(1 - c.raised, "Error: NAS Response length is too big!\n"));
  }
}

TEST_F(Channel, WhatIsNotQueuedWakesNobody) {
  fake::fail.allocations = 1;
  EXPECT_EQ(deliver("OK"), 1);
  fake::fail.nas_send = 1;
  EXPECT_EQ(deliver("OK"), 1);
  EXPECT_THAT(fake::traces(2),
              ElementsAre("Error: NAS Response malloc fail!\n", "QueueSend Error\n"));
  EXPECT_THAT(fake::entries(fake::kind::RAISE), IsEmpty());
  EXPECT_EQ(MDX_msgQ_num(mdx_state.nas_queue_id), 0);

  EXPECT_EQ(mdx_nas_data_enqueue(nullptr, 4), 0);
  EXPECT_EQ(deliver("OK"), 0) << "the next one is taken again";
}

TEST_F(Channel, KnowsTheLiteralNotifications) {
  for (const char* line : {"^CPINNTY:READY", "^CPINNTY:SIM PUK", "^CARDLOCKNTY:SIM LOCKED"})
    EXPECT_EQ(mdx_instant_update(line), 0) << line;
  for (const char* line : {"^CPINNTY:SIM PIN", "^CPINNTY: READY"})
    EXPECT_EQ(mdx_instant_update(line), -1) << line;
}

}  // namespace
}  // namespace unit
