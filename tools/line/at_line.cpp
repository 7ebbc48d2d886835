// SPDX-License-Identifier: Apache-2.0

// Reads what stands in one command line. It may be typed by hand: lower case, blanks, several
// commands.
#include "tools/line/at_line.h"

#include <algorithm>
#include <cctype>

namespace mdxline {
namespace {

constexpr size_t kMostDigits = 8;

bool is_letter(char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; }
bool is_digit(char c) { return c >= '0' && c <= '9'; }

std::string upper(std::string_view text) {
  std::string capitals(text);
  std::transform(capitals.begin(), capitals.end(), capitals.begin(), [](char c) {
    return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  });
  return capitals;
}

std::string without_blanks(std::string_view text) {
  std::string kept;
  bool quoted = false;
  for (const char c : text) {
    if (c == '"') quoted = !quoted;
    if (quoted || (c != ' ' && c != '\t')) kept += c;
  }
  return kept;
}

size_t end_of_command(std::string_view text) {
  bool quoted = false;
  for (size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '"') quoted = !quoted;
    if (text[at] == ';' && !quoted) return at;
  }
  return text.size();
}

AtCommand extended_command(std::string_view text) {
  const size_t name_end = std::min(text.find_first_of("=?"), text.size());
  AtCommand command{upper(text.substr(0, name_end)), AtCommand::Form::kExecute, {}};
  const std::string_view rest = text.substr(name_end);
  if (rest.empty()) return command;
  if (rest == "?") {
    command.form = AtCommand::Form::kRead;
  } else if (rest == "=?") {
    command.form = AtCommand::Form::kTest;
  } else if (rest.front() == '=') {
    command.form = AtCommand::Form::kSet;
    command.value = rest.substr(1);
  } else {
    command.name.clear();
  }
  return command;
}

// "E0", "&F", "S0=3", "S0?": takes it off the front of `text`.
AtCommand take_basic_command(std::string_view& text) {
  const size_t name_length = text.front() == '&' ? 2 : 1;
  AtCommand command{upper(text.substr(0, name_length)), AtCommand::Form::kExecute, {}};
  if (text.size() < name_length || !is_letter(text[name_length - 1])) {
    text = {};
    return AtCommand{};
  }
  text.remove_prefix(name_length);
  size_t length = 0;
  if (command.name == "D") {
    length = end_of_command(text);
  } else {
    const auto part_of_value = [&](char c) {
      return is_digit(c) || (command.name == "S" && (c == '=' || c == '?'));
    };
    while (length < text.size() && part_of_value(text[length])) ++length;
  }
  command.value = text.substr(0, length);
  text.remove_prefix(length);
  return command;
}

}  // namespace

std::optional<std::vector<AtCommand>> split_command_line(std::string_view line) {
  const std::string packed = without_blanks(line);
  if (upper(std::string_view(packed).substr(0, 2)) != "AT") return std::nullopt;

  std::vector<AtCommand> commands;
  std::string_view rest = std::string_view(packed).substr(2);
  while (!rest.empty()) {
    if (rest.front() == ';') {
      rest.remove_prefix(1);
    } else if (is_letter(rest.front()) || rest.front() == '&') {
      commands.push_back(take_basic_command(rest));
    } else {
      const size_t end = end_of_command(rest);
      commands.push_back(extended_command(rest.substr(0, end)));
      rest.remove_prefix(end);
    }
  }
  return commands;
}

std::vector<std::string> split_parameters(std::string_view value) {
  std::vector<std::string> parameters(1);
  bool quoted = false;
  for (const char c : value) {
    if (c == '"') {
      quoted = !quoted;
    } else if (c == ',' && !quoted) {
      parameters.emplace_back();
    } else {
      parameters.back() += c;
    }
  }
  return parameters;
}

std::string parameter(const std::vector<std::string>& parameters, size_t index) {
  return index < parameters.size() ? parameters[index] : std::string();
}

std::string quoted(std::string_view text) { return '"' + std::string(text) + '"'; }

std::optional<int> parse_number(std::string_view digits) {
  if (digits.empty() || digits.size() > kMostDigits) return std::nullopt;
  if (!std::all_of(digits.begin(), digits.end(), is_digit)) return std::nullopt;
  int number = 0;
  for (const char c : digits) number = number * 10 + (c - '0');
  return number;
}

}  // namespace mdxline
