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
  while (messages_.size() - sent_ > room_) drop(sent_);
}

void lane_t::drop(size_t index) {
  const auto gone = messages_.begin() + static_cast<std::ptrdiff_t>(index);
  const bool told = !gone->message.text.empty();
  const uint64_t count = gone->message.dropped + (told ? 1 : 0);
  dropped_ += told ? 1 : 0;
  const auto behind = messages_.erase(gone);
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

void lane_t::rewind() {
  for (size_t under_way = std::exchange(sent_, 0); under_way > 0; --under_way) {
    const size_t index = under_way - 1;
    if (++messages_[index].tries == most_tries_) drop(index);
  }
}

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
