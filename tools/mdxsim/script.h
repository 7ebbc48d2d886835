// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <istream>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "tools/mdxsim/modem.h"

namespace mdxsim {

/// What a script has its modem do.
struct Action {
  enum class Kind { kText, kPrompt, kNothing, kLiving, kHangUp };
  Kind kind = Kind::kText;
  std::string text;  ///< of kText, as written; `spoken` makes bytes of it
  Time duration{0};  ///< of kHangUp
};

/// What comes besides an answer, so long behind the command.
struct Addition {
  Time after;
  std::string text;
};

/// What is heard is a command line without its CR, "pdu " and a message's body, or "open".
struct Rule {
  std::string pattern;  ///< as `matches` takes it, as below
  int left;             ///< times that it may still apply, -1 for ever
  Time after;
  std::optional<bool> echo;  ///< what the echo is behind it; as it was when not set
  Action answer;
  int line;  ///< in the file, from 1, as below
  std::vector<Addition> additions;
};

struct Expectation {
  std::string pattern;
  int count;  ///< at least so often; 0: never
  std::optional<Time> within;
  int line;
  int came = 0;

  [[nodiscard]] bool met() const { return came >= count; }
};

struct Event {
  Time due;
  Time interval;  ///< to the next time, 0 when it happens once
  Action action;
};

/// All times count from the first opening of the device.
struct Script {
  std::string name;  ///< stands in front of line numbers
  std::vector<Rule> rules;
  Action otherwise{Action::Kind::kLiving, {}, Time{0}};  ///< for commands that no rule knows
  bool has_else = false;
  std::vector<Expectation> expectations;
  std::vector<Event> events;
  bool echo = true;
  Time delay{0};
  std::string cut;  ///< "byte" or "random"; empty when the script does not say
  unsigned drop_percent = 0;
  unsigned garbage_percent = 0;
  bool end_when_expected = false;
  std::optional<Time> end_after;
};

/// Reads a script as docs/mdxsim-scripts.md describes it. Throws std::invalid_argument, whose
/// `what()` begins with "name:line: " and says what is allowed there.
Script parse_script(std::istream& text, std::string name);

/// The pattern that a script writes: \* and \\ are the characters, \xHH, \r, \n as in a session.
/// Throws std::invalid_argument.
std::string pattern_of(std::string_view written);

/// The reverse.
std::string written_pattern(std::string_view pattern);

/// True when `pattern` covers all of `text`: "*" stands for anything, letters match in either case,
/// kStar is a star that stands for itself.
constexpr char kStar = '\x01';
bool matches(std::string_view pattern, std::string_view text);

/// The bytes of a text: lines between "|" with CR LF on both sides, or just what follows "raw ";
/// {10..30} is a number drawn from that range. Throws std::invalid_argument on a bad range or
/// escape, which texts of a script that was read do not have.
std::string spoken(std::string_view text, std::mt19937& random);

}  // namespace mdxsim
