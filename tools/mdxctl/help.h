// SPDX-License-Identifier: Apache-2.0

// --help that fits a terminal of 80 columns.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

class help_formatter_t : public CLI::Formatter {
 public:
  std::string make_help(const CLI::App* app, std::string name,
                        CLI::AppFormatMode mode) const override;
  /// In a list of commands the first line of each one's description is enough.
  std::string make_subcommand(const CLI::App* command) const override;
};
