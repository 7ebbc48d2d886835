// SPDX-License-Identifier: Apache-2.0

// What every fuzz target shares: the bytes of one run, taken apart from the front.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace fuzz {

class input {
 public:
  input(const uint8_t* data, size_t size) : data_(reinterpret_cast<const char*>(data), size) {}

  bool empty() const { return data_.empty(); }
  std::string take(size_t size) {
    const std::string taken = data_.substr(0, size);
    data_.erase(0, size);
    return taken;
  }
  uint8_t byte() { return data_.empty() ? 0 : static_cast<uint8_t>(take(1)[0]); }
  /// What stands in front of the next mark; the mark goes too.
  std::string piece(char mark) {
    const size_t at = std::min(data_.find(mark), data_.size());
    const std::string taken = take(at);
    byte();
    return taken;
  }

 private:
  std::string data_;
};

/// A promise of the code under test.
inline void require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace fuzz
