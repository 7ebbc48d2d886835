// SPDX-License-Identifier: Apache-2.0

// The rules by which a modem's bytes become deliveries.
//
// One buffer holds what is not handed over yet, its CRs already sorted out. Its end is an
// unfinished line; in front of that stand whole lines. Byte for byte the rules look only at that
// buffer and at what was sent, never at how the bytes were cut: the same bytes end lines, echoes
// and answers at the same places. Silence and waiting bytes count only in `next`.

#include "platform/linux/delivery.h"

#include <cstring>

namespace {

constexpr char kCtrlZ = 0x1A;

// clang-format off
constexpr std::string_view kResultWords[] = {
    "OK", "+CME ERROR", "+CMS ERROR", "ERROR", "NO CARRIER", "NO ANSWER", "COMMAND NOT SUPPORT",
    "TOO MANY PARAMETERS", "CONNECT", "NO DIALTONE", "BUSY",
};
constexpr std::string_view kPrompt = "> ";
constexpr std::string_view kRawHeader = "^HCMGR";
constexpr std::string_view kLineHeaders[] = {"+CBM", "+CMT", "+CDS", "+CMGR", "+CMGL"};
// clang-format on

bool starts_with(std::string_view text, std::string_view start) {
  return text.size() >= start.size() && std::memcmp(text.data(), start.data(), start.size()) == 0;
}

// A line that the server takes for a result, whatever else stands behind the word.
bool is_result(std::string_view line) {
  for (const std::string_view word : kResultWords) {
    if (starts_with(line, word)) return true;
  }
  return false;
}

// The name ends at the colon: "+CMTI" announces nothing.
bool is_header(std::string_view line, std::string_view name) {
  if (!starts_with(line, name)) return false;
  size_t colon = name.size();
  while (colon < line.size() && line[colon] == ' ') ++colon;
  return colon < line.size() && line[colon] == ':';
}

bool is_line_header(std::string_view line) {
  for (const std::string_view name : kLineHeaders) {
    if (is_header(line, name)) return true;
  }
  return false;
}

}  // namespace

void delivery_assembler::sent(const char* bytes, size_t size) {
  owed_ = true;
  echo_at_ = 0;
  echo_size_ = size <= sizeof(echo_) ? static_cast<uint32_t>(size) : 0;
  std::memcpy(echo_, bytes, echo_size_);
}

void delivery_assembler::link_lost() {
  owed_ = false;
  echo_size_ = 0;
  echo_at_ = 0;
  behind_echo_ = false;
  body_ = body_t::none;
  link_lost_ = true;
}

size_t delivery_assembler::received(const char* bytes, size_t size, uint64_t now) {
  if (size > 0) last_byte_ = now;
  if (size > 0) link_lost_ = false;
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
    bytes_[size_++] = byte;
    ++used;
    if (byte == '\r') drop_echo();
    if (byte == '\n' && size_ - line_ >= 2 && bytes_[size_ - 2] == '\r') end_line();
    if (byte == ' ') end_prompt();
  }
  return used;
}

std::string_view delivery_assembler::next(uint64_t now, bool more_waiting) {
  if (ready_ != 0) return {bytes_, ready_};
  if (more_waiting) return {};
  settle(silent_size(now - last_byte_));
  if (ready_ > whole_) body_ = body_t::none;
  return {bytes_, ready_};
}

void delivery_assembler::taken() {
  std::memmove(bytes_, bytes_ + ready_, size_ - ready_);
  size_ -= ready_;
  line_ = line_ > ready_ ? line_ - ready_ : 0;
  whole_ = whole_ > ready_ ? whole_ - ready_ : 0;
  ready_ = 0;
}

uint64_t delivery_assembler::due() const {
  if (ready_ != 0) return last_byte_;
  if (whole_ != 0) return last_byte_ + (owed_ ? kSilenceMs : 0);
  if (link_lost_ && end_of_text() != 0) return last_byte_;
  return end_of_text() != 0 ? last_byte_ + tail_wait_ms() : kNever;
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
// command.
void delivery_assembler::drop_echo() {
  const std::string_view echo = expected_echo();
  if (echo.empty() || body_ != body_t::none) return;
  if (size_ - 1 - line_ != echo.size()) return;
  if (std::memcmp(bytes_ + line_, echo.data(), echo.size()) != 0) return;
  size_ = line_;
  ++echoes_dropped_;
  echo_at_ += static_cast<uint32_t>(echo.size()) + 1;
  behind_echo_ = true;
}

void delivery_assembler::end_line() {
  const std::string_view line(bytes_ + line_, size_ - line_ - 2);
  line_ = size_;
  if (line.empty()) return;
  if (body_ == body_t::raw && line[line.size() - 1] != kCtrlZ) return;
  if (body_ != body_t::raw && is_header(line, kRawHeader)) {
    body_ = body_t::raw;
    return;
  }
  if (body_ != body_t::raw && is_line_header(line)) {
    body_ = body_t::line;
    return;
  }
  const bool answered = owed_ && body_ != body_t::raw && is_result(line);
  body_ = body_t::none;
  whole_ = size_;
  if (!answered) return;
  owed_ = false;
  ready_ = size_;
}

// A prompt ends the answer, unless the PDU it asks for is out already.
void delivery_assembler::end_prompt() {
  if (!owed_ || body_ != body_t::none || size_ - line_ != 2 || bytes_[line_] != '>') return;
  owed_ = std::memchr(echo_, kCtrlZ, echo_size_) != nullptr;
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
  if (size > line_ && is_result({bytes_ + line_, size - line_})) owed_ = false;
}

uint32_t delivery_assembler::silent_size(uint64_t silence) const {
  if (link_lost_) return end_of_text();
  if (!owed_ && whole_ != 0) return whole_;
  if (silence < kSilenceMs) return 0;
  return silence < tail_wait_ms() ? whole_ : end_of_text();
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
  const std::string_view line = unfinished_line();
  const bool is_text = line.find_first_not_of('\r') != std::string_view::npos;
  if (is_text && body_ == body_t::none && starts_with(expected_echo(), line)) return kEchoWaitMs;
  if (is_text && !starts_with(kPrompt, line)) return kLineWaitMs;
  return body_ != body_t::none ? kBodyWaitMs : kSilenceMs;
}

std::string_view delivery_assembler::unfinished_line() const {
  return {bytes_ + line_, size_ - line_};
}

// The next line of what was sent that has not been echoed; empty when there is none.
std::string_view delivery_assembler::expected_echo() const {
  if (echo_at_ >= echo_size_) return {};
  const char* line = echo_ + echo_at_;
  const size_t rest = echo_size_ - echo_at_;
  const void* cr = std::memchr(line, '\r', rest);
  return {line, cr == nullptr ? rest : static_cast<size_t>(static_cast<const char*>(cr) - line)};
}
