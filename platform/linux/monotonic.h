// SPDX-License-Identifier: Apache-2.0

// A clock that never goes back, finer and longer than MDX_elapse.
#pragma once

#include <cstdint>
#include <ctime>

/// Microseconds since some time in the past.
inline uint64_t monotonic_us() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000u + static_cast<uint64_t>(now.tv_nsec) / 1000u;
}

inline uint64_t monotonic_ms() { return monotonic_us() / 1000u; }

/// The shorter of two waits in milliseconds, of which a negative one is for ever.
inline int sooner_ms(int one, int other) {
  return static_cast<unsigned>(one) < static_cast<unsigned>(other) ? one : other;
}
