// SPDX-License-Identifier: Apache-2.0

// The bytes of a record or payload as a test writes them down: pieces, joined with +.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

template <class Integer>
std::string image(std::initializer_list<Integer> values) {
  return {reinterpret_cast<const char*>(values.begin()), values.size() * sizeof(Integer)};
}
inline std::string bytes(std::initializer_list<uint8_t> values) { return image(values); }
inline std::string halves(std::initializer_list<uint16_t> values) { return image(values); }
inline std::string longs(std::initializer_list<uint64_t> values) { return image(values); }
/// 32 bits each, signed or not.
inline std::string words(std::initializer_list<int64_t> values) {
  std::string out;
  for (const int64_t value : values) out += image({static_cast<uint32_t>(value)});
  return out;
}
/// Padded with NUL bytes.
inline std::string text(std::string_view value, size_t size) {
  std::string out(value);
  out.resize(size);
  return out;
}
inline std::string zeros(size_t size) { return std::string(size, '\0'); }
