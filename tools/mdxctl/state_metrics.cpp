// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxctl/state_metrics.h"

#include <sstream>

namespace {

void describe(std::ostream& out, const char* metric, const char* help) {
  out << "# HELP " << metric << ' ' << help << "\n# TYPE " << metric << " gauge\n";
}

/// In quotes, with nothing in it that would end them or is no UTF-8.
std::string label(const nlohmann::ordered_json& text) {
  std::string quoted;
  for (const char c : text.get<std::string>()) {
    if (c == '"' || c == '\\') quoted += '\\';
    const auto byte = static_cast<unsigned char>(c);
    quoted += byte >= ' ' && byte < 0x7f ? c : '?';
  }
  return '"' + quoted + '"';
}

std::string labels_of(const known_state_t& state) {
  return "{state=" + label(state.word) + ",report=" + label(state.name);
}

/// Each metric stands together, so the states are gone through once for each.
template <typename Show>
void for_each_field(const std::vector<known_state_t>& states, Show show) {
  for (const known_state_t& state : states) {
    if (!state.object.contains("fields")) continue;
    for (const auto& [name, value] : state.object["fields"].items()) show(state, name, value);
  }
}

// Of the fields of reports, those that are quantities. The others are a modem's codes.
// clang-format off
constexpr struct { const char* metric; const char* report; const char* field; const char* help; } kQuantities[] = {
  {"mdxgate_data_seconds",                   "EVT_AT_FLOW_REPORT", "curr_ds_time", "time that the data connection has lasted"},
  {"mdxgate_data_sent_bytes",                "EVT_AT_FLOW_REPORT", "curr_tx_flow", "sent over the data connection"},
  {"mdxgate_data_received_bytes",            "EVT_AT_FLOW_REPORT", "curr_rx_flow", "received over the data connection"},
  {"mdxgate_data_sent_bytes_per_second",     "EVT_AT_FLOW_REPORT", "tx_rate",      "rate at which the data connection sends"},
  {"mdxgate_data_received_bytes_per_second", "EVT_AT_FLOW_REPORT", "rx_rate",      "rate at which the data connection receives"},
};
// clang-format on

/// What has a unit, in metrics with the unit in their names. What was told before the modem went
/// away is measured no more.
void show_quantities(std::ostream& out, const modem_link_t& link,
                     const std::vector<known_state_t>& states) {
  for (const known_state_t& state : states) {
    if (!is_current(state, link)) continue;
    for (const auto& row : kQuantities) {
      if (state.name != row.report || !state.object["fields"].contains(row.field)) continue;
      describe(out, row.metric, row.help);
      out << row.metric << ' ' << state.object["fields"][row.field].dump() << '\n';
    }
    if (!state.object.contains("signal") || state.object["signal"]["technology"].is_null())
      continue;
    for (const auto& [name, level] : state.object["signal"].items()) {
      if (!level.is_number()) continue;
      const std::string metric = "mdxgate_signal_" + name;
      describe(out, metric.c_str(), "lower edge of the step in which the signal is");
      out << metric << "{technology=" << label(state.object["signal"]["technology"]) << "} "
          << level.dump() << '\n';
    }
  }
}

}  // namespace

std::string states_prometheus(const modem_link_t& link, const std::vector<known_state_t>& states) {
  std::ostringstream out;
  describe(out, "mdxgate_modem_up", "1 while the modem's device is open");
  out << "mdxgate_modem_up " << (link.up ? 1 : 0) << '\n';
  describe(out, "mdxgate_modem_link_age_seconds", "time since the modem's device came or went");
  out << "mdxgate_modem_link_age_seconds " << link.age_s << '\n';
  if (states.empty()) return out.str();

  show_quantities(out, link, states);
  describe(out, "mdxgate_state_age_seconds", "time since the modem told this");
  for (const known_state_t& state : states)
    out << "mdxgate_state_age_seconds" << labels_of(state) << "} " << state.age_s << '\n';
  describe(out, "mdxgate_state_current",
           "1 while the modem has been there ever since it told this");
  for (const known_state_t& state : states)
    out << "mdxgate_state_current" << labels_of(state) << "} " << is_current(state, link) << '\n';
  describe(out, "mdxgate_state_value", "a number that the modem told last, in its own code");
  for_each_field(states,
                 [&](const known_state_t& state, const std::string& name, const auto& value) {
                   if (!value.is_number()) return;
                   out << "mdxgate_state_value" << labels_of(state) << ",field=" << label(name)
                       << "} " << value.dump() << '\n';
                 });
  bool described = false;
  for_each_field(
      states, [&](const known_state_t& state, const std::string& name, const auto& value) {
        if (!value.is_string()) return;
        if (!described)
          describe(out, "mdxgate_state_info", "1, labelled with a text that the modem told last");
        described = true;
        out << "mdxgate_state_info" << labels_of(state) << ",field=" << label(name)
            << ",text=" << label(value) << "} 1\n";
      });
  return out.str();
}
