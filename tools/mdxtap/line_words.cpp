// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxtap/line_words.h"

#include <algorithm>
#include <cctype>
#include <iterator>

#include "tools/line/result_line.h"
#include "tools/mdxtap/mask_table.h"

namespace mdxtap {
namespace {

constexpr char kCtrlZ = '\x1a';
constexpr char kEscape = '\x1b';
constexpr std::string_view kSymbols = "+^*$%#&!@_\\-/";
constexpr std::string_view kPrompt = "> ";

// What modems say without a name in front and without a command.
constexpr std::string_view kPlainReports[] = {
    "RING",
    "RDY",
    "Call Ready",
    "SMS Ready",
    "SMS DONE",
    "PB DONE",
    "PBREADY",
    "READY",
    "NORMAL POWER DOWN",
    "POWERED DOWN",
    "UNDER-VOLTAGE WARNNING",
    "OVER-VOLTAGE WARNNING",
    "APP RDY",
    "SEND OK",
    "CONNECT OK",
    "CONNECT FAIL",
    "ALREADY CONNECT",
    "CLOSED",
    "CLOSE OK",
    "SHUT OK",
};
// Their answers may have no name, and tell what the modem is.
constexpr std::string_view kModelCommands[] = {"+CGMI", "+CGMM", "+CGMR", "+GMI",   "+GMM",
                                               "+GMR",  "+QGMR", "+CLAC", "^HWVER", "^VERSION"};
constexpr std::string_view kDetails[] = {
    "ALLOWED",
    "AVAILABLE",
    "BUSY",
    "CALLS",
    "CARD",
    "CHARACTERS",
    "CONNECTION",
    "DIAL",
    "EMERGENCY",
    "ENOUGH",
    "ERROR",
    "EXCEEDED",
    "FAIL",
    "FAILED",
    "FAILURE",
    "FORBIDDEN",
    "FOUND",
    "FULL",
    "IN",
    "INCORRECT",
    "INDEX",
    "INSERTED",
    "INVALID",
    "LONG",
    "MEMORY",
    "ME",
    "MESSAGE",
    "MODE",
    "MT",
    "NETWORK",
    "NO",
    "NOT",
    "OF",
    "ONLY",
    "OPERATION",
    "OUT",
    "PARAMETER",
    "PARAMETERS",
    "PASSWORD",
    "PDU",
    "PERSONALISATION",
    "PH-NET",
    "PH-SIM",
    "PHONE",
    "PIN",
    "PIN2",
    "PUK",
    "PUK2",
    "RANGE",
    "READY",
    "REQUIRED",
    "RESERVED",
    "SERVICE",
    "SIM",
    "SMS",
    "STORAGE",
    "STRING",
    "SUPPORTED",
    "SYNTAX",
    "TEMPORARY",
    "TEXT",
    "TIMEOUT",
    "TO",
    "TOO",
    "UNKNOWN",
    "WRONG",
};
constexpr std::string_view kIdentityCommands[] = {"+CGSN",  "+GSN",   "+CIMI", "+CCID",
                                                  "+ICCID", "+QCCID", "^ICCID"};

bool is_among(std::string_view name, const std::string_view* begin, const std::string_view* end) {
  return std::find(begin, end, name) != end;
}

}  // namespace

bool is_blank(char c) { return c == ' ' || c == '\t'; }
bool is_letter(char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; }
bool is_digit(char c) { return c >= '0' && c <= '9'; }
char capital(char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); }

bool all_of(std::string_view text, std::string_view set) {
  return !text.empty() && text.find_first_not_of(set) == std::string_view::npos;
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && is_blank(text.front())) text.remove_prefix(1);
  while (!text.empty() && is_blank(text.back())) text.remove_suffix(1);
  return text;
}

bool holds_binary(std::string_view line) {
  return std::any_of(line.begin(), line.end(), [](char c) {
    const bool control = static_cast<unsigned char>(c) < ' ' || c == '\x7f';
    return control && c != '\t' && c != '\b' && c != kCtrlZ && c != kEscape;
  });
}

// Nothing but a little noise may stand in front of it, or the A of an AT that was given up.
size_t find_at(std::string_view line) {
  constexpr size_t kMostNoise = 4;
  for (size_t i = 0; i + 1 < line.size() && i <= kMostNoise; ++i) {
    if (capital(line[i]) == 'A' && capital(line[i + 1]) == 'T') return i;
    const bool noise = std::isalnum(static_cast<unsigned char>(line[i])) == 0;
    if (!noise && capital(line[i]) != 'A') break;
  }
  return line.npos;
}

bool begins_with_at(std::string_view line) { return find_at(trimmed(line).substr(0, 2)) == 0; }

// Where a command ends: at a ";" outside quotes.
size_t end_of_command(std::string_view line, size_t from) {
  bool quoted = false;
  for (size_t i = from; i < line.size(); ++i) {
    if (line[i] == '"') quoted = !quoted;
    if (line[i] == ';' && !quoted) return i;
  }
  return line.size();
}

// "+CMT:" and its like, at the front or, behind other signs than a word has, anywhere; an empty one
// when there is none. In small letters it has to be one that is known.
Name find_name(std::string_view line, bool anywhere) {
  constexpr std::string_view kInWords = "-/_\\@&";
  std::string capitals(line);
  std::transform(line.begin(), line.end(), capitals.begin(), capital);
  for (size_t i = 0; i < line.size(); ++i) {
    std::string_view name = mdxline::report_name(line.substr(i));
    if (name.empty()) {
      name = mdxline::report_name(std::string_view(capitals).substr(i));
      if (find_mask_row(name, false) == nullptr && !is_kept(name)) name = {};
    }
    if (!name.empty() && kInWords.find(name[0]) == kInWords.npos) return {i, line.find(':', i)};
    if (!anywhere && !is_blank(line[i])) break;
  }
  return {};
}

// What shows nothing: two digits at most, and no word.
bool is_harmless(std::string_view parameters) {
  return std::none_of(
             parameters.begin(), parameters.end(),
             [](char c) { return is_letter(c) || static_cast<unsigned char>(c) >= 0x80; }) &&
         std::count_if(parameters.begin(), parameters.end(), is_digit) <= 2;
}

// The texts of +CME ERROR and +CMS ERROR.
bool is_detail(std::string_view text) {
  text = trimmed(text);
  if (text.size() <= 4 && all_of(text, "0123456789")) return true;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find_first_of(" ()", at), text.size());
    std::string word(text.substr(at, end - at));
    std::transform(word.begin(), word.end(), word.begin(), capital);
    if (!word.empty() && !is_among(word, std::begin(kDetails), std::end(kDetails))) return false;
    at = end + 1;
  }
  return true;
}

bool is_connect(std::string_view line) {
  constexpr std::string_view kConnect = "CONNECT";
  line = trimmed(line);
  if (!line.starts_with(kConnect)) return false;
  const std::string_view speed = line.substr(kConnect.size());
  return speed.empty() || (speed[0] == ' ' && all_of(speed.substr(1), "0123456789"));
}

std::string name_at(std::string_view line, size_t begin, size_t end) {
  std::string name;
  for (const char c : line.substr(begin, end - begin)) {
    if (!is_blank(c)) name += capital(c);
  }
  return name;
}

// The length of what may be shown of a line that is not whole: a name without a value.
size_t shown_front(std::string_view line) {
  size_t at = 0;
  while (at < line.size() && is_blank(line[at])) ++at;
  if (find_at(line.substr(at)) == 0) at += 2;
  if (at < line.size() && kSymbols.find(line[at]) != kSymbols.npos) {
    size_t end = at + 1;
    while (end < line.size() && std::isupper(static_cast<unsigned char>(line[end])) != 0) ++end;
    return begins_known_name(line.substr(at, end - at)) ? end : at;
  }
  const bool only_result = line == "OK" || line == "ERROR" || line == kPrompt;
  return only_result ? line.size() : at;
}

bool is_plain_report(std::string_view line) {
  return is_among(trimmed(line), std::begin(kPlainReports), std::end(kPlainReports));
}

bool asks_for_model(std::string_view name) {
  return is_among(name, std::begin(kModelCommands), std::end(kModelCommands));
}

bool asks_for_identity(std::string_view name) {
  return std::any_of(std::begin(kIdentityCommands), std::end(kIdentityCommands),
                     [name](std::string_view part) { return name.find(part) != name.npos; });
}

}  // namespace mdxtap
