// SPDX-License-Identifier: Apache-2.0

#include "client/wait_clock.h"

#include <cerrno>
#include <climits>
#include <ctime>

int64_t now_ms() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

int left_ms(int64_t deadline, int at_most) {
  const int64_t left = deadline - now_ms();
  if (left <= 0) return 0;
  return left < at_most ? static_cast<int>(left) : at_most;
}

int poll_until(pollfd* fds, nfds_t count, int64_t deadline) {
  for (;;) {
    const int ready = poll(fds, count, left_ms(deadline, INT_MAX));
    if (ready < 0 && errno == EINTR) continue;
    if (ready == 0 && now_ms() < deadline) continue;
    return ready;
  }
}
