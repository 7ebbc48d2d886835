// SPDX-License-Identifier: Apache-2.0

#include "client/command_line.h"

#include <cstring>

namespace {

struct message_row_t {
  const char* name;
  message_kind_t kind;
  bool needs_two_values;  ///< it is the second, the length, that announces a message
};

// clang-format off
constexpr message_row_t kMessageCommands[] = {
  {"+CMGS",  MESSAGE_KNOWN,   false},
  {"+CMGW",  MESSAGE_KNOWN,   false},
  {"^HCMGS", MESSAGE_KNOWN,   false},
  {"^HCMGW", MESSAGE_KNOWN,   false},
  {"+CMGC",  MESSAGE_UNKNOWN, false},
  {"+CNMA",  MESSAGE_UNKNOWN, true },
};
// clang-format on

bool is_control(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x20 || byte == 0x7f;
}

/// Where the commands of a line end that begins at `text`: at a semicolon or the line's end, quotes
/// passed over. `comma` tells whether one stands in front of that.
const char* end_of_command(const char* text, bool* comma) {
  bool quoted = false;
  *comma = false;
  for (; *text != '\0' && (quoted || *text != ';'); ++text) {
    if (*text == '"') quoted = !quoted;
    if (*text == ',' && !quoted) *comma = true;
  }
  return text;
}

char capital(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

bool goes_on_as_name(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

/// Whether the modem waits for a message behind the row's name, whose values begin at `values`.
bool waits_for_message(const message_row_t& row, const char* values, bool comma) {
  const bool query = *values == '?' || std::strncmp(values, "=?", 2) == 0;
  if (query || goes_on_as_name(*values)) return false;
  return comma || !row.needs_two_values;
}

}  // namespace

size_t find_control(const char* text, size_t length) {
  for (size_t i = 0; i < length; ++i) {
    if (is_control(text[i])) return i;
  }
  return kNoControl;
}

command_line_t read_command_line(const char* command, size_t length) {
  command_line_t line{};
  bool quoted = false;
  for (size_t i = 0; i < length; ++i) {
    if (command[i] == '"') quoted = !quoted;
    if (command[i] == ' ' && !quoted) continue;
    line.text[line.length++] = quoted ? command[i] : capital(command[i]);
  }
  return line;
}

message_command_t message_command_in(const command_line_t& line) {
  bool quoted = false;
  for (const char* at = line.text; *at != '\0'; ++at) {
    if (*at == '"') quoted = !quoted;
    if (quoted) continue;
    for (const message_row_t& row : kMessageCommands) {
      const size_t size = std::strlen(row.name);
      if (std::strncmp(at, row.name, size) != 0) continue;
      bool comma = false;
      const char* end = end_of_command(at + size, &comma);
      if (waits_for_message(row, at + size, comma)) return {row.kind, row.name, *end == '\0'};
    }
  }
  return {MESSAGE_NONE, nullptr, false};
}

const char* two_step_name_in(const char* text) {
  for (const message_row_t& row : kMessageCommands) {
    if (row.kind == MESSAGE_KNOWN && std::strstr(text, row.name) != nullptr) return row.name;
  }
  return nullptr;
}
