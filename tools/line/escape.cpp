// SPDX-License-Identifier: Apache-2.0

// Session files, the log and error messages show control characters as text, and all in the same
// way, so that a line of the log can be pasted into a session file.
#include "tools/line/escape.h"

#include <stdexcept>

#include "tools/line/octets.h"

namespace mdxline {
namespace {

bool printable(char c) { return c >= ' ' && c <= '~'; }

// Reads the escape whose backslash stands right before `rest`, and drops it from there.
char take_escape(std::string_view& rest) {
  const char kind = rest.empty() ? '\0' : rest.front();
  if (kind == 'r' || kind == 'n' || kind == '\\') {
    rest.remove_prefix(1);
    return kind == 'r' ? '\r' : kind == 'n' ? '\n' : '\\';
  }
  const int high = kind == 'x' && rest.size() >= 3 ? hex_digit(rest[1]) : -1;
  const int low = high >= 0 ? hex_digit(rest[2]) : -1;
  if (low < 0)
    throw std::invalid_argument("a backslash needs r, n, another backslash or xHH behind it");
  rest.remove_prefix(3);
  return static_cast<char>(high * 16 + low);
}

}  // namespace

std::string escape(std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\r') {
      text += "\\r";
    } else if (c == '\n') {
      text += "\\n";
    } else if (c == '\\') {
      text += "\\\\";
    } else if (printable(c)) {
      text += c;
    } else {
      text += "\\x";
      text += kDigits[byte >> 4U];
      text += kDigits[byte & 0x0FU];
    }
  }
  return text;
}

std::string unescape(std::string_view text) {
  std::string bytes;
  while (!text.empty()) {
    const char c = text.front();
    text.remove_prefix(1);
    if (c == '\\') {
      bytes += take_escape(text);
    } else if (printable(c) || static_cast<unsigned char>(c) > 127) {
      bytes += c;
    } else {
      throw std::invalid_argument("control character that is not escaped");
    }
  }
  return bytes;
}

}  // namespace mdxline
