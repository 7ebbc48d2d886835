// SPDX-License-Identifier: Apache-2.0

// Short names for long ones: the same with each start and on each machine.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace mdxbridge {

constexpr uint64_t hash_of(std::string_view text) {
  uint64_t hash = 0xcbf29ce484222325;  // FNV-1a
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
  return hash;
}

/// Its sixteen hexadecimal digits.
inline std::string hex_of(uint64_t number) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (int shift = 60; shift >= 0; shift -= 4) text += kDigits[(number >> shift) & 15];
  return text;
}

}  // namespace mdxbridge
