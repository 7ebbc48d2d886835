// SPDX-License-Identifier: Apache-2.0

// The platform's figures, taken apart and shown.

#include <gmock/gmock.h>

#include "platform/linux/counters.h"
#include "tools/mdxctl/platform_stats.h"

namespace {

using testing::HasSubstr;
using testing::Not;

TEST(Stats, ReadsWhatTheServerPrints) {
  const platform_stats_t stats = parse_stats(
      "version 1.2.3\nrequests 18446744073709551\ncommand_microseconds 1500000\nbrand_new 3\n"
      "no number\nnegative -1\nempty\n\ntwo 1 2\nreceiver 12 1000 module:19 5 6\nreceiver 13\n"
      "receiver 0 0 a\"b 1 2\ncut 7");
  EXPECT_EQ(stats.version, "1.2.3");
  EXPECT_EQ(stats.values.size(), 4u);
  EXPECT_EQ(stats.value("requests"), 18446744073709551u);
  EXPECT_EQ(stats.value("two"), 0u);
  ASSERT_EQ(stats.receivers.size(), 2u);
  EXPECT_EQ(stats.receivers[0].wants, "module:19");
  EXPECT_EQ(stats.receivers[0].lost, 6u);

  const std::string metrics = stats_prometheus(stats);
  for (const char* line :
       {"mdxgate_build_info{version=\"1.2.3\"} 1\n",
        "# TYPE mdxgate_requests_total counter\nmdxgate_requests_total 18446744073709551\n",
        "\nmdxgate_command_seconds_total 1.500000\n", "\nmdxgate_brand_new 3\n",
        "mdxgate_receiver_packets_lost_total{place=\"1\",process=\"0\",wants=\"a\\\"b\"} 2\n"}) {
    EXPECT_THAT(metrics, HasSubstr(line));
  }
  EXPECT_THAT(metrics, Not(HasSubstr("# TYPE mdxgate_brand_new")));
  EXPECT_EQ(stats_json(stats)["values"]["brand_new"], 3);
}

TEST(Stats, KnowEachCounterOfTheServer) {
  for (uint32_t i = 0; i < COUNT_COUNTERS; ++i) {
    const char* name = counter_name(static_cast<mdx_counter_t>(i));
    EXPECT_FALSE(meaning_of(name).empty()) << name;
  }
}

}  // namespace
