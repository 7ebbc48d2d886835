// SPDX-License-Identifier: Apache-2.0

// mdxbridge: makes this device one of many at an MQTT broker.
#include <mosquitto.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <deque>
#include <fstream>
#include <iostream>

#include "tools/mdxbridge/bridge.h"
#include "tools/mdxbridge/broker.h"
#include "tools/mdxbridge/journal.h"
#include "tools/mdxbridge/place.h"
#include "tools/mdxbridge/settings.h"
#include "tools/signals/polled_signals.h"

namespace {

using mdxbridge::settings_t;
using strings_t = std::vector<std::string>;

enum exit_code_t : int { EXIT_FINE = 0, EXIT_NOT_SENT = 1, EXIT_WRONG = 2 };

constexpr char kDescription[] =
    "Makes this device one of many at an MQTT broker: what the modem reports goes out, and "
    "commands\nthat its owner allows come in.";
constexpr char kFooter[] =
    "Each key of the configuration is an option, too, which counts in the file's place; secrets "
    "stand in\nfiles. Exit codes: 0 ended by a signal, or --once or --check is done; 1 it runs "
    "already,\nor --once: the broker did not take it within 30 seconds; 2 wrong usage or "
    "configuration.\n\n"
    "Examples:\n"
    "  mdxbridge --check\n"
    "  mdxbridge --host broker.example --tls yes --id meter-17 --once";

struct arguments_t {
  std::string file = "/etc/mdxgate/bridge.conf";
  bool file_given = false;
  bool check = false;
  bool once = false;
  std::deque<std::pair<std::string, strings_t>> keys;
};

void declare_options(CLI::App& app, arguments_t& arguments) {
  app.set_version_flag("--version", "mdxbridge " MDXGATE_VERSION);
  app.footer(kFooter);
  app.add_option("--config", arguments.file, "Configuration, see mdxgate-bridge.conf(5)")
      ->type_name("FILE")
      ->capture_default_str();
  app.add_flag("--check", arguments.check, "Say what is wrong with the configuration, and end");
  app.add_flag("--once", arguments.once, "Send the state and what is known of the modem, and end");
  for (const mdxbridge::key_row_t& row : mdxbridge::key_rows()) {
    auto& [name, values] = arguments.keys.emplace_back(row.name, strings_t());
    const bool list = std::holds_alternative<strings_t settings_t::*>(row.value);
    app.add_option("--" + name, values, std::string(row.help))
        ->type_name(std::string(row.takes))
        ->expected(1)
        ->multi_option_policy(list ? CLI::MultiOptionPolicy::TakeAll
                                   : CLI::MultiOptionPolicy::Throw);
  }
}

/// @param there  set to false when there is a file that cannot be read
strings_t read_file(const arguments_t& arguments, settings_t* settings, bool* there) {
  std::ifstream file(arguments.file);
  if (!file && errno == ENOENT && !arguments.file_given) return {};
  strings_t mistakes;
  if (file) mistakes = read_settings(file, arguments.file, settings);
  const bool was_read = file.eof() && !file.bad();
  *there = was_read;
  return was_read ? mistakes
                  : strings_t{arguments.file + ": cannot be read: " + std::strerror(errno)};
}

/// An option stands in the place of what the file says, a list of them in the place of its list.
strings_t apply_options(const arguments_t& arguments, settings_t* settings) {
  strings_t mistakes;
  for (const auto& [name, values] : arguments.keys) {
    const std::string place = "--" + name;
    if (values.empty()) continue;
    for (const mdxbridge::key_row_t& row : mdxbridge::key_rows()) {
      const auto* list = std::get_if<strings_t settings_t::*>(&row.value);
      if (row.name == name && list != nullptr) (settings->*(*list)).clear();
    }
    for (const std::string& value : values) {
      const std::string mistake = set_key(settings, name, value, place);
      if (!mistake.empty()) mistakes.push_back(place + ": " + mistake);
    }
  }
  return mistakes;
}

strings_t read_all(const arguments_t& arguments, settings_t* settings) {
  bool there = true;
  strings_t mistakes = read_file(arguments, settings, &there);
  if (!there) return mistakes;
  for (const strings_t& more :
       {apply_options(arguments, settings), check_settings(settings, arguments.file)}) {
    mistakes.insert(mistakes.end(), more.begin(), more.end());
  }
  return mistakes;
}

int serve(const arguments_t& arguments, const settings_t& settings) {
  const mdxbridge::place_t place(settings.topic("") + " at " + settings.host);
  if (place.is_anothers()) {
    mdxbridge::journal("the bridge of " + settings.id + " runs on this machine already");
    return EXIT_NOT_SENT;
  }
  const int stop_fd = signals_that_end();
  mosquitto_lib_init();
  const bool done = mdxbridge::bridge_t(settings, arguments.once).run(stop_fd, place);
  if (!done) mdxbridge::journal("the broker did not take all within 30 seconds");
  const int code = done ? EXIT_FINE : EXIT_NOT_SENT;
  if (mdxbridge::broker_t::is_busy()) _exit(code);
  mosquitto_lib_cleanup();
  return code;
}

}  // namespace

int main(int argc, char** argv) {
  arguments_t arguments;
  CLI::App app(kDescription, "mdxbridge");
  declare_options(app, arguments);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? EXIT_FINE : EXIT_WRONG;
  }
  arguments.file_given = app.count("--config") > 0;
  settings_t settings;
  const strings_t mistakes = read_all(arguments, &settings);
  for (const std::string& mistake : mistakes) std::cerr << mdxbridge::printable(mistake) << '\n';
  if (mistakes.empty()) {
    for (const std::string& doubt : doubts_about(settings))
      std::cerr << arguments.file << ": " << doubt << '\n';
  }
  if (!mistakes.empty()) return EXIT_WRONG;
  if (!arguments.check) return serve(arguments, settings);
  std::cout << "The configuration is good: " << settings.topic("") << " at " << settings.host << ':'
            << settings.port << '\n';
  return EXIT_FINE;
}
