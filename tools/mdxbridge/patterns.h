// SPDX-License-Identifier: Apache-2.0

// What may be asked from outside is a list of patterns. A command line can hold several commands,
// so a star must not reach from one into the next: AT+CSQ* does not allow AT+CSQ;+CFUN=0.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace mdxbridge {

/// Whether a pattern allows the command, in either case, with or without blanks. A star stands for
/// any characters but a semicolon and, outside quotation marks, what another command begins with:
/// + ^ $ % & # and the backslash, and behind a basic command a letter: ATE* does not allow ATE0Z.
bool allows_command(const std::vector<std::string>& patterns, std::string_view command);

/// Whether a pattern allows the number. A star stands for any characters.
bool allows_number(const std::vector<std::string>& patterns, std::string_view number);

/// What is wrong with a pattern; empty when nothing is.
std::string command_pattern_mistake(std::string_view pattern);
std::string number_pattern_mistake(std::string_view pattern);

}  // namespace mdxbridge
