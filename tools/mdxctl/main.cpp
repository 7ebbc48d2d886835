// SPDX-License-Identifier: Apache-2.0

// mdxctl: the server's clients on the command line.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tools/mdxctl/commands.h"
#include "tools/mdxctl/exit_codes.h"
#include "tools/mdxctl/help.h"
#include "tools/mdxctl/modem_verbs.h"
#include "tools/mdxctl/output.h"
#include "tools/mdxctl/packet_names.h"
#include "tools/mdxctl/sms_commands.h"
#include "tools/mdxctl/subcommand.h"
#include "tools/words/state_words.h"

namespace {

struct arguments_t {
  at_arguments_t at;
  sms_pdu_arguments_t sms_pdu;
  sms_arguments_t sms;
  report_arguments_t report;
  console_arguments_t console;
  stats_arguments_t stats;
  state_arguments_t state;
  status_arguments_t status;
  watch_arguments_t watch;
  modem_verbs_t modem;
};

void add_json(CLI::App* command, bool& json) {
  command->add_flag("--json", json,
                    "one object: command, result (name, number), text, truncated, seconds");
}

void add_at(CLI::App& app, at_arguments_t& arguments, int& code) {
  CLI::App* at = add_command(app, "at",
                             "Send an AT command; the text goes to standard output, the result to "
                             "standard error.\nWithout --match, --multi-line and --transparent "
                             "every line of the answer is shown.",
                             [&] { code = run_at(arguments); });
  at->add_option("command", arguments.command,
                 "the command, such as AT+CSQ; - reads commands from standard input, one a line, "
                 "and exits with the first code that is not 0")
      ->required();
  add_timeout(at, arguments.timeout_s,
              "how long the modem may take (10; a network search, AT+COPS=?, 240)");
  add_wait(at, arguments.wait_s);
  at->add_option("--match", arguments.match, "a line that holds this is response text")
      ->check([](const std::string& match) {
        return match.size() > MDX_MATCH_MAX ? "at most 63 bytes" : std::string();
      })
      ->type_name("TEXT");
  CLI::Option* multi_line =
      at->add_flag("--multi-line", arguments.multi_line,
                   "line ends behind lines that match, and no text unless the result is OK");
  at->add_flag("--transparent", arguments.transparent,
               "all lines as they come, the result line included")
      ->excludes(multi_line);
  at->add_flag("--yes", arguments.yes,
               "also ATV0 and ATQ1, behind which nobody gets an answer any more");
  add_json(at, arguments.json);
}

void add_sms_pdu(CLI::App& app, sms_pdu_arguments_t& arguments, int& code) {
  CLI::App* sms_pdu =
      add_command(app, "sms-pdu", "Send or store a message: command line, then PDU.",
                  [&] { code = run_sms_pdu(arguments); });
  sms_pdu->add_option("head", arguments.head, "the command line, such as AT+CMGS=22")->required();
  sms_pdu->add_option("pdu", arguments.pdu, "the PDU in hexadecimal digits")->required();
  add_timeout(sms_pdu, arguments.timeout_s,
              "how long the modem may take for the prompt, and again for its answer (10)");
  add_wait(sms_pdu, arguments.wait_s);
  sms_pdu
      ->add_option("--match", arguments.match,
                   "a line that holds this is response text (the head's own prefix)")
      ->type_name("TEXT");
  add_json(sms_pdu, arguments.json);
}

void add_report(CLI::App& app, report_arguments_t& arguments, int& code) {
  CLI::App* report = add_command(
      app, "report", "Show a report that the server has stored; the modem is not asked.",
      [&] { code = run_report(arguments); });
  report->add_option("name", arguments.name, "rssi: the latest ^RSSI report")
      ->required()
      ->check(CLI::IsMember({"rssi"}));
  add_json(report, arguments.json);
}

void add_console(CLI::App& app, console_arguments_t& arguments, int& code) {
  CLI::App* console = add_command(app, "console", "Run a command of the server's debug console.",
                                  [&] { code = run_console(arguments); });
  console->add_option("module", arguments.module, "the console's module, such as display")
      ->required();
  console->add_option("command", arguments.words, "its command and values, such as dialog")
      ->required();
}

#ifdef MDXCTL_TERMINAL
void add_terminal(CLI::App& app, int& code) {
  add_command(app, "shell",
              "A prompt for AT commands, with history and completion; what the device is told is "
              "shown as it comes.\nLines with a PIN or password are not kept.",
              [&] { code = run_shell(); });
  add_command(app, "top",
              "Show the server at work on the whole screen, anew each second: state, modem, "
              "commands and their latency, queues, signal, the last report of each kind, receivers "
              "and what "
              "they lost.\nq or Ctrl-C ends it.",
              [&] { code = run_top(); });
}
#else
void add_terminal(CLI::App&, int&) {}
#endif

void add_state(CLI::App& app, state_arguments_t& arguments, int& code) {
  CLI::App* state = add_command(
      app, "state",
      "Show what the modem told last of each kind of state, and how long ago; the modem is not "
      "asked.\nWhat is personal (messages, USSD, numbers, calls) is not remembered.",
      [&] { code = run_state(arguments); });
  state
      ->add_option("name", arguments.name,
                   "only what the word stands for, or one packet by its name, see below")
      ->check([](const std::string& name) {
        if (is_state_name(name)) return std::string();
        return "there is no state '" + name + "'; there are " + state_words(", ") +
               ", and the packets behind them";
      })
      ->type_name("TEXT:{" + state_words(",") + "}");
  state->add_flag("--json", arguments.json,
                  "one object: modem (up, age_s), states by their packets' names, each with state, "
                  "current, age_s, fields");
  state->footer("States:\n" + states_help() + "\n\n" + kExitCodeHelp);
}

void add_stats(CLI::App& app, stats_arguments_t& arguments, int& code) {
  CLI::App* stats =
      add_command(app, "stats", "Show what passed through the server and what it dropped.",
                  [&] { code = run_stats(arguments); });
  CLI::Option* json = stats->add_flag("--json", arguments.json,
                                      "one object: version, values by their names, receivers");
  CLI::Option* prometheus =
      stats
          ->add_flag("--prometheus", arguments.prometheus,
                     "the text exposition format; with what the modem told last of its state")
          ->excludes(json);
  with_name(stats->add_option("--output", arguments.output,
                              "write to FILE, which is replaced in one step, for a collector of "
                              "text files"))
      ->needs(prometheus)
      ->type_name("FILE");
}

void add_status(CLI::App& app, status_arguments_t& arguments, int& code) {
  CLI::App* status = add_command(
      app, "status",
      "Show whether server and modem are there, how long the queues are, and the "
      "versions.\nThe modem is asked AT and has 2 seconds; the exit code tells how that "
      "ended.",
      [&] { code = run_status(arguments); });
  status->add_flag("--json", arguments.json,
                   "one object: server, modem, queues, versions; null for what is not known");
}

void add_watch(CLI::App& app, watch_arguments_t& arguments, int& code) {
  CLI::App* watch = add_command(
      app, "watch", "Show what the device is told: notifications, service messages, call reports.",
      [&] { code = run_watch(arguments); });
  CLI::Option* service =
      watch->add_option("--service", arguments.service, "only messages to this service")
          ->check([](const std::string& name) {
            return name.empty() || name.size() > 11 ? "1 to 11 bytes" : std::string();
          })
          ->type_name("NAME");
  watch->add_option("--module", arguments.module, "only notifications of this module")
      ->excludes(service)
      ->type_name("NUMBER");
  watch->add_option("--count", arguments.count, "end after so many packets")
      ->check(CLI::Range(uint32_t{1}, UINT32_MAX))
      ->type_name("N");
  watch
      ->add_option("--only", arguments.only,
                   "only packets of this name, such as EVT_AT_SMS_NEW, or for this word, such as "
                   "signal; again for more")
      ->check([](const std::string& name) {
        return is_packet_name(name) ? std::string()
                                    : "there is no '" + name + "'; there are " + packet_names(", ");
      })
      ->expected(1)
      ->allow_extra_args(false)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->type_name("NAME");
  with_name(watch->add_option("--exec", arguments.program,
                              "run PROGRAM for each packet, one after the other: its JSON on "
                              "standard input, its name in MDX_REPORT; no shell is involved"))
      ->type_name("PROGRAM");
  watch->add_flag("--last", arguments.last,
                  "first what was told last of each kind of state, each with its age");
  watch->add_flag("--follow", arguments.follow,
                  "wait for a server that is not, or no longer, there");
  watch->add_flag("--json", arguments.json, "one object a line, every field by its name");
}

std::string too_many(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "'" : ", '") + word + "'";
  return text + (words.size() == 1 ? " is" : " are") + " not expected here";
}

/// What is wrong, and whose help tells how it is done.
std::string usage_error(const CLI::App* app, const CLI::Error& error) {
  std::string command = app->get_name();
  std::vector<std::string> unknown = app->remaining(true);
  for (; !app->get_subcommands().empty(); app = app->get_subcommands().front()) {
    command += ' ' + app->get_subcommands().front()->get_name();
  }
  const bool no_command = !app->get_subcommands({}).empty() && !unknown.empty();
  std::erase(unknown, "--");
  std::string reason = error.what();
  if (!unknown.empty()) {
    reason = no_command ? "there is no command '" + unknown.front() + "'" : too_many(unknown);
  }
  if (command == "mdxctl sms send" && !unknown.empty()) {
    reason += "; the text is one word or stands in quotes, behind -- when it begins with a hyphen";
  }
  return "mdxctl: " + reason + "; see: " + command + " --help\n";
}

}  // namespace

int main(int argc, char** argv) {
  int code = EXIT_OK;
  arguments_t arguments;
  CLI::App app("Talks to mdxgate, the AT command server of this machine.", "mdxctl");
  app.set_version_flag("--version", "mdxctl " MDXGATE_VERSION);
  app.footer(kExitCodeHelp);
  app.formatter(std::make_shared<help_formatter_t>());
  app.failure_message(usage_error);
  app.require_subcommand(1);
  add_at(app, arguments.at, code);
  add_sms_pdu(app, arguments.sms_pdu, code);
  add_sms(app, arguments.sms, code);
  add_report(app, arguments.report, code);
  add_console(app, arguments.console, code);
  add_terminal(app, code);
  add_state(app, arguments.state, code);
  add_stats(app, arguments.stats, code);
  add_status(app, arguments.status, code);
  add_watch(app, arguments.watch, code);
  add_modem_verbs(app, arguments.modem, code);
  try {
    std::vector<std::string> words = with_text_behind_options(argc, argv);
    std::reverse(words.begin(), words.end());  // as the parser takes them
    app.parse(std::move(words));
  } catch (const CLI::ParseError& error) {
    code = app.exit(error) == 0 ? EXIT_OK : EXIT_USAGE;
  }
  return output_written() ? code : EXIT_REFUSED;
}
