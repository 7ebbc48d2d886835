// SPDX-License-Identifier: Apache-2.0

// mdxctl init: sets a modem up by a file of commands; with --follow each time it comes back, so
// that one that was unplugged is as it was.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <thread>

#include "tools/mdxctl/answer.h"
#include "tools/mdxctl/commands.h"
#include "tools/mdxctl/init_file.h"
#include "tools/mdxctl/modem_query.h"
#include "tools/mdxctl/output.h"
#include "tools/words/shown_command.h"

namespace {

constexpr std::chrono::seconds kLookForServer{1};
constexpr std::chrono::seconds kBetweenTries{2};
/// A modem that has just come may be deaf for a while.
constexpr int kTries = 5;

/// @return the exit code of the first that failed and may not
exit_code_t run_commands(const std::string& name, const std::vector<init_command_t>& commands) {
  for (const init_command_t& command : commands) {
    const reply_t reply = modem_query_t(command.timeout_s).ask(command.command);
    if (reply.ok()) continue;
    tell(name + ':' + std::to_string(command.line) + ": " + shown_command(command.command) + ": " +
         reply.error + (command.may_fail ? "; going on" : "; stopped here"));
    if (!command.may_fail || reply.code != EXIT_MODEM_ERROR) return reply.code;
  }
  tell(name + ": done, " + std::to_string(commands.size()) + " commands");
  return EXIT_OK;
}

void run_until_answered(const std::string& name, const std::vector<init_command_t>& commands) {
  for (int i = 0; i < kTries; ++i) {
    const exit_code_t code = run_commands(name, commands);
    if (code != EXIT_NO_ANSWER && code != EXIT_REFUSED) return;
    std::this_thread::sleep_for(kBetweenTries);
  }
}

/// Runs the commands each time the modem's device is opened. @return why that is over
int follow_link(const std::string& name, const std::vector<init_command_t>& commands) {
  mdx_subscribe_options_t options = MDX_SUBSCRIBE_OPTIONS_INIT;
  options.service = MDX_SERVICE_LINK;
  options.last = 1;
  mdx_subscription_t* link = nullptr;
  int error = mdx_subscribe_with(&link, &options);
  while (error == MDX_OK) {
    mdx_packet_t packet = MDX_PACKET_INIT;
    error = mdx_next_packet(link, -1, &packet);
    if (error == MDX_OK && packet.type == MDX_LINK_UP) run_until_answered(name, commands);
  }
  mdx_unsubscribe(link);
  return error;
}

int follow(const std::string& name, const std::vector<init_command_t>& commands) {
  for (bool told = false;; told = true) {
    const int error = follow_link(name, commands);
    const bool may_come_back = error == MDX_ERR_NO_SERVER || error == MDX_ERR_SERVER_GONE ||
                               error == MDX_ERR_BUSY || error == MDX_ERR_REFUSED;
    if (!may_come_back) return fail_with(exit_code_of_error(error), error_text(error), false);
    if (!told || error == MDX_ERR_SERVER_GONE) tell("waiting for the server");
    std::this_thread::sleep_for(kLookForServer);
  }
}

}  // namespace

int run_init(const init_arguments_t& arguments) {
  const bool from_input = arguments.file == "-";
  const std::string name = from_input ? "standard input" : arguments.file;
  std::ifstream file;
  if (!from_input) file.open(arguments.file);
  std::istream& stream = from_input ? std::cin : file;
  const init_file_t read = read_init_file(stream, arguments.timeout_s.value_or(kQuestionTimeoutS));
  const bool unread = from_input ? std::ferror(stdin) != 0 : !file.is_open() || file.bad();
  if (unread)
    return fail_with(EXIT_USAGE, name + " cannot be read: " + std::strerror(errno), false);
  for (const std::string& mistake : read.mistakes) tell(name + ": " + mistake);
  if (!read.mistakes.empty()) return EXIT_USAGE;
  if (read.commands.empty())
    return fail_with(EXIT_USAGE, name + " holds no command: nothing was sent", false);
  return arguments.follow ? follow(name, read.commands) : run_commands(name, read.commands);
}
