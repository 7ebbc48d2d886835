// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxbridge/limits.h"

#include <algorithm>

namespace mdxbridge {

namespace {

constexpr std::chrono::seconds kRemembered{60};
/// Answers of a flood are not kept for ever; that it was run is.
constexpr size_t kMostAnswerBytes = 256 * 1024;

}  // namespace

bool rate_limit_t::take(clock_type::time_point now) {
  while (!taken_.empty() && now - taken_.front() >= std::chrono::seconds(1)) taken_.pop_front();
  if (taken_.size() >= per_second_) return false;
  taken_.push_back(now);
  return true;
}

void repeats_t::forget(clock_type::time_point now) {
  while (!entries_.empty() && entries_.front().done && now - entries_.front().at > kRemembered) {
    answer_bytes_ -= entries_.front().answer.size();
    entries_.pop_front();
  }
}

repeats_t::entry_t* repeats_t::find(const std::string& key, clock_type::time_point now) {
  forget(now);
  const auto found = std::find_if(entries_.begin(), entries_.end(), [&](const entry_t& entry) {
    return entry.key == key && (!entry.done || now - entry.at <= kRemembered);
  });
  return found == entries_.end() ? nullptr : &*found;
}

void repeats_t::begun(const std::string& key, clock_type::time_point now) {
  entries_.push_back({key, "", false, now, false});
}

void repeats_t::done(const std::string& key, const std::string& answer) {
  const auto found = std::find_if(entries_.begin(), entries_.end(), [&](const entry_t& entry) {
    return entry.key == key && !entry.done;
  });
  if (found == entries_.end()) return;
  found->done = true;
  found->answer = answer;
  answer_bytes_ += answer.size();
  for (entry_t& entry : entries_) {
    if (answer_bytes_ <= kMostAnswerBytes) return;
    answer_bytes_ -= entry.answer.size();
    entry.answer.clear();
  }
}

}  // namespace mdxbridge
