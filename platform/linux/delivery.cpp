// SPDX-License-Identifier: Apache-2.0

// The rules by which a modem's bytes become deliveries.
//
// One buffer holds what is not handed over yet, its CRs already sorted out. Its end is an
// unfinished line; in front of that stand whole lines. Byte for byte the rules look only at that
// buffer and at what was sent, never at how the bytes were cut: the same bytes end lines, echoes
// and answers at the same places. Silence and waiting bytes count only in `next`.

#include "platform/linux/delivery.h"

#include <algorithm>
#include <cstring>

#include "platform/joined_texts.h"

namespace {

using namespace std::string_view_literals;

constexpr char kCtrlZ = 0x1A;
constexpr char kBackspace = '\b';
constexpr auto kNowhere = std::string_view::npos;
/// Ends what an exchange without result has left in the server, when the modem never does.
constexpr std::string_view kOwnResult = "OK\r\n";

constexpr std::string_view kPrompt = "> ";
constexpr std::string_view kPromptStart = ">";
constexpr std::string_view kRawHeader = "^HCMGR";

// Each text has a NUL behind it.
constexpr char kResultWords[] =
    "OK\0+CME ERROR\0+CMS ERROR\0ERROR\0NO CARRIER\0NO ANSWER\0COMMAND NOT SUPPORT\0"
    "TOO MANY PARAMETERS\0CONNECT\0NO DIALTONE\0BUSY\0";
constexpr char kLineHeaders[] = "+CBM\0+CMGR\0+CMGL\0";
/// With their bodies these are one report each.
constexpr char kJoinedHeaders[] = "+CMT\0+CDS\0";
/// These come only when asked for.
constexpr char kAnswerHeaders[] = "+CMGR\0+CMGL\0^HCMGR\0";
/// What the server looks for in lines of every kind.
constexpr char kNewsInLines[] = "RING\0CONNECT\0^CPINNTY:\0^CARDLOCKNTY:\0";

bool starts_with(std::string_view text, std::string_view start) {
  return text.size() >= start.size() && std::memcmp(text.data(), start.data(), start.size()) == 0;
}

// A line that the server takes for a result, whatever else stands behind the word. Most reports
// begin with a caret, as no result does: the words need not be tried.
bool is_result(std::string_view line) {
  return !line.starts_with('^') && any_text(kResultWords, starts_with, line);
}

// The name ends at the colon: "+CMTI" announces nothing.
bool is_header(std::string_view line, std::string_view name) {
  if (!starts_with(line, name)) return false;
  size_t colon = name.size();
  while (colon < line.size() && line[colon] == ' ') ++colon;
  return colon < line.size() && line[colon] == ':';
}

bool is_any_header(std::string_view line, const char* names) {
  return any_text(names, is_header, line);
}

/// In text mode a status report has all its fields in the header.
bool has_joined_body(std::string_view line) {
  if (!is_any_header(line, kJoinedHeaders)) return false;
  return is_header(line, "+CMT"sv) || line.find(',') == kNowhere;
}

/// Some modems show an empty place as a message of no length, and no body follows.
bool announces_nothing(std::string_view line) {
  while (!line.empty() && line.back() == ' ') line.remove_suffix(1);
  return line.ends_with(",0"sv);
}

bool holds(std::string_view line, std::string_view word) { return line.find(word) != kNowhere; }

/// Whether the server does anything with the line but keep it as text.
bool is_news(std::string_view line) {
  if (line[0] == '^' || line[0] == '+' || line[0] == '>') return true;
  return any_text(kNewsInLines, holds, line);
}

std::string_view without_crs(std::string_view line) {
  while (!line.empty() && line.front() == '\r') line.remove_prefix(1);
  return line;
}

/// The rest of what an earlier exchange sent may be repeated in front of an echo.
std::string_view behind_crs(std::string_view line) {
  line.remove_prefix(line.rfind('\r') + 1);
  return line;
}

}  // namespace

void delivery_assembler::sent(const char* bytes, size_t size) {
  if (!debt_.in_exchange()) {
    is_old_line_ = size_ > line_;
    echo_at_ = echo_size_;
  }
  debt_.sent({bytes, size});
  answer_ = 0;
  expect_echo({bytes, size});
}

/// The texts before stay as long as there is room.
void delivery_assembler::expect_echo(std::string_view text) {
  if (text.size() > sizeof(echo_)) text = {};
  const auto size = static_cast<uint32_t>(text.size());
  const uint32_t room = static_cast<uint32_t>(sizeof(echo_)) - echo_size_;
  const uint32_t surplus = size > room ? size - room : 0;
  echo_size_ -= surplus;
  echo_at_ -= std::min(echo_at_, surplus);
  std::memmove(echo_, echo_ + surplus, echo_size_);
  std::copy(text.begin(), text.end(), echo_ + echo_size_);
  echo_size_ += size;
}

void delivery_assembler::link_lost() {
  debt_.link_lost();
  echo_size_ = 0;
  echo_at_ = 0;
  behind_echo_ = false;
  body_ = body_t::none;
  link_lost_ = true;
}

size_t delivery_assembler::received(const char* bytes, size_t size, uint64_t now) {
  if (size == 0) return 0;
  if (body_is_dropped_ && now - last_byte_ >= kBodyWaitMs) body_ = body_t::none;
  last_byte_ = now;
  link_lost_ = false;
  size_t used = 0;
  while (used < size && ready_ == 0) {
    const char byte = bytes[used];
    if (behind_echo(byte)) {
      ++used;
      continue;
    }
    if (byte == '\n') drop_surplus_crs();
    if (size_ == sizeof(bytes_)) {
      cut_full_buffer();
      continue;
    }
    if (size_ == line_) is_old_line_ = false;
    ++used;
    if (byte == kBackspace && body_ == body_t::none) {  // the modem shows what it erases
      size_ = std::max(size_, line_ + 1) - 1;
      continue;
    }
    bytes_[size_++] = byte;
    if (byte == '\r') drop_echo();
    if (byte == '\n' && size_ - line_ >= 2 && bytes_[size_ - 2] == '\r') end_line();
    if (byte == ' ') end_prompt();
  }
  return used;
}

std::string_view delivery_assembler::next(uint64_t now, bool more_waiting) {
  if (ready_ != 0) return {bytes_, ready_};
  if (shows_own_result_) return kOwnResult;
  if (more_waiting) return {};
  settle(silent_size(now - last_byte_));
  if (ready_ > whole_) body_ = body_t::none;
  shows_own_result_ =
      ready_ == 0 && debt_.needs_result() && debt_.is_silent(now, last_byte_) && end_of_text() == 0;
  return shows_own_result_ ? kOwnResult : std::string_view(bytes_, ready_);
}

void delivery_assembler::taken() {
  if (ready_ == 0 || ends_with_result_) debt_.handed_over_result();
  shows_own_result_ = ends_with_result_ = false;
  std::memmove(bytes_, bytes_ + ready_, size_ - ready_);
  size_ -= ready_;
  line_ = line_ > ready_ ? line_ - ready_ : 0;
  whole_ = whole_ > ready_ ? whole_ - ready_ : 0;
  header_ = header_ > ready_ ? header_ - ready_ : 0;
  ready_ = 0;
}

delivery_assembler::step_t delivery_assembler::step(uint64_t now) {
  if (debt_.in_exchange() || debt_.is_clean()) return step_t::none;
  debt_.pass(now);
  if (debt_.escape_is_due(now)) return step_t::escape;
  if (!debt_.is_silent(now, last_byte_)) return step_t::none;
  debt_.end_opening();
  return next(now, false).empty() && !holds_text() ? step_t::clean : step_t::none;
}

uint64_t delivery_assembler::due() const {
  const uint64_t text = text_due();
  if (text != kNever && debt_.waits_for_silence()) return text;
  return std::min(text, debt_.due(last_byte_));
}

uint64_t delivery_assembler::text_due() const {
  if (ready_ != 0 || shows_own_result_) return last_byte_;
  if (end_of_text() == 0 || debt_.is_opening()) return kNever;
  return last_byte_ + (link_lost_ ? 0 : wait_ms());
}

// Behind an echo's CR stands the LF of its line end, or the blank line that opens the answer.
bool delivery_assembler::behind_echo(char byte) {
  if (!behind_echo_) return false;
  behind_echo_ = byte == '\r';
  return byte == '\r' || byte == '\n';
}

// CR CR LF becomes CR LF. The raw body is left as it is, but for its own line end behind the
// Ctrl-Z.
void delivery_assembler::drop_surplus_crs() {
  uint32_t text = size_;
  while (text > line_ && bytes_[text - 1] == '\r') --text;
  if (size_ - text < 2) return;
  if (body_ == body_t::raw && (text == line_ || bytes_[text - 1] != kCtrlZ)) return;
  size_ = text + 1;
}

// Called at each CR. The line behind a header is what it announces, even if it reads like the
// command. A body's echo may come without its head's.
void delivery_assembler::drop_echo() {
  if (body_ != body_t::none) return;
  const std::string_view line(bytes_ + line_, size_ - 1 - line_);
  for (uint32_t at = echo_at_; at < echo_size_;) {
    const std::string_view echo = sent_line(at);
    at += static_cast<uint32_t>(echo.size()) + 1;
    if (!repeats(line, echo)) continue;
    size_ = line_;
    ++echoes_dropped_;
    debt_.echoed(is_sent_before(echo));
    echo_at_ = at;
    behind_echo_ = true;
    return;
  }
}

/// Whether the text was also sent in front of what has not been echoed.
bool delivery_assembler::is_sent_before(std::string_view text) const {
  for (uint32_t at = 0; at < echo_at_;) {
    const std::string_view line = sent_line(at);
    if (line == text) return true;
    at += static_cast<uint32_t>(line.size()) + 1;
  }
  return false;
}

/// In front of an echo may stand what the modem repeats of earlier texts, such as the CR behind a
/// Ctrl-Z, and ESCs anywhere. All of it may be of an earlier text that ends alike.
bool delivery_assembler::repeats(std::string_view line, std::string_view echo) const {
  if (echo.empty() || !line.ends_with(echo)) return false;
  const std::string_view before(echo_, echo_at_);
  if (line.size() > echo.size() && before.find(line) != kNowhere) return false;
  line.remove_suffix(echo.size());
  while (!line.empty()) {
    const size_t end = std::min(line.size(), line.find_first_of("\r\x1b"sv));
    if (before.find(std::string_view(line.data(), end)) == kNowhere) return false;
    line.remove_prefix(std::min(line.size(), end + 1));
  }
  return true;
}

void delivery_assembler::end_line() {
  const std::string_view line(bytes_ + line_, size_ - line_ - 2);
  if (line.empty() || (body_ == body_t::raw && line.back() != kCtrlZ)) {
    if (!line.empty() && body_is_dropped_) return drop_line();
    line_ = size_;
    return;
  }
  if (body_ == body_t::none || body_ == body_t::line) {
    if (end_header(line)) return;
  }
  if (body_ != body_t::none) return end_body(line);
  if (is_result(line)) return end_answer(line);
  if (!is_for_somebody(line)) return drop_line();
  measure_answer(line);
  whole_ = line_ = size_;
}

/// @return whether the line announces a body; a delivery does not end between the two
bool delivery_assembler::end_header(std::string_view line) {
  body_t body = body_t::none;
  if (is_any_header(line, kLineHeaders) && !announces_nothing(line)) body = body_t::line;
  if (is_header(line, kRawHeader)) body = body_t::raw;
  if (has_joined_body(line)) body = body_t::joined_line;
  if (body == body_t::none) return false;
  body_ = body;
  body_is_dropped_ = !is_for_exchange() && is_any_header(line, kAnswerHeaders);
  if (body_is_dropped_) {
    drop_line();
    return true;
  }
  measure_answer(line);
  header_ = line_ = size_;
  return true;
}

void delivery_assembler::end_body(std::string_view line) {
  const bool joins = body_ == body_t::joined_line && header_ != 0;
  body_ = body_t::none;
  if (body_is_dropped_) return drop_line();
  measure_answer(line);
  if (joins) join_body();
  whole_ = line_ = size_;
}

/// The line end, and blank lines, between header and body become an LF.
void delivery_assembler::join_body() {
  const uint32_t lf = header_ - 2;
  bytes_[lf] = '\n';
  std::memmove(bytes_ + lf + 1, bytes_ + line_, size_ - line_);
  size_ -= line_ - lf - 1;
}

void delivery_assembler::end_answer(std::string_view result) {
  if (is_old_line_ || !debt_.result(result)) return drop_line();
  answer_ = 0;
  ends_with_result_ = true;
  whole_ = line_ = ready_ = size_;
}

void delivery_assembler::drop_line() {
  ++lines_dropped_;
  size_ = line_;
}

/// What began before the exchange, or stands in front of its command's echo, is not its own.
bool delivery_assembler::is_for_exchange() const {
  return debt_.is_awaited() && !debt_.is_in_front_of_echo() && !is_old_line_;
}

/// Other lines are news or nobody's. What bears the name of something that was asked for is an
/// answer to what was given up, and would be taken for one to the command in flight.
bool delivery_assembler::is_for_somebody(std::string_view line) const {
  if (is_for_exchange()) return true;
  if (!is_news(line)) return false;
  const std::string_view name(line.data(), std::min(line.size(), line.find(':')));
  return !debt_.is_in_front_of_echo() || std::string_view(echo_, echo_size_).find(name) == kNowhere;
}

void delivery_assembler::measure_answer(std::string_view line) {
  if (!debt_.is_awaited()) return;
  const bool fitted = answer_ <= kDeliveryMaxBytes;
  answer_ += static_cast<uint32_t>(line.size());
  if (fitted && answer_ > kDeliveryMaxBytes) ++answers_too_long_;
}

// A prompt ends the answer, unless the body it asks for is out already. The CR in front of its LF
// may have gone to a server that was killed.
void delivery_assembler::end_prompt() {
  const uint32_t begin = size_ > line_ && bytes_[line_] == '\n' ? line_ + 1 : line_;
  if (body_ != body_t::none || size_ - begin != 2 || bytes_[begin] != '>') return;
  if (!debt_.prompt()) return drop_line();
  ready_ = size_;
}

void delivery_assembler::cut_full_buffer() {
  if (end_of_text() == 0) {
    bytes_[0] = '\r';
    size_ = bytes_[size_ - 1] == '\r' ? 1 : 0;
    line_ = 0;
    return;
  }
  ++deliveries_cut_;
  const uint32_t lines = whole_ != 0 ? whole_ : end_of_lines();
  settle(lines != 0 ? lines : end_of_text());
}

// A delivery that ends inside a line: the server takes its end for a line, and so do we.
void delivery_assembler::settle(uint32_t size) {
  ready_ = size;
  if (size <= line_) return;
  const std::string_view tail(bytes_ + line_, size - line_);
  bool stays = debt_.is_awaited();
  if (body_ == body_t::none) {
    ends_with_result_ = is_result(tail);
    stays = ends_with_result_                         ? debt_.result(tail)
            : starts_with(kPrompt, without_crs(tail)) ? debt_.prompt()
                                                      : is_for_somebody(tail);
  }
  if (stays) return;
  ends_with_result_ = false;
  drop_line();
  ready_ = whole_;
}

uint32_t delivery_assembler::silent_size(uint64_t silence) const {
  if (link_lost_) return end_of_text();
  if (debt_.is_opening() || silence < wait_ms()) return 0;
  return silence < tail_wait_ms() ? whole_ : end_of_text();
}

/// How long the modem has to be silent until something is handed over.
uint32_t delivery_assembler::wait_ms() const {
  const uint32_t tail = tail_wait_ms();
  if (!debt_.is_awaited()) return whole_ != 0 ? 0 : tail;
  if (unfinished_line() == kPromptStart) return tail;
  return whole_ != 0 ? kLineWaitMs : std::max(kLineWaitMs, tail);
}

// Where a delivery of all that is held has to end: in front of CRs whose LF may yet come, and of
// blank lines, which belong to the text behind them. 0 when there is nothing else.
uint32_t delivery_assembler::end_of_text() const {
  uint32_t end = size_;
  while (end > line_ && bytes_[end - 1] == '\r') --end;
  return end > line_ ? end : end_of_lines();
}

uint32_t delivery_assembler::end_of_lines() const {
  uint32_t end = line_;
  while (end >= 4 && std::memcmp(bytes_ + end - 4, "\r\n\r\n", 4) == 0) end -= 2;
  return end == 2 && std::memcmp(bytes_, "\r\n", 2) == 0 ? 0 : end;
}

uint32_t delivery_assembler::tail_wait_ms() const {
  const std::string_view line = without_crs(unfinished_line());
  const bool is_text = !line.empty();
  const std::string_view last = behind_crs(line);
  const bool may_be_echo = !last.empty() && starts_with(expected_echo(), last);
  if (may_be_echo && body_ == body_t::none) return kEchoWaitMs;
  if (is_text && !starts_with(kPrompt, line)) return kLineWaitMs;
  return body_ != body_t::none ? kBodyWaitMs : kSilenceMs;
}

std::string_view delivery_assembler::unfinished_line() const {
  return {bytes_ + line_, size_ - line_};
}

// The next line of what was sent that has not been echoed; empty when there is none.
std::string_view delivery_assembler::expected_echo() const { return sent_line(echo_at_); }

std::string_view delivery_assembler::sent_line(uint32_t at) const {
  if (at >= echo_size_) return {};
  const std::string_view text(echo_ + at, echo_size_ - at);
  return {text.data(), std::min(text.size(), text.find('\r'))};
}
