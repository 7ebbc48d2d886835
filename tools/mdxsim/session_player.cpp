// SPDX-License-Identifier: Apache-2.0

// Plays sessions against a host.
//
// The host's bytes come torn anywhere, and may come before the reads that stand in front of them in
// the file: a host that has its answer does not wait for the reports behind it. So they are kept,
// and compared as soon as the session reaches them.
#include "tools/mdxsim/session_player.h"

#include <algorithm>
#include <utility>

#include "tools/line/escape.h"

namespace mdxsim {
namespace {

constexpr std::string_view kPreludeCommand = "AT+CMEE=1\r";
constexpr std::string_view kPreludeAnswer = "\r\nOK\r\n";
constexpr char kCtrlZ = '\x1a';
constexpr size_t kInputLimit = 65536;
constexpr size_t kShownBytes = 200;

std::string quote(std::string_view bytes) {
  const bool cut = bytes.size() > kShownBytes;
  return '"' + escape(bytes.substr(0, kShownBytes)) + (cut ? "\"..." : "\"");
}

size_t common_prefix(std::string_view a, std::string_view b) {
  const auto [end, ignored] = std::mismatch(
      a.begin(), a.begin() + static_cast<std::ptrdiff_t>(std::min(a.size(), b.size())), b.begin());
  return static_cast<size_t>(end - a.begin());
}

}  // namespace

SessionPlayer::SessionPlayer(Session session, ReplayOptions options)
    : session_(std::move(session)), options_(options) {
  const SessionStep& first = session_.steps.front();
  waits_for_prelude_ = options_.prelude && !(first.from_host && first.bytes == kPreludeCommand);
  waits_for_opening_ = !waits_for_prelude_;
  await(Time{0});
}

const SessionStep* SessionPlayer::step() const {
  return cursor_ < session_.steps.size() ? &session_.steps[cursor_] : nullptr;
}

bool SessionPlayer::modem_speaks_next() const {
  return !ending_ && !waits_for_prelude_ && !waits_for_opening_ && !step()->from_host;
}

void SessionPlayer::attached(Time now) {
  if (!waits_for_opening_) return;
  waits_for_opening_ = false;
  due_ = now;
  await(now);
}

// A host that comes back may go on where it left.
void SessionPlayer::detached(Time) {}

void SessionPlayer::receive(std::string_view bytes, Time now) {
  input_ += bytes;
  compare(now);
}

void SessionPlayer::advance(Time now) {
  if (ending_ || !deadline_ || now < *deadline_) return;
  if (waits_for_prelude_) return fail("the host did not send its set-up command in time");
  if (waits_for_opening_) return fail("the host did not open the device in time");
  fail("the host did not send this in time\n  expected: " + quote(step()->bytes) +
       "\n  got:      " + quote(input_));
}

std::string SessionPlayer::transmit(Time now) {
  if (!prelude_answer_.empty()) {
    due_ = now + options_.gap;
    return std::exchange(prelude_answer_, {});
  }
  if (!modem_speaks_next() || now < due_) return {};
  const std::string& delivery = step()->bytes;
  ++cursor_;
  due_ = now + options_.gap;
  await(now);
  compare(now);
  return delivery;
}

std::optional<Time> SessionPlayer::next_due() const {
  if (!prelude_answer_.empty()) return Time{0};
  if (modem_speaks_next()) return due_;
  return ending_ ? std::nullopt : deadline_;
}

bool SessionPlayer::accepts_input() const { return input_.size() < kInputLimit; }

std::optional<Ending> SessionPlayer::ending() const { return ending_; }

std::optional<std::string> SessionPlayer::unfinished() const {
  if (ending_) return std::nullopt;
  return session_.name + ":" + std::to_string(step()->line) + ": stopped in front of this line";
}

void SessionPlayer::compare(Time now) {
  while (!ending_ && !input_.empty() && compare_next(now)) {
  }
  if (ending_ || step() != nullptr) return;
  if (!input_.empty()) return fail_at_difference("");
  ending_ = Ending{true,
                   session_.name + ": played, " + std::to_string(session_.steps.size()) +
                       " lines of the session",
                   true};
}

// True when it got on and there may be more to compare.
bool SessionPlayer::compare_next(Time now) {
  if (std::exchange(skip_cr_, false) && input_.front() == '\r') {
    input_.erase(0, 1);
    return true;
  }
  if (waits_for_prelude_) return take_prelude(now);
  return step() != nullptr && step()->from_host && take_host_line(now);
}

bool SessionPlayer::take_prelude(Time now) {
  const size_t same = common_prefix(input_, kPreludeCommand);
  if (same == kPreludeCommand.size()) {
    input_.erase(0, same);
    prelude_answer_ = kPreludeAnswer;
    waits_for_prelude_ = false;
    await(now);
    return true;
  }
  if (same == input_.size()) return false;
  if (!step()->from_host) {
    fail_at_difference(kPreludeCommand);
    return false;
  }
  waits_for_prelude_ = false;
  return true;
}

bool SessionPlayer::take_host_line(Time now) {
  const std::string& expected = step()->bytes;
  const size_t same = common_prefix(input_, expected);
  if (same < expected.size()) {
    if (same < input_.size()) fail_at_difference(expected);
    return false;
  }
  input_.erase(0, same);
  skip_cr_ = expected.back() == kCtrlZ;
  ++cursor_;
  due_ = now;
  await(now);
  return true;
}

// The host's time begins anew where the session waits for it.
void SessionPlayer::await(Time now) {
  deadline_.reset();
  const bool waits = waits_for_prelude_ || waits_for_opening_ || (step() && step()->from_host);
  if (waits && options_.patience > Time{0}) deadline_ = now + options_.patience;
}

void SessionPlayer::fail(const std::string& problem) {
  const SessionStep* here = step();
  const int line = here != nullptr ? here->line : session_.steps.back().line;
  ending_ = Ending{false, session_.name + ":" + std::to_string(line) + ": " + problem};
}

void SessionPlayer::fail_at_difference(std::string_view expected) {
  const size_t at = common_prefix(input_, expected);
  const std::string due = expected.empty() ? "the end of the session" : quote(expected);
  const std::string got = std::string_view(input_).substr(at).empty()
                              ? "nothing"
                              : quote(std::string_view(input_).substr(at, 1));
  fail("the host sent what the session does not have here\n  expected: " + due +
       "\n  got:      " + quote(input_) + "\n  byte " + std::to_string(at + 1) + " is " + got +
       (at < expected.size() ? " instead of " + quote(expected.substr(at, 1)) : std::string()));
}

}  // namespace mdxsim
