// SPDX-License-Identifier: Apache-2.0

// Registration and networks as 3GPP TS 27.007 numbers them, in words.
#pragma once

#include <optional>
#include <string>
#include <vector>

struct registration_t {
  int reports = 0;   ///< what the modem reports by itself: 0 nothing, 1 the status, 2 the cell, too
  int status = 4;    ///< 27.007's <stat>; 4 is unknown
  std::string area;  ///< hexadecimal digits, "" where it is not told
  std::string cell;
  std::optional<int> technology;

  /// Also for messages alone, also abroad.
  bool registered() const;
  bool roaming() const;
};

/// The answer to AT+CREG? and its like.
/// @param name  such as "+CREG"
std::optional<registration_t> read_registration(const std::string& text, const std::string& name);

/// "home network", "searching" and so on; "" for what is no <stat>.
std::string registration_name(int status);
/// "LTE" and so on; "" for what is not known.
std::string technology_name(std::optional<int> technology);
/// How the operator was chosen: "automatic" and so on.
std::string selection_name(std::optional<int> mode);

struct found_network_t {
  int status = 0;
  std::string name;
  std::string short_name;
  std::string number;
  std::optional<int> technology;
};

/// The answer to AT+COPS=?, without the lists of what the command takes.
std::vector<found_network_t> read_scan(const std::string& text);
/// "available", "current", "forbidden", "unknown".
std::string scan_status_name(int status);
