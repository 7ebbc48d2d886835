// SPDX-License-Identifier: Apache-2.0

// Milliseconds that do not jump with the wall clock.

#include <cerrno>
#include <ctime>

#include "platform/mdx_platform.h"

uint32_t MDX_elapse() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint32_t>(static_cast<uint64_t>(now.tv_sec) * 1000u +
                               static_cast<uint64_t>(now.tv_nsec) / 1000000u);
}

void MDX_sleep(uint32_t milliseconds) {
  timespec left{};
  left.tv_sec = static_cast<time_t>(milliseconds / 1000);
  left.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000L;
  while (clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) {
  }
}
