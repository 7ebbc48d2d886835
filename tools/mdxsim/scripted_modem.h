// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <random>
#include <string>
#include <string_view>

#include "tools/mdxsim/living_modem.h"
#include "tools/mdxsim/modem.h"
#include "tools/mdxsim/outbox.h"
#include "tools/mdxsim/script.h"

namespace mdxsim {

/// A modem that does as a script says, with a living one behind it for what the script leaves open.
///
/// Rules are tried from the top, and the first that applies is used. Answers come each at its own
/// time, a late one does not hold up the next. Reports that nobody hears are lost. What the host
/// does not take is bounded as with the living modem. After a hang-up the living modem is as new;
/// how often rules applied and expectations came stays.
class ScriptedModem final : public Modem {
 public:
  /// Delay and reports are those of the script, not of `options`; `seed` is for what it draws, too.
  ScriptedModem(Script script, LivingOptions options);

  void attached(Time now) override;
  void detached(Time now) override;
  void receive(std::string_view bytes, Time now) override;
  void advance(Time now) override;
  std::string transmit(Time now) override;
  [[nodiscard]] std::optional<Time> next_due() const override;
  [[nodiscard]] bool accepts_input() const override;
  [[nodiscard]] bool plugged() const override { return !back_at_; }
  [[nodiscard]] std::optional<Ending> ending() const override { return ending_; }
  [[nodiscard]] std::vector<Finding> findings() const override;
  [[nodiscard]] std::optional<std::string> unfinished() const override;

 private:
  void power_on();
  void take_command_byte(char c);
  void take_message_byte(char c);
  void run_line(const std::string& line);
  const Rule* hear(const std::string& text);
  void answer(const Rule& rule, const std::string& echo);
  void answer(const Action& action, Time after, const std::string& echo);
  void happen(const Action& action);
  void judge();
  [[nodiscard]] bool quiet() const;
  [[nodiscard]] bool happens_with(unsigned percent);
  [[nodiscard]] std::string noise();
  [[nodiscard]] const Expectation* missing() const;
  [[nodiscard]] std::string complaint(const Expectation& expected) const;

  Script script_;
  LivingOptions living_options_;
  LivingModem living_;
  std::mt19937 random_;
  Time now_{0};
  std::optional<Time> opened_;   // for the first time
  std::optional<Time> back_at_;  // set while hung up
  bool attached_ = false;
  Outbox outbox_;
  std::string line_;
  bool prompted_ = false;  // a rule's prompt waits for a message
  std::string heard_;      // last
  std::optional<Ending> ending_;
};

}  // namespace mdxsim
