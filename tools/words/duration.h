// SPDX-License-Identifier: Apache-2.0

// Lengths of time as people read them.
#pragma once

#include <cstdint>
#include <string>

/// "48 s", "3 min 20 s", "5 h 12 min", "9 d 4 h".
inline std::string duration_text(uint64_t seconds) {
  const auto two = [](uint64_t big, const char* unit, uint64_t small, const char* small_unit) {
    return std::to_string(big) + ' ' + unit + ' ' + std::to_string(small) + ' ' + small_unit;
  };
  if (seconds < 60) return std::to_string(seconds) + " s";
  if (seconds < 3600) return two(seconds / 60, "min", seconds % 60, "s");
  if (seconds < 86400) return two(seconds / 3600, "h", seconds / 60 % 60, "min");
  return two(seconds / 86400, "d", seconds / 3600 % 24, "h");
}
