// SPDX-License-Identifier: Apache-2.0

// Reads the parameters of a line, forgiving what modems are known to get wrong.
//
// Every byte is looked at a fixed number of times, so a hostile line costs what its length costs.

#include "platform/fields/parameters.h"

namespace {

using namespace std::string_view_literals;

bool is_blank(char c) { return c == ' ' || c == '\t'; }
bool is_line_end(char c) { return c == '\r' || c == '\n'; }
bool is_digit(char c) { return c >= '0' && c <= '9'; }

template <typename Class>
void skip(std::string_view& text, Class belongs) {
  while (!text.empty() && belongs(text.front())) text.remove_prefix(1);
}

template <typename Class>
void drop_tail(std::string_view& text, Class belongs) {
  while (!text.empty() && belongs(text.back())) text.remove_suffix(1);
}

std::string_view trimmed(std::string_view text) {
  skip(text, is_blank);
  drop_tail(text, is_blank);
  return text;
}

/// The value without the blanks around it, then without its quotes. Either quote may be missing.
std::string_view bare_value(std::string_view text) {
  text = trimmed(text);
  if (!text.empty() && text.front() == '"') text.remove_prefix(1);
  if (!text.empty() && text.back() == '"') text.remove_suffix(1);
  return text;
}

std::string_view first_line(std::string_view text) {
  const size_t end = text.find_first_of("\r\n"sv);
  return end == std::string_view::npos ? text : std::string_view(text.data(), end);
}

/// Takes the first `length` bytes off `rest`, and the comma behind them.
std::string_view take(std::string_view& rest, size_t length) {
  const std::string_view taken(rest.data(), length);
  rest.remove_prefix(length < rest.size() ? length + 1 : length);
  return taken;
}

size_t comma_from(std::string_view text, size_t start) {
  const size_t comma = text.find(',', start);
  return comma == std::string_view::npos ? text.size() : comma;
}

std::string_view take_parameter(std::string_view& rest) {
  skip(rest, is_blank);
  const bool quoted = !rest.empty() && rest.front() == '"';
  const size_t closing = quoted ? rest.find('"', 1) : std::string_view::npos;
  const size_t start = closing == std::string_view::npos ? 0 : closing;
  return bare_value(take(rest, comma_from(rest, start)));
}

void add_parameters(std::string_view line, parameter_list_t& list) {
  line = trimmed(line);
  while (!line.empty() && list.count < list.kMost) list.add(take_parameter(line));
}

/// Whether nothing but a number, or a comma and numbers, follows the end of a USSD text.
bool only_numbers_follow(std::string_view rest) {
  skip(rest, is_blank);
  if (rest.find_first_not_of("\r\n"sv) == std::string_view::npos) return true;
  if (rest.front() != ',') return false;
  rest.remove_prefix(1);
  skip(rest, is_blank);
  skip(rest, is_digit);
  skip(rest, is_blank);
  return rest.empty() || rest.front() == ',' || is_line_end(rest.front());
}

/// Index of the quote that ends a text which starts with one; the size when it is never closed.
size_t closing_quote(std::string_view text) {
  for (size_t i = text.size() - 1; i > 0; --i) {
    if (text[i] == '"' && only_numbers_follow({text.data() + i + 1, text.size() - i - 1})) return i;
  }
  return text.size();
}

std::string_view take_quoted_text(std::string_view& rest) {
  const size_t closing = closing_quote(rest);
  const std::string_view text(rest.data() + 1, closing - 1);
  rest.remove_prefix(closing);
  take(rest, comma_from(rest, 0));
  return text;
}

std::string_view take_unquoted_text(std::string_view& rest) {
  size_t end = comma_from(rest, 0);
  while (!only_numbers_follow({rest.data() + end, rest.size() - end})) {
    end = comma_from(rest, end + 1);
  }
  return trimmed(take(rest, end));
}

}  // namespace

const char* find_parameters(const char* text, std::string_view prefix) {
  const std::string_view all(text);
  size_t at = all.find(prefix);
  while (at != std::string_view::npos) {
    const char* behind = text + at + prefix.size();
    while (is_blank(*behind)) ++behind;
    if (*behind == ':') return behind + 1;
    at = all.find(prefix, at + prefix.size());
  }
  return nullptr;
}

void read_parameters(const char* text, parameter_list_t& list) {
  add_parameters(first_line(text), list);
}

void read_at_every_comma(const char* text, parameter_list_t& list) {
  std::string_view line = trimmed(first_line(text));
  while (!line.empty()) list.add(bare_value(take(line, comma_from(line, 0))));
}

void read_with_pdu(const char* text, parameter_list_t& list) {
  const std::string_view line = first_line(text);
  add_parameters(line, list);
  const char* next_line = text + line.size();
  while (is_line_end(*next_line)) ++next_line;
  list.pdu = trimmed(first_line(next_line));
}

void read_ussd(const char* text, parameter_list_t& list) {
  // A CR at the very end belongs to the text, which may be anything; only CR LF ends the line.
  std::string_view rest(text);
  while (rest.ends_with('\n')) rest.remove_suffix(rest.ends_with("\r\n"sv) ? 2 : 1);
  rest = trimmed(rest);
  if (rest.empty()) return;
  list.add(first_line(take_parameter(rest)));

  skip(rest, is_blank);
  if (rest.empty()) return;
  list.add(rest.front() == '"' ? take_quoted_text(rest) : take_unquoted_text(rest));
  add_parameters(first_line(rest), list);
}
