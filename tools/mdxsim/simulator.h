// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <chrono>
#include <deque>
#include <optional>
#include <string>

#include "tools/line/pty.h"
#include "tools/mdxsim/cutter.h"
#include "tools/mdxsim/modem.h"

namespace mdxsim {

/// Runs a modem behind a terminal until it ends, or a signal ends it.
///
/// Each piece that the cutter makes is written only when the host has read the one before, so that
/// it really is a read of its own; no time is spent on pauses. A host that does not read gets
/// nothing more.
class Simulator {
 public:
  /// `signal_fd` becomes readable when the program is to end. `log` shows the traffic on standard
  /// error in the format of session files. All referred to must outlive this.
  Simulator(Modem& modem, Pty& pty, Cutter cutter, int signal_fd, bool log);

  /// Returns how it ended; nullopt when by a signal.
  std::optional<Ending> run();

 private:
  [[nodiscard]] Time now() const;
  void note_changes();
  void follow_plug();
  void take_input();
  bool write_next_piece();
  [[nodiscard]] bool done();
  [[nodiscard]] int wait_ms() const;

  Modem& modem_;
  Pty& pty_;
  Cutter cutter_;
  int signal_fd_;
  bool log_;
  std::chrono::steady_clock::time_point start_;
  std::deque<std::string> pieces_;
  std::optional<Time> ended_;
  bool end_unread_ = false;
};

}  // namespace mdxsim
