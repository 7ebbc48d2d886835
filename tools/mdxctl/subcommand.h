// SPDX-License-Identifier: Apache-2.0

// What the subcommands' options have in common.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "tools/mdxctl/exit_codes.h"

/// Twice this, in milliseconds, is still a 32-bit count.
inline constexpr int32_t kLongestTimeoutS = 1000000;

inline CLI::App* add_command(CLI::App& app, const std::string& name, const std::string& purpose,
                             std::function<void()> run) {
  CLI::App* command = app.add_subcommand(name, purpose);
  command->footer(kExitCodeHelp);
  command->callback(std::move(run));
  return command;
}

/// A file or program that is named, and be it -; without a name nothing could be done with it.
inline CLI::Option* with_name(CLI::Option* option) {
  return option->check(
      [](const std::string& name) { return name.empty() ? "the name is empty" : std::string(); });
}

inline void add_timeout(CLI::App* command, std::optional<int32_t>& timeout, const std::string& help,
                        const std::string& name = "--timeout") {
  command->add_option(name, timeout, help)
      ->check(CLI::Range(0, kLongestTimeoutS))
      ->type_name("SECONDS");
}

/// How long a command may wait for its turn.
inline void add_wait(CLI::App* command, std::optional<int32_t>& wait) {
  command
      ->add_option("--wait", wait,
                   "how long the command may wait for its turn, while the modem works for others "
                   "(its time-out and 1 s)")
      ->check(CLI::Range(1, kLongestTimeoutS))
      ->type_name("SECONDS");
}
