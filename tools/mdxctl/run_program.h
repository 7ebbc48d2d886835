// SPDX-License-Identifier: Apache-2.0

// A program that somebody named, run for one thing that was told.
#pragma once

#include <string>

struct program_end_t {
  bool started = false;
  bool interrupted = false;  ///< `stop_fd` became readable; the program was told to end
  std::string error;         ///< what was wrong, also that it ended with another code than 0
};

/// Runs it, without arguments and without a shell, and waits for its end.
/// @param report   becomes MDX_REPORT in its environment
/// @param input    its standard input
/// @param stop_fd  descriptor of signals, see signals_to_poll
program_end_t run_program(const std::string& program, const std::string& report,
                          const std::string& input, int stop_fd);
