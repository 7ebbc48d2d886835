// SPDX-License-Identifier: Apache-2.0

// What a modem makes of a command's text. Pure: nothing is sent here.
//
// A control character in it ends, edits or aborts the command, so that something else is run than
// was meant, and the answers no longer fit the commands. A message command makes the modem wait
// for the message: whatever comes next is taken for it, whoever sends it.
#pragma once

#include <cstddef>

#include "wire/at_msg.h"

constexpr size_t kNoControl = static_cast<size_t>(-1);

/// Where the first control character stands, kNoControl when there is none.
size_t find_control(const char* text, size_t length);

/// A command as a modem reads it: in capitals and without blanks, but for what stands in quotes.
struct command_line_t {
  char text[kCommandSize];  ///< ended by a NUL
  size_t length;
};

/// @param length  below kCommandSize
command_line_t read_command_line(const char* command, size_t length);

enum message_kind_t {
  MESSAGE_NONE,     ///< the modem does not wait for a message
  MESSAGE_KNOWN,    ///< it does, and the server knows the dialogue
  MESSAGE_UNKNOWN,  ///< it does, and the server does not know the dialogue
};

struct message_command_t {
  message_kind_t kind;
  const char* name;  ///< such as "+CMGS"; null with MESSAGE_NONE
  bool last;         ///< no other command stands behind it
};

/// Finds the command after which the modem waits for a message. Queries (AT+CMGS=?) are none.
message_command_t message_command_in(const command_line_t& line);

/// The name by which the server takes a text for a message command, query or not; null if it does
/// not.
const char* two_step_name_in(const char* text);
