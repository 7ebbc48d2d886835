// SPDX-License-Identifier: Apache-2.0

// A flood of commands, and one command that comes twice.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>

namespace mdxbridge {

using clock_type = std::chrono::steady_clock;

/// Lets so many through in any second.
class rate_limit_t {
 public:
  explicit rate_limit_t(int per_second) : per_second_(static_cast<size_t>(per_second)) {}

  bool take(clock_type::time_point now);

 private:
  size_t per_second_;
  std::deque<clock_type::time_point> taken_;
};

/// Remembers the requests of the last minute and their answers, so that one that comes twice is run
/// once: the broker sends again what it does not know to have arrived.
class repeats_t {
 public:
  struct entry_t {
    std::string key;
    std::string answer;  ///< empty while it runs, and when there was no room to keep it
    bool done = false;
    clock_type::time_point at;
    bool told = false;  ///< that it came again
  };

  /// @return the one that came before, valid until the next call; null: this is the first
  entry_t* find(const std::string& key, clock_type::time_point now);
  void begun(const std::string& key, clock_type::time_point now);
  void done(const std::string& key, const std::string& answer);

 private:
  void forget(clock_type::time_point now);

  std::deque<entry_t> entries_;
  size_t answer_bytes_ = 0;
};

}  // namespace mdxbridge
