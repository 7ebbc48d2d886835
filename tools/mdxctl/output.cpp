// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxctl/output.h"

#include <unistd.h>

#include <iostream>
#include <string_view>

namespace {

/// Bytes of the UTF-8 character at the front of `text`; 0 where there is none of two bytes or more,
/// or where it is a control character.
size_t character_at(std::string_view text) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  const size_t size = lead >= 0xf0 && lead < 0xf5   ? 4
                      : lead >= 0xe0 && lead < 0xf0 ? 3
                      : lead >= 0xc2 && lead < 0xe0 ? 2
                                                    : 0;
  if (size == 0 || text.size() < size || (lead == 0xc2 && byte(1) < 0xa0)) return 0;
  for (size_t i = 1; i < size; ++i) {
    if ((byte(i) & 0xc0) != 0x80) return 0;
  }
  return size;
}

}  // namespace

std::string harmless_lines(const std::string& text) {
  std::string lines;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\r') continue;
    if (const size_t size = character_at(std::string_view(text).substr(i)); size != 0) {
      lines += text.substr(i, size);
      i += size - 1;
      continue;
    }
    lines += c == '\n' || c == '\t' || byte >= 0xa0 || (byte >= ' ' && byte < 0x7f) ? c : '?';
  }
  if (!lines.empty() && lines.back() != '\n') lines += '\n';
  return lines;
}

std::string harmless_line(const std::string& line) {
  std::string text = harmless_lines(line);
  while (text.ends_with('\n')) text.pop_back();
  return text;
}

std::string for_output(const std::string& text) {
  return isatty(STDOUT_FILENO) != 0 ? harmless_lines(text) : text;
}

void tell(const std::string& text) { std::cerr << "mdxctl: " << harmless_line(text) << std::endl; }

bool output_written() {
  static bool told = false;
  std::cout.flush();
  if (std::cout) return true;
  if (told) return false;
  told = true;
  tell("standard output could not be written, and what should be there is lost");
  return false;
}
