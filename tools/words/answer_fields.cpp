// SPDX-License-Identifier: Apache-2.0

#include "tools/words/answer_fields.h"

#include <algorithm>
#include <charconv>

namespace {

std::string trimmed(std::string_view text) {
  const size_t begin = text.find_first_not_of(" \t\r");
  if (begin == std::string_view::npos) return "";
  return std::string(text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1));
}

std::string unquoted(std::string_view field) {
  const std::string text = trimmed(field);
  if (text.size() >= 2 && text.front() == '"' && text.back() == '"')
    return text.substr(1, text.size() - 2);
  return text;
}

}  // namespace

std::vector<std::string> answer_lines(const std::string& text, std::string_view prefix) {
  std::vector<std::string> lines;
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find('\n', begin), text.size());
    const std::string line = trimmed(std::string_view(text).substr(begin, end - begin));
    if (!line.empty() && line.starts_with(prefix))
      lines.push_back(trimmed(line.substr(prefix.size())));
    begin = end + 1;
  }
  return lines;
}

std::vector<std::string> fields_of(std::string_view line) {
  std::vector<std::string> fields(1);
  bool quoted = false;
  int depth = 0;
  for (const char c : line) {
    if (c == '"') quoted = !quoted;
    if (!quoted && c == '(') ++depth;
    if (!quoted && c == ')') --depth;
    if (c == ',' && !quoted && depth == 0) {
      fields.emplace_back();
    } else {
      fields.back() += c;
    }
  }
  for (std::string& field : fields) field = unquoted(field);
  return fields;
}

std::vector<std::string> answer_fields(const std::string& text, std::string_view prefix) {
  const std::vector<std::string> lines = answer_lines(text, prefix);
  return lines.empty() ? std::vector<std::string>() : fields_of(lines.front());
}

std::string text_in(const std::vector<std::string>& fields, size_t index) {
  return index < fields.size() ? fields[index] : "";
}

std::optional<int> number_in(const std::vector<std::string>& fields, size_t index) {
  const std::string text = text_in(fields, index);
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}
