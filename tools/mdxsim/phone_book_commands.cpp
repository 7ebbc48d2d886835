// SPDX-License-Identifier: Apache-2.0

// The phone book on the card: 3GPP TS 27.007, 8.11 to 8.14.
#include "tools/mdxsim/phone_book_commands.h"

#include <optional>
#include <string>
#include <vector>

#include "tools/mdxsim/modem_commands.h"

namespace mdxsim {
namespace {

using Form = AtCommand::Form;

std::string range() { return "(1-" + std::to_string(PhoneBook::kCapacity) + ")"; }

bool is_index(const std::optional<int>& index) {
  return index && *index >= 1 && *index <= PhoneBook::kCapacity;
}

std::string entry_line(const LivingModem& modem, std::string_view name, int index,
                       const PhoneBookEntry& entry) {
  return std::string(name) + ": " + std::to_string(index) + "," + dialled_number(entry.number) +
         "," + quoted(shown_text(modem.state, entry.name));
}

void say_lines(LivingModem& modem, const std::string& lines) {
  if (!lines.empty()) modem.say(lines);
}

int lowest_free(const PhoneBook& book) {
  int index = 1;
  while (book.entries.contains(index)) ++index;
  return index;
}

}  // namespace

Result phone_book_storage(LivingModem& modem, const AtCommand& command) {
  if (command.form == Form::kTest) {
    modem.say("+CPBS: (\"SM\")");
    return kOk;
  }
  if (command.form == Form::kRead) {
    modem.say("+CPBS: \"SM\"," + std::to_string(modem.state.phone_book.entries.size()) + "," +
              std::to_string(PhoneBook::kCapacity));
    return kOk;
  }
  return parameter(split_parameters(command.value), 0) == "SM" ? kOk : kNotAllowed;
}

// +CPBR=<first>[,<last>]
Result read_phone_book(LivingModem& modem, const AtCommand& command) {
  if (command.form == Form::kTest) {
    modem.say("+CPBR: " + range() + "," + std::to_string(PhoneBook::kLongestNumber) + "," +
              std::to_string(PhoneBook::kLongestName));
    return kOk;
  }
  const std::vector<std::string> parameters = split_parameters(command.value);
  const std::optional<int> first = parse_number(parameter(parameters, 0));
  const std::optional<int> last = parameters.size() > 1 ? parse_number(parameters[1]) : first;
  if (command.form != Form::kSet || !is_index(first) || !is_index(last)) return kInvalidIndex;
  std::string lines;
  for (const auto& [index, entry] : modem.state.phone_book.entries) {
    if (index < *first || index > *last) continue;
    lines += (lines.empty() ? "" : "\r\n") + entry_line(modem, "+CPBR", index, entry);
  }
  say_lines(modem, lines);
  return kOk;
}

// +CPBF=<beginning of the name>
Result find_in_phone_book(LivingModem& modem, const AtCommand& command) {
  if (command.form == Form::kTest) {
    modem.say("+CPBF: " + std::to_string(PhoneBook::kLongestNumber) + "," +
              std::to_string(PhoneBook::kLongestName));
    return kOk;
  }
  if (command.form != Form::kSet) return kNotAllowed;
  const std::string wanted = read_text(modem.state, parameter(split_parameters(command.value), 0));
  std::string lines;
  for (const auto& [index, entry] : modem.state.phone_book.entries) {
    if (!entry.name.starts_with(wanted)) continue;
    lines += (lines.empty() ? "" : "\r\n") + entry_line(modem, "+CPBF", index, entry);
  }
  if (lines.empty()) return kNotFound;
  modem.say(lines);
  return kOk;
}

// +CPBW=[<index>][,<number>[,<type>[,<name>]]]: an index alone removes it.
Result write_phone_book(LivingModem& modem, const AtCommand& command) {
  if (command.form == Form::kTest) {
    modem.say("+CPBW: " + range() + "," + std::to_string(PhoneBook::kLongestNumber) +
              ",(129,145)," + std::to_string(PhoneBook::kLongestName));
    return kOk;
  }
  PhoneBook& book = modem.state.phone_book;
  const std::vector<std::string> parameters = split_parameters(command.value);
  const std::string place = parameter(parameters, 0);
  const std::optional<int> index = place.empty() ? lowest_free(book) : parse_number(place);
  if (command.form != Form::kSet || !is_index(index)) return kInvalidIndex;
  if (parameters.size() == 1) {
    book.entries.erase(*index);
    return kOk;
  }
  std::string number = parameter(parameters, 1);
  const std::string name = read_text(modem.state, parameter(parameters, 3));
  const bool international = parameter(parameters, 2) == "145" && !number.starts_with('+');
  if (international) number.insert(0, 1, '+');
  const bool wrong =
      number.find_first_not_of("0123456789*#", number.starts_with('+') ? 1 : 0) != number.npos;
  if (wrong || number.empty() || number.size() > PhoneBook::kLongestNumber ||
      name.size() > PhoneBook::kLongestName) {
    return kIncorrectParameters;
  }
  book.entries[*index] = {number, name};
  return kOk;
}

Result own_number(LivingModem& modem, const AtCommand& command) {
  return say_text(modem, command, "+CNUM: \"\"," + dialled_number(kOwnNumber));
}

}  // namespace mdxsim
