// SPDX-License-Identifier: Apache-2.0

// Waits for what the device is told.
#pragma once

#include <algorithm>
#include <chrono>
#include <functional>

#include "client/mdxclient.h"
#include "tools/mdxctl/known_states.h"

class report_wait_t {
 public:
  using milliseconds = std::chrono::milliseconds;
  using filter_t = std::function<bool(const mdx_packet_t& packet)>;
  static constexpr milliseconds kForGood{-1};

  /// Hears from now on.
  report_wait_t() : error_(hear_from_now_on(&subscription_)) {}
  ~report_wait_t() { mdx_unsubscribe(subscription_); }
  report_wait_t(const report_wait_t&) = delete;
  report_wait_t& operator=(const report_wait_t&) = delete;

  int error() const { return error_; }

  /// Waits for a packet that `wanted` takes; passes over the others.
  /// @return MDX_OK, MDX_ERR_TIMEOUT, or why nothing will come any more
  int wait(const filter_t& wanted, milliseconds time = kForGood) {
    using std::chrono::steady_clock;
    const auto end = steady_clock::now() + time;
    for (;;) {
      const auto left = std::max(ceil<milliseconds>(end - steady_clock::now()), milliseconds(0));
      mdx_packet_t packet = MDX_PACKET_INIT;
      const int wait_ms = time < milliseconds(0) ? -1 : static_cast<int>(left.count());
      const int error =
          error_ == MDX_OK ? mdx_next_packet(subscription_, wait_ms, &packet) : error_;
      if (error != MDX_OK) return error;
      if (wanted(packet)) return MDX_OK;
    }
  }

  /// Lets so much time pass, and what comes meanwhile with it.
  void settle(milliseconds time) {
    wait([](const mdx_packet_t&) { return false; }, time);
  }

 private:
  mdx_subscription_t* subscription_ = nullptr;
  int error_;
};
