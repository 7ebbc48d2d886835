// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <span>
#include <string>
#include <string_view>

#include "tools/line/at_line.h"
#include "tools/mdxsim/living_modem.h"

namespace mdxsim {

/// The number of the card in the modem, and one that calls and writes by itself.
constexpr std::string_view kOwnNumber = "+15550100";
constexpr std::string_view kOtherNumber = "+15550111";

/// Carries out one command: its information texts go to `modem.say`, its outcome is returned.
using CommandHandler = Result (*)(LivingModem& modem, const AtCommand& command);

// clang-format off
constexpr Result kOk                 {Result::Kind::kOk,        0 };
constexpr Result kError              {Result::Kind::kError,     0 };
constexpr Result kNotAllowed         {Result::Kind::kCmeError,  3 };
constexpr Result kNotSupported       {Result::Kind::kCmeError,  4 };
constexpr Result kSimNotInserted     {Result::Kind::kCmeError,  10};
constexpr Result kPinRequired        {Result::Kind::kCmeError,  11};
constexpr Result kPukRequired        {Result::Kind::kCmeError,  12};
constexpr Result kNotFound           {Result::Kind::kCmeError,  22};
constexpr Result kInvalidIndex       {Result::Kind::kCmeError,  21};
constexpr Result kIncorrectPassword  {Result::Kind::kCmeError,  16};
constexpr Result kNoNetworkService   {Result::Kind::kCmeError,  30};
constexpr Result kIncorrectParameters{Result::Kind::kCmeError,  50};
// clang-format on

struct CommandRow {
  std::string_view name;
  enum class Needs { kNothing, kSim, kSimForMessages } needs;
  CommandHandler handler;
};

/// All commands that the modem knows.
std::span<const CommandRow> command_rows();

/// The row of a command by its name in capitals; null when the modem does not know it.
const CommandRow* find_command(std::string_view name);

/// A command that is one number: "=n", "?", "=?". `read` is what stands behind the name when read.
Result number_setting(LivingModem& modem, const AtCommand& command, int& value, int highest,
                      const std::string& read);
Result number_setting(LivingModem& modem, const AtCommand& command, int& value, int highest);

/// A text that is asked for by the plain command and has nothing to test.
Result say_text(LivingModem& modem, const AtCommand& command, std::string_view text);

/// ASCII in the character set of the line, and back; what is no text of that set becomes "?".
std::string shown_text(const ModemState& state, std::string_view text);
std::string read_text(const ModemState& state, std::string_view shown);

/// A number with 145 behind it when it is international, else 129. In messages it is in the
/// character set of the line, elsewhere as it is.
std::string dialled_number(std::string_view number);
std::string shown_number(const ModemState& state, std::string_view number);

/// The modem's clock, as +CCLK shows it: 24/01/31,12:34:56+04.
std::string clock_text(const LivingModem& modem);

/// The lines that both a command and a report show, without line ends.
/// As +CSQ and ^RSSI tell it: 99 while the radio is off.
int signal_of(const ModemState& state);

/// Whether a packet data context is active.
bool has_packet_data(const ModemState& state);

std::string hcsq_line(const ModemState& state);
std::string registration_line(std::string_view name, const ModemState& state, int detail);
std::string flow_line(const ModemState& state);

/// The text of a +CME ERROR number for AT+CMEE=2.
std::string_view cme_error_text(int number);

}  // namespace mdxsim
