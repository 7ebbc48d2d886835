// SPDX-License-Identifier: Apache-2.0

#include "tools/words/mistakes.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace {

std::string name_of_control(char c) {
  switch (c) {
    // clang-format off
    case '\0':   return "NUL";
    case '\b':   return "Backspace";
    case '\t':   return "Tab";
    case '\n':   return "LF";
    case '\r':   return "CR";
    case '\x1a': return "Ctrl-Z";
    case '\x1b': return "ESC";
      // clang-format on
  }
  char number[8];
  std::snprintf(number, sizeof(number), "0x%02x", static_cast<unsigned char>(c));
  return std::string("control character ") + number;
}

/// @param what  such as "the command"
std::string control_text(const std::string& what, const std::string& text, size_t position) {
  const char c = text[position];
  std::string words =
      what + " holds " + name_of_control(c) + " at position " + std::to_string(position + 1) + ": ";
  if (c == '\r' || c == '\n') return words + "it would end there; give one command at a time";
  return words + "leave it out; a text that needs it goes in hexadecimal, see AT+CSCS";
}

std::string length_text(const std::string& what, size_t length, size_t most) {
  return what + " of " + std::to_string(length) + " bytes is too long: " + std::to_string(most) +
         " are the most";
}

std::string pdu_text(const std::string& pdu, uint32_t position) {
  if (position < pdu.size()) {
    return "position " + std::to_string(position + 1) + " of the PDU is no hexadecimal digit";
  }
  return "the PDU has " + std::to_string(pdu.size()) + " digits: each byte takes two";
}

std::string text_of(int mistake, uint32_t position, const std::string& command,
                    const std::string& pdu, const mdx_options_t& options,
                    const message_words_t& words) {
  const std::string match = options.match != nullptr ? options.match : "";
  switch (mistake) {
    case MDX_MISTAKE_NONE:
      return "";
    case MDX_MISTAKE_MATCH_TOO_LONG:
      return length_text("a match string", match.size(), MDX_MATCH_MAX);
    case MDX_MISTAKE_MATCH_CONTROL:
      return "the match string holds " + name_of_control(match[position]) + " at position " +
             std::to_string(position + 1) + ", which no line of an answer does";
    case MDX_MISTAKE_NOT_AT:
      return "a command begins with AT";
    case MDX_MISTAKE_CONTROL:
      return control_text("the command", command, position);
    case MDX_MISTAKE_TOO_LONG:
      return pdu.empty() ? length_text("a command", command.size(), MDX_COMMAND_MAX)
                         : length_text("a command line with PDU", command.size() + pdu.size(),
                                       MDX_COMMAND_MAX - 2);
    case MDX_MISTAKE_NEEDS_PDU:
      return std::string("the modem would wait for a message; use: ") + words.text +
             ", or: " + words.pdu + " '" + command + "' PDU";
    case MDX_MISTAKE_UNKNOWN_PROMPT:
      return "the modem would wait for a PDU, which nobody can give it here; AT+CNMA acknowledges "
             "without one";
    case MDX_MISTAKE_NOT_TRANSPARENT:
      return "the server would wait for a PDU; ask with --transparent, or without --match and "
             "--multi-line";
    case MDX_MISTAKE_NO_MESSAGE:
      return "the command line has to end in +CMGS=LENGTH, +CMGW=LENGTH, ^HCMGS or ^HCMGW with "
             "its value, such as AT+CMGS=22";
    case MDX_MISTAKE_PDU:
      return pdu_text(pdu, position);
    default:
      return mdx_mistake_text(mistake);
  }
}

constexpr std::string_view kDigits = "0123456789";

/// Cuts the digits off the front of `line`. @return their number without zeros in front; "" for 0
std::string take_number(std::string* line) {
  const size_t end = std::min(line->find_first_not_of(kDigits), line->size());
  std::string number = line->substr(0, end);
  line->erase(0, end);
  return number.erase(0, std::min(number.find_first_not_of('0'), number.size()));
}

/// Cuts a basic command off `line`, whose first character is its letter.
bool take_basic_that_mutes(std::string* line) {
  const char letter = line->front();
  line->erase(0, letter == '&' || letter == '\\' ? 2 : 1);
  const std::string number = take_number(line);
  if (line->starts_with('?')) line->erase(0, 1);
  if (letter != 'S' || !line->starts_with('=')) {
    return (letter == 'V' && number.empty()) || (letter == 'Q' && !number.empty());
  }
  line->erase(0, 1);
  const std::string value = take_number(line);
  return (number == "3" && value != "13") || (number == "4" && value != "10") ||
         (number == "5" && value != "8");
}

/// @param command  such as +IPR=9600
bool extended_mutes(std::string_view command) {
  constexpr std::string_view kNames[] = {"+IPR", "+ICF", "+CMUX"};
  return std::any_of(std::begin(kNames), std::end(kNames), [command](std::string_view name) {
    return command.starts_with(name) && command.substr(name.size()).starts_with('=') &&
           command.substr(name.size()) != "=?";
  });
}

}  // namespace

bool mutes_results(std::string_view command) {
  std::string line;
  for (const char c : command) {
    if (c != ' ') line += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  }
  line.erase(0, 2);
  while (!line.empty()) {
    const char letter = line.front();
    if (letter == 'D' || !(std::isalpha(static_cast<unsigned char>(letter)) != 0 || letter == '&' ||
                           letter == '\\' || letter == ';')) {
      // Dialling and extended commands go up to a semicolon, which in quotes is no end: what is
      // taken for a command too many is only asked about.
      const size_t end = std::min(line.find(';'), line.size());
      if (extended_mutes(std::string_view(line).substr(0, end))) return true;
      line.erase(0, end + 1);
      continue;
    }
    if (take_basic_that_mutes(&line)) return true;
  }
  return false;
}

std::string command_mistake(const std::string& command, const mdx_options_t& options,
                            const message_words_t& words) {
  const size_t nul = command.find('\0');
  if (nul != std::string::npos) return control_text("the command", command, nul);
  uint32_t position = 0;
  const int mistake = mdx_check(command.c_str(), nullptr, &options, &position);
  return text_of(mistake, position, command, "", options, words);
}

std::string message_mistake(const std::string& head, const std::string& pdu,
                            const mdx_options_t& options, const message_words_t& words) {
  uint32_t position = 0;
  const int mistake = mdx_check(head.c_str(), pdu.c_str(), &options, &position);
  return text_of(mistake, position, head, pdu, options, words);
}
