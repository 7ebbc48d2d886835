// SPDX-License-Identifier: Apache-2.0

// mdxctl sms: what the command line gives to each of its verbs. Each returns mdxctl's exit code.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct sms_send_arguments_t {
  std::string number;
  std::optional<std::string> text;  ///< UTF-8; "-": standard input
  std::string file;                 ///< to read the text from; empty: none
  std::optional<int32_t> timeout_s;
  std::optional<int32_t> report_wait_s;
  bool flash = false;
  bool report = false;   ///< wait until the network tells what became of it
  bool dry_run = false;  ///< show the parts, send nothing
  bool json = false;
};
int run_sms_send(const sms_send_arguments_t& arguments);

struct sms_list_arguments_t {
  bool unread = false;
  bool sent = false;
  bool all = false;  ///< none of the three: what was received
  std::optional<int32_t> timeout_s;
  bool json = false;
};
int run_sms_list(const sms_list_arguments_t& arguments);

struct sms_read_arguments_t {
  std::vector<uint32_t> numbers;
  std::optional<int32_t> timeout_s;
  bool json = false;
};
int run_sms_read(const sms_read_arguments_t& arguments);

struct sms_delete_arguments_t {
  std::vector<uint32_t> numbers;
  bool read = false;
  bool all = false;
  bool yes = false;  ///< do not ask
  std::optional<int32_t> timeout_s;
  bool json = false;
};
int run_sms_delete(const sms_delete_arguments_t& arguments);

struct sms_watch_arguments_t {
  std::optional<uint32_t> count;  ///< end after so many messages
  bool remove = false;            ///< delete each from the modem once it was shown
  std::optional<int32_t> timeout_s;
  bool json = false;
};
int run_sms_watch(const sms_watch_arguments_t& arguments);

struct sms_arguments_t {
  sms_send_arguments_t send;
  sms_list_arguments_t list;
  sms_read_arguments_t read;
  sms_delete_arguments_t remove;
  sms_watch_arguments_t watch;
};

namespace CLI {
class App;
}

/// Adds `sms` and its verbs.
/// @param code  gets the exit code of the one that is run
void add_sms(CLI::App& app, sms_arguments_t& arguments, int& code);

/// Puts a text that begins with a hyphen, such as "-hello", where it is not taken for an option.
/// @return the arguments, without the program's name
std::vector<std::string> with_text_behind_options(int argc, char** argv);
