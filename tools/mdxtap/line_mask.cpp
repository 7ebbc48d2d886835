// SPDX-License-Identifier: Apache-2.0

// Decides what a line is, and where in it something personal stands.
#include "tools/mdxtap/line_mask.h"

#include <algorithm>
#include <cctype>
#include <utility>
#include <vector>

#include "tools/line/result_line.h"
#include "tools/mdxtap/field_mask.h"
#include "tools/mdxtap/pdu_mask.h"

namespace mdxtap {
namespace {

constexpr char kCtrlZ = '\x1a';
constexpr char kEscape = '\x1b';
constexpr std::string_view kHexDigits = "0123456789ABCDEFabcdef";
constexpr std::string_view kSymbols = "+^*$%#&!@_\\-/";
constexpr std::string_view kPrompt = "> ";
constexpr size_t kCentreLength = 2;  // digits that tell the length of a service centre

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
};
constexpr std::string_view kIdentityCommands[] = {"+CGSN",  "+GSN",   "+CIMI", "+CCID",
                                                  "+ICCID", "+QCCID", "^ICCID"};

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

size_t find_at(std::string_view line) {
  for (size_t i = 0; i + 1 < line.size(); ++i) {
    if (capital(line[i]) == 'A' && capital(line[i + 1]) == 'T') return i;
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

struct Name {
  size_t begin = 0;
  size_t end = 0;  ///< of the colon
};

// "+CMT:" and its like, at `from` or anywhere behind; an empty one when there is none.
Name find_name(std::string_view line, size_t from, bool anywhere) {
  for (size_t i = from; i < line.size(); ++i) {
    const std::string_view name = mdxline::report_name(line.substr(i));
    if (!name.empty()) return {i, line.find(':', i)};
    if (!anywhere && !is_blank(line[i])) break;
  }
  return {};
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
    do ++at;
    while (at < line.size() && std::isupper(static_cast<unsigned char>(line[at])) != 0);
    return at;
  }
  const bool only_result = line == "OK" || line == "ERROR" || line == kPrompt;
  return only_result ? line.size() : at;
}

std::string blind(const StandIn& stand_in, std::string_view line) {
  const size_t front = shown_front(line);
  return std::string(line.substr(0, front)) + stand_in.text(line.substr(front));
}

}  // namespace

std::string LineMask::command_line(std::string_view whole, const MaskRow** asked,
                                   bool* in_pdu_mode) const {
  std::string line(whole);
  size_t at = find_at(line);
  if (at == line.npos) return line == "A/" ? line : stand_in_.words(line);
  if (at > 0) line.replace(0, at, stand_in_.text(std::string_view(line).substr(0, at)));
  for (at += 2; at < line.size();) {
    const char c = line[at];
    if (is_letter(c) || c == '&') {
      ++at;
      if (capital(c) != 'D') continue;
      const size_t end = end_of_command(line, at);
      if (end > at) mask_dialled(stand_in_, line, at, end);
      at = end;
      continue;
    }
    if (kSymbols.find(c) == kSymbols.npos) {
      const bool value = c == '"';
      if (value) line.replace(at, line.npos, stand_in_.words(std::string_view(line).substr(at)));
      at = value ? line.size() : at + 1;
      continue;
    }
    const size_t end = end_of_command(line, at);
    const size_t name_end = std::min(line.find_first_of("=?", at), end);
    const std::string name = name_at(line, at, name_end);
    const MaskRow* row = find_mask_row(name, true);
    const bool set =
        name_end < end && line[name_end] == '=' &&
        trimmed(std::string_view(line).substr(name_end + 1, end - name_end - 1)) != "?";
    if (row != nullptr && row->follows != Follows::kNothing && asked != nullptr &&
        (set || name_end == end)) {
      *asked = row;
      const auto spans = parameters_of(line, name_end + 1, end);
      *in_pdu_mode = false;
      if (set && !spans.empty()) {
        const Span& recipient =
            spans[std::min<size_t>(row->fields[0].parameter - 1U, spans.size() - 1)];
        *in_pdu_mode = is_length(std::string_view(line).substr(recipient.begin, recipient.size),
                                 recipient.quoted);
      }
    }
    if (set && name == "+CUSD") {
      mask_ussd(stand_in_, line, name_end + 1, end, nullptr);
    } else if (set && row != nullptr) {
      mask_fields(stand_in_, line, name_end + 1, end, *row, true);
    } else if (set) {
      mask_conspicuous(stand_in_, line, name_end + 1, end, false);
    }
    at = std::max(end, at + 1);
  }
  return line;
}

std::string LineMask::host_line(std::string_view line, char end) {
  if (host_writes_) {
    const bool is_command = end == '\r' && begins_with_at(line) && !prompted_;
    if (!is_command) {
      if (end == kCtrlZ || end == kEscape) host_writes_ = false;
      return host_body(line);
    }
  }
  if (trimmed(line).empty()) return std::string(line);
  if (holds_binary(line)) return stand_in_.octets(line);
  const MaskRow* asked = nullptr;
  bool pdu_mode = false;
  std::string shown = command_line(line, &asked, &pdu_mode);
  if (find_at(line) == line.npos) return shown;
  in_flight_ = true;
  prompted_ = false;
  host_writes_ = asked != nullptr;
  host_body_ = asked == nullptr ? Body::kNone : pdu_mode ? Body::kPdu : Body::kText;
  const std::string name = name_at(line, 0, line.size());
  const auto asks_for = [&name](std::string_view part) { return name.find(part) != name.npos; };
  imsi_asked_ = asks_for("CIMI");
  identity_asked_ =
      std::any_of(std::begin(kIdentityCommands), std::end(kIdentityCommands), asks_for);
  return shown;
}

std::string LineMask::host_body(std::string_view line) const {
  if (host_body_ == Body::kPdu) return pdu_line(line, true);
  return stand_in_.words(line);
}

// What is no PDU to its end may be a part of one, or have something else in its middle. Its first
// octet stays: with it the PDU has the length that its heading tells.
std::string LineMask::pdu_line(std::string_view line, bool from_host) const {
  const size_t end = std::min(line.find_last_of(kHexDigits) + 1, line.size());
  const size_t first = std::min(line.find_first_of(kHexDigits), line.size());
  const size_t begin = std::min(first, end);
  const std::string_view hex = line.substr(begin, end - begin);
  auto shown = modem_body_ == Body::kBroadcast && !from_host ? mask_broadcast(stand_in_, hex)
                                                             : mask_pdu(stand_in_, hex, from_host);
  if (!shown && all_of(hex, kHexDigits)) {
    shown = std::string(hex.substr(0, kCentreLength)) +
            stand_in_.hex(hex.substr(std::min(kCentreLength, hex.size())));
  }
  if (!shown) shown = stand_in_.text(hex);
  return std::string(line.substr(0, begin)) + *shown + std::string(line.substr(end));
}

// An echo has the Ctrl-Z in it.
std::string LineMask::body_line(std::string_view line) const {
  const size_t end = line.find_last_not_of(kCtrlZ) + 1;
  return stand_in_.words(line.substr(0, end)) + std::string(line.substr(end));
}

std::string LineMask::modem_line(std::string_view line) {
  if (trimmed(line).empty()) return std::string(line);
  if (line.starts_with(kPrompt) && in_flight_) {
    prompted_ = true;
    if (host_body_ == Body::kNone) host_body_ = Body::kText;
    if (line == kPrompt) host_writes_ = true;
    return std::string(kPrompt) + modem_line(line.substr(kPrompt.size()));
  }
  const bool digit =
      in_flight_ && modem_body_ == Body::kNone && line.size() == 1 && is_digit(line[0]);
  if (mdxline::is_result(line) || digit) {
    in_flight_ = host_writes_ = ussd_open_ = false;
    modem_body_ = host_body_ = Body::kNone;
    return std::string(line);
  }
  return answer_line(line);
}

std::string LineMask::answer_line(std::string_view line) {
  if (modem_body_ == Body::kPdu || modem_body_ == Body::kBroadcast) {
    if (all_of(trimmed(line), kHexDigits)) {
      std::string shown = pdu_line(line, false);
      modem_body_ = Body::kNone;
      return shown;
    }
  }
  const bool in_text = modem_body_ == Body::kText || ussd_open_;
  const bool echo = in_flight_ && !in_text && (host_body_ == Body::kNone || !prompted_);
  if (echo && begins_with_at(line)) {
    return command_line(line, nullptr, nullptr);
  }
  const Name name = find_name(line, 0, !in_text);
  if (name.end == 0) {
    if (line.starts_with("$G")) {
      std::string shown(line);
      mask_sentence(stand_in_, shown);
      return shown;
    }
    return nameless_line(line);
  }
  const std::string front = name.begin > 0 ? nameless_line(line.substr(0, name.begin)) : "";
  return front + named_line(line.substr(name.begin), name_at(line, name.begin, name.end));
}

std::string LineMask::named_line(std::string_view whole, std::string_view name) {
  std::string line(whole);
  const size_t begin = line.find(':') + 1;
  const MaskRow* row = find_mask_row(name, false);
  if (row == nullptr) {
    const bool in_text = modem_body_ == Body::kText || ussd_open_;
    if (in_text)
      return line.substr(0, begin) + stand_in_.words(std::string_view(line).substr(begin));
    if (holds_binary(line)) return stand_in_.octets(line);
    mask_conspicuous(stand_in_, line, begin, line.size(), imsi_asked_);
    return line;
  }
  ussd_open_ = false;
  if (modem_body_ == Body::kText) modem_body_ = Body::kNone;
  if (row->follows != Follows::kNothing) open_body(*row, std::string_view(line).substr(begin));
  if (name == "+CUSD") {
    mask_ussd(stand_in_, line, begin, line.size(), &ussd_open_);
  } else {
    mask_fields(stand_in_, line, begin, line.size(), *row, false);
  }
  return line;
}

// In PDU mode a heading ends in a length, and has few parameters.
void LineMask::open_body(const MaskRow& row, std::string_view parameters) {
  const auto spans = parameters_of(parameters, 0, parameters.size());
  const size_t most = row.name == "+CMGL"   ? 4
                      : row.name == "+CMGR" ? 3
                      : row.name == "+CMT"  ? 2
                                            : 1;
  const Span& last = spans.back();
  const bool pdu =
      spans.size() <= most && is_length(parameters.substr(last.begin, last.size), last.quoted);
  modem_body_ = !pdu                                 ? Body::kText
                : row.follows == Follows::kBroadcast ? Body::kBroadcast
                                                     : Body::kPdu;
}

std::string LineMask::nameless_line(std::string_view line) {
  if (ussd_open_) return ussd_rest(line);
  if (modem_body_ == Body::kText) return body_line(line);
  if (modem_body_ != Body::kNone) return pdu_line(line, false);
  if (host_body_ == Body::kPdu) return pdu_line(line, true);
  if (host_body_ == Body::kText) return body_line(line);
  if (holds_binary(line)) return stand_in_.octets(line);
  const auto* plain = std::find(std::begin(kPlainReports), std::end(kPlainReports), trimmed(line));
  if (plain != std::end(kPlainReports)) return std::string(line);
  if (!in_flight_) return stand_in_.words(line);
  const std::string_view value = trimmed(line);
  if (identity_asked_ && value.size() > 4 && std::any_of(value.begin(), value.end(), is_digit)) {
    std::string shown(line);
    const size_t first = line.find_first_not_of(" \t\"");
    const size_t last = std::min(line.find_last_not_of(" \t\"") + 1, line.size());
    shown.replace(first, last - first,
                  mask_identity(stand_in_, line.substr(first, last - first), imsi_asked_));
    return shown;
  }
  std::string shown(line);
  mask_conspicuous(stand_in_, shown, 0, shown.size(), imsi_asked_);
  return shown;
}

std::string LineMask::ussd_rest(std::string_view line) {
  const size_t quote = line.rfind('"');
  const bool closed = quote != line.npos && (quote + 1 == line.size() || line[quote + 1] == ',');
  ussd_open_ = !closed;
  const size_t end = closed ? quote : line.size();
  return stand_in_.words(line.substr(0, end)) + std::string(line.substr(end));
}

std::string LineMask::part_of_host_line(std::string_view line) const {
  return host_writes_ ? stand_in_.text(line) : blind(stand_in_, line);
}

std::string LineMask::part_of_modem_line(std::string_view line) const {
  const bool in_body = modem_body_ != Body::kNone || host_body_ != Body::kNone || ussd_open_;
  if (in_body && line != kPrompt) return stand_in_.text(line);
  return blind(stand_in_, line);
}

}  // namespace mdxtap
