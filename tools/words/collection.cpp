// SPDX-License-Identifier: Apache-2.0

// Plain collection runs lines together, and gives a line that holds a report's name to the report's
// receivers. A match string keeps such lines and sets them apart, but only them. Transparent
// collection sets all lines apart, but does not keep reports. So a command whose answer could be
// taken for a report (AT+CREG?) is matched by its name, and everything else is transparent. An
// answer in free words (+COPS: 0,0,"tele.RING") may hold such a name anywhere: it is transparent
// and matched, and the line ends that its lines lose there are put back.

#include "tools/words/collection.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <iterator>
#include <vector>

namespace {

/// The server would wait for a PDU.
constexpr std::string_view kMessages[] = {"+CMGS", "+CMGW", "^HCMGS", "^HCMGW"};

std::string in_capitals(std::string_view text) {
  std::string capitals(text);
  std::transform(capitals.begin(), capitals.end(), capitals.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return capitals;
}

/// One of the commands between the semicolons of a line.
struct part_t {
  std::string name;  ///< such as "+CREG"; empty for a basic command
  std::string rest;  ///< "?", "=?", "=VALUES", or nothing

  bool answers_like_a_report() const {
    if (!may_be_report(name)) return false;
    // A setting has no answer, and meanwhile the reports of its name are the receivers'.
    return !rest.starts_with('=') || rest == "=?" || asks_network();
  }
  /// AT+CCWA=1,2: whether call waiting is on.
  bool asks_network() const {
    return name == "+CCWA" && rest.find(',') != std::string::npos &&
           rest.substr(rest.find(',')).starts_with(",2");
  }
  bool answers_in_free_words() const {
    return mdx_answer_kind(name.c_str()) == MDX_ANSWER_FREE_WORDS;
  }
  bool is_message() const {
    return std::any_of(std::begin(kMessages), std::end(kMessages),
                       [&](std::string_view message) { return name.starts_with(message); });
  }
};

part_t part_of(std::string_view text) {
  // Basic commands may stand in front of it; but dialling takes all signs.
  const size_t begin =
      text.starts_with('D') ? std::string_view::npos : text.find_first_of("+^$%*#");
  if (begin == std::string_view::npos) return {};
  size_t end = begin + 1;
  const auto in_name = [](unsigned char c) { return std::isalnum(c) != 0 || c == '_'; };
  while (end < text.size() && in_name(static_cast<unsigned char>(text[end]))) ++end;
  return {std::string(text.substr(begin, end - begin)), std::string(text.substr(end))};
}

/// Without blanks, which modems skip.
std::vector<part_t> parts_of(std::string_view command) {
  std::vector<part_t> parts;
  std::string part;
  bool quoted = false;
  for (const char c : in_capitals(command).substr(std::min<size_t>(2, command.size())) + ';') {
    if (c == '"') quoted = !quoted;
    if (c != ';' || quoted) {
      if (quoted || c != ' ') part += c;
      continue;
    }
    parts.push_back(part_of(part));
    part.clear();
  }
  if (quoted) parts.push_back(part_of(part));  // of a quote that never closes
  return parts;
}

/// The longest end that all names have in common, such as "REG:" of +CREG and +CGREG; empty when it
/// would say too little.
std::string common_end(const std::vector<std::string>& names) {
  constexpr size_t kEnough = 4;
  std::string end = names.front() + ':';
  for (const std::string& name : names) {
    while (!(name + ':').ends_with(end)) end.erase(0, 1);
  }
  return end.size() < kEnough || end.size() > MDX_MATCH_MAX ? "" : end;
}

/// Puts the line ends back that lines in front of `prefix` have lost.
void part_lines(const std::string& prefix, std::string* text) {
  for (size_t at = 1; (at = text->find(prefix, at)) != std::string::npos; at += prefix.size()) {
    if (at == 0 || (*text)[at - 1] == '\n') continue;
    text->insert(at, "\r\n");
    at += 2;
  }
}

/// The same in front of the result, with which the last line ends.
void part_result(int32_t ret_val, std::string* text) {
  if (ret_val < MDX_RESULT_OK) return;
  const size_t at = text->rfind(mdx_result_name(ret_val));
  if (at != std::string::npos && at != 0 && (*text)[at - 1] != '\n') text->insert(at, "\r\n");
}

/// Without the result line, which ends a transparent text.
std::string without_result(const std::string& text, int32_t ret_val) {
  if (ret_val < MDX_RESULT_OK || !text.ends_with("\r\n")) return text;
  const size_t before = text.size() > 2 ? text.rfind("\r\n", text.size() - 3) : std::string::npos;
  const size_t result_line = before == std::string::npos ? 0 : before + 2;
  const bool numbered = ret_val == MDX_RESULT_CME_ERROR || ret_val == MDX_RESULT_CMS_ERROR;
  return numbered ? text.substr(result_line) : text.substr(0, result_line);
}

}  // namespace

bool may_be_report(std::string_view line) {
  return mdx_answer_kind(std::string(line).c_str()) == MDX_ANSWER_LIKE_REPORT;
}

collection_t collection_for(std::string_view command, bool timeout_given) {
  const std::vector<part_t> parts = parts_of(command);
  collection_t collection;
  collection.for_reading = true;
  std::vector<std::string> like_reports;
  bool has_message = false;
  for (const part_t& part : parts) {
    if (!part.name.empty()) collection.prefixes.push_back(part.name + ':');
    if (part.answers_like_a_report()) like_reports.push_back(part.name);
    has_message |= part.is_message();
  }
  const bool free_words = parts.size() == 1 && parts.front().answers_in_free_words();
  const bool search = parts.front().name == "+COPS" && parts.front().rest == "=?";
  if (!like_reports.empty() && !has_message) {
    collection.match = common_end(like_reports);
    collection.mixed = collection.match.empty();
    collection.multi_line = !collection.match.empty();
  } else if (free_words) {
    collection.match = parts.front().name + ':';
    collection.multi_line = search && timeout_given;
  }
  collection.transparent = !collection.multi_line;
  collection.should_have_text = std::any_of(parts.begin(), parts.end(), [](const part_t& part) {
    return part.rest == "?" || (part.rest == "=?" && may_be_report(part.name));
  });
  return collection;
}

std::string shown_text(const mdx_result_t& result, const collection_t& collection) {
  std::string text(result.text, result.length);
  if (!collection.for_reading) return text;
  if (collection.transparent && !collection.match.empty()) part_result(result.ret_val, &text);
  if (!collection.match.empty()) {
    for (const std::string& prefix : collection.prefixes) part_lines(prefix, &text);
  }
  if (collection.transparent && result.refused == 0) text = without_result(text, result.ret_val);
  while (text.ends_with("\r\n")) text.resize(text.size() - 2);
  return text;
}
