// SPDX-License-Identifier: Apache-2.0

// What the bridge is told: lines "key = value" of a file, and options of the same names.
#pragma once

#include <istream>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace mdxbridge {

struct settings_t {
  std::string host;
  int port = 0;  ///< 0: 1883, or 8883 with TLS
  std::string prefix = "mdxgate";
  std::string id;         ///< empty until check_settings: this machine's name
  std::string client_id;  ///< empty until check_settings: the ID
  std::string username;
  std::string password_file;
  bool tls = false;
  std::string ca_file;
  std::string certificate;
  std::string key;
  std::string psk_identity;
  std::string psk_file;
  int keep_alive_s = 90;
  int stats_s = 60;
  std::string stats_file;
  int queue = 1000;
  int rate = 2;
  int longest_pause_s = 120;
  std::vector<std::string> allow_commands;
  std::vector<std::string> allow_sms;
  std::vector<std::string> open;
  std::vector<std::string> leave_out;

  /// Where each key was last set, such as "/etc/mdxgate/bridge.conf:3" or "--port".
  std::map<std::string, std::string, std::less<>> places;

  std::string topic(std::string_view below) const {
    return prefix + '/' + id + '/' + std::string(below);
  }
};

struct key_row_t {
  using value_t = std::variant<std::string settings_t::*, int settings_t::*, bool settings_t::*,
                               std::vector<std::string> settings_t::*>;
  std::string_view name;
  value_t value;
  int least;  ///< of a number
  int most;
  std::string_view takes;  ///< what stands for the value in help
  std::string_view help;
};

/// All keys, in the order in which they are explained.
std::span<const key_row_t> key_rows();

/// Sets one key; of a list it is one more entry.
/// @param place  where that was said
/// @return what is wrong, without the place; empty when nothing is
std::string set_key(settings_t* settings, std::string_view key, const std::string& value,
                    const std::string& place);

/// Sets what the lines of a file say.
/// @param path  for the places
/// @return what is wrong, a sentence each with place and key
std::vector<std::string> read_settings(std::istream& file, const std::string& path,
                                       settings_t* settings);

/// Fills in what follows from the rest, and looks at the files that are named.
/// @param file  the configuration, for what stands in none
/// @return what is wrong, as read_settings
std::vector<std::string> check_settings(settings_t* settings, const std::string& file);

/// What is allowed, but may surprise.
std::vector<std::string> doubts_about(const settings_t& settings);

/// Where a secret is: a name without a slash is one of systemd's credentials.
std::string secret_path(const std::string& name);

/// The first line of a file.
/// @param error  set when it cannot be read, or is empty
std::string read_secret(const std::string& name, std::string* error);

}  // namespace mdxbridge
