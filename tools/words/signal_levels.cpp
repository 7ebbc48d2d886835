// SPDX-License-Identifier: Apache-2.0

#include "tools/words/signal_levels.h"

#include <cmath>
#include <iterator>
#include <string_view>
#include <vector>

#include "tools/words/answer_fields.h"

namespace {

using level_t = std::optional<double> signal_levels_t::*;

/// One number of an answer: code 0 is `first`, each further one `step` more, up to `highest`.
struct level_row_t {
  level_t level;
  double first;
  double step;
  int highest;
};

// clang-format off
constexpr level_row_t kCsq[]      = {{&signal_levels_t::rssi_dbm, -113, 2, 31}};
constexpr level_row_t kCesq[]     = {{&signal_levels_t::rssi_dbm, -111,  1,   63}, {nullptr, 0, 0, 0},
                                     {&signal_levels_t::rscp_dbm, -121,  1,   96},
                                     {&signal_levels_t::ecio_db,  -24.5, 0.5, 49},
                                     {&signal_levels_t::rsrq_db,  -20,   0.5, 34},
                                     {&signal_levels_t::rsrp_dbm, -141,  1,   97},
                                     {&signal_levels_t::rsrq_db,  -43.5, 0.5, 126},
                                     {&signal_levels_t::rsrp_dbm, -157,  1,   126},
                                     {&signal_levels_t::sinr_db,  -23.5, 0.5, 127}};
constexpr level_row_t kHcsqGsm[]  = {{&signal_levels_t::rssi_dbm, -121, 1, 96}};
constexpr level_row_t kHcsqUmts[] = {{&signal_levels_t::rssi_dbm, -121,  1,   96},
                                     {&signal_levels_t::rscp_dbm, -121,  1,   96},
                                     {&signal_levels_t::ecio_db,  -32.5, 0.5, 65}};
constexpr level_row_t kHcsqLte[]  = {{&signal_levels_t::rssi_dbm, -121,  1,   96},
                                     {&signal_levels_t::rsrp_dbm, -141,  1,   97},
                                     {&signal_levels_t::sinr_db,  -20.2, 0.2, 251},
                                     {&signal_levels_t::rsrq_db,  -20,   0.5, 34}};

constexpr signal_level_row_t kLevels[] = {
  {"rssi", "dBm", &signal_levels_t::rssi_dbm}, {"rscp", "dBm", &signal_levels_t::rscp_dbm},
  {"ecio", "dB",  &signal_levels_t::ecio_db }, {"rsrp", "dBm", &signal_levels_t::rsrp_dbm},
  {"rsrq", "dB",  &signal_levels_t::rsrq_db }, {"sinr", "dB",  &signal_levels_t::sinr_db },
};

// By the numbers that EVT_AT_HCSQ has for them.
constexpr const char* kTechnologies[] = {"GSM", "WCDMA", "LTE", "CDMA", "EVDO", "TD-SCDMA", "CDMA-EVDO"};
// clang-format on

nlohmann::ordered_json level_json(const std::optional<double>& level) {
  if (!level) return nullptr;
  return std::round(*level * 10) / 10;
}

template <size_t count>
void take(const std::vector<std::string>& fields, size_t first, const level_row_t (&rows)[count],
          signal_levels_t* levels) {
  for (size_t i = 0; i < count; ++i) {
    const level_row_t& row = rows[i];
    const std::optional<int> code = number_in(fields, first + i);
    if (row.level == nullptr || !code || *code < 0 || *code > row.highest) continue;
    if (!(levels->*row.level)) levels->*row.level = row.first + row.step * *code;
  }
}

}  // namespace

void take_csq(const std::string& text, signal_levels_t* levels) {
  take(answer_fields(text, "+CSQ:"), 0, kCsq, levels);
}

void take_cesq(const std::string& text, signal_levels_t* levels) {
  take(answer_fields(text, "+CESQ:"), 0, kCesq, levels);
}

void take_hcsq(const std::string& text, signal_levels_t* levels) {
  const std::vector<std::string> fields = answer_fields(text, "^HCSQ:");
  const std::string technology = text_in(fields, 0);
  if (technology.empty() || technology == "NOSERVICE") return;
  levels->technology = technology;
  if (technology == "GSM") return take(fields, 1, kHcsqGsm, levels);
  if (technology == "WCDMA" || technology == "TD-SCDMA") return take(fields, 1, kHcsqUmts, levels);
  if (technology == "LTE") return take(fields, 1, kHcsqLte, levels);
}

std::span<const signal_level_row_t> signal_level_rows() { return kLevels; }

nlohmann::ordered_json levels_json(const signal_levels_t& levels) {
  nlohmann::ordered_json object = {{"technology", nullptr}};
  if (!levels.technology.empty()) object["technology"] = levels.technology;
  for (const signal_level_row_t& row : kLevels) {
    const bool is_db = std::string_view(row.unit) == "dB";
    object[std::string(row.name) + (is_db ? "_db" : "_dbm")] = level_json(levels.*row.level);
  }
  return object;
}

signal_levels_t levels_of_report(int sysmode, std::span<const int> codes) {
  signal_levels_t levels;
  if (sysmode < 0 || sysmode >= static_cast<int>(std::size(kTechnologies))) return levels;
  std::string text = std::string("^HCSQ:") + kTechnologies[sysmode];
  for (const int code : codes) text += ',' + std::to_string(code);
  take_hcsq(text, &levels);
  return levels;
}
