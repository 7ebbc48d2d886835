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

/// Cuts a basic command off `line`, whose first character is its letter. @return its number, or ""
std::string take_basic(std::string* line) {
  const size_t letter = line->front() == '&' || line->front() == '\\' ? 1 : 0;
  const size_t begin = letter + 1;
  const size_t end = std::min(line->find_first_not_of(kDigits, begin), line->size());
  std::string number = begin < end ? line->substr(begin, end - begin) : "";
  line->erase(0, std::max(end, begin));
  return number;
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
      const size_t end = line.find(';');
      if (end == std::string::npos) return false;
      line.erase(0, end + 1);
      continue;
    }
    const std::string number = take_basic(&line);
    const bool zero = number.find_first_not_of('0') == std::string::npos;
    if ((letter == 'V' && zero) || (letter == 'Q' && !zero)) return true;
    if (letter == 'S' && line.starts_with('=')) line.erase(0, line.find_first_not_of(kDigits, 1));
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
