// SPDX-License-Identifier: Apache-2.0

// What happens over and over is told at first, then now and then, and never wrongly.

#include "platform/linux/trace_limit.h"

#include <gtest/gtest.h>

#include "platform/linux/device_news.h"

namespace {

TEST(TraceLimit, ABurstThenOneAMinuteAndAfterAQuietTimeABurst) {
  trace_limit limit;
  uint32_t left_out = 0;
  uint32_t now = UINT32_MAX - 1000;  // the counter wraps in between
  const auto let_through = [&](uint32_t times) {
    uint32_t through = 0;
    for (uint32_t i = 0; i < times; ++i) through += limit.lets_through(now, &left_out) ? 1 : 0;
    return through;
  };
  EXPECT_EQ(let_through(1000), 10u);
  now += 59999;
  EXPECT_EQ(let_through(10), 0u);
  now += 1;
  EXPECT_EQ(let_through(1), 1u);
  EXPECT_EQ(left_out, 1000u);
  EXPECT_EQ(let_through(10), 0u);
  now += 600000;
  EXPECT_EQ(let_through(11), 10u);
}

TEST(DeviceNews, WhatWasToldLastIsTrueOrBecomesSo) {
  device_news news;
  uint32_t now = 1000;
  for (int i = 0; i < 10; ++i) EXPECT_TRUE(news.gone(now) && news.back()) << i;
  for (int i = 0; i < 20; ++i) EXPECT_TRUE(!news.gone(now) && !news.back()) << i;
  EXPECT_FALSE(news.gone(now));
  now += 60000;
  EXPECT_TRUE(news.still_gone(now)) << "it stays away";
  EXPECT_EQ(news.untold(), 20u);
  EXPECT_FALSE(news.still_gone(now)) << "and that is known";
  EXPECT_TRUE(news.back());
}

}  // namespace
