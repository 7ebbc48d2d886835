// SPDX-License-Identifier: Apache-2.0

// Between two exchanges the line is clean or it is not. It is made dirty by what an exchange leaves
// unpaid, by a prompt that nobody asked for, and by a second result, which the server may still
// have to read. It is clean again when all that is over and the modem has been silent for a moment.

#include "platform/linux/line_debt.h"

#include <algorithm>

#include "platform/joined_texts.h"

namespace {

using namespace std::string_view_literals;

constexpr char kCtrlZ = 0x1A;
/// Answers without an echo in a row, by a modem that has echoed: it may have stopped that.
constexpr uint32_t kUnechoedAtMost = 3;
constexpr auto kNowhere = std::string_view::npos;

/// Words that a modem also says by itself, when a call ends or a connection comes up. The server
/// takes them for results; only a command that dials is paid by them.
constexpr char kCallWords[] = "NO CARRIER\0NO ANSWER\0CONNECT\0NO DIALTONE\0BUSY\0";
constexpr char kMessageHeads[] = "+CMGS\0+CMGW\0+CMGC\0+CNMA\0";

char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

// substr may throw, as far as the compiler knows, and would need the C++ library for that.
std::string_view head_of(std::string_view text, size_t size) {
  return {text.data(), std::min(size, text.size())};
}
std::string_view behind(std::string_view text, size_t size) {
  text.remove_prefix(std::min(size, text.size()));
  return text;
}

bool starts_with(std::string_view text, std::string_view start) {
  return head_of(text, start.size()) == start;
}

bool holds(std::string_view text, std::string_view upper_word) {
  const auto same = [](char a, char b) { return a == upper(b); };
  for (; text.size() >= upper_word.size(); text.remove_prefix(1)) {
    if (std::equal(upper_word.begin(), upper_word.end(), text.begin(), same)) return true;
  }
  return false;
}

bool is_about_a_call(std::string_view line) { return any_text(kCallWords, starts_with, line); }

std::string_view without_blanks(std::string_view line) {
  while (!line.empty() && static_cast<unsigned char>(line.front()) <= ' ') line.remove_prefix(1);
  return line;
}

/// Modems pass over a line that begins otherwise. "A/" needs no line end.
bool is_command(std::string_view line) {
  line = without_blanks(line);
  return line.size() >= 2 && upper(line[0]) == 'A' && (upper(line[1]) == 'T' || line[1] == '/');
}

/// The commands of one letter, which stand in front of the first extended one.
std::string_view basic_commands(std::string_view line) {
  line = without_blanks(line);
  return head_of(line, line.find_first_of("+^*%$#"sv));
}

bool dials(std::string_view line) {
  const std::string_view first = without_blanks(behind(without_blanks(line), 2));
  if (first.empty()) return false;
  return upper(first[0]) == 'D' || upper(first[0]) == 'A' || upper(first[0]) == 'O' ||
         holds(first, "+CGDATA"sv);
}

/// What comes in front of the prompt would be the message.
bool asks_for_prompt(std::string_view line) { return any_text(kMessageHeads, holds, line); }

bool may_change_echo(std::string_view line) {
  for (size_t end = 0; end != kNowhere; line.remove_prefix(end == kNowhere ? 0 : end + 1)) {
    end = line.find(';');
    const std::string_view basic = basic_commands(head_of(line, end));
    if (holds(basic, "E"sv) || holds(basic, "Z"sv) || holds(basic, "&F"sv)) return true;
  }
  return false;
}

}  // namespace

void line_debt::opened(uint64_t now, line_balance_t left) {
  opening_ = dirty_ = needs_silence_ = true;
  begin_patience(now);
  const bool echo_tells = left.echo != 0 && left.prompt == 0;
  due_ = echo_tells ? 0 : left.results;
  stale_ = echo_tells ? left.results : 0;
  prompt_ = left.prompt == 1;
  may_prompt_ = left.prompt == 2;
  if (left.echo != 0) echo_ = echo_t::yes;
  inherited_ = left.results != 0;
  escapes_ = 0;
}

void line_debt::link_lost() {
  due_ = stale_ = 0;
  prompt_ = may_prompt_ = opening_ = doubts_ = inherited_ = false;
  echo_ = echo_t::unknown;
  if (in_exchange_) link_lost_in_exchange_ = true;
}

void line_debt::sent(std::string_view bytes) {
  if (!in_exchange_) begin_exchange();
  count_body(&bytes);
  count_commands(bytes);
}

void line_debt::begin_exchange() {
  in_exchange_ = true;
  results_shown_ = 0;
  if (changes_echo_) echo_ = echo_t::unknown;
  body_sent_ = early_body_ = may_prompt_ = link_lost_in_exchange_ = false;
  passed_over_ = false;
  dials_ = changes_echo_ = may_ask_ = doubts_ = false;
}

/// Takes a body off the bytes, which are the commands in front of it or behind it then. One that
/// went out in front of its prompt is owed nothing by itself: without the prompt modems pass over
/// it.
void line_debt::count_body(std::string_view* bytes) {
  const size_t end = bytes->rfind(kCtrlZ);
  if (end == kNowhere) return;
  const size_t head = prompt_ || !is_command(*bytes) ? 0 : bytes->find('\r');
  if (head > end) return;  // a command that holds one
  body_sent_ = true;
  early_body_ = !prompt_;
  if (prompt_) ++due_;
  prompt_ = false;
  *bytes = head == 0 ? behind(*bytes, end + 1) : head_of(*bytes, head + 1);
}

void line_debt::count_commands(std::string_view lines) {
  for (size_t end = lines.find('\r'); end != kNowhere; end = lines.find('\r')) {
    const std::string_view line = head_of(lines, end);
    lines.remove_prefix(end + 1);
    if (!is_command(line)) continue;
    ++due_;
    echo_missing_ = true;
    dials_ = dials_ || dials(line);
    changes_echo_ = changes_echo_ || may_change_echo(line);
    may_ask_ = may_ask_ || asks_for_prompt(line);
  }
}

void line_debt::echoed(bool may_be_older) {
  echo_missing_ = false;
  unechoed_ = 0;
  echo_ = echo_t::yes;
  if (stale_ > 0 && (may_be_older || inherited_)) return;
  inherited_ = false;
  if (in_exchange_ || due_ > 0) stale_ = 0;  // else it is given up itself
}

bool line_debt::result(std::string_view line) {
  const bool pays = dials_ || !is_about_a_call(line);
  return in_exchange_ ? show_to_exchange(pays) : pays && absorb();
}

/// Between two exchanges: the oldest debt is paid first. The server gets the line only to end what
/// it still holds.
bool line_debt::absorb() {
  if (!owes() && stale_ == 0) return false;
  ++counts_.absorbed;
  if (stale_ > 0) ++due_, --stale_;
  pay();
  return dirty_;
}

bool line_debt::show_to_exchange(bool pays) {
  if (is_in_front_of_echo()) {
    if (pays) --stale_;
    if (pays) ++counts_.absorbed;
    passed_over_ = true;
    return false;
  }
  if (!owes()) return false;
  ++results_shown_;
  if (!pays) return true;
  pay();
  if (echo_missing_) echo_ = echo_t::no;
  doubts_ = !owes() && stale_ > 0;
  return true;
}

void line_debt::pay() {
  if (due_ > 0) --due_;
  prompt_ = may_prompt_ = false;
}

bool line_debt::prompt() {
  const bool is_foreign = !in_exchange_ || is_in_front_of_echo() || !owes();
  if (body_sent_ && due_ > 0 && !is_in_front_of_echo()) {  // or each line of it gets a prompt
    may_prompt_ = early_body_;
    return early_body_ && in_exchange_;
  }
  uint32_t& debt = stale_ > 0 && is_foreign ? stale_ : due_;
  if (debt > 0) --debt;
  prompt_ = true;
  escapes_ = 0;
  if (in_exchange_) return !is_foreign;
  if (!dirty_) since_known_ = false;
  dirty_ = needs_silence_ = true;
  return false;
}

bool line_debt::exchange_left_debt() {
  dirty_ = true;
  text_left_ = owes() || link_lost_in_exchange_;
  since_known_ = false;
  return false;
}

void line_debt::begin_patience(uint64_t now) {
  since_ = now;
  since_known_ = true;
}

void line_debt::pass(uint64_t now) {
  if (in_exchange_ || is_clean()) return;
  ended_at(now);
  if (prompt_ && escapes_ >= kEscapesAtMost && now >= escape_ends_at()) {
    prompt_ = false;
    ++stale_;
    ++counts_.given_up;
  }
  if (due_ == 0 || now < since_ + kPatienceMs) return;
  ++counts_.given_up;
  if (may_prompt_) {
    prompt_ = true;  // it may wait for its body
    escapes_ = 0;
  }
  may_prompt_ = false;
  if (passed_over_ && echo_missing_ && ++unechoed_ >= kUnechoedAtMost) echo_ = echo_t::unknown;
  stale_ += due_;
  due_ = 0;
}

bool line_debt::escape_is_due(uint64_t now) const {
  if (in_exchange_ || !prompt_ || escapes_ >= kEscapesAtMost) return false;
  return now >= escape_due_at();
}

uint64_t line_debt::escape_due_at() const {
  return escapes_ == 0 ? refused_at_ + kEscapeWaitMs : escape_ends_at();
}

/// The last ESC is waited for as long as there is patience.
uint64_t line_debt::escape_ends_at() const {
  const uint64_t end = escaped_at_ + kEscapeWaitMs;
  return escapes_ < kEscapesAtMost ? end : std::max(end, since_ + kPatienceMs);
}

void line_debt::escaped(uint64_t now, bool taken) {
  escaped_at_ = now;
  if (!taken) {
    refused_at_ = now;
    return;
  }
  ++escapes_;
  ++counts_.escapes;
}

bool line_debt::is_silent(uint64_t now, uint64_t last_byte) const {
  return !in_exchange_ && !owes() && since_known_ && now >= due(last_byte);
}

/// A modem that never stops is waited for no longer than one that never answers.
uint64_t line_debt::silent_at(uint64_t last_byte) const {
  if (!needs_silence_) return last_byte;
  if (!doubts_ || stale_ == 0) return std::min(last_byte + kCleanSilenceMs, since_ + kPatienceMs);
  return std::min(last_byte + kDoubtMs, since_ + kDoubtAtMostMs);
}

uint64_t line_debt::due(uint64_t last_byte) const {
  if (in_exchange_ || is_clean()) return kNever;
  if (!since_known_) return last_byte;
  if (prompt_) return std::max(last_byte, escape_due_at());
  if (due_ > 0) return since_ + kPatienceMs;
  const uint64_t silent = silent_at(last_byte);
  if (!opening_) return silent;
  const uint32_t silence = stale_ > 0 ? kOpeningMs : kOpeningSilenceMs;
  const uint64_t heard = std::max(last_byte, since_) + silence;
  return std::max(silent, std::min(since_ + kOpeningMs, heard));
}
