// SPDX-License-Identifier: Apache-2.0

// Names and units are the server's; what they mean, and what kind of figure they are for a
// monitoring system, stands in the one table here. A value that the table does not know is shown
// all the same.

#include "tools/mdxctl/platform_stats.h"

#include <algorithm>
#include <cctype>
#include <iomanip>
#include <sstream>

#include "client/mdxclient.h"
#include "tools/mdxctl/console_client.h"

using nlohmann::ordered_json;

namespace {

enum figure_t { COUNTER, GAUGE };

struct figure_row_t {
  std::string_view name;
  figure_t kind;
  bool microseconds;
  std::string_view help;
};

// clang-format off
constexpr figure_row_t kFigures[] = {
  {"deliveries",               COUNTER, false, "deliveries of the modem that the server took"},
  {"delivery_bytes",           COUNTER, false, "bytes in them"},
  {"deliveries_held",          COUNTER, false, "deliveries that were offered again because the server was busy"},
  {"deliveries_cut",           COUNTER, false, "deliveries that ended at the size limit"},
  {"echoes_dropped",           COUNTER, false, "lines that repeated what was sent"},
  {"lines_dropped",            COUNTER, false, "lines that nobody had asked for and that are no report"},
  {"answers_too_long",         COUNTER, false, "answers that do not fit a record"},
  {"late_answers_absorbed",    COUNTER, false, "results that came when their command had timed out"},
  {"patience_ran_out",         COUNTER, false, "times that a late answer was waited for in vain"},
  {"prompts_escaped",          COUNTER, false, "times that a modem was told to wait for no message"},
  {"channel_sends",            COUNTER, false, "writes that the modem took"},
  {"channel_send_bytes",       COUNTER, false, "bytes in them"},
  {"channel_sends_failed",     COUNTER, false, "writes that the modem did not take"},
  {"channel_opened",           COUNTER, false, "times that the modem's device was opened first"},
  {"channel_reopened",         COUNTER, false, "times that the modem's device came back"},
  {"channel_closed",           COUNTER, false, "times that the modem's device went away or was given up"},
  {"requests",                 COUNTER, false, "requests of clients"},
  {"requests_missized",        COUNTER, false, "requests dropped because they had the wrong size"},
  {"requests_of_the_dead",     COUNTER, false, "requests dropped because their client was gone"},
  {"answers",                  COUNTER, false, "answers to clients"},
  {"commands",                 COUNTER, false, "answers for which the modem was asked"},
  {"command_microseconds",     COUNTER, true,  "time that those took, from request to answer"},
  {"command_microseconds_max", GAUGE,   true,  "time that the slowest of them took"},
  {"answers_dropped_dead",     COUNTER, false, "answers dropped because their client was dead"},
  {"answers_dropped_unread",   COUNTER, false, "answers dropped because nobody read them"},
  {"answers_refused",          COUNTER, false, "answers that found their queue full"},
  {"nas_queue_refused",        COUNTER, false, "deliveries that found their queue full"},
  {"raises_failed",            COUNTER, false, "events for a task that was not there"},
  {"names_missing",            COUNTER, false, "times that a name of the server's could not be made again"},
  {"task_names_refused",       COUNTER, false, "names in the tasks' directory that were no task's own"},
  {"receivers",                COUNTER, false, "receivers that ever subscribed"},
  {"receivers_refused",        COUNTER, false, "receivers turned away because there were too many"},
  {"receivers_displaced",      COUNTER, false, "receivers that gave way to another user's"},
  {"receivers_silent",         COUNTER, false, "connections that did not subscribe in time"},
  {"packets_sent",             COUNTER, false, "packets to receivers"},
  {"packets_lost",             COUNTER, false, "packets that a receiver was too slow for"},
  {"packets_received",         COUNTER, false, "messages from receivers to the server"},
  {"packets_refused",          COUNTER, false, "messages from receivers that were malformed or for nobody"},
  {"uninstalls_refused",       COUNTER, false, "uninstall messages of users without the right"},
  {"console_commands",         COUNTER, false, "console commands"},
  {"console_dropped",          COUNTER, false, "console clients that sent nothing or did not read"},
  {"traces_lost",              COUNTER, false, "traces that the log did not take"},
  {"channel_open",             GAUGE,   false, "1 while the modem's device is open"},
  {"requests_waiting",         GAUGE,   false, "requests on their queue"},
  {"answers_waiting",          GAUGE,   false, "answers on their queue"},
  {"deliveries_waiting",       GAUGE,   false, "deliveries on their queue"},
  {"receivers_connected",      GAUGE,   false, "receivers that are subscribed"},
  {"uptime_seconds",           GAUGE,   false, "time since the server's start"},
};
// clang-format on

const figure_row_t* figure(std::string_view name) {
  const auto* row = std::find_if(std::begin(kFigures), std::end(kFigures),
                                 [name](const figure_row_t& r) { return r.name == name; });
  return row == std::end(kFigures) ? nullptr : row;
}

bool is_number(const std::string& word) {
  return !word.empty() && word.size() < 20 &&
         std::all_of(word.begin(), word.end(),
                     [](unsigned char c) { return std::isdigit(c) != 0; });
}

/// Nothing in it that would end a quoted label.
std::string label(const std::string& text) {
  std::string quoted;
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return '"' + quoted + '"';
}

std::string seconds_of(uint64_t microseconds) {
  std::ostringstream text;
  text << microseconds / 1000000 << '.' << std::setw(6) << std::setfill('0')
       << microseconds % 1000000;
  return text.str();
}

/// Such as mdxgate_command_seconds_total: base units, and "total" at the end of every counter.
std::string metric_name(const std::string& name, const figure_row_t* row) {
  std::string metric = "mdxgate_" + name;
  if (row == nullptr) return metric;
  if (const size_t at = metric.find("microseconds"); at != std::string::npos) metric.erase(at, 5);
  return row->kind == COUNTER ? metric + "_total" : metric;
}

void describe(std::ostream& out, const std::string& metric, std::string_view help,
              std::string_view type) {
  out << "# HELP " << metric << ' ' << help << "\n# TYPE " << metric << ' ' << type << '\n';
}

void receivers_prometheus(std::ostream& out, const platform_stats_t& stats, const char* metric,
                          const char* help, uint64_t receiver_stats_t::*value) {
  if (stats.receivers.empty()) return;
  describe(out, metric, help, "counter");
  size_t place = 0;
  for (const receiver_stats_t& receiver : stats.receivers) {
    out << metric << "{place=\"" << place++ << "\",process=\"" << receiver.process
        << "\",wants=" << label(receiver.wants) << "} " << receiver.*value << '\n';
  }
}

}  // namespace

uint64_t platform_stats_t::value(std::string_view name) const {
  const auto found = std::find_if(values.begin(), values.end(),
                                  [name](const auto& value) { return value.first == name; });
  return found == values.end() ? 0 : found->second;
}

platform_stats_t parse_stats(const std::string& text) {
  platform_stats_t stats;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string name;
    std::string value;
    words >> name;
    if (receiver_stats_t r; name == "receiver") {
      if (words >> r.process >> r.user >> r.wants >> r.sent >> r.lost) stats.receivers.push_back(r);
    } else if (words >> value && name == "version") {
      stats.version = value;
    } else if (std::string more; is_number(value) && !(words >> more)) {
      stats.values.emplace_back(name, std::stoull(value));
    }
  }
  return stats;
}

int fetch_stats(platform_stats_t* stats) {
  std::string text;
  for (const char* line : {"platform version", "platform stats", "platform receivers"}) {
    std::string answer;
    const int error = ask_console(line, &answer);
    if (error != MDX_OK) return error;
    text += answer;
  }
  *stats = parse_stats(text);
  return MDX_OK;
}

std::string_view meaning_of(std::string_view name) {
  const figure_row_t* row = figure(name);
  return row == nullptr ? "" : row->help;
}

std::string stats_lines(const platform_stats_t& stats) {
  std::ostringstream out;
  for (const auto& [name, value] : stats.values) {
    out << std::left << std::setw(25) << name << std::right << std::setw(12) << value;
    if (const std::string_view meaning = meaning_of(name); !meaning.empty()) out << "  " << meaning;
    out << '\n';
  }
  for (const receiver_stats_t& receiver : stats.receivers) {
    out << "receiver: process " << receiver.process << " of user " << receiver.user << " wants "
        << receiver.wants << ", got " << receiver.sent << ", lost " << receiver.lost << '\n';
  }
  return out.str();
}

ordered_json stats_json(const platform_stats_t& stats) {
  ordered_json object = {{"version", stats.version}};
  for (const auto& [name, value] : stats.values) object["values"][name] = value;
  object["receivers"] = ordered_json::array();
  for (const receiver_stats_t& receiver : stats.receivers) {
    object["receivers"].push_back({{"process", receiver.process},
                                   {"user", receiver.user},
                                   {"wants", receiver.wants},
                                   {"sent", receiver.sent},
                                   {"lost", receiver.lost}});
  }
  return object;
}

std::string stats_prometheus(const platform_stats_t& stats) {
  std::ostringstream out;
  describe(out, "mdxgate_build_info", "1, labelled with the server's version", "gauge");
  out << "mdxgate_build_info{version=" << label(stats.version) << "} 1\n";
  for (const auto& [name, value] : stats.values) {
    const figure_row_t* row = figure(name);
    const std::string metric = metric_name(name, row);
    if (row != nullptr)
      describe(out, metric, row->help, row->kind == COUNTER ? "counter" : "gauge");
    out << metric << ' '
        << (row != nullptr && row->microseconds ? seconds_of(value) : std::to_string(value))
        << '\n';
  }
  receivers_prometheus(out, stats, "mdxgate_receiver_packets_sent_total",
                       "packets that this receiver got", &receiver_stats_t::sent);
  receivers_prometheus(out, stats, "mdxgate_receiver_packets_lost_total",
                       "packets that this receiver was too slow for", &receiver_stats_t::lost);
  return out.str();
}
