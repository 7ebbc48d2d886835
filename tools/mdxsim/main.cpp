// SPDX-License-Identifier: Apache-2.0

// mdxsim: a modem for those who have none at hand, or want the same one each time.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/line/learn.h"
#include "tools/line/pty.h"
#include "tools/line/session_file.h"
#include "tools/line/text_file.h"
#include "tools/mdxsim/cutter.h"
#include "tools/mdxsim/junit.h"
#include "tools/mdxsim/living_modem.h"
#include "tools/mdxsim/script.h"
#include "tools/mdxsim/scripted_modem.h"
#include "tools/mdxsim/session_player.h"
#include "tools/mdxsim/simulator.h"
#include "tools/signals/polled_signals.h"

namespace {

constexpr int kExitOk = 0;
constexpr int kExitNotAsExpected = 1;
constexpr int kExitUsage = 2;
constexpr int kExitNoDevice = 3;

constexpr int kDayMs = 24 * 60 * 60 * 1000;
constexpr const char* kReplayGroup = "Replay";
constexpr const char* kLivingGroup = "Living modem";
constexpr const char* kCardGroup = "Living modem, also behind a script";

constexpr const char* kDescription =
    "A modem on a pseudo terminal, which is linked to where a host looks for its device.";

constexpr const char* kFooter =
    "Without --replay or --script it is a living modem: it answers the usual commands for "
    "identity, "
    "SIM,\n"
    "network, signal, messages, phone book, calls, USSD and packet data, and reports signal, "
    "traffic "
    "and\n"
    "registration by itself. ^CURC, ^SRVST, ^MODE, +CREG, +CGREG, +CEREG, +CNMI and +CLIP switch "
    "reports.\n"
    "A message to its own number, +15550100, comes back, and one that asks for a\n"
    "delivery report gets it; *100# and *101# are USSD codes.\n"
    "\n"
    "A session file has a line '> BYTES' for what the host sends, '< BYTES' for one read that it "
    "gets,\n"
    "'# REMARK', with \\r \\n \\\\ \\xHH for control characters. The host must send exactly that; "
    "two\n"
    "things may come on top: AT+CMEE=1 and a CR in front of a session that does not begin with it, "
    "which\n"
    "gets OK (see --no-prelude), and one CR behind a Ctrl-Z. A session that begins with the modem "
    "waits\n"
    "for that AT+CMEE=1, or with --no-prelude until the device is opened.\n"
    "\n"
    "A script has lines such as\n"
    "  on AT+CSQ -> +CSQ: {10..30},99 | OK     what is answered; {10..30} is drawn\n"
    "  on AT+CMGS=* once after 8s -> prompt    * stands for anything; then: on pdu * -> ...\n"
    "  else ERROR                              all other commands; without it the living modem's\n"
    "  every 5s report ^RSSI:20                at 2s report ..., at 10s hang-up 5s\n"
    "  fault delay 300ms                       fault cut byte, fault drop 5%, fault garbage 5%\n"
    "  expect 3 AT+CSQ within 20s              expect no AT+CFUN=0\n"
    "  end when expected                       end after 1min\n"
    "Answers may be a text, raw BYTES, prompt, nothing, living or hang-up TIME. The times count "
    "from "
    "the\n"
    "first opening of the device.\n"
    "\n"
    "Each piece that --cut makes is written when the host has read the one before: it is a read of "
    "its\n"
    "own however fast it goes. The device may be opened by anyone (mode 0666), closed and opened "
    "again.\n"
    "\n"
    "Exit codes: 0 ended by SIGINT or SIGTERM, or session or script came to its end; 1 the host "
    "did\n"
    "not do what they expect, or was stopped before; 2 wrong usage, session or script; 3 the "
    "device\n"
    "could not be made.\n"
    "\n"
    "Examples:\n"
    "  mdxsim --cut byte --log\n"
    "  mdxsim --replay sms.txt --timeout 10\n"
    "  mdxsim --script unplugged.script --seed 7\n"
    "  mdxsim --script modem.script --junit result.xml\n"
    "  mdxsim learn recorded.txt -o modem.script\n"
    "  mdxsim --link /tmp/modem --quiet --delay 2000";

struct Options {
  std::vector<std::string> recordings;
  std::string learnt_file;
  std::string link = "/dev/smd6";
  std::string cut = "whole";
  std::string session_file;
  std::string script_file;
  std::string junit_file;
  bool no_prelude = false;
  int gap_ms = 50;
  int patience_s = 0;
  int delay_ms = 0;
  int reports_ms = 3000;
  int scan_s = 4;
  int calls_s = 0;
  int messages_s = 0;
  bool quiet = false;
  bool mute = false;
  bool no_sim = false;
  bool log = false;
  std::string pin;
  unsigned seed = 1;
};

void add_number(CLI::App& app, const char* group, const char* name, const char* unit, int& value,
                int highest, const char* what) {
  app.add_option(name, value, what)
      ->group(group)
      ->check(CLI::Range(0, highest))
      ->type_name(unit)
      ->capture_default_str();
}

void declare_replay_options(CLI::App& app, Options& options) {
  app.add_flag("--no-prelude", options.no_prelude,
               "The host's AT+CMEE=1 is not answered in front of the session")
      ->group(kReplayGroup);
  add_number(app, kReplayGroup, "--gap", "MS", options.gap_ms, kDayMs, "Between reads in a row");
  add_number(app, kReplayGroup, "--timeout", "SECONDS", options.patience_s, kDayMs / 1000,
             "How long the host may let the session wait, 0 for ever");
}

void declare_living_options(CLI::App& app, Options& options) {
  add_number(app, kLivingGroup, "--reports", "MS", options.reports_ms, kDayMs,
             "Between its own reports, 0 for none");
  add_number(app, kLivingGroup, "--calls", "SECONDS", options.calls_s, kDayMs / 1000,
             "Between calls that come in, 0 for none");
  add_number(app, kLivingGroup, "--messages", "SECONDS", options.messages_s, kDayMs / 1000,
             "Between messages that come in, 0 for none");
  add_number(app, kLivingGroup, "--delay", "MS", options.delay_ms, kDayMs,
             "Fault: wait before each answer");
  app.add_flag("--mute", options.mute, "Fault: read commands and answer nothing")
      ->group(kLivingGroup);
  add_number(app, kCardGroup, "--scan-seconds", "SECONDS", options.scan_s, kDayMs / 1000,
             "How long AT+COPS=? takes");
  app.add_option("--pin", options.pin, "The SIM asks for this PIN")
      ->type_name("PIN")
      ->group(kCardGroup);
  app.add_flag("--no-sim", options.no_sim, "There is no SIM")->group(kCardGroup);
  app.add_option("--seed", options.seed, "Of the signal's course and of what a script draws")
      ->type_name("NUMBER")
      ->group(kCardGroup)
      ->capture_default_str();
}

// Found out before the test is played for it.
void refuse_junit(const Options& options) {
  for (const std::string& read : {options.script_file, options.session_file}) {
    std::error_code error;
    if (read.empty() || !std::filesystem::equivalent(read, options.junit_file, error)) continue;
    throw CLI::ValidationError("--junit", "would write over " + read);
  }
  if (!mdxline::is_writable(options.junit_file)) {
    throw CLI::ValidationError("--junit", "cannot write " + options.junit_file);
  }
}

// An option of the modem that is not played would silently do nothing.
void refuse_strays(const CLI::App& app, const Options& options, bool learns) {
  const bool replay = !options.session_file.empty();
  const bool script = !options.script_file.empty();
  if (!options.junit_file.empty() && !replay && !script) {
    throw CLI::ValidationError("--junit", "needs --script or --replay");
  }
  if (!options.junit_file.empty()) refuse_junit(options);
  for (const CLI::Option* option : app.get_options()) {
    if (option->count() == 0) continue;
    const std::string& group = option->get_group();
    const auto refuse = [&](const char* why) {
      throw CLI::ValidationError(option->get_name(), why);
    };
    if (learns) refuse("has no meaning with learn");
    if (group == kReplayGroup && !replay) refuse("needs --replay");
    if (replay && (group == kLivingGroup || group == kCardGroup)) {
      refuse("has no meaning with --replay");
    }
    if (script && group == kLivingGroup) refuse("is for the script to say");
  }
}

void declare_options(CLI::App& app, Options& options) {
  app.footer(kFooter);
  app.add_option("--link", options.link, "Symbolic link to make to the terminal")
      ->type_name("PATH")
      ->capture_default_str();
  app.add_option("--cut", options.cut, "How output is torn into reads: whole, byte, random[:SEED]")
      ->type_name("HOW")
      ->capture_default_str();
  app.add_flag("--quiet", options.quiet, "No reports by itself");
  app.add_flag("--log", options.log, "Show the traffic on standard error, as a session file");
  app.add_option("--replay", options.session_file, "Play this session file strictly")
      ->type_name("FILE");
  app.add_option("--script", options.script_file, "Do as this script says")
      ->type_name("FILE")
      ->excludes("--replay");
  app.add_option("--junit", options.junit_file, "Write the result for a CI server, too")
      ->type_name("FILE");
  declare_replay_options(app, options);
  declare_living_options(app, options);
}

CLI::App* declare_learning(CLI::App& app, Options& options) {
  CLI::App* learn =
      app.add_subcommand("learn", "Make a script of recordings, as mdxtap makes them");
  learn->add_option("recording", options.recordings, "Session files, the oldest first")
      ->required()
      ->type_name("FILE...");
  learn
      ->add_option("-o,--output", options.learnt_file,
                   "Where the script goes, if not to standard output")
      ->type_name("FILE");
  return learn;
}

// Several files are one recording.
mdxline::Session read_recordings(const std::vector<std::string>& paths) {
  mdxline::Session whole;
  for (const std::string& path : paths) {
    std::ifstream file = mdxline::open_to_read(path);
    mdxline::Session part = mdxline::parse_session(file, path);
    whole.name += (whole.name.empty() ? "" : " ") + path;
    std::move(part.steps.begin(), part.steps.end(), std::back_inserter(whole.steps));
    std::move(part.remarks.begin(), part.remarks.end(), std::back_inserter(whole.remarks));
  }
  return whole;
}

void refuse_overwriting(const Options& options) {
  std::error_code none;  // what is not there yet is no recording
  for (const std::string& recording : options.recordings) {
    if (!std::filesystem::equivalent(recording, options.learnt_file, none)) continue;
    throw std::invalid_argument("-o needs a name of its own: " + options.learnt_file +
                                " is the recording");
  }
}

int learn(const Options& options) {
  try {
    refuse_overwriting(options);
    const std::string script = mdxline::learn(read_recordings(options.recordings));
    if (options.learnt_file.empty()) {
      std::cout << script << std::flush;
      return std::cout ? kExitOk : kExitNoDevice;
    }
    std::ofstream file(options.learnt_file);
    file << script << std::flush;
    if (!file) throw std::invalid_argument("cannot write " + options.learnt_file);
  } catch (const std::exception& error) {
    std::cerr << "mdxsim: " << error.what() << '\n';
    return kExitUsage;
  }
  return kExitOk;
}

// A cut on the command line comes before the script's.
void take_cut(const mdxsim::Script& script, Options& options) {
  if (options.cut != "whole" || script.cut.empty()) return;
  options.cut = script.cut == "random" ? "random:" + std::to_string(options.seed) : script.cut;
}

std::unique_ptr<mdxsim::Modem> make_modem(Options& options) {
  using mdxsim::Time;
  if (!options.session_file.empty()) {
    std::ifstream file = mdxline::open_to_read(options.session_file);
    return std::make_unique<mdxsim::SessionPlayer>(
        mdxsim::parse_session(file, options.session_file),
        mdxsim::ReplayOptions{Time{options.gap_ms}, Time{options.patience_s * Time::rep{1000}},
                              !options.no_prelude});
  }
  mdxsim::LivingOptions living;
  living.answer_delay = Time{options.delay_ms};
  living.report_interval = Time{options.quiet ? 0 : options.reports_ms};
  living.call_interval = Time{options.calls_s * Time::rep{1000}};
  living.message_interval = Time{options.messages_s * Time::rep{1000}};
  living.clock_start = std::time(nullptr);
  living.scan_time = Time{options.scan_s * Time::rep{1000}};
  living.mute = options.mute;
  living.sim_inserted = !options.no_sim;
  living.pin = options.pin;
  living.seed = options.seed;
  if (options.script_file.empty()) {
    return std::make_unique<mdxsim::LivingModem>(std::move(living));
  }
  std::ifstream file = mdxline::open_to_read(options.script_file);
  mdxsim::Script script = mdxsim::parse_script(file, options.script_file);
  take_cut(script, options);
  return std::make_unique<mdxsim::ScriptedModem>(std::move(script), std::move(living));
}

void write_junit(const mdxsim::Modem& modem, const std::optional<mdxsim::Ending>& ending,
                 const std::optional<std::string>& unfinished, double seconds,
                 const Options& options) {
  std::optional<std::string> fault = unfinished;
  if (ending && !ending->as_expected) fault = ending->message;
  const std::string& name =
      options.script_file.empty() ? options.session_file : options.script_file;
  std::ofstream file(options.junit_file);
  file << mdxsim::junit_report(name, modem.findings(), fault, seconds) << std::flush;
  if (!file) throw std::runtime_error("cannot write " + options.junit_file);
}

int serve(mdxsim::Modem& modem, mdxsim::Cutter cutter, const Options& options) {
  const int signal_fd = signals_that_end();
  mdxline::Pty pty(options.link);
  std::cerr << "mdxsim: " << options.link << " is " << pty.node() << '\n';
  const auto begin = std::chrono::steady_clock::now();
  const auto ending =
      mdxsim::Simulator(modem, pty, std::move(cutter), signal_fd, options.log).run();
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
  const auto unfinished = ending ? std::nullopt : modem.unfinished();
  if (ending) std::cerr << "mdxsim: " << ending->message << '\n';
  if (unfinished) std::cerr << "mdxsim: " << *unfinished << '\n';
  const bool as_expected = ending ? ending->as_expected : !unfinished;
  if (!options.junit_file.empty()) write_junit(modem, ending, unfinished, took.count(), options);
  return as_expected ? kExitOk : kExitNotAsExpected;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app(kDescription, "mdxsim");
  app.set_version_flag("--version", "mdxsim " MDXGATE_VERSION);
  declare_options(app, options);
  const CLI::App* learning = declare_learning(app, options);
  try {
    app.parse(argc, argv);
    refuse_strays(app, options, learning->parsed());
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kExitOk : kExitUsage;
  }

  if (learning->parsed()) return learn(options);

  std::unique_ptr<mdxsim::Modem> modem;
  std::optional<mdxsim::Cutter> cutter;
  try {
    modem = make_modem(options);
    cutter.emplace(options.cut);
  } catch (const std::exception& error) {
    std::cerr << "mdxsim: " << error.what() << '\n';
    return kExitUsage;
  }
  if (cutter->is_random()) std::cerr << "mdxsim: --cut random:" << cutter->seed() << '\n';

  try {
    return serve(*modem, *std::move(cutter), options);
  } catch (const std::exception& error) {
    std::cerr << "mdxsim: " << error.what() << '\n';
    return kExitNoDevice;
  }
}
