// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxbridge/patterns.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace mdxbridge {

namespace {

struct letter_t {
  char c;
  bool ends_star;
};

constexpr size_t kBegin = 2;  ///< behind AT

/// Tells where on a line another command begins.
class line_t {
 public:
  bool begins_command(char c) {
    const bool letter = std::isalpha(static_cast<unsigned char>(c)) != 0;
    const bool sign = kSigns.find(c) != std::string_view::npos;
    const bool first = std::exchange(first_, c == ';' || c == '&' || c == '\\');
    if (c == ';') basic_ = true;
    // Behind basic commands, such as E0, others stand without a semicolon.
    const bool begins = sign || (basic_ && (c == '*' || (letter && !first)));
    if (c == 'D' && basic_) basic_ = false;  // the rest is dialled
    if (kExtended.find(c) != std::string_view::npos) basic_ = false;
    return begins;
  }

 private:
  static constexpr std::string_view kSigns = "+^$%&#\\";
  static constexpr std::string_view kExtended = "+^$%#*";
  bool first_ = true;  ///< what comes is the first of a command, which a star may stand for
  bool basic_ = true;
};

/// A command as a modem reads it: in capitals and without blanks, but for what stands in quotation
/// marks.
std::vector<letter_t> letters_of(std::string_view command) {
  std::vector<letter_t> letters;
  line_t line;
  const size_t last_quote = std::count(command.begin(), command.end(), '"') % 2 != 0
                                ? command.rfind('"')  // never closed, it keeps nothing together
                                : std::string_view::npos;
  bool quoted = false;
  for (size_t i = 0; i < command.size(); ++i) {
    const char c = command[i];
    if (c == '"' && i != last_quote) quoted = !quoted;
    if (!quoted && c == ' ') continue;
    const char shown = quoted ? c : static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    const bool begins = !quoted && letters.size() >= kBegin && line.begins_command(shown);
    letters.push_back({shown, c == ';' || begins});
  }
  return letters;
}

std::vector<letter_t> digits_of(std::string_view number) {
  constexpr std::string_view kPassedOver = " -./";
  std::vector<letter_t> letters;
  for (const char c : number) {
    if (kPassedOver.find(c) == std::string_view::npos) letters.push_back({c, false});
  }
  return letters;
}

/// The usual match, which remembers the last star: it is as long as the command times the pattern.
bool matches(const std::vector<letter_t>& pattern, const std::vector<letter_t>& text) {
  size_t p = 0;
  size_t t = 0;
  size_t star = std::string::npos;
  size_t taken = 0;
  while (t < text.size()) {
    if (p < pattern.size() && pattern[p].c == '*') {
      star = p++;
      taken = t;
    } else if (p < pattern.size() && pattern[p].c == text[t].c) {
      ++p;
      ++t;
    } else if (star != std::string::npos && !text[taken].ends_star) {
      p = star + 1;
      t = ++taken;
    } else {
      return false;
    }
  }
  return std::all_of(pattern.begin() + static_cast<std::ptrdiff_t>(p), pattern.end(),
                     [](const letter_t& letter) { return letter.c == '*'; });
}

template <typename Letters>
bool any_allows(const std::vector<std::string>& patterns, const std::vector<letter_t>& text,
                Letters letters) {
  return std::any_of(patterns.begin(), patterns.end(),
                     [&](const std::string& pattern) { return matches(letters(pattern), text); });
}

}  // namespace

bool allows_command(const std::vector<std::string>& patterns, std::string_view command) {
  return any_allows(patterns, letters_of(command), letters_of);
}

bool allows_number(const std::vector<std::string>& patterns, std::string_view number) {
  return any_allows(patterns, digits_of(number), digits_of);
}

std::string command_pattern_mistake(std::string_view pattern) {
  const std::vector<letter_t> letters = letters_of(pattern);
  if (letters.size() >= 2 && letters[0].c == 'A' && letters[1].c == 'T') return "";
  return "'" + std::string(pattern) + "' allows no command: one begins with AT";
}

std::string number_pattern_mistake(std::string_view pattern) {
  if (pattern.find_first_not_of("+*#0123456789 -./") == std::string_view::npos) return "";
  return "'" + std::string(pattern) + "' allows no number: one has digits, * and #, and + in front";
}

}  // namespace mdxbridge
