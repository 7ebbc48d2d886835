// SPDX-License-Identifier: Apache-2.0

// The platform's figures: the text that the server's console prints, taken apart and shown.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct receiver_stats_t {
  int64_t process = 0;  ///< 0: of another world of process ids
  int64_t user = 0;
  std::string wants;  ///< "*", a service, or "module:19"
  uint64_t sent = 0;
  uint64_t lost = 0;
};

struct platform_stats_t {
  std::string version;                                   ///< of the server, empty when it says none
  std::vector<std::pair<std::string, uint64_t>> values;  ///< in the server's order
  std::vector<receiver_stats_t> receivers;

  /// A value by its name, 0 when the server has none of that name.
  uint64_t value(std::string_view name) const;
};

/// Reads lines "name value", "version text" and "receiver process user wants sent lost"; others are
/// passed over, so that a newer server's figures can be read.
platform_stats_t parse_stats(const std::string& text);

/// Asks the server for all of it.
/// @return mdx_error_t, as ask_console
int fetch_stats(platform_stats_t* stats);

/// What a value means; empty for one that is not known here.
std::string_view meaning_of(std::string_view name);

std::string stats_lines(const platform_stats_t& stats);
nlohmann::ordered_json stats_json(const platform_stats_t& stats);
/// The text exposition format, version 0.0.4.
std::string stats_prometheus(const platform_stats_t& stats);
