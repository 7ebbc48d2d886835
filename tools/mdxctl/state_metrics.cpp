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

}  // namespace

std::string states_prometheus(const modem_link_t& link, const std::vector<known_state_t>& states) {
  std::ostringstream out;
  describe(out, "mdxgate_modem_up", "1 while the modem's device is open");
  out << "mdxgate_modem_up " << (link.up ? 1 : 0) << '\n';
  describe(out, "mdxgate_modem_link_age_seconds", "time since the modem's device came or went");
  out << "mdxgate_modem_link_age_seconds " << link.age_s << '\n';
  if (states.empty()) return out.str();

  describe(out, "mdxgate_state_age_seconds", "time since the modem told this");
  for (const known_state_t& state : states)
    out << "mdxgate_state_age_seconds" << labels_of(state) << "} " << state.age_s << '\n';
  describe(out, "mdxgate_state_current",
           "1 while the modem has been there ever since it told this");
  for (const known_state_t& state : states)
    out << "mdxgate_state_current" << labels_of(state) << "} " << is_current(state, link) << '\n';
  describe(out, "mdxgate_state_value", "a number that the modem told last");
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
