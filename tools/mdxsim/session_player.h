// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tools/line/session_file.h"
#include "tools/mdxsim/modem.h"

namespace mdxsim {

struct ReplayOptions {
  Time gap{50};         ///< silence between two reads that follow each other
  Time patience{0};     ///< how long the host may keep the session waiting, 0 for ever
  bool prelude = true;  ///< answer the host's set-up command in front of the session
};

/// Plays a session strictly: each byte of the host must be the one that the session has next.
///
/// Two things are not in the file, and are allowed: the set-up command AT+CMEE=1 in front of it,
/// which gets OK (unless the session itself begins with that, or `prelude` is off), and one CR
/// behind a Ctrl-Z, which a host may use to end whatever it writes. A session that begins with the
/// modem waits for that set-up command, or without prelude for the device to be opened.
class SessionPlayer final : public Modem {
 public:
  SessionPlayer(Session session, ReplayOptions options);

  void attached(Time now) override;
  void detached(Time now) override;
  void receive(std::string_view bytes, Time now) override;
  void advance(Time now) override;
  std::string transmit(Time now) override;
  [[nodiscard]] std::optional<Time> next_due() const override;
  [[nodiscard]] bool accepts_input() const override;
  [[nodiscard]] std::optional<Ending> ending() const override;
  [[nodiscard]] std::optional<std::string> unfinished() const override;

 private:
  [[nodiscard]] const SessionStep* step() const;
  [[nodiscard]] bool modem_speaks_next() const;
  void compare(Time now);
  bool compare_next(Time now);
  bool take_prelude(Time now);
  bool take_host_line(Time now);
  void await(Time now);
  void fail(const std::string& problem);
  void fail_at_difference(std::string_view expected);

  Session session_;
  ReplayOptions options_;
  size_t cursor_ = 0;
  std::string input_;           // of the host, not compared yet
  std::string prelude_answer_;  // to be transmitted
  bool waits_for_prelude_;
  bool waits_for_opening_;
  bool skip_cr_ = false;
  Time due_{0};                   // of the read at the cursor
  std::optional<Time> deadline_;  // of what the host is to do next
  std::optional<Ending> ending_;
};

}  // namespace mdxsim
