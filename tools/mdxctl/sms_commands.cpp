// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxctl/sms_commands.h"

#include <algorithm>
#include <string_view>

#include "tools/mdxctl/subcommand.h"

namespace {

constexpr char kAnswerTime[] = "how long the modem may take for each answer (10)";

/// What is wrong with it, "" when nothing is.
std::string message_number_mistake(const std::string& number) {
  constexpr size_t kMostDigits = 9;
  const bool good = !number.empty() && number.size() <= kMostDigits &&
                    number.find_first_not_of("0123456789") == std::string::npos;
  return good ? "" : "'" + number + "' is no message's number: mdxctl sms list shows them";
}

void add_send(CLI::App& sms, sms_send_arguments_t& arguments, int& code) {
  CLI::App* send =
      add_command(sms, "send",
                  "Send a text message: in the GSM 7-bit alphabet, or UCS-2 where the text needs "
                  "it, and in parts when it is long.",
                  [&] { code = run_sms_send(arguments); });
  send->add_option("number", arguments.number, "such as +4915112345678 or '+49 151 12345678'")
      ->required();
  CLI::Option* text = send->add_option("text", arguments.text,
                                       "the message, in UTF-8; - reads it from standard input");
  with_name(send->add_option("--file", arguments.file, "a file to read the message from"))
      ->type_name("FILE")
      ->excludes(text);
  send->add_flag("--flash", arguments.flash, "shown at once, and not kept");
  CLI::Option* report =
      send->add_flag("--report", arguments.report,
                     "wait until the network tells that it was delivered, or that it will not be");
  add_timeout(send, arguments.report_wait_s, "how long to wait for that (300)", "--report-wait");
  send->get_option("--report-wait")->needs(report);
  add_timeout(send, arguments.timeout_s,
              "how long each part may take for the prompt, and again to be sent (60)");
  send->add_flag("--dry-run", arguments.dry_run,
                 "show each part's command line and PDU, send nothing")
      ->excludes(report);
  send->add_flag("--json", arguments.json,
                 "one object: number, alphabet, parts, reports, error, error_number");
}

void add_list(CLI::App& sms, sms_list_arguments_t& arguments, int& code) {
  CLI::App* list = add_command(sms, "list",
                               "Show the received messages that the modem keeps, parts joined.\n"
                               "The modem marks what is shown as read.",
                               [&] { code = run_sms_list(arguments); });
  CLI::Option* unread = list->add_flag("--unread", arguments.unread, "only those not yet read");
  CLI::Option* sent =
      list->add_flag("--sent", arguments.sent, "those that were stored and sent")->excludes(unread);
  list->add_flag("--all", arguments.all, "received, stored, sent")
      ->excludes(unread)
      ->excludes(sent);
  add_timeout(list, arguments.timeout_s, kAnswerTime);
  list->add_flag("--json", arguments.json, "one object: memory, messages, errors");
}

void add_read(CLI::App& sms, sms_read_arguments_t& arguments, int& code) {
  CLI::App* read = add_command(sms, "read", "Show messages by their numbers.",
                               [&] { code = run_sms_read(arguments); });
  read->add_option("numbers", arguments.numbers, "as sms list shows them")
      ->required()
      ->check(message_number_mistake);
  add_timeout(read, arguments.timeout_s, kAnswerTime);
  read->add_flag("--json", arguments.json, "one object: memory, messages, errors");
}

void add_delete(CLI::App& sms, sms_delete_arguments_t& arguments, int& code) {
  CLI::App* remove =
      add_command(sms, "delete", "Delete messages from the modem's memory; on a terminal it asks.",
                  [&] { code = run_sms_delete(arguments); });
  CLI::Option* numbers = remove->add_option("numbers", arguments.numbers, "as sms list shows them")
                             ->check(message_number_mistake);
  CLI::Option* read =
      remove->add_flag("--read", arguments.read, "all that were read")->excludes(numbers);
  remove->add_flag("--all", arguments.all, "all of them, unread and unsent ones too")
      ->excludes(numbers)
      ->excludes(read);
  remove->add_flag("--yes", arguments.yes, "do not ask");
  add_timeout(remove, arguments.timeout_s, kAnswerTime);
  remove->add_flag("--json", arguments.json, "one object: memory, deleted, errors");
}

void add_watch(CLI::App& sms, sms_watch_arguments_t& arguments, int& code) {
  CLI::App* watch = add_command(
      sms, "watch",
      "Show each new message as it comes, parts joined, until Ctrl-C.\nA modem that tells of no "
      "messages is told to with AT+CNMI, and that is said.",
      [&] { code = run_sms_watch(arguments); });
  watch->add_flag("--delete", arguments.remove, "delete each from the modem once it was shown");
  watch->add_option("--count", arguments.count, "end after so many messages")
      ->check(CLI::Range(1u, 1000000000u))
      ->type_name("N");
  add_timeout(watch, arguments.timeout_s, kAnswerTime);
  watch->add_flag("--json", arguments.json, "one object a line, as those of sms list");
}

/// Whether an argument of `sms send` is a text rather than an option: "-hello", but not "-h", "-"
/// and "--hello", which may be a mistyped option.
bool is_text_with_hyphen(std::string_view argument) {
  return argument.size() > 1 && argument[0] == '-' && argument[1] != '-' && argument != "-h";
}

}  // namespace

void add_sms(CLI::App& app, sms_arguments_t& arguments, int& code) {
  CLI::App* sms = app.add_subcommand("sms", "Text messages: sms send, list, read, delete, watch.");
  sms->require_subcommand(1);
  sms->footer(kExitCodeHelp);
  add_send(*sms, arguments.send, code);
  add_list(*sms, arguments.list, code);
  add_read(*sms, arguments.read, code);
  add_delete(*sms, arguments.remove, code);
  add_watch(*sms, arguments.watch, code);
}

std::vector<std::string> with_text_behind_options(int argc, char** argv) {
  std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
  const bool sends = arguments.size() > 3 && arguments[0] == "sms" && arguments[1] == "send";
  if (!sends || std::find(arguments.begin(), arguments.end(), "--") != arguments.end()) {
    return arguments;
  }
  const auto text = std::find_if(arguments.begin() + 3, arguments.end(), is_text_with_hyphen);
  if (std::count_if(text, arguments.end(), is_text_with_hyphen) != 1) return arguments;
  std::rotate(text, text + 1, arguments.end());
  arguments.insert(arguments.end() - 1, "--");
  return arguments;
}
