// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace mdxline {

/// One command of a line. Names are in capitals: "E", "&F", "D", "+CSQ", "^SYSINFO".
struct AtCommand {
  enum class Form { kExecute, kRead, kTest, kSet };

  std::string name;
  Form form = Form::kExecute;
  std::string value;  ///< behind the "=" or, of a basic command, behind its name
};

/// Cuts a command line without its CR into commands by the rules of V.250: "AT" in front, basic
/// commands back to back, extended ones apart by ";" outside quotes, blanks outside quotes of no
/// account. nullopt when it is no command line, which a modem passes over in silence. A command of
/// unheard-of shape comes out with an empty name.
std::optional<std::vector<AtCommand>> split_command_line(std::string_view line);

/// The parameters of a value, cut at commas outside quotes, without the quotes.
std::vector<std::string> split_parameters(std::string_view value);

/// The parameter at `index`, empty where there are fewer.
std::string parameter(const std::vector<std::string>& parameters, size_t index);

/// The text in quotes.
std::string quoted(std::string_view text);

/// A whole decimal number from 0 to 99999999; nullopt for anything else.
std::optional<int> parse_number(std::string_view digits);

}  // namespace mdxline
