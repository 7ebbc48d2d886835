// SPDX-License-Identifier: Apache-2.0

// A line that a person types, unless a signal comes first.
#pragma once

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <string>

#include "tools/signals/polled_signals.h"

/// Waits for a line of the terminal on standard input; at its end the line is empty.
/// @param stop_fd  of signals_to_poll
/// @return the signal that came instead, or 0
inline int read_typed_line(int stop_fd, std::string* line) {
  pollfd fds[] = {{STDIN_FILENO, POLLIN, 0}, {stop_fd, POLLIN, 0}};
  while (poll(fds, 2, -1) < 0 && errno == EINTR) continue;
  if (const int signal = next_signal(stop_fd); signal != 0) return signal;
  if (!std::getline(std::cin, *line)) line->clear();
  return 0;
}
