// SPDX-License-Identifier: Apache-2.0

// mdxctl network: which operator, registered how, in which cell.
//
// Area and cell stand in an answer only while the modem reports them, which is the device's affair.
// So they are asked for with the reports set for the length of one command line, and back.

#include <iostream>

#include "tools/mdxctl/commands.h"
#include "tools/mdxctl/modem_query.h"
#include "tools/mdxctl/network_words.h"
#include "tools/mdxctl/output.h"

using nlohmann::ordered_json;

namespace {

constexpr int32_t kScanTimeoutS = 240;

// clang-format off
constexpr struct { const char* name; const char* command; const char* json; } kDomains[] = {
  {"calls",   "+CREG",   "circuit_switched"},
  {"data",    "+CGREG",  "packet_switched" },
  {"LTE",     "+CEREG",  "evolved"         },
  {"5G",      "+C5GREG", "five_g"          },
};
// clang-format on

/// @return nothing where the modem does not know the domain
std::optional<registration_t> ask_registration(const modem_query_t& modem,
                                               const std::string& name) {
  const reply_t reply = modem.ask("AT" + name + "?");
  if (!reply.ok()) return std::nullopt;
  std::optional<registration_t> registration = read_registration(reply.text, name);
  if (!registration || registration->reports >= 2 || !registration->registered()) {
    return registration;
  }
  const std::string before = std::to_string(registration->reports);
  const reply_t full = modem.ask("AT" + name + "=2;" + name + "?;" + name + '=' + before);
  const auto with_cell = full.ok() ? read_registration(full.text, name) : std::nullopt;
  if (!full.ok()) modem.ask("AT" + name + '=' + before);
  return with_cell ? with_cell : registration;
}

ordered_json registration_json(const std::optional<registration_t>& registration) {
  if (!registration) return nullptr;
  return {{"status", registration_name(registration->status)},
          {"registered", registration->registered()},
          {"roaming", registration->roaming()},
          {"area", or_null(registration->area)},
          {"cell", or_null(registration->cell)},
          {"technology", or_null(technology_name(registration->technology))}};
}

std::string registration_text(const registration_t& registration) {
  std::string text = registration_name(registration.status);
  if (!registration.area.empty()) text += ", area " + registration.area;
  if (!registration.cell.empty()) text += ", cell " + registration.cell;
  const std::string technology = technology_name(registration.technology);
  return technology.empty() ? text : text + ", " + technology;
}

int show_network(const network_arguments_t& arguments, const modem_query_t& modem) {
  const reply_t reply = modem.ask("AT+COPS?");
  if (!reply.ok()) return fail_with(reply.code, reply.error, arguments.json);
  const std::vector<std::string> chosen = answer_fields(reply.text, "+COPS:");
  const std::string operator_name = text_in(chosen, 2);
  const std::string technology = technology_name(number_in(chosen, 3));
  const std::optional<int> mode = number_in(chosen, 0);
  ordered_json object = {{"operator", or_null(operator_name)},
                         {"technology", or_null(technology)},
                         {"selection", or_null(selection_name(mode))},
                         {"registration", ordered_json::object()}};
  if (!arguments.json) {
    print_line("operator", operator_name.empty() ? "none" : operator_name);
    print_line("technology", technology);
    print_line("selection", selection_name(mode));
  }
  for (const auto& domain : kDomains) {
    const std::optional<registration_t> registration = ask_registration(modem, domain.command);
    object["registration"][domain.json] = registration_json(registration);
    if (!arguments.json && registration) print_line(domain.name, registration_text(*registration));
  }
  if (arguments.json) print_json(object);
  return EXIT_OK;
}

int scan(const network_arguments_t& arguments, modem_query_t* modem) {
  const int32_t timeout_s = arguments.timeout_s.value_or(kScanTimeoutS);
  tell("searching for networks, up to " + std::to_string(timeout_s) +
       " s; meanwhile no other command is served, and data may pause; Ctrl-C gives up");
  if (isatty(STDERR_FILENO) != 0) {
    modem->on_tick([seconds = 0]() mutable {
      std::cerr << "\rsearching, " << ++seconds << " s " << std::flush;
    });
  }
  const reply_t reply = modem->ask("AT+COPS=?", timeout_s);
  if (isatty(STDERR_FILENO) != 0) std::cerr << "\r\033[K" << std::flush;
  if (!reply.ok()) return fail_with(reply.code, reply.error, arguments.json);
  const std::vector<found_network_t> networks = read_scan(reply.text);
  ordered_json list = ordered_json::array();
  for (const found_network_t& network : networks) {
    const std::string technology = technology_name(network.technology);
    list.push_back({{"status", scan_status_name(network.status)},
                    {"name", or_null(network.name)},
                    {"short_name", or_null(network.short_name)},
                    {"number", or_null(network.number)},
                    {"technology", or_null(technology)}});
    if (arguments.json) continue;
    const std::string more = technology.empty() ? "" : ", " + technology;
    print_line(network.number, network.name + ", " + scan_status_name(network.status) + more);
  }
  if (arguments.json) print_json({{"networks", list}});
  if (networks.empty() && !arguments.json) print_line("networks", "none found");
  return EXIT_OK;
}

}  // namespace

int run_network(const network_arguments_t& arguments) {
  modem_query_t modem(arguments.timeout_s.value_or(kQuestionTimeoutS));
  return arguments.scan ? scan(arguments, &modem) : show_network(arguments, modem);
}
