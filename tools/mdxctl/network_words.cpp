// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxctl/network_words.h"

#include <iterator>

#include "tools/words/answer_fields.h"

namespace {

// clang-format off
constexpr const char* kStatus[] = {
  "not registered", "home network", "searching", "denied", "unknown", "roaming", "home network, messages only",
  "roaming, messages only", "emergency calls only", "home network, calls restricted", "roaming, calls restricted",
};
constexpr const char* kTechnologies[] = {
  "GSM", "GSM compact", "UMTS", "EDGE", "HSDPA", "HSUPA", "HSPA", "LTE", "EC-GSM-IoT", "NB-IoT", "LTE", "NR", "NR",
  "LTE and NR",
};
constexpr const char* kSelections[] = {"automatic", "manual", "off", "", "manual, else automatic"};
constexpr const char* kScanStatus[] = {"unknown", "available", "current", "forbidden"};
// clang-format on

template <size_t count>
std::string name_of(const char* const (&names)[count], std::optional<int> number) {
  return number && *number >= 0 && *number < static_cast<int>(count) ? names[*number] : "";
}

/// The parenthesised parts of "(2,"A","B","26201",7),(1,…),,(0-4),(0-2)".
std::vector<std::string> groups_of(const std::string& line) {
  std::vector<std::string> groups;
  bool quoted = false;
  size_t begin = std::string::npos;
  for (size_t i = 0; i < line.size(); ++i) {
    if (line[i] == '"') quoted = !quoted;
    if (quoted) continue;
    if (line[i] == '(') begin = i + 1;
    if (line[i] != ')' || begin == std::string::npos) continue;
    groups.push_back(line.substr(begin, i - begin));
    begin = std::string::npos;
  }
  return groups;
}

}  // namespace

bool registration_t::registered() const {
  return status == 1 || (status >= 5 && status <= 7) || status == 9 || status == 10;
}

bool registration_t::roaming() const { return status == 5 || status == 7 || status == 10; }

std::optional<registration_t> read_registration(const std::string& text, const std::string& name) {
  // A report that came meanwhile has one value less, and stands before it or behind it.
  for (const std::string& line : answer_lines(text, name + ':')) {
    const std::vector<std::string> fields = fields_of(line);
    const std::optional<int> reports = number_in(fields, 0);
    const std::optional<int> status = number_in(fields, 1);
    if (!reports || !status || registration_name(*status).empty()) continue;
    return registration_t{*reports, *status, text_in(fields, 2), text_in(fields, 3),
                          number_in(fields, 4)};
  }
  return std::nullopt;
}

std::string registration_name(int status) { return name_of(kStatus, status); }

std::string technology_name(std::optional<int> technology) {
  return name_of(kTechnologies, technology);
}

std::string selection_name(std::optional<int> mode) { return name_of(kSelections, mode); }

std::string scan_status_name(int status) {
  const std::string name = name_of(kScanStatus, status);
  return name.empty() ? "unknown" : name;
}

std::vector<found_network_t> read_scan(const std::string& text) {
  std::vector<found_network_t> networks;
  for (const std::string& line : answer_lines(text, "+COPS:")) {
    for (const std::string& group : groups_of(line)) {
      const std::vector<std::string> fields = fields_of(group);
      const std::optional<int> status = number_in(fields, 0);
      if (!status || fields.size() < 4) continue;  // the lists at the end
      if (fields[3].find_first_not_of("0123456789") != std::string::npos || fields[3].size() < 5)
        continue;
      networks.push_back({*status, fields[1], fields[2], fields[3], number_in(fields, 4)});
    }
  }
  return networks;
}
