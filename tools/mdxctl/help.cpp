// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxctl/help.h"

#include <algorithm>
#include <sstream>
#include <utility>

namespace {

constexpr size_t kColumns = 80;

/// Where the second line of a line that is too long begins: below the text of the first.
size_t indent_of(const std::string& line, size_t text_column) {
  if (!line.starts_with("  ")) return 0;
  return line.find_first_not_of(' ') <= 4 && line.size() > text_column
             ? text_column
             : line.find_first_not_of(' ');
}

void wrap(std::string line, size_t text_column, std::string* text) {
  const size_t indent = indent_of(line, text_column);
  while (line.size() >= kColumns) {
    const size_t blank = line.rfind(' ', kColumns - 1);
    if (blank == std::string::npos || blank <= std::max(indent, line.find_first_not_of(' '))) break;
    *text += line.substr(0, blank) + '\n';
    line = std::string(indent, ' ') + line.substr(blank + 1);
  }
  *text += line + '\n';
}

}  // namespace

std::string help_formatter_t::make_help(const CLI::App* app, std::string name,
                                        CLI::AppFormatMode mode) const {
  std::istringstream lines(CLI::Formatter::make_help(app, std::move(name), mode));
  std::string text;
  for (std::string line; std::getline(lines, line);) wrap(line, get_column_width(), &text);
  return text;
}

std::string help_formatter_t::make_subcommand(const CLI::App* command) const {
  const std::string purpose = command->get_description();
  std::string line = "  " + command->get_name();
  line.resize(std::max(line.size() + 1, get_column_width()), ' ');
  return line + purpose.substr(0, purpose.find('\n')) + '\n';
}
