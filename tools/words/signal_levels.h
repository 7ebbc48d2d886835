// SPDX-License-Identifier: Apache-2.0

// Signal levels out of the numbers with which modems code them (3GPP TS 27.007, +CSQ and +CESQ; and
// ^HCSQ of some makers). A coded number stands for a step; the value is the step's lower edge.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>

struct signal_levels_t {
  std::string technology;  ///< as the modem names it, "" where it does not
  std::optional<double> rssi_dbm;
  std::optional<double> rscp_dbm;
  std::optional<double> ecio_db;
  std::optional<double> rsrp_dbm;
  std::optional<double> rsrq_db;
  std::optional<double> sinr_db;

  bool empty() const {
    return !rssi_dbm && !rscp_dbm && !ecio_db && !rsrp_dbm && !rsrq_db && !sinr_db;
  }
};

struct signal_level_row_t {
  const char* name;
  const char* unit;  ///< "dBm" or "dB"
  std::optional<double> signal_levels_t::*level;
};

/// Every level by its name, in the order in which people read them.
std::span<const signal_level_row_t> signal_level_rows();

/// technology, and each level with its unit in its name, such as rssi_dbm; null for what is not
/// told.
nlohmann::ordered_json levels_json(const signal_levels_t& levels);

/// What EVT_AT_HCSQ tells by its numbers: `sysmode`, and value1 and so on in `codes`.
signal_levels_t levels_of_report(int sysmode, std::span<const int> codes);

/// Each takes what an answer tells and leaves what is known already.
void take_csq(const std::string& text, signal_levels_t* levels);
void take_cesq(const std::string& text, signal_levels_t* levels);
void take_hcsq(const std::string& text, signal_levels_t* levels);
