// SPDX-License-Identifier: Apache-2.0

// A modem's line to an assembler: bytes are said at a chosen cut, deliveries are taken and noted,
// and between two exchanges what is owed is collected.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "platform/linux/delivery.h"

using std::string;
using script_t = std::vector<string>;

inline string readable(const string& bytes) { return testing::PrintToString(bytes); }

/// The lengths of the pieces in which the modem's bytes arrive.
using cut_t = std::function<size_t(size_t rest)>;

class modem_line {
 public:
  explicit modem_line(cut_t cut) : cut_(std::move(cut)) {}

  void send(const string& bytes) { assembler_.sent(bytes.data(), bytes.size()); }

  void say(const string& bytes) {
    for (size_t at = 0; at < bytes.size();) {
      const size_t piece = std::clamp<size_t>(cut_(bytes.size() - at), 1, bytes.size() - at);
      for (size_t used = 0; used < piece;) {
        used += assembler_.received(bytes.data() + at + used, piece - used, now_);
        hand_over(used < piece);
      }
      at += piece;
    }
    collect_debt();
  }

  void wait(uint64_t milliseconds) {
    const uint64_t end = now_ + milliseconds;
    for (int looks = 0; assembler_.due() <= end; ++looks) {
      ASSERT_LT(looks, 100) << "due again and again, but nothing comes of it";
      now_ = std::max(now_, assembler_.due());
      hand_over(false);
      collect_debt();
    }
    now_ = end;
    hand_over(false);
    collect_debt();
  }

  void lose() { assembler_.link_lost(); }
  void open(const line_balance_t& left = {}) { assembler_.debt().opened(now_, left); }
  /// The server waits no longer.
  void end_exchange() {
    assembler_.debt().exchange_ended(true);
    collect_debt();
  }
  bool is_clean() { return assembler_.debt().is_clean(); }
  line_debt& debt() { return assembler_.debt(); }
  uint32_t answers_too_long() const { return assembler_.answers_too_long(); }
  size_t echoes_dropped() const { return assembler_.echoes_dropped(); }

  script_t deliveries;

 private:
  void collect_debt() {
    const delivery_assembler::step_t step = assembler_.step(now_);
    if (step == delivery_assembler::step_t::clean) assembler_.debt().settled();
    if (step == delivery_assembler::step_t::none) hand_over(false);
    if (step != delivery_assembler::step_t::escape) return;
    deliveries.emplace_back("\x1b");
    assembler_.debt().escaped(now_);
  }

  void hand_over(bool more_waiting) {
    for (;;) {
      const std::string_view shown = assembler_.next(now_, more_waiting);
      if (shown.empty()) return;
      ASSERT_EQ(shown, assembler_.next(now_ + 5000, true)) << "a delivery on offer has changed";
      deliveries.emplace_back(shown);
      assembler_.taken();
    }
  }

  delivery_assembler assembler_;
  cut_t cut_;
  uint64_t now_ = 1000;
};

inline size_t whole(size_t rest) { return rest; }
inline size_t byte_by_byte(size_t) { return 1; }
inline cut_t at_random(uint32_t seed) {
  return [random = std::mt19937(seed)](size_t) mutable -> size_t { return 1 + random() % 12; };
}
