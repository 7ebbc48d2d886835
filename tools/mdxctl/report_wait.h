// SPDX-License-Identifier: Apache-2.0

// Waits for what the device is told.
#pragma once

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <iterator>

#include "client/mdxclient.h"

class report_wait_t {
 public:
  using milliseconds = std::chrono::milliseconds;
  using filter_t = std::function<bool(const mdx_packet_t& packet)>;
  static constexpr milliseconds kForGood{-1};
  static constexpr int kStopped = 1;

  /// Hears from now on.
  report_wait_t() : error_(mdx_subscribe(&subscription_, MDX_EVERYTHING, 0)) {}
  ~report_wait_t() { mdx_unsubscribe(subscription_); }
  report_wait_t(const report_wait_t&) = delete;
  report_wait_t& operator=(const report_wait_t&) = delete;

  int error() const { return error_; }

  /// Waits for a packet that `wanted` takes; passes over the others.
  /// @param stop_fd  of signals_to_poll; -1: signals do what they do
  /// @return MDX_OK, MDX_ERR_TIMEOUT, kStopped, or why nothing will come any more
  int wait(const filter_t& wanted, milliseconds time = kForGood, int stop_fd = -1) {
    using std::chrono::steady_clock;
    const auto end = steady_clock::now() + time;
    for (;;) {
      const auto left = std::max(ceil<milliseconds>(end - steady_clock::now()), milliseconds(0));
      mdx_packet_t packet = MDX_PACKET_INIT;
      const int wait_ms = time < milliseconds(0) ? -1 : static_cast<int>(left.count());
      if (error_ != MDX_OK) return error_;
      pollfd fds[] = {{mdx_subscription_fd(subscription_), POLLIN, 0}, {stop_fd, POLLIN, 0}};
      if (poll(fds, std::size(fds), wait_ms) == 0) return MDX_ERR_TIMEOUT;
      if (fds[1].revents != 0) return kStopped;
      const int error = mdx_next_packet(subscription_, 0, &packet);
      if (error == MDX_ERR_TIMEOUT) continue;
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
