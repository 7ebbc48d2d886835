// SPDX-License-Identifier: Apache-2.0

// Deadlines: a point on the monotonic clock, in milliseconds, and a poll that keeps to one.
#pragma once

#include <poll.h>

#include <cstdint>

int64_t now_ms();

/// What is left until a deadline, between 0 and `at_most`.
int left_ms(int64_t deadline, int at_most);

/// poll() that a signal does not cut short.
/// @return as poll: 0 when `deadline` passed first, -1 with errno otherwise
int poll_until(pollfd* fds, nfds_t count, int64_t deadline);
