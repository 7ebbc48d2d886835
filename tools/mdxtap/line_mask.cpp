// SPDX-License-Identifier: Apache-2.0

// Decides what a line is, and where in it something personal stands.
#include "tools/mdxtap/line_mask.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <utility>
#include <vector>

#include "tools/line/result_line.h"
#include "tools/mdxtap/field_mask.h"
#include "tools/mdxtap/line_words.h"
#include "tools/mdxtap/pdu_mask.h"

namespace mdxtap {
namespace {

constexpr char kCtrlZ = '\x1a';
constexpr char kEscape = '\x1b';
constexpr std::string_view kHexDigits = "0123456789ABCDEFabcdef";
constexpr std::string_view kSymbols = "+^*$%#&!@_\\-/";
constexpr std::string_view kPrompt = "> ";
constexpr size_t kShortestPdu = 8;   // what is shorter may be a PIN as well
constexpr size_t kCentreLength = 2;  // digits that tell the length of a service centre

// What an ATI says: names and versions with short numbers stay.
std::string model_line(const StandIn& stand_in, std::string_view line, bool imsi) {
  constexpr std::string_view kOwn[] = {"IMEI", "MEID", "ESN", "IMSI", "ICCID", "CCID", "SN", "S/N"};
  constexpr size_t kShortest = 6;
  const size_t colon = line.find_first_of(":=");
  const std::string name = colon == line.npos ? "" : name_at(line, 0, colon);
  std::string shown(line);
  const bool own = std::any_of(std::begin(kOwn), std::end(kOwn), [&](std::string_view word) {
    return name == word || name.starts_with(std::string(word) + "SV");
  });
  const std::string_view value = own ? trimmed(line.substr(colon + 1)) : std::string_view();
  if (own && !all_of(value, "0123456789")) {
    shown.replace(colon + 1, line.npos, stand_in.text(line.substr(colon + 1)));
  } else {
    mask_unknown(stand_in, shown, 0, shown.size(), kShortest, imsi);
  }
  return shown;
}

std::string blind(const StandIn& stand_in, std::string_view line) {
  const size_t front = shown_front(line);
  return std::string(line.substr(0, front)) + stand_in.text(line.substr(front));
}

}  // namespace

// Letters with a number each; longer words are none of them, nor are quotes.
size_t LineMask::basic_commands(std::string& line, size_t at, Asked* asked) const {
  constexpr size_t kLongestWord = 3;
  size_t letters = 0;
  const size_t semicolon = std::min(line.find(';', at), line.size());
  const size_t symbol = std::min(line.find_first_of("+^*$%#!@", at), semicolon);
  for (size_t i = at; i < symbol; ++i) {
    const char c = line[i];
    letters = is_letter(c) ? letters + 1 : 0;
    if (capital(c) == 'D') {
      const size_t end = end_of_command(line, i + 1);
      if (end > i + 1) mask_dialled(stand_in_, line, i + 1, end);
      return end;
    }
    const bool ampersand = c == '&' && i + 1 < symbol && is_letter(line[i + 1]);
    const bool basic = is_letter(c) || is_digit(c) || is_blank(c) || ampersand ||
                       std::string_view("=?\\").find(c) != std::string_view::npos;
    if (!basic || letters > kLongestWord || c == '"') {
      line.replace(at, line.npos, stand_in_.text(std::string_view(line).substr(at)));
      return line.size();
    }
  }
  if (asked != nullptr && symbol > at && line.find_first_of("IiSs&", at) < symbol) {
    asked->nameless = true;
  }
  mask_unknown(stand_in_, line, at, symbol, 4, false);
  return symbol;
}

size_t LineMask::named_command(std::string& line, size_t at, Asked* asked) const {
  const size_t end = end_of_command(line, at);
  if (at + 1 < end && !is_letter(line[at + 1]) && !is_blank(line[at + 1])) {  // no D in front
    mask_dialled(stand_in_, line, at, end);
    return end;
  }
  const size_t name_end = std::min(line.find_first_of("=?", at), end);
  const std::string name = name_at(line, at, name_end);
  const MaskRow* row = find_mask_row(name, true);
  const auto rest = std::string_view(line).substr(name_end, end - name_end);
  const bool sets = rest.starts_with('=') && trimmed(rest.substr(1)) != "?";
  if (asked != nullptr) {
    asked->names.push_back(name);
    if (asks_for_model(name) || (name_end == end && name[0] != '+')) asked->nameless = true;
  }
  if (row != nullptr && row->follows != Follows::kNothing && asked != nullptr &&
      (sets || name_end == end)) {
    asked->message = row;
    const auto spans = parameters_of(line, name_end + 1, end);
    asked->in_pdu_mode = false;
    if (sets && !spans.empty()) {
      const Span& recipient =
          spans[std::min<size_t>(row->fields[0].parameter - 1U, spans.size() - 1)];
      asked->in_pdu_mode = is_length(std::string_view(line).substr(recipient.begin, recipient.size),
                                     recipient.quoted);
    }
  }
  if (name == "+QICSGP" && sets) {  // the older form has no number in front of the name
    const auto spans = parameters_of(line, name_end + 1, end);
    if (spans.size() > 1 && spans[1].quoted) row = find_mask_row(name, false);
  }
  if (sets && name == "+CUSD") {
    mask_ussd(stand_in_, line, name_end + 1, end, nullptr);
  } else if (sets && row != nullptr) {
    mask_fields(stand_in_, line, name_end + 1, end, *row, true);
  } else if (!sets || !is_kept(name) || rest.find('+') != rest.npos) {
    mask_unknown(stand_in_, line, at + 1, end, 4, false);
  }
  return end;
}

std::string LineMask::command_line(std::string_view whole, Asked* asked) const {
  std::string line(whole);
  size_t at = find_at(line);
  if (at == line.npos) return line == "A/" ? line : stand_in_.words(line);
  at += 2;
  if (line.find('\b') != line.npos) {  // typed and corrected: what it says is not where it stands
    return line.substr(0, at) + stand_in_.secret(std::string_view(line).substr(at));
  }
  while (at < line.size()) {
    const char c = line[at];
    const bool named = c != '&' && c != '\\' && kSymbols.find(c) != kSymbols.npos;
    const size_t end = named      ? named_command(line, at, asked)
                       : c == ';' ? at + 1
                                  : basic_commands(line, at, asked);
    at = std::max(end, at + 1);
  }
  return line;
}

void LineMask::prompt_began() {
  if (!in_flight_ || in_text()) return;
  prompted_ = host_writes_ = true;
  if (host_body_ == Body::kNone) host_body_ = Body::kText;
}

void LineMask::sent(std::string_view line, std::string_view shown) {
  constexpr size_t kMostKept = 8;
  constexpr size_t kLongest = 512;
  if (trimmed(line).empty() || line.size() > kLongest) return;
  sent_.push_back({std::string(line), std::string(shown)});
  if (sent_.size() > kMostKept) sent_.pop_front();
}

std::string LineMask::host_line(std::string_view line, char end) {
  constexpr std::string_view kEscapeSequence = "+++";
  if (data_) {
    if (!line.starts_with(kEscapeSequence)) return stand_in_.octets(line);
    data_ = false;
    if (line == kEscapeSequence) return std::string(line);
  }
  if (host_writes_) {
    const bool is_command = end == '\r' && begins_with_at(line) && !prompted_;
    if (!is_command) {
      if (end == kCtrlZ || end == kEscape) host_writes_ = false;
      std::string shown = host_body(line);
      sent(line, shown);
      return shown;
    }
  }
  if (trimmed(line).empty()) return std::string(line);
  if (holds_binary(line) && find_at(line) == line.npos) return stand_in_.octets(line);
  return command(line);
}

std::string LineMask::command(std::string_view line) {
  Asked asked;
  std::string shown = command_line(line, &asked);
  sent(line, shown);
  if (find_at(line) == line.npos) return shown;
  in_flight_ = sent_since_ = true;
  prompted_ = false;
  host_writes_ = asked.message != nullptr;
  host_body_ = asked.message == nullptr ? Body::kNone
               : asked.in_pdu_mode      ? Body::kPdu
                                        : Body::kText;
  const std::string name = name_at(line, 0, line.size());
  imsi_asked_ = name.find("CIMI") != name.npos;
  identity_asked_ = asks_for_identity(name);
  asked_ = std::move(asked);
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
    const size_t kept = hex.size() < kShortestPdu ? 0 : kCentreLength;
    shown = std::string(hex.substr(0, kept)) + stand_in_.hex(hex.substr(kept));
  }
  if (!shown) shown = stand_in_.text(hex);
  return std::string(line.substr(0, begin)) + *shown + std::string(line.substr(end));
}

// An echo has the Ctrl-Z in it.
std::string LineMask::body_line(std::string_view line) const {
  const size_t end = line.find_last_not_of(kCtrlZ) + 1;
  return stand_in_.words(line.substr(0, end)) + std::string(line.substr(end));
}

bool LineMask::in_text() const { return modem_body_ == Body::kText || modem_body_ == Body::kUssd; }

bool LineMask::is_asked(std::string_view name) const {
  return std::find(asked_.names.begin(), asked_.names.end(), name) != asked_.names.end();
}

// As it was sent, but for control characters around.
bool LineMask::take_echo(std::string_view line, std::string& shown) {
  const auto is_control = [](char c) { return static_cast<unsigned char>(c) <= ' '; };
  size_t first = 0;
  size_t end = line.size();
  while (end > first && is_control(line[end - 1])) --end;
  while (first < end && is_control(line[first])) ++first;
  const std::string_view core = line.substr(first, end - first);
  for (auto sent = sent_.begin(); sent != sent_.end(); ++sent) {
    if (sent->line != core && sent->line != line) continue;
    const bool is_command = begins_with_at(core);
    const bool is_body = prompted_ && host_writes_;
    if (!is_body && (!is_command || !in_flight_) && (in_text() || mdxline::is_result(core))) {
      continue;
    }
    if (in_text()) modem_body_ = Body::kNone;
    shown = sent->line == line
                ? sent->shown
                : std::string(line.substr(0, first)) + sent->shown + std::string(line.substr(end));
    sent_.erase(sent_.begin(), sent);  // this one stays: pieces of it may come
    return true;
  }
  return false;
}

// A piece of what was sent, with little in front that was not.
bool LineMask::take_damaged_echo(std::string_view line, std::string& shown) const {
  constexpr size_t kShortest = 3;
  constexpr size_t kMostNoise = 4;
  for (size_t noise = 0; noise <= kMostNoise && noise + kShortest <= line.size(); ++noise) {
    const std::string_view piece = line.substr(noise);
    for (const Sent& sent : sent_) {
      const size_t at = noise == 0 ? sent.line.find(piece) : sent.line.rfind(piece);
      if (at == sent.line.npos || (noise > 0 && at + piece.size() != sent.line.size())) continue;
      shown = stand_in_.text(line.substr(0, noise)) + sent.shown.substr(at, piece.size());
      return true;
    }
  }
  return false;
}

// Words of what was sent that were masked there.
std::string LineMask::without_sent_words(std::string_view line) const {
  constexpr size_t kShortest = 3;
  const auto is_word = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; };
  std::string shown(line);
  for (const Sent& sent : sent_) {
    for (size_t at = 0; at < sent.line.size();) {
      size_t end = at;
      while (end < sent.line.size() && is_word(sent.line[end])) ++end;
      const std::string_view word = std::string_view(sent.line).substr(at, end - at);
      const auto other = std::string_view(sent.shown).substr(at, end - at);
      if (word.size() >= kShortest && word != other) {
        for (size_t i = shown.find(word); i != shown.npos; i = shown.find(word, i + word.size())) {
          shown.replace(i, word.size(), other);
        }
      }
      at = std::max(end, at + 1);
    }
  }
  return shown;
}

// In a message it may be a line of the text, after which nothing is shown that was not before; an
// answer's own result has an empty line in front.
bool LineMask::take_result(std::string_view line, std::string& shown) {
  constexpr size_t kEmptyBeforeResult = 3;  // ends of lines, CR and LF
  if (prompted_ && host_writes_ && modem_body_ == Body::kNone && line != "OK" && line != "ERROR" &&
      !line.starts_with("+C")) {
    return false;
  }
  const bool digit =
      in_flight_ && modem_body_ == Body::kNone && line.size() == 1 && is_digit(line[0]);
  const bool connect = is_connect(line) && in_flight_ && !in_text();
  if (!digit && !connect && !mdxline::is_result(line)) return false;
  shown = line;
  const std::string_view word = trimmed(line);
  if (word.starts_with("CONNECT") && !connect && word != "CONNECT") return false;
  if (word.starts_with("+C")) {
    const size_t colon = line.find(':') + 1;
    if (!is_detail(line.substr(colon))) {
      shown.replace(colon, line.npos, stand_in_.words(line.substr(colon)));
    }
  }
  if (in_text()) {
    const bool ends = answers_ && in_flight_ ? empty_lines_ >= kEmptyBeforeResult : sent_since_;
    if (ends) modem_body_ = Body::kNone;
  } else {
    modem_body_ = Body::kNone;
  }
  data_ = connect;
  in_flight_ = host_writes_ = prompted_ = false;
  host_body_ = Body::kNone;
  return true;
}

std::string LineMask::modem_line(std::string_view line) {
  if (trimmed(line).empty()) {
    ++empty_lines_;
    return std::string(line);
  }
  std::string shown;
  if (data_) {
    if (trimmed(line) == "NO CARRIER") data_ = false;
    const bool result =
        mdxline::is_result(line) && std::none_of(line.begin(), line.end(), is_digit);
    return (result && line.size() <= 10) || line == kPrompt ? std::string(line)
                                                            : stand_in_.octets(line);
  }
  if (line.starts_with(kPrompt[0]) && in_flight_ && (!in_text() || sent_since_)) {
    const size_t prompt = line.starts_with(kPrompt) ? kPrompt.size() : 1;
    prompted_ = true;
    if (host_body_ == Body::kNone) host_body_ = Body::kText;
    if (line == kPrompt || line.size() == 1) host_writes_ = true;
    return std::string(line.substr(0, prompt)) + modem_line(line.substr(prompt));
  }
  if (!take_echo(line, shown) && !take_result(line, shown)) shown = answer_line(line);
  empty_lines_ = 0;
  return shown;
}

std::string LineMask::answer_line(std::string_view line) {
  if (in_text()) return line_in_text(line);
  if (modem_body_ != Body::kNone && all_of(trimmed(line), kHexDigits)) {
    std::string shown = pdu_line(line, false);
    modem_body_ = Body::kNone;
    return shown;
  }
  const bool echo = in_flight_ && (host_body_ == Body::kNone || !prompted_);
  const Name name = find_name(line, true);
  const bool known = name.end > 0 && find_mask_row(name_at(line, name.begin, name.end), false);
  std::string shown;
  if (modem_body_ == Body::kNone && !known && take_damaged_echo(line, shown)) return shown;
  if (echo && begins_with_at(line)) return command_line(without_sent_words(line), nullptr);
  if (name.end == 0) {
    if (line.starts_with("$G") && mdxline::report_name(line).empty() &&
        line.find(',') != line.npos) {
      shown = line;
      mask_sentence(stand_in_, shown);
      return shown;
    }
    return nameless_line(line);
  }
  const std::string front = name.begin > 0 ? nameless_line(line.substr(0, name.begin)) : "";
  return front + named_line(line.substr(name.begin), name_at(line, name.begin, name.end));
}

// Nearly all of it may be text. What belongs to a command that came later ends it.
std::string LineMask::line_in_text(std::string_view line) {
  const bool heads_messages = modem_body_ == Body::kText;
  const Name name = find_name(line, false);
  const std::string known = name.end > 0 ? name_at(line, name.begin, name.end) : "";
  const MaskRow* row = find_mask_row(known, false);
  if (!known.empty() && !answers_ && in_flight_ && is_asked(known)) {
    modem_body_ = Body::kNone;
    return named_line(line, known);
  }
  if (heads_messages && row != nullptr && row->follows == Follows::kMessage) {
    const bool own = answers_;
    std::string shown = named_line(line, known);
    modem_body_ = Body::kText;
    answers_ = own;
    return shown;
  }
  const bool named = row != nullptr || is_kept(known);
  if (named && is_harmless(line.substr(name.end))) return std::string(line);
  if (trimmed(line) == "RING") return std::string(line);
  if (modem_body_ == Body::kUssd) return ussd_rest(line);
  if (!named) return body_line(line);
  return std::string(line.substr(0, name.end)) + body_line(line.substr(name.end));
}

std::string LineMask::named_line(std::string_view whole, std::string_view name) {
  std::string line(whole);
  const size_t begin = line.find(':') + 1;
  const MaskRow* row = find_mask_row(name, false);
  if (row == nullptr) {
    if (holds_binary(line)) return stand_in_.octets(line);
    if (is_kept(name)) return line;
    line = without_sent_words(line);
    mask_unknown(stand_in_, line, begin, line.size(), 4, imsi_asked_);
    return line;
  }
  if (row->follows != Follows::kNothing) {
    open_body(*row, std::string_view(line).substr(begin));
    answers_ = in_flight_ && is_asked(name);
    sent_since_ = false;
  }
  if (name == "+CUSD") {
    bool open = false;
    mask_ussd(stand_in_, line, begin, line.size(), &open);
    if (open) modem_body_ = Body::kUssd;
    answers_ = sent_since_ = false;
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
  modem_body_ = !pdu && row.name == "+CDS"           ? Body::kNone  // it is all there
                : !pdu                               ? Body::kText
                : row.follows == Follows::kBroadcast ? Body::kBroadcast
                                                     : Body::kPdu;
}

std::string LineMask::nameless_line(std::string_view whole) {
  if (modem_body_ != Body::kNone) return pdu_line(whole, false);
  if (host_body_ == Body::kPdu) return pdu_line(whole, true);
  if (host_body_ == Body::kText) return body_line(whole);
  if (holds_binary(whole)) return stand_in_.octets(whole);
  if (is_plain_report(whole)) return std::string(whole);
  const std::string known = without_sent_words(whole);
  if (known != whole) return known;
  const std::string_view line = whole;
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
  const bool number = value.size() <= 3 && all_of(value, "0123456789");
  if (!asked_.nameless && !number) return stand_in_.words(line);
  return model_line(stand_in_, line, imsi_asked_);
}

// Its end is a quote with nothing behind but a coding.
std::string LineMask::ussd_rest(std::string_view line) {
  const size_t quote = line.rfind('"');
  const bool closed =
      quote != line.npos && (quote + 1 == line.size() ||
                             (line[quote + 1] == ',' && is_length(line.substr(quote + 2), false)));
  if (closed) modem_body_ = Body::kNone;
  const size_t end = closed ? quote : line.size();
  return stand_in_.words(line.substr(0, end)) + std::string(line.substr(end));
}

std::string LineMask::part_of_host_line(std::string_view line) const {
  if (data_ && line != "+++") return stand_in_.octets(line);
  return host_writes_ ? stand_in_.text(line) : blind(stand_in_, line);
}

std::string LineMask::part_of_modem_line(std::string_view line) const {
  if (data_) return stand_in_.octets(line);
  const bool in_body = modem_body_ != Body::kNone || host_body_ != Body::kNone;
  if (in_body && line != kPrompt) return stand_in_.text(line);
  return blind(stand_in_, line);
}

}  // namespace mdxtap
