// SPDX-License-Identifier: Apache-2.0

// Keeps what happens over and over from filling the log.
#pragma once

#include <atomic>
#include <cstdint>

/// One for each kind of news. Any thread; two that come at the same moment may count as one.
class trace_limit {
 public:
  /// Lets the first kBurst through, and after them one in kPauseMs; a quiet time earns a new burst.
  /// @param now_ms    a counter that may wrap
  /// @param left_out  set to how many were not let through since the last that was
  bool lets_through(uint32_t now_ms, uint32_t* left_out);

  static constexpr uint32_t kBurst = 10;
  static constexpr uint32_t kPauseMs = 60000;

 private:
  std::atomic<uint32_t> spent_{0};  ///< of the burst
  std::atomic<uint32_t> since_{0};  ///< when the last of it was earned back
  std::atomic<uint32_t> left_out_{0};
};
