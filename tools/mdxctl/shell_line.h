// SPDX-License-Identifier: Apache-2.0

// What a person types at the shell's prompt.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/words/collection.h"

enum shell_action_t {
  SHELL_NOTHING,
  SHELL_SEND,  ///< `requests`, one after the other, until one fails
  SHELL_REPORTS_ON,
  SHELL_REPORTS_OFF,
  SHELL_HELP,
  SHELL_QUIT,
  SHELL_MISTAKE,  ///< `error` says what is wrong and what would be right
};

struct shell_request_t {
  std::string command;  ///< empty for the stored signal report
  std::string pdu;      ///< empty for a command of one step
  collection_t collection;
  int32_t timeout_s;
};

struct shell_line_t {
  shell_action_t action = SHELL_NOTHING;
  std::vector<shell_request_t> requests;
  std::string error;
};

/// @param reference  for a text message in parts
shell_line_t parse_shell_line(const std::string& line, uint8_t reference);

/// What a line that begins with `begin` may go on as, the shell's own words and AT commands, in
/// either case.
std::vector<std::string> shell_completions(const std::string& begin);

/// Whether a line may be kept in a file: not when it carries a PIN or a password.
bool fit_for_history(const std::string& line);

std::string shell_help();
