// SPDX-License-Identifier: Apache-2.0

// Finds fields in a line, and writes stand-ins over them in place.
#include "tools/mdxtap/field_mask.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <utility>

#include "tools/line/octets.h"

namespace mdxtap {
namespace {

constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kHexDigits = "0123456789ABCDEFabcdef";
constexpr size_t kLongestLength = 3;      // of a PDU, in digits
constexpr size_t kShortestIdentity = 14;  // that is known by its length alone
constexpr size_t kShortestHex = 24;       // that is a PDU's and nothing else
constexpr size_t kShortestNumber = 6;     // behind a "+"
constexpr size_t kShortestFraction = 4;   // of a position

bool is_blank(char c) { return c == ' ' || c == '\t'; }
bool is_digit(char c) { return c >= '0' && c <= '9'; }
bool is_word(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; }

bool all_of(std::string_view text, std::string_view set) {
  return !text.empty() && text.find_first_not_of(set) == std::string_view::npos;
}

void replace(std::string& line, const Span& span, std::string_view with) {
  if (with.size() == span.size) line.replace(span.begin, span.size, with);
}

bool is_coding(std::string_view value) {
  const size_t first = std::min(value.find_first_not_of(' '), value.size());
  const size_t end = std::min(value.find_last_not_of(' ') + 1, value.size());
  return is_length(value.substr(first, end - std::min(first, end)), false);
}

// 18/12/13,06:20:04+28, whole or its beginning.
bool is_time(std::string_view value) {
  constexpr std::string_view kForm = "00/00/00,00:00:00+00";
  if (value.size() < 8 || value.size() > kForm.size()) return false;
  for (size_t i = 0; i < value.size(); ++i) {
    const bool fits = kForm[i] == '0'   ? is_digit(value[i])
                      : kForm[i] == '+' ? value[i] == '+' || value[i] == '-'
                                        : value[i] == kForm[i];
    if (!fits) return false;
  }
  return true;
}

bool has_letter(std::string_view value) {
  return std::any_of(value.begin(), value.end(), [](char c) { return is_word(c) && !is_digit(c); });
}

// What may stand in quotes of a command or report that no row speaks of.
bool is_plain_value(std::string_view value) {
  constexpr std::string_view kPlain[] = {
      "",         "SM",         "ME",       "MT",   "SR",     "BM",  "TA",     "FD",
      "ON",       "LD",         "MC",       "RC",   "EN",     "DC",  "ALL",    "REC UNREAD",
      "REC READ", "STO UNSENT", "STO SENT", "GSM",  "UCS2",   "IRA", "HEX",    "8859-1",
      "PCCP437",  "UTF-8",      "IP",       "IPV6", "IPV4V6", "PPP", "NON-IP", "LTE",
      "WCDMA",    "NOSERVICE",  "EUR",      "USD",
  };
  return std::find(std::begin(kPlain), std::end(kPlain), value) != std::end(kPlain);
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
  if (value.find('\'') != value.npos) return stand_in.number(value);  // degrees and minutes
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
    const bool degrees = point - at <= 3 && end > point + 3;
    if (degrees || end > point + kShortestFraction) {
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
      if (quoted)
        return is_time(value) || is_plain_value(value) ? std::string(value) : stand_in.words(value);
      const bool number = value.size() > 4 && all_of(value, "+0123456789");
      return number || has_letter(value) ? stand_in.words(value) : std::string(value);
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

}  // namespace

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

bool is_length(std::string_view value, bool quoted) {
  return !quoted && value.size() <= kLongestLength && all_of(value, kDigits);
}

std::string mask_identity(const StandIn& stand_in, std::string_view value, bool imsi) {
  const size_t digits = std::min(value.find_first_not_of(kDigits), value.size());
  const bool filled = all_of(value.substr(digits), "Ff");
  if (digits < 5 || (digits < value.size() && !filled)) return stand_in.text(value);
  return stand_in.identity(value.substr(0, digits), imsi) + std::string(value.substr(digits));
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

// Masks a line for which the table has no row: what is in quotes, runs of digits, octets.
void mask_unknown(const StandIn& stand_in, std::string& line, size_t begin, size_t end,
                  size_t shortest, bool imsi) {
  const std::string whole = line;
  for (size_t at = begin; at < end;) {
    const size_t open = std::min(whole.find('"', at), end);
    mask_conspicuous(stand_in, line, at, open, imsi);
    for (size_t word = at; word < open;) {
      size_t word_end = word;
      while (word_end < open && is_word(whole[word_end])) ++word_end;
      const std::string_view text = std::string_view(whole).substr(word, word_end - word);
      const bool masked_already = line.compare(word, text.size(), text) != 0;
      const bool octets = text.size() >= 2 * shortest && all_of(text, kHexDigits) &&
                          text.find_first_of(kDigits) != text.npos;
      if (octets && !masked_already) replace(line, {word, text.size(), false}, stand_in.hex(text));
      for (size_t run = word; run < word_end && !octets && !masked_already;) {
        const size_t run_end = std::min(whole.find_first_not_of(kDigits, run), word_end);
        if (run_end - run >= shortest) {
          replace(line, {run, run_end - run, false},
                  stand_in.number(std::string_view(whole).substr(run, run_end - run)));
        }
        run = std::max(run_end, run + 1);
      }
      word = std::max(word_end, word + 1);
    }
    if (open == end) return;
    const size_t close = std::min(whole.find('"', open + 1), end);
    const std::string_view value = std::string_view(whole).substr(open + 1, close - open - 1);
    if (!is_plain_value(value))
      replace(line, {open + 1, value.size(), true}, stand_in.words(value));
    at = close + 1;
  }
}

// The text ends at the last quote that is followed by a comma and digits or by the end.
void mask_ussd(const StandIn& stand_in, std::string& line, size_t begin, size_t end, bool* open) {
  const size_t comma = line.find(',', begin);
  if (comma >= end) return;
  size_t first = comma + 1;
  while (first < end && is_blank(line[first])) ++first;
  size_t last = end;
  const size_t coding = line.rfind(',', end - 1);
  if (coding >= first && coding != line.npos &&
      is_coding(std::string_view(line).substr(coding + 1, end - coding - 1))) {
    last = coding;
  }
  while (last > first && is_blank(line[last - 1])) --last;
  if (first < last && line[first] == '"') {
    if (line[last - 1] != '"') last = end;  // a comma of the text
    while (last > first && is_blank(line[last - 1])) --last;
    ++first;
    const bool closed = last > first && line[last - 1] == '"';
    if (open != nullptr) *open = !closed;
    if (closed) --last;
    if (!closed) last = end;
  }
  const Span text{first, last - first, true};
  replace(line, text, stand_in.words(line.substr(first, last - first)));
}

void mask_dialled(const StandIn& stand_in, std::string& line, size_t begin, size_t end) {
  const std::string value = line.substr(begin, end - begin);
  const size_t tones = value.find_first_not_of("TPtp ");  // or pulses
  const std::string code = value.substr(std::min(tones, value.size()));
  const bool digits = std::count_if(code.begin(), code.end(), is_digit) <= 4;  // 99 and a context
  const bool data = (code.starts_with("*99") || code.starts_with("*98")) && code.back() == '#' &&
                    all_of(code, "*0123456789#") && digits;
  if (data) return;
  const bool name =
      value.find_first_of("\">") != value.npos || std::any_of(code.begin(), code.end(), [](char c) {
        return is_word(c) &&
               std::string_view("0123456789ABCDWTPGIabcdwtpgi").find(c) == std::string_view::npos;
      });
  replace(line, {begin, end - begin, false}, name ? stand_in.text(value) : stand_in.number(value));
}

void mask_sentence(const StandIn& stand_in, std::string& line) {
  const size_t star = line.rfind('*');
  const size_t end = std::min(star, line.size());
  line.replace(0, end, mask_positions(stand_in, std::string_view(line).substr(0, end)));
  if (star == line.npos || star + 3 > line.size()) return;
  uint8_t sum = 0;
  for (size_t i = 1; i < star; ++i) sum = static_cast<uint8_t>(sum ^ static_cast<uint8_t>(line[i]));
  line.replace(star + 1, 2, mdxline::to_hex({sum}));
}

}  // namespace mdxtap
