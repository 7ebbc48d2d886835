// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxctl/output.h"

#include <unistd.h>

#include <iostream>

std::string harmless_lines(const std::string& text) {
  std::string lines;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\r') continue;
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

bool output_written() {
  static bool told = false;
  std::cout.flush();
  if (std::cout) return true;
  if (told) return false;
  told = true;
  std::cerr << "mdxctl: standard output could not be written, and what should be there is lost"
            << std::endl;
  return false;
}
