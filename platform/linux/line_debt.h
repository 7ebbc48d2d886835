// SPDX-License-Identifier: Apache-2.0

// What the modem still owes, and whom it belongs to.
//
// AT has no request numbers: an answer belongs to the command before it. So a command goes out only
// when nothing of an earlier one can still come. This keeps the account: each command line that was
// sent is owed a result, and a prompt is owed a body. What is left of it when the server no longer
// waits is collected here before the next request is shown to it.
//
// There is no I/O and no clock: the caller says what was sent, what came and what time it is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// The line is clean when the modem has paid and then been silent this long.
constexpr uint32_t kCleanSilenceMs = 20;
/// An answer that its exchange no longer waits for is waited for this long, from the exchange's
/// end.
constexpr uint32_t kPatienceMs = 5000;
/// The first answer behind one given up may be that, and the own one still to come, where no echo
/// tells: the modem has to be silent for so long, once, or to say other things for the longer time.
constexpr uint32_t kDoubtMs = 1000;
constexpr uint32_t kDoubtAtMostMs = 2000;
/// The modem's result to an ESC is waited for this long before another ESC goes out.
constexpr uint32_t kEscapeWaitMs = 1000;
constexpr uint32_t kEscapesAtMost = 2;
/// A device that has just been opened is listened to until it has been silent this long, or for the
/// longer time, as where it still owes an answer and its echo will tell that from the next.
constexpr uint32_t kOpeningSilenceMs = 100;
constexpr uint32_t kOpeningMs = 1000;

/// What the account is worth to whoever opens the device after this process has died.
struct line_balance_t {
  uint32_t results = 0;  ///< owed
  uint32_t prompt = 0;   ///< 1: the modem waits for a body, 2: it may, 3: it may come to
  uint32_t echo = 0;     ///< 1: the modem is known to echo
};

/// What has been counted, ever.
struct line_counts_t {
  uint32_t absorbed = 0;  ///< results that came when nobody waited for them any more
  uint32_t given_up = 0;  ///< times that patience ran out
  uint32_t escapes = 0;   ///< prompts that nobody answered: an ESC each time
};

/// All zero at the beginning, so that it takes no room in the program's file.
class line_debt {
 public:
  static constexpr uint64_t kNever = UINT64_MAX;

  // What happens on the line.

  /// The device was opened. `left` is what an earlier owner of it had not been paid.
  void opened(uint64_t now, line_balance_t left);
  /// The device is gone, and with it all that was owed.
  void link_lost();
  /// These bytes go out for the server.
  void sent(std::string_view bytes);
  /// What was sent last did not get out whole: where it was a message, the modem still waits.
  void cut_short() { may_prompt_ = may_prompt_ || body_sent_; }
  /// The modem repeats a command that was sent. It does so when it comes to it, so nothing older is
  /// still to come.
  /// @param may_be_older  the same was sent before: it may be that which is repeated
  void echoed(bool may_be_older);
  /// A result line has come. @return whether it goes on to the server
  bool result(std::string_view line);
  /// A prompt has come. @return whether it goes on to the server
  bool prompt();
  /// A delivery that ends with a result has been handed over, be it the modem's or ours.
  void handed_over_result() { text_left_ = false; }

  // What the server does.

  /// The server waits for no answer any more. Cheap when everything is paid.
  /// @param all_read  it has read all that was handed over
  /// @return true when the line is clean
  bool exchange_ended(bool all_read) {
    if (!in_exchange_) return is_clean();
    in_exchange_ = false;
    needs_silence_ = opening_ || owes() || results_shown_ > 1 || doubts_ || link_lost_in_exchange_;
    return (!needs_silence_ && all_read) || exchange_left_debt();
  }
  /// Tells when that was, if there is something left to wait for.
  void ended_at(uint64_t now) {
    if (!since_known_) begin_patience(now);
  }

  // What is to be done about it.

  /// Lets time pass.
  void pass(uint64_t now);
  /// A prompt that nobody answers waits for an ESC.
  bool escape_is_due(uint64_t now) const;
  /// An ESC went out; or the modem takes nothing, and it is tried again.
  void escaped(uint64_t now, bool taken = true);
  /// The text of an abandoned exchange, which the server still holds, has to be ended by a result.
  bool needs_result() const { return text_left_ && waits_for_silence(); }
  /// Nothing more is to come, and the modem has been silent for long enough. `last_byte` is when it
  /// last said something.
  bool is_silent(uint64_t now, uint64_t last_byte) const;
  /// To be called when it is silent: what was held since the opening may go on.
  void end_opening() { opening_ = false; }
  /// To be called when it is silent and the server has read everything: the line is clean.
  void settled() {
    if (doubts_) stale_ = 0;
    dirty_ = opening_ = doubts_ = false;
  }
  /// When `pass`, `escape_is_due` or `is_silent` will say something else; kNever when only bytes or
  /// sends change it.
  uint64_t due(uint64_t last_byte) const;

  // How it stands.

  bool is_clean() const { return !dirty_ && !opening_ && !in_exchange_; }
  /// The server waits for an answer, and it is not complete.
  bool is_awaited() const { return in_exchange_ && owes(); }
  bool in_exchange() const { return in_exchange_; }
  /// A device that has just been opened is listened to first. An exchange that began before is no
  /// reason to: nothing is owed to it any more, and its end may be long in coming.
  bool is_opening() const { return opening_ && !in_exchange_; }
  /// All that was owed has come, or was given up.
  bool waits_for_silence() const { return dirty_ && !in_exchange_ && !owes(); }
  /// The device went away after the exchange under way had begun: its answer cannot come.
  bool link_lost_in_exchange() const { return in_exchange_ && link_lost_in_exchange_; }
  /// Whatever comes now belongs to what was given up, since the command in flight has yet to be
  /// echoed.
  bool is_in_front_of_echo() const {
    return in_exchange_ && stale_ > 0 && echo_ == echo_t::yes && echo_missing_;
  }
  /// @param is_half_sent  what was sent last may be out without its end
  line_balance_t balance(bool is_half_sent = false) const {
    const bool echoes = echo_ == echo_t::yes && !changes_echo_;
    const bool may_prompt = may_prompt_ || (is_half_sent && body_sent_);
    const uint32_t unprompted = may_prompt ? 2 : may_ask_ && due_ > 0 ? 3 : 0;
    return {due_ + stale_, prompt_ ? 1 : unprompted, echoes ? 1u : 0u};
  }
  const line_counts_t& counts() const { return counts_; }

 private:
  enum class echo_t : uint8_t { unknown, yes, no };

  uint64_t escape_due_at() const;
  uint64_t escape_ends_at() const;
  uint64_t silent_at(uint64_t last_byte) const;
  bool owes() const { return due_ > 0 || prompt_; }
  bool exchange_left_debt();
  void begin_exchange();
  void count_body(std::string_view* bytes);
  void count_commands(std::string_view lines);
  bool absorb();
  bool show_to_exchange(bool pays);
  void pay();
  void begin_patience(uint64_t now);

  uint32_t due_ = 0;            ///< results owed for what was sent
  uint32_t stale_ = 0;          ///< results that were waited for in vain; they may still come
  uint32_t results_shown_ = 0;  ///< to the exchange under way
  uint32_t unechoed_ = 0;  ///< commands in a row that came to nothing, with a result passed over
  uint32_t escapes_ = 0;   ///< for the prompt that is open
  uint64_t since_ = 0;     ///< when the exchange ended or the device was opened, if that was told
  uint64_t escaped_at_ = 0;
  uint64_t refused_at_ = 0;  ///< when the modem did not take an ESC
  bool since_known_ = false;
  bool prompt_ = false;      ///< the modem waits for a body
  bool body_sent_ = false;   ///< in this exchange
  bool early_body_ = false;  ///< and in front of its prompt
  bool may_prompt_ = false;  ///< the prompt came behind its body: the modem may have missed that
  bool in_exchange_ = false;
  bool dirty_ = false;
  bool needs_silence_ = false;  ///< to be clean; else what was handed over has only to be read
  bool opening_ = false;
  bool text_left_ = false;  ///< in the server, of an exchange that ended without result
  bool link_lost_in_exchange_ = false;
  bool passed_over_ = false;   ///< a result, since the command had not been echoed yet
  bool doubts_ = false;        ///< the exchange may have been paid by what was stale
  bool inherited_ = false;     ///< what is owed was asked for by another process, in words unknown
  bool dials_ = false;         ///< the exchange may be answered by words about a call
  bool echo_missing_ = false;  ///< of the command in flight
  bool changes_echo_ = false;  ///< the exchange does
  bool may_ask_ = false;       ///< the exchange: the modem, for a message
  echo_t echo_ = echo_t::unknown;
  line_counts_t counts_;
};
