// Decides what a line is, and where in it something personal stands.
#include "tools/mdxtap/line_mask.h"

#include <algorithm>
#include <cctype>
#include <utility>
#include <vector>

#include "tools/line/octets.h"
#include "tools/mdxtap/pdu_mask.h"

namespace mdxtap {
namespace {

constexpr char kCtrlZ = '\x1a';
constexpr char kEscape = '\x1b';
constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kHexDigits = "0123456789ABCDEFabcdef";
constexpr std::string_view kSymbols = "+^*$%#&!@_\\-/";
constexpr std::string_view kPrompt = "> ";
constexpr size_t kCentreLength = 2;       // digits that tell the length of a service centre
constexpr size_t kLongestLength = 3;      // of a PDU, in digits
constexpr size_t kShortestIdentity = 14;  // that is known by its length alone
constexpr size_t kShortestHex = 24;       // that is a PDU's and nothing else
constexpr size_t kShortestNumber = 6;     // behind a "+"
constexpr size_t kShortestFraction = 4;   // of a position

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
constexpr std::string_view kResults[] = {
    "OK",   "ERROR",     "NO CARRIER", "NO DIALTONE",         "NO DIAL TONE",
    "BUSY", "NO ANSWER", "ABORTED",    "COMMAND NOT SUPPORT", "TOO MANY PARAMETERS",
};
constexpr std::string_view kResultsWithMore[] = {"CONNECT", "+CME ERROR:", "+CMS ERROR:"};
constexpr std::string_view kIdentityCommands[] = {"+CGSN",  "+GSN",   "+CIMI", "+CCID",
                                                  "+ICCID", "+QCCID", "^ICCID"};

struct Span {
  size_t begin;
  size_t size;
  bool quoted;
};

bool is_blank(char c) { return c == ' ' || c == '\t'; }
bool is_letter(char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; }
bool is_digit(char c) { return c >= '0' && c <= '9'; }
bool is_word(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; }
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

// The parameters between `begin` and `end`, without quotes and the blanks around.
std::vector<Span> parameters_of(std::string_view line, size_t begin, size_t end) {
  std::vector<Span> spans;
  while (begin <= end) {
    bool quoted = false;
    size_t comma = begin;
    for (; comma < end && (quoted || line[comma] != ','); ++comma) quoted ^= line[comma] == '"';
    size_t first = begin;
    size_t last = comma;
    while (first < last && is_blank(line[first])) ++first;
    while (last > first && is_blank(line[last - 1])) --last;
    const bool in_quotes = first < last && line[first] == '"';
    if (in_quotes) {
      ++first;
      if (last > first && line[last - 1] == '"') --last;
    }
    spans.push_back({first, last - first, in_quotes});
    begin = comma + 1;
  }
  return spans;
}

struct Name {
  size_t begin = 0;
  size_t end = 0;  ///< of the colon
};

// "+CMT:" and its like, at `from` or anywhere behind; an empty one when there is none.
Name find_name(std::string_view line, size_t from, bool anywhere) {
  for (size_t i = from; i + 2 < line.size(); ++i) {
    if (kSymbols.find(line[i]) != kSymbols.npos && is_letter(line[i + 1])) {
      size_t end = i + 1;
      while (end < line.size() && (std::isupper(static_cast<unsigned char>(line[end])) != 0 ||
                                   is_digit(line[end]) || line[end] == '_')) {
        ++end;
      }
      size_t colon = end;
      while (colon < line.size() && is_blank(line[colon])) ++colon;
      if (end > i + 2 && colon < line.size() && line[colon] == ':') return {i, colon};
    }
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

void replace(std::string& line, const Span& span, std::string_view with) {
  if (with.size() == span.size) line.replace(span.begin, span.size, with);
}

bool is_length(std::string_view value, bool quoted) {
  return !quoted && value.size() <= kLongestLength && all_of(value, kDigits);
}

bool is_time(std::string_view value) {
  return value.size() >= 8 && is_digit(value[0]) && is_digit(value[1]) && value[2] == '/';
}

// Among other measurements several may stand in one pair of quotes.
std::string mask_cells(const StandIn& stand_in, std::string_view value, size_t shortest) {
  std::string shown(value);
  for (size_t at = 0; at < value.size();) {
    size_t end = at;
    while (end < value.size() && is_word(value[end])) ++end;
    const bool marked = value.substr(at, 2) == "0x" || value.substr(at, 2) == "0X";
    const size_t first = at + (marked ? 2 : 0);
    const std::string_view digits = value.substr(first, end - std::min(first, end));
    if (digits.size() >= shortest && all_of(digits, kHexDigits)) {
      replace(shown, {first, digits.size(), false}, stand_in.hex(digits));
    }
    at = std::max(end, at + 1);
  }
  return shown;
}

std::string mask_identity(const StandIn& stand_in, std::string_view value, bool imsi) {
  const size_t digits = std::min(value.find_first_not_of(kDigits), value.size());
  const bool filled = all_of(value.substr(digits), "Ff");
  if (digits < 5 || (digits < value.size() && !filled)) return stand_in.text(value);
  return stand_in.identity(value.substr(0, digits), imsi) + std::string(value.substr(digits));
}

// EF ICCID and EF IMSI hold digits with their half octets swapped; any other file is octets.
std::string mask_sim_file(const StandIn& stand_in, std::string_view hex) {
  constexpr size_t kImsiSize = 18;
  const auto swapped = [](std::string_view pairs) {
    std::string turned(pairs);
    for (size_t i = 0; i + 1 < turned.size(); i += 2) std::swap(turned[i], turned[i + 1]);
    return turned;
  };
  const std::string digits = swapped(hex);
  const size_t filling = std::min(digits.find_first_not_of(kDigits), digits.size());
  if (hex.size() == 20 && digits.starts_with("89") && all_of(digits.substr(filling) + "F", "Ff")) {
    return swapped(mask_identity(stand_in, digits, false));
  }
  if (hex.size() == kImsiSize && hex.starts_with("08") && all_of(digits.substr(2), kDigits)) {
    return std::string(hex.substr(0, 2)) +
           swapped(digits.substr(2, 1) +
                   stand_in.identity(std::string_view(digits).substr(3), true));
  }
  return stand_in.hex(hex);
}

// The header of an APDU, or the status behind an answer, stays.
std::string mask_apdu(const StandIn& stand_in, std::string_view hex, bool command) {
  constexpr size_t kHeader = 10;
  constexpr size_t kStatus = 4;
  const size_t head = command ? std::min(hex.size(), kHeader) : 0;
  const size_t tail = command ? 0 : std::min(hex.size(), kStatus);
  return std::string(hex.substr(0, head)) +
         stand_in.hex(hex.substr(head, hex.size() - head - tail)) +
         std::string(hex.substr(hex.size() - tail));
}

std::string mask_positions(const StandIn& stand_in, std::string_view value) {
  std::string shown(value);
  for (size_t at = 0; at < value.size();) {
    if (!is_digit(value[at])) {
      ++at;
      continue;
    }
    const size_t point = std::min(value.find_first_not_of(kDigits, at), value.size());
    size_t end = point;
    if (point < value.size() && value[point] == '.') {
      end = std::min(value.find_first_not_of(kDigits, point + 1), value.size());
    }
    if (end > point + kShortestFraction) {
      replace(shown, {at, end - at, false}, stand_in.position(value.substr(at, end - at)));
    }
    at = end;
  }
  return shown;
}

std::string masked(const StandIn& stand_in, const Field& field, std::string_view value, bool quoted,
                   bool rest, bool command, bool imsi) {
  switch (field.holds) {
    case Holds::kWords:
      return rest && !quoted ? std::string(value) : stand_in.words(value);
    case Holds::kRecipient:
      return is_length(value, quoted) ? std::string(value) : stand_in.words(value);
    case Holds::kHeading: {
      const bool state = value.starts_with("REC ") || value.starts_with("STO ");
      const bool number = !quoted && value.size() > 4 && all_of(value, "+0123456789");
      return (quoted && !is_time(value) && !state) || number ? stand_in.words(value)
                                                             : std::string(value);
    }
    case Holds::kSecret:
      return stand_in.secret(value);
    case Holds::kCell:
      return mask_cells(stand_in, value, quoted ? 2 : 3);
    case Holds::kCellAmong:
      return mask_cells(stand_in, value, 4);
    case Holds::kIdentity:
      return mask_identity(stand_in, value, imsi);
    case Holds::kPosition:
      return mask_positions(stand_in, value);
    case Holds::kAddress:
      return stand_in.address(value);
    case Holds::kSimFile:
      return mask_sim_file(stand_in, value);
    case Holds::kApdu:
      return mask_apdu(stand_in, value, command);
    case Holds::kNothing:
      break;
  }
  return std::string(value);
}

void mask_fields(const StandIn& stand_in, std::string& line, size_t begin, size_t end,
                 const MaskRow& row, bool command) {
  const std::vector<Span> spans = parameters_of(line, begin, end);
  for (size_t i = 0; i < spans.size(); ++i) {
    const Field* found = nullptr;
    for (const Field& field : row.fields) {
      const bool reaches = field.parameter == i + 1 || (field.and_rest && field.parameter <= i);
      if (field.holds != Holds::kNothing && reaches) found = &field;
    }
    if (found == nullptr || spans[i].size == 0) continue;
    const std::string value = line.substr(spans[i].begin, spans[i].size);
    const bool rest = found->parameter != i + 1;
    replace(line, spans[i],
            masked(stand_in, *found, value, spans[i].quoted, rest, command, row.name == "+CIMI"));
  }
}

// What is personal by its look, in a line that no row speaks of: long numbers, numbers behind a
// "+", octets, positions.
void mask_conspicuous(const StandIn& stand_in, std::string& line, size_t begin, size_t end,
                      bool imsi) {
  const std::string whole = line;
  for (size_t at = begin; at < end;) {
    if (!is_word(whole[at])) {
      ++at;
      continue;
    }
    const auto rest = std::string_view(whole).substr(0, end);
    size_t word_end = at;
    while (word_end < end && is_word(whole[word_end])) ++word_end;
    const std::string_view word = rest.substr(at, word_end - at);
    const Span span{at, word.size(), false};
    const size_t digits = std::min(word.find_first_not_of(kDigits), word.size());
    const bool number = digits == word.size() || all_of(word.substr(digits), "F");
    if (digits >= kShortestIdentity && number) {
      replace(line, span, mask_identity(stand_in, word, imsi));
    } else if (word.size() >= kShortestHex && all_of(word, kHexDigits)) {
      replace(line, span, stand_in.hex(word));
    } else if (digits >= kShortestNumber && at > 0 && whole[at - 1] == '+') {
      replace(line, span, stand_in.number(word));
    } else if (digits == word.size() && word_end < end && whole[word_end] == '.') {
      const size_t last = std::min(rest.find_first_not_of(kDigits, word_end + 1), end);
      const Span decimal{at, last - at, false};
      replace(line, decimal, mask_positions(stand_in, rest.substr(at, last - at)));
      word_end = last;
    }
    at = word_end;
  }
}

// +CUSD: the text may hold quotes and commas; it ends at the last quote that is followed by a comma
// and digits or by the end. `open` tells that it has not ended.
void mask_ussd(const StandIn& stand_in, std::string& line, size_t begin, size_t end, bool* open) {
  const size_t comma = line.find(',', begin);
  if (comma >= end) return;
  size_t first = comma + 1;
  while (first < end && is_blank(line[first])) ++first;
  size_t last = end;
  const size_t coding = line.rfind(',', end - 1);
  if (coding >= first && coding != line.npos &&
      all_of(trimmed(std::string_view(line).substr(coding + 1, end - coding - 1)), kDigits)) {
    last = coding;
  }
  while (last > first && is_blank(line[last - 1])) --last;
  if (first < last && line[first] == '"') {
    ++first;
    const bool closed = last > first && line[last - 1] == '"';
    if (open != nullptr) *open = !closed;
    if (closed) --last;
    if (!closed) last = end;
  }
  const Span text{first, last - first, true};
  replace(line, text, stand_in.words(line.substr(first, last - first)));
}

// ATD: a code that opens a data connection is nobody's number.
void mask_dialled(const StandIn& stand_in, std::string& line, size_t begin, size_t end) {
  const std::string value = line.substr(begin, end - begin);
  const bool data = (value.starts_with("*99") || value.starts_with("*98")) && value.back() == '#' &&
                    value.find_first_not_of("*0123456789#") == value.npos && value.size() < 16;
  if (data) return;
  const bool name = value.find('"') != value.npos;
  replace(line, {begin, end - begin, false}, name ? stand_in.text(value) : stand_in.number(value));
}

// Of "$GPRMC,...*5C": the checksum is that of what stands there now.
void mask_sentence(const StandIn& stand_in, std::string& line) {
  const size_t star = line.rfind('*');
  const size_t end = std::min(star, line.size());
  line.replace(0, end, mask_positions(stand_in, std::string_view(line).substr(0, end)));
  if (star == line.npos || star + 3 > line.size()) return;
  uint8_t sum = 0;
  for (size_t i = 1; i < star; ++i) sum = static_cast<uint8_t>(sum ^ static_cast<uint8_t>(line[i]));
  line.replace(star + 1, 2, mdxline::to_hex({sum}));
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

bool is_result(std::string_view line) {
  line = trimmed(line);
  const auto begins = [line](std::string_view word) { return line.starts_with(word); };
  return std::find(std::begin(kResults), std::end(kResults), line) != std::end(kResults) ||
         std::any_of(std::begin(kResultsWithMore), std::end(kResultsWithMore), begins);
}

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
      const auto& recipient =
          spans[std::min<size_t>(row->fields[0].parameter - 1U, spans.size() - 1)];
      *in_pdu_mode =
          set && is_length(std::string_view(line).substr(recipient.begin, recipient.size),
                           recipient.quoted);
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
  if (is_result(line) || digit) {
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
    replace(shown, {first, last - first, false},
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
