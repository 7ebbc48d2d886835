// SPDX-License-Identifier: Apache-2.0

// A file of commands that set a modem up.
//
//   # a remark
//   AT+CMEE=1
//   ? AT^CURC=1          this one may fail
//   @30 AT+COPS=0        the modem has 30 s for it; also "? @30 AT+COPS=0"
#pragma once

#include <cstdint>
#include <istream>
#include <string>
#include <vector>

struct init_command_t {
  size_t line;
  std::string command;
  bool may_fail;
  int32_t timeout_s;
};

struct init_file_t {
  std::vector<init_command_t> commands;
  std::vector<std::string> mistakes;  ///< such as "line 3: a command begins with AT"
};

/// @param timeout_s  for commands without one of their own
init_file_t read_init_file(std::istream& file, int32_t timeout_s);
