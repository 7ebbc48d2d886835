// SPDX-License-Identifier: Apache-2.0

// mdxctl at and sms-pdu: commands to the modem, one answer each.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

#include "tools/mdxctl/answer.h"
#include "tools/mdxctl/client_session.h"
#include "tools/mdxctl/commands.h"
#include "tools/mdxctl/exit_codes.h"
#include "tools/mdxctl/output.h"
#include "tools/mdxctl/request.h"
#include "tools/words/collection.h"
#include "tools/words/mistakes.h"

namespace {

/// What the user asked for, or what suits the command when nothing was asked for.
collection_t collection_of(const at_arguments_t& arguments, const std::string& command) {
  if (arguments.match.empty() && !arguments.multi_line && !arguments.transparent) {
    return collection_for(command, arguments.timeout_s.has_value());
  }
  collection_t collection;
  collection.match = arguments.match;
  collection.multi_line = arguments.multi_line;
  collection.transparent = arguments.transparent;
  return collection;
}

/// The server gives a transparent search for networks its own time.
int32_t modem_time_s(const std::string& command, const mdx_options_t& options) {
  constexpr int32_t kNetworkSearchS = 240;
  const bool search = strcasestr(command.c_str(), "+COPS=?") != nullptr;
  return options.transparent != 0 && search ? kNetworkSearchS : options.timeout_s;
}

mdx_options_t options_of(const at_arguments_t& arguments, const collection_t& collection) {
  mdx_options_t options = MDX_OPTIONS_INIT;
  options.match = collection.match.c_str();
  options.multi_line = collection.multi_line ? 1 : 0;
  options.transparent = collection.transparent ? 1 : 0;
  if (arguments.timeout_s) options.timeout_s = *arguments.timeout_s;
  options.wait_s = arguments.wait_s.value_or(0);
  return options;
}

std::string mistake_in(const at_arguments_t& arguments, const std::string& command,
                       const collection_t& collection, const mdx_options_t& options) {
  const std::string mistake = command_mistake(command, options, kOnCommandLine);
  if (!mistake.empty()) return mistake;
  if (collection.mixed) return kMixedReports;
  return !arguments.yes && mutes_results(command) ? kMutesResults + std::string("; --yes sends it")
                                                  : "";
}

/// @param where  stands in front of what is wrong with the command, such as "line 3: "
int send_one(const at_arguments_t& arguments, const client_session_t& session,
             const std::string& command, const std::string& where) {
  const collection_t collection = collection_of(arguments, command);
  const mdx_options_t options = options_of(arguments, collection);
  const answer_t answer(command, arguments.json, modem_time_s(command, options));
  const std::string mistake = mistake_in(arguments, command, collection, options);
  if (!mistake.empty()) return answer.fail(MDX_ERR_ARGUMENT, where + mistake);
  if (session.error() != MDX_OK) return answer.fail(session.error());
  mdx_result_t result = MDX_RESULT_INIT;
  const int error = send_command(session.client(), command, options, &result);
  if (error != MDX_OK) return answer.fail(error);
  const std::string text = shown_text(result, collection);
  const bool empty = text.empty() && result.ret_val == MDX_RESULT_OK;
  if (empty && collection.should_have_text) tell(kNothingInIt);
  return answer.show(result, text);
}

/// What of a line is a command: a remark is none, and blanks around it mean nothing. An editor may
/// have put a byte order mark in front of all.
std::string command_on(std::string line, bool first) {
  constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
  constexpr char kBlanks[] = " \t\r";
  if (first && line.starts_with(kByteOrderMark)) line.erase(0, kByteOrderMark.size());
  const size_t begin = line.find_first_not_of(kBlanks);
  if (begin == std::string::npos || line[begin] == '#') return "";
  return line.substr(begin, line.find_last_not_of(kBlanks) - begin + 1);
}

int send_lines(const at_arguments_t& arguments, const client_session_t& session) {
  int first_failure = EXIT_OK;
  size_t number = 0;
  for (std::string line; std::getline(std::cin, line);) {
    ++number;
    const std::string command = command_on(line, number == 1);
    if (command.empty()) continue;
    const int code = send_one(arguments, session, command, "line " + std::to_string(number) + ": ");
    if (first_failure == EXIT_OK) first_failure = code;
    if (!output_written()) return EXIT_REFUSED;
  }
  if (std::ferror(stdin) == 0) return first_failure;
  tell("standard input could not be read: " + std::string(std::strerror(errno)));
  return EXIT_USAGE;
}

}  // namespace

int run_at(const at_arguments_t& arguments) {
  const client_session_t session;
  if (arguments.command != "-") return send_one(arguments, session, arguments.command, "");
  return send_lines(arguments, session);
}

int run_sms_pdu(const sms_pdu_arguments_t& arguments) {
  mdx_options_t options = MDX_OPTIONS_INIT;
  if (arguments.timeout_s) options.timeout_s = *arguments.timeout_s;
  options.wait_s = arguments.wait_s.value_or(0);
  const answer_t answer(arguments.head, arguments.json, options.timeout_s);
  if (arguments.match) options.match = arguments.match->c_str();
  const std::string mistake =
      message_mistake(arguments.head, arguments.pdu, options, kOnCommandLine);
  if (!mistake.empty()) return answer.fail(MDX_ERR_ARGUMENT, mistake);
  const client_session_t session;
  if (session.error() != MDX_OK) return answer.fail(session.error());
  mdx_result_t result = MDX_RESULT_INIT;
  const int error = send_message(session.client(), arguments.head, arguments.pdu, options, &result);
  if (error == MDX_ERR_TIMEOUT) return answer.fail(error, kUnconfirmed);
  if (error != MDX_OK) return answer.fail(error);
  return answer.show_message(result, std::string(result.text, result.length));
}
