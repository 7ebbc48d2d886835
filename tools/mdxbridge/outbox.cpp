// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxbridge/outbox.h"

#include <algorithm>
#include <utility>

namespace mdxbridge {

void lane_t::add(message_t message) {
  messages_.push_back({std::move(message)});
  if (!messages_.back().message.text.empty()) {
    messages_.back().message.dropped += std::exchange(untold_, 0);
  }
  while (messages_.size() - sent_ > room_) drop_oldest();
}

void lane_t::drop_oldest() {
  const auto oldest = messages_.begin() + static_cast<std::ptrdiff_t>(sent_);
  const bool told = !oldest->message.text.empty();
  const uint64_t count = oldest->message.dropped + (told ? 1 : 0);
  dropped_ += told ? 1 : 0;
  const auto behind = messages_.erase(oldest);
  const auto next = std::find_if(behind, messages_.end(),
                                 [](const entry_t& entry) { return !entry.message.text.empty(); });
  (next != messages_.end() ? next->message.dropped : untold_) += count;
}

const message_t* lane_t::next() const {
  return sent_ < messages_.size() ? &messages_[sent_].message : nullptr;
}

void lane_t::sent(int mid) { messages_[sent_++].mid = mid; }

bool lane_t::confirmed(int mid) {
  const auto end = messages_.begin() + static_cast<std::ptrdiff_t>(sent_);
  const auto found = std::find_if(messages_.begin(), end,
                                  [mid](const entry_t& entry) { return entry.mid == mid; });
  if (found == end) return false;
  messages_.erase(found);
  --sent_;
  return true;
}

void lane_t::rewind() { sent_ = 0; }

void lane_t::clear() {
  messages_.clear();
  sent_ = 0;
}

std::string text_of(const message_t& message) {
  if (message.dropped == 0) return message.text;
  return with_member(message.text, "\"dropped\":" + std::to_string(message.dropped));
}

std::string with_member(std::string object, const std::string& member) {
  if (object.empty()) return object;
  return object.insert(1, object == "{}" ? member : member + ',');
}

}  // namespace mdxbridge
