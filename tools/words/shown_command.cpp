// SPDX-License-Identifier: Apache-2.0

#include "tools/words/shown_command.h"

std::string shown_command(const std::string& command) {
  const size_t end = command.find('=');
  if (end == std::string::npos || command.substr(end) == "=?") return command;
  return command.substr(0, end) + "=...";
}
