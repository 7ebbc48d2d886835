// SPDX-License-Identifier: Apache-2.0

// mdxctl sim: the card's state, who it is, and how to unlock it.
//
// A wrong PIN costs a try, and behind the last one the card wants its PUK. So the PIN never stands
// on a command line, where others read it, and the last try is not used by mistake.

#include <termios.h>
#include <unistd.h>

#include <fstream>
#include <iostream>

#include "tools/mdxctl/commands.h"
#include "tools/mdxctl/modem_query.h"
#include "tools/mdxctl/output.h"
#include "tools/mdxctl/typed_line.h"

using nlohmann::ordered_json;

namespace {

constexpr char kReady[] = "READY";

/// Makers have names of their own for it. @return the number of the card, "" where none is told
std::string ask_card(const modem_query_t& modem) {
  for (const std::string name : {"+CCID", "+ICCID", "^ICCID"}) {
    const reply_t reply = modem.ask("AT" + name + (name[0] == '^' ? "?" : ""));
    if (!reply.ok()) continue;
    std::string number = text_in(answer_fields(reply.text, name + ':'), 0);
    if (!number.empty()) return number;
    const std::vector<std::string> lines = answer_lines(reply.text, "89");
    if (!lines.empty()) return "89" + lines.front();
  }
  return "";
}

/// A count cannot be below 0. @return nothing when it is, or is not told
std::optional<int> tries_in(const std::vector<std::string>& fields, size_t at) {
  const std::optional<int> number = number_in(fields, at);
  return number && *number >= 0 ? number : std::nullopt;
}

struct tries_t {
  std::optional<int> pin;
  std::optional<int> puk;
};

tries_t ask_tries(const modem_query_t& modem) {
  tries_t tries;
  if (const reply_t reply = modem.ask("AT+CPINR"); reply.ok()) {
    for (const std::string& line : answer_lines(reply.text, "+CPINR:")) {
      const std::vector<std::string> fields = fields_of(line);
      if (text_in(fields, 0) == "SIM PIN") tries.pin = tries_in(fields, 1);
      if (text_in(fields, 0) == "SIM PUK") tries.puk = tries_in(fields, 1);
    }
  }
  if (tries.pin) return tries;
  if (const reply_t reply = modem.ask("AT^CPIN?"); reply.ok()) {  // state, which, PUK, PIN, ...
    const std::vector<std::string> fields = answer_fields(reply.text, "^CPIN:");
    tries.puk = tries_in(fields, 2);
    tries.pin = tries_in(fields, 3);
  }
  return tries;
}

/// @return such as "READY" or "SIM PIN"; "" with the reply's error set where the modem does not say
std::string ask_state(const modem_query_t& modem, reply_t* reply) {
  *reply = modem.ask("AT+CPIN?");
  return text_in(answer_fields(reply->text, "+CPIN:"), 0);
}

std::vector<std::string> ask_numbers(const modem_query_t& modem) {
  std::vector<std::string> numbers;
  const reply_t reply = modem.ask("AT+CNUM");
  for (const std::string& line : answer_lines(reply.text, "+CNUM:")) {
    const std::string number = text_in(fields_of(line), 1);
    if (!number.empty()) numbers.push_back(number);
  }
  return numbers;
}

std::string joined(const std::vector<std::string>& texts) {
  std::string all;
  for (const std::string& text : texts) all += (all.empty() ? "" : ", ") + text;
  return all;
}

std::string state_text(const std::string& state) {
  if (state == "SIM PIN") return "asks for its PIN: mdxctl sim unlock";
  if (state == "SIM PUK") return "asks for its PUK: the PIN was wrong too often";
  return state == kReady ? "ready" : state;
}

// Unlocking

/// Typed without being shown. Whatever ends that, the terminal shows again what is typed.
std::string pin_from_terminal() {
  const int stop_fd = signals_to_poll({SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP});
  std::cerr << "PIN: " << std::flush;
  termios before{};
  tcgetattr(STDIN_FILENO, &before);
  termios silent = before;
  silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
  std::string pin;
  const int signal = read_typed_line(stop_fd, &pin);
  tcsetattr(STDIN_FILENO, TCSAFLUSH, &before);
  std::cerr << std::endl;
  if (signal != 0) end_by_signal(signal);
  return pin;
}

/// @return false, with the reason told, when there is none
bool read_pin(const std::string& file, std::string* pin, std::string* error) {
  if (file.empty() && isatty(STDIN_FILENO) == 0) {
    *error = "the PIN is read from a terminal, or from --pin-file FILE";
    return false;
  }
  if (file.empty()) {
    *pin = pin_from_terminal();
  } else if (file == "-") {
    std::getline(std::cin, *pin);
  } else {
    std::ifstream stream(file);
    if (!std::getline(stream, *pin)) {
      *error = file + " cannot be read, or holds nothing";
      return false;
    }
  }
  while (!pin->empty() && (pin->back() == '\r' || pin->back() == ' ')) pin->pop_back();
  const bool digits = pin->find_first_not_of("0123456789") == std::string::npos;
  if (!digits || pin->size() < 4 || pin->size() > 8) *error = "a PIN has 4 to 8 digits";
  return error->empty();
}

/// Why the try is better not made, "" when it may.
std::string danger(const tries_t& tries) {
  if (!tries.pin) {
    return "the modem does not tell how many tries are left, and this could be the last; "
           "--last-try makes it";
  }
  if (*tries.pin > 1) return "";
  return "one try is left, behind which the card asks for its PUK; --last-try makes it";
}

}  // namespace

int run_sim(const sim_arguments_t& arguments) {
  const modem_query_t modem(arguments.timeout_s.value_or(kQuestionTimeoutS));
  reply_t reply;
  const std::string state = ask_state(modem, &reply);
  if (!reply.ok() && reply.code != EXIT_MODEM_ERROR)
    return fail_with(reply.code, reply.error, arguments.json);
  const std::string shown = reply.ok() ? state : "none, or it cannot be used: " + reply.error;
  const std::string card = ask_card(modem);
  const reply_t subscriber = modem.ask("AT+CIMI");
  const std::vector<std::string> subscribers = answer_lines(subscriber.text, "");
  const std::string imsi = subscribers.empty() ? "" : subscribers.front();
  const std::vector<std::string> numbers = ask_numbers(modem);
  const tries_t tries = ask_tries(modem);
  if (arguments.json) {
    ordered_json object = {{"state", or_null(state)},
                           {"iccid", or_null(card)},
                           {"imsi", or_null(imsi)},
                           {"numbers", numbers},
                           {"pin_tries_left", or_null(tries.pin)},
                           {"puk_tries_left", or_null(tries.puk)}};
    if (!reply.ok()) object["error"] = reply.error;
    print_json(object);
  } else {
    print_line("state", reply.ok() ? state_text(state) : shown);
    print_line("ICCID", card);
    print_line("IMSI", imsi);
    print_line("numbers", joined(numbers));
    print_line("PIN tries", tries.pin ? std::to_string(*tries.pin) : "");
    print_line("PUK tries", tries.puk ? std::to_string(*tries.puk) : "");
  }
  return reply.code;
}

int run_sim_unlock(const sim_unlock_arguments_t& arguments) {
  const modem_query_t modem(arguments.timeout_s.value_or(kQuestionTimeoutS));
  reply_t reply;
  const std::string state = ask_state(modem, &reply);
  if (!reply.ok()) return fail_with(reply.code, reply.error, arguments.json);
  if (state == kReady) {
    if (arguments.json) print_json({{"state", state}});
    tell("the card is unlocked already");
    return EXIT_OK;
  }
  if (state != "SIM PIN") {
    return fail_with(EXIT_MODEM_ERROR, "the modem asks for " + state + ", not for the PIN",
                     arguments.json);
  }
  const tries_t tries = ask_tries(modem);
  const std::string reason = arguments.last_try ? "" : danger(tries);
  if (!reason.empty()) return fail_with(EXIT_USAGE, reason, arguments.json);
  std::string pin;
  std::string error;
  if (!read_pin(arguments.pin_file, &pin, &error))
    return fail_with(EXIT_USAGE, error, arguments.json);
  const reply_t unlocked = modem.ask("AT+CPIN=\"" + pin + '"');
  if (unlocked.ok()) {
    if (arguments.json) print_json({{"state", kReady}});
    tell("unlocked");
    return EXIT_OK;
  }
  const tries_t left = ask_tries(modem);
  const std::string count =
      left.pin ? "; tries left: " + std::to_string(*left.pin) : "; see: mdxctl sim";
  return fail_with(unlocked.code, "not unlocked: " + unlocked.error + count, arguments.json);
}
