// SPDX-License-Identifier: Apache-2.0

// The subcommands: what the command line gives to each. Each returns mdxctl's exit code.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct at_arguments_t {
  std::string command;  ///< "-" reads commands from standard input
  std::optional<int32_t> timeout_s;
  std::optional<int32_t> wait_s;  ///< for its turn
  std::string match;
  bool multi_line = false;
  bool transparent = false;
  bool yes = false;  ///< also what takes the results from everyone
  bool json = false;
};
int run_at(const at_arguments_t& arguments);

struct sms_pdu_arguments_t {
  std::string head;
  std::string pdu;
  std::optional<int32_t> timeout_s;
  std::optional<int32_t> wait_s;
  std::optional<std::string> match;
  bool json = false;
};
int run_sms_pdu(const sms_pdu_arguments_t& arguments);

struct report_arguments_t {
  std::string name;
  bool json = false;
};
int run_report(const report_arguments_t& arguments);

struct console_arguments_t {
  std::string module;
  std::vector<std::string> words;
};
int run_console(const console_arguments_t& arguments);

/// Commands and reports at a prompt.
int run_shell();

struct stats_arguments_t {
  bool json = false;
  bool prometheus = false;
};
int run_stats(const stats_arguments_t& arguments);

struct status_arguments_t {
  bool json = false;
};
int run_status(const status_arguments_t& arguments);

struct state_arguments_t {
  std::string name;  ///< as is_state_name, empty for all
  bool json = false;
};
int run_state(const state_arguments_t& arguments);

/// The server at work on the whole screen.
int run_top();

struct watch_arguments_t {
  std::string service;             ///< empty for all, unless `module` is given
  std::optional<uint32_t> module;  ///< notifications of this module only
  std::optional<uint32_t> count;   ///< end after this many packets
  bool last = false;               ///< the last of each state first
  bool follow = false;             ///< wait for a server that is not there
  bool json = false;
};
int run_watch(const watch_arguments_t& arguments);
