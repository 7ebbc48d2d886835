// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "tools/mdxsim/modem.h"

namespace mdxsim {

/// What a modem has said and the host has not got yet, by the time at which it is due. Texts that
/// are due at the same millisecond leave as one delivery, in the order in which they were put.
class Outbox {
 public:
  void put(Time due, std::string_view text) {
    waiting_[due] += text;
    size_ += text.size();
  }

  /// The earliest delivery if it is due, else an empty string.
  std::string take(Time now) {
    if (waiting_.empty() || waiting_.begin()->first > now) return {};
    std::string delivery = std::move(waiting_.begin()->second);
    waiting_.erase(waiting_.begin());
    size_ -= delivery.size();
    return delivery;
  }

  [[nodiscard]] std::optional<Time> next_due() const {
    if (waiting_.empty()) return std::nullopt;
    return waiting_.begin()->first;
  }

  void clear() {
    waiting_.clear();
    size_ = 0;
  }

  [[nodiscard]] size_t size() const { return size_; }

 private:
  std::map<Time, std::string> waiting_;
  size_t size_ = 0;
};

}  // namespace mdxsim
