// SPDX-License-Identifier: Apache-2.0

// Turns what a modem says into deliveries that the server can take apart.
//
// Bytes come cut anywhere. The server loses a line that is cut between CR and LF, takes a stray
// line for an answer, and charges each delivery that leaves an answer open a whole second. So whole
// lines are collected here, an answer up to its result, and echo and doubled CRs are taken out.
// There is no I/O and no clock: the caller says what came and what time it is.
//
// What is left out, and nothing else: the echo with its line end, CRs and ESCs in front of it; all
// but one of the CRs in front of an LF; CRs and blank lines that fill the whole buffer by
// themselves, but for a last CR; what the modem shows as erased; and what belongs to nobody: a
// result that no exchange waits for, and outside an exchange every line that the server would keep
// as text. One line end becomes a bare LF: that between the header of a message and its body, which
// are one report.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/linux/line_debt.h"

constexpr uint32_t kDeliveryMaxBytes = 1499;
/// The blank of a prompt is waited for this long.
constexpr uint32_t kSilenceMs = 20;
/// The rest of an answer, or of a line, is waited for this long, counted from the last byte. Each
/// part of an answer costs its client a whole second, so waiting costs nothing; a busy machine or a
/// USB adapter stops for a while in the middle, and half a line is worth nothing. Outside an
/// exchange lines in front of half a line are not held.
constexpr uint32_t kLineWaitMs = 300;
/// A header's body is waited for this long, counted from the last byte.
constexpr uint32_t kBodyWaitMs = 50;
/// The rest of an echo is waited for this long, counted from the last byte. Lines in front of it
/// are not.
constexpr uint32_t kEchoWaitMs = 1000;

/// Assembles the deliveries of one modem. Not for two threads at once; plain memory, no destructor.
///
/// The cycle of use: `received` until it has taken all bytes, and whenever it stops early or runs
/// out, `next` and `taken` until there is nothing more. Then wait until bytes come or `due` is
/// reached. Times are milliseconds of one clock that never goes back.
class delivery_assembler {
 public:
  static constexpr uint64_t kNever = UINT64_MAX;

  /// Notes what goes out to the modem for an exchange: an answer is owed from now on, and an echo
  /// expected. Call it before the first byte leaves. Bytes held so far stay.
  ///
  /// A text of several lines is echoed line by line. The echo of more than 1499 bytes is not
  /// recognised.
  void sent(const char* bytes, size_t size);

  /// Notes that the modem is gone: no answer, echo or body will come. Text held so far becomes due,
  /// and is not joined with what the next modem says.
  void link_lost();

  /// Who owes what. The caller tells it of openings and of the ends of exchanges; bytes, sends and
  /// time it learns from here.
  line_debt& debt() { return debt_; }
  const line_debt& debt() const { return debt_; }

  enum class step_t : uint8_t {
    none,    ///< nothing yet; `next` may have something, else look again when `due` is reached
    escape,  ///< send an ESC and call `debt().escaped`
    clean,   ///< once the server has read all deliveries, call `debt().settled`
  };
  /// What is to be done now, between two exchanges, to make the line clean.
  step_t step(uint64_t now);

  /// Whether bytes are held that will be handed over, or dropped, without more of them.
  bool holds_text() const { return ready_ != 0 || shows_own_result_ || end_of_text() != 0; }

  /// Takes bytes of the modem, as far as the first point where a delivery has to end.
  /// @return the bytes taken; fewer than `size`, even 0, while a delivery waits in `next`
  size_t received(const char* bytes, size_t size, uint64_t now);

  /// The delivery to hand over now: 1 to 1499 bytes, or empty when there is none. Once shown, a
  /// delivery stays the same until `taken`; the view is valid as long, whatever `sent` does.
  /// @param more_waiting  the modem has said more that has not been received yet: only what must
  ///                      end now is handed over, and silence does not count
  std::string_view next(uint64_t now, bool more_waiting);

  /// Removes the delivery that `next` has shown.
  void taken();

  /// When `next` will have a delivery, or `debt` something to do, if no more bytes come; kNever
  /// when silence changes nothing.
  uint64_t due() const;

  /// Lines dropped because they repeated what was sent, ever.
  uint32_t echoes_dropped() const { return echoes_dropped_; }
  /// Deliveries ended at the size limit, ever.
  uint32_t deliveries_cut() const { return deliveries_cut_; }
  /// Lines that belonged to nobody, ever.
  uint32_t lines_dropped() const { return lines_dropped_; }
  /// Answers whose lines, without their ends, have more bytes than a record holds, ever.
  uint32_t answers_too_long() const { return answers_too_long_; }

 private:
  enum class body_t : uint8_t { none, line, joined_line, raw };

  void expect_echo(std::string_view text);
  bool behind_echo(char byte);
  void drop_surplus_crs();
  void drop_echo();
  void end_line();
  bool end_header(std::string_view line);
  void end_body(std::string_view line);
  void end_answer(std::string_view result);
  void join_body();
  void drop_line();
  void measure_answer(std::string_view line);
  bool is_for_exchange() const;
  bool is_for_somebody(std::string_view line) const;
  uint32_t wait_ms() const;
  uint64_t text_due() const;
  void end_prompt();
  void cut_full_buffer();
  void settle(uint32_t size);
  uint32_t silent_size(uint64_t silence) const;
  uint32_t end_of_text() const;
  uint32_t end_of_lines() const;
  uint32_t tail_wait_ms() const;
  std::string_view unfinished_line() const;
  std::string_view expected_echo() const;
  std::string_view sent_line(uint32_t at) const;
  bool is_sent_before(std::string_view text) const;
  bool repeats(std::string_view line, std::string_view echo) const;

  uint32_t size_ = 0;   ///< bytes held
  uint32_t line_ = 0;   ///< where the unfinished line begins
  uint32_t whole_ = 0;  ///< end of the last line that may end a delivery, 0 for none
  uint32_t ready_ = 0;  ///< length of the delivery shown or settled, 0 for none
  uint32_t echo_size_ = 0;
  uint32_t echo_at_ = 0;  ///< the echo's lines in front of this have come
  uint32_t header_ = 0;   ///< end of the header whose body is to be joined to it
  uint32_t answer_ = 0;   ///< bytes in the answer's lines so far
  uint32_t echoes_dropped_ = 0;
  uint32_t deliveries_cut_ = 0;
  uint32_t lines_dropped_ = 0;
  uint32_t answers_too_long_ = 0;
  uint64_t last_byte_ = 0;         ///< when the modem last said something
  body_t body_ = body_t::none;     ///< what the last header announced and is still to come
  bool body_is_dropped_ = false;   ///< as its header was
  bool ends_with_result_ = false;  ///< the delivery shown
  bool shows_own_result_ = false;
  bool is_old_line_ = false;  ///< the unfinished line began before the exchange
  bool link_lost_ = false;    ///< what is held is all there will be
  bool behind_echo_ = false;  ///< the echo's text is dropped, its line end is to follow
  line_debt debt_;
  char bytes_[kDeliveryMaxBytes] = {};
  char echo_[kDeliveryMaxBytes] = {};  ///< what was sent last
};
