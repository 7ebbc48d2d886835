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
  std::string output;  ///< a file in the place of standard output
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

/// For each question of the verbs below, unless told otherwise.
inline constexpr int32_t kQuestionTimeoutS = 10;

struct signal_arguments_t {
  std::optional<int32_t> timeout_s;
  bool watch = false;
  bool json = false;
};
int run_signal(const signal_arguments_t& arguments);

struct network_arguments_t {
  std::optional<int32_t> timeout_s;
  bool scan = false;
  bool json = false;
};
int run_network(const network_arguments_t& arguments);

struct sim_arguments_t {
  std::optional<int32_t> timeout_s;
  bool json = false;
};
int run_sim(const sim_arguments_t& arguments);

struct sim_unlock_arguments_t {
  std::optional<int32_t> timeout_s;
  std::string pin_file;  ///< "-" for standard input, empty for the terminal
  bool last_try = false;
  bool json = false;
};
int run_sim_unlock(const sim_unlock_arguments_t& arguments);

struct modem_arguments_t {
  std::optional<int32_t> timeout_s;
  bool yes = false;
  bool json = false;
};
int run_modem(const modem_arguments_t& arguments);
int run_modem_reset(const modem_arguments_t& arguments);

struct ussd_arguments_t {
  std::string code;
  std::vector<std::string> replies;
  std::optional<int32_t> timeout_s;
  bool cancel = false;
  bool json = false;
};
int run_ussd(const ussd_arguments_t& arguments);

struct wait_arguments_t {
  std::string what;  ///< modem, sim, registered or sms
  std::optional<int32_t> timeout_s;
  bool json = false;
};
int run_wait(const wait_arguments_t& arguments);

struct init_arguments_t {
  std::string file;  ///< "-" for standard input
  std::optional<int32_t> timeout_s;
  bool follow = false;
};
int run_init(const init_arguments_t& arguments);

/// The server at work on the whole screen.
int run_top();

struct watch_arguments_t {
  std::string service;             ///< empty for all, unless `module` is given
  std::optional<uint32_t> module;  ///< notifications of this module only
  std::optional<uint32_t> count;   ///< end after this many packets
  bool last = false;               ///< the last of each state first
  std::vector<std::string> only;   ///< packets' names, or words for them; empty for all
  std::string program;             ///< gets each packet, in the place of standard output
  bool follow = false;             ///< wait for a server that is not there
  bool json = false;
};
int run_watch(const watch_arguments_t& arguments);
