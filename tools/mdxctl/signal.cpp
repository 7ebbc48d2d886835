// SPDX-License-Identifier: Apache-2.0

// mdxctl signal: how strong, in dBm and dB. +CSQ is what every modem has; +CESQ and a maker's own
// add to it where the modem knows them.
//
// --watch asks again when the modem reports a change, and not while nothing changes.

#include "tools/words/signal_levels.h"

#include <cmath>
#include <cstdio>
#include <iostream>

#include "tools/mdxctl/answer.h"
#include "tools/mdxctl/commands.h"
#include "tools/mdxctl/modem_query.h"
#include "tools/mdxctl/output.h"
#include "tools/mdxctl/report_wait.h"
#include "tools/words/state_words.h"
#include "tools/words/time_text.h"

using nlohmann::ordered_json;

namespace {

constexpr std::chrono::seconds kBetweenQuestions{1};

std::string level_text(const std::optional<double>& level, const char* unit) {
  if (!level) return "";
  char text[32];
  std::snprintf(text, sizeof(text), "%g %s", std::round(*level * 10) / 10, unit);
  return text;
}

void show_lines(const signal_levels_t& levels) {
  print_line("technology", levels.technology);
  for (const signal_level_row_t& row : signal_level_rows())
    print_line(row.name, level_text(levels.*row.level, row.unit));
  if (levels.empty()) print_line("signal", "none, or not known to the modem");
}

void show_one_line(const signal_levels_t& levels) {
  std::string line = time_text(false);
  if (!levels.technology.empty()) line += ' ' + levels.technology;
  for (const signal_level_row_t& row : signal_level_rows()) {
    const std::string level = level_text(levels.*row.level, row.unit);
    if (!level.empty()) line += std::string(" ") + row.name + ' ' + level;
  }
  std::cout << harmless_line(line + (levels.empty() ? " no signal" : "")) << std::endl;
}

/// What a modem does not know is asked once.
class signal_reader_t {
 public:
  explicit signal_reader_t(int32_t timeout_s) : modem_(timeout_s) {}

  reply_t read(signal_levels_t* levels) {
    reply_t plain = modem_.ask("AT+CSQ");
    if (!plain.ok()) return plain;
    if (details_) details_ = add("AT^HCSQ?", take_hcsq, levels);
    if (extended_) extended_ = add("AT+CESQ", take_cesq, levels);
    take_csq(plain.text, levels);
    return plain;
  }

 private:
  bool add(const char* command, void (*take)(const std::string&, signal_levels_t*),
           signal_levels_t* levels) const {
    const reply_t reply = modem_.ask(command);
    if (reply.ok()) take(reply.text, levels);
    return reply.code != EXIT_MODEM_ERROR;
  }

  modem_query_t modem_;
  bool details_ = true;
  bool extended_ = true;
};

bool tells_signal(const mdx_packet_t& packet) {
  const char* name = mdx_packet_name(&packet);
  return name != nullptr && state_word(name) == "signal";
}

int watch(const signal_arguments_t& arguments, signal_reader_t* reader) {
  report_wait_t reports;
  if (reports.error() != MDX_OK) {
    return fail_with(exit_code_of_error(reports.error()), error_text(reports.error()), false);
  }
  for (;;) {
    signal_levels_t levels;
    const reply_t reply = reader->read(&levels);
    if (!reply.ok()) return fail_with(reply.code, reply.error, arguments.json);
    if (arguments.json) {
      ordered_json object = {{"time", time_text(true)}};
      object.update(levels_json(levels));
      print_json(object);
    } else {
      show_one_line(levels);
    }
    if (!output_written()) return EXIT_REFUSED;
    const int error = reports.wait(tells_signal);
    if (error == MDX_OK) reports.settle(kBetweenQuestions);
    if (error != MDX_OK) return fail_with(exit_code_of_error(error), error_text(error), false);
  }
}

}  // namespace

int run_signal(const signal_arguments_t& arguments) {
  signal_reader_t reader(arguments.timeout_s.value_or(kQuestionTimeoutS));
  if (arguments.watch) return watch(arguments, &reader);
  signal_levels_t levels;
  const reply_t reply = reader.read(&levels);
  if (!reply.ok()) return fail_with(reply.code, reply.error, arguments.json);
  arguments.json ? print_json(levels_json(levels)) : show_lines(levels);
  return EXIT_OK;
}
