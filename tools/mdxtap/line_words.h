// SPDX-License-Identifier: Apache-2.0

// What the words of a line are: names, commands, results, and what modems say without either.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace mdxtap {

struct Name {
  size_t begin = 0;
  size_t end = 0;  ///< of the colon
};

bool is_blank(char c);
bool is_letter(char c);
bool is_digit(char c);
char capital(char c);
bool all_of(std::string_view text, std::string_view set);
std::string_view trimmed(std::string_view text);
bool holds_binary(std::string_view line);

/// Where the AT of a command line stands, behind a little noise at most; npos: nowhere.
size_t find_at(std::string_view line);
bool begins_with_at(std::string_view line);
/// Where a command ends: at a ";" outside quotes.
size_t end_of_command(std::string_view line, size_t from);
/// The name of a report or answer, at the front or anywhere; an empty one when there is none.
Name find_name(std::string_view line, bool anywhere);
/// In capitals, without blanks.
std::string name_at(std::string_view line, size_t begin, size_t end);
/// Two digits at most, and no word.
bool is_harmless(std::string_view parameters);
/// A text of +CME ERROR and +CMS ERROR.
bool is_detail(std::string_view text);
bool is_connect(std::string_view line);
/// What modems say without a name in front and without a command.
bool is_plain_report(std::string_view line);
/// A command whose answers may have no name, and tell what the modem is.
bool asks_for_model(std::string_view name);
/// Whether a command line, in capitals, asks who the modem or its SIM is.
bool asks_for_identity(std::string_view line);
/// The length of what may be shown of a line that is not whole: a name without a value.
size_t shown_front(std::string_view line);

}  // namespace mdxtap
