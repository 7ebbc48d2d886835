// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/mdxtap/host_end.h"
#include "tools/mdxtap/modem_end.h"
#include "tools/mdxtap/recorder.h"

namespace mdxtap {

/// Carries bytes between modem and host, and has them recorded.
///
/// Bytes pass unchanged and in their order; what one side does not take holds the other one up, as
/// on the bare device. When the modem goes, the host's end goes; when it comes back, so does that.
/// What the modem says while nobody has the host's end open is recorded and passed to nobody.
class Tap {
 public:
  /// All referred to must outlive this. `signal_fd` becomes readable when the program is to end.
  Tap(ModemEnd& modem, HostEnd& host, Recorder& recorder, int signal_fd);

  /// Until a signal ends it. Throws std::system_error or std::runtime_error when the host's end
  /// can't be made.
  void run();

  [[nodiscard]] uint64_t host_bytes() const { return host_bytes_; }
  [[nodiscard]] uint64_t modem_bytes() const { return modem_bytes_; }

 private:
  using Clock = std::chrono::steady_clock;

  void look_for_modem();
  void lose_modem();
  void note_changes();
  void follow_settings();
  void from_modem();
  void from_host();
  void to_host();
  void to_modem();
  [[nodiscard]] int wait_ms() const;
  void tell(const std::string& what);

  ModemEnd& modem_;
  HostEnd& host_;
  Recorder& recorder_;
  int signal_fd_;
  std::string for_host_;  // read and not taken yet
  std::string for_modem_;
  bool attached_ = false;
  std::optional<Clock::time_point> look_again_;
  int told_error_ = 0;
  uint64_t host_bytes_ = 0;
  uint64_t modem_bytes_ = 0;
};

}  // namespace mdxtap
