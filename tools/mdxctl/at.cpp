// SPDX-License-Identifier: Apache-2.0

// mdxctl at and sms-pdu: commands to the modem, one answer each.

#include <iostream>

#include "tools/mdxctl/answer.h"
#include "tools/mdxctl/client_session.h"
#include "tools/mdxctl/collection.h"
#include "tools/mdxctl/commands.h"
#include "tools/mdxctl/exit_codes.h"
#include "tools/mdxctl/mistakes.h"
#include "tools/mdxctl/request.h"

namespace {

/// What the user asked for, or what suits the command when nothing was asked for.
collection_t collection_of(const at_arguments_t& arguments, const std::string& command) {
  if (arguments.match.empty() && !arguments.multi_line && !arguments.transparent) {
    return collection_for(command, arguments.timeout_s.has_value());
  }
  return collection_t{arguments.match, arguments.multi_line, arguments.transparent, false};
}

mdx_options_t options_of(const at_arguments_t& arguments, const collection_t& collection) {
  mdx_options_t options = MDX_OPTIONS_INIT;
  options.match = collection.match.c_str();
  options.multi_line = collection.multi_line ? 1 : 0;
  options.transparent = collection.transparent ? 1 : 0;
  if (arguments.timeout_s) options.timeout_s = *arguments.timeout_s;
  return options;
}

/// @param where  stands in front of what is wrong with the command, such as "line 3: "
int send_one(const at_arguments_t& arguments, const client_session_t& session,
             const std::string& command, const std::string& where) {
  const answer_t answer(command, arguments.json);
  const collection_t collection = collection_of(arguments, command);
  const mdx_options_t options = options_of(arguments, collection);
  const std::string mistake = command_mistake(command, options, kOnCommandLine);
  if (!mistake.empty()) return answer.fail(MDX_ERR_ARGUMENT, where + mistake);
  if (session.error() != MDX_OK) return answer.fail(session.error());
  mdx_result_t result = MDX_RESULT_INIT;
  const int error = send_command(session.client(), command, options, &result);
  if (error != MDX_OK) return answer.fail(error);
  return answer.show(result, shown_text(result, collection));
}

int send_lines(const at_arguments_t& arguments, const client_session_t& session) {
  int first_failure = EXIT_OK;
  size_t number = 0;
  for (std::string line; std::getline(std::cin, line);) {
    ++number;
    if (line.ends_with('\r')) line.pop_back();
    if (line.empty()) continue;
    const int code = send_one(arguments, session, line, "line " + std::to_string(number) + ": ");
    if (first_failure == EXIT_OK) first_failure = code;
  }
  return first_failure;
}

}  // namespace

int run_at(const at_arguments_t& arguments) {
  const client_session_t session;
  if (arguments.command != "-") return send_one(arguments, session, arguments.command, "");
  return send_lines(arguments, session);
}

int run_sms_pdu(const sms_pdu_arguments_t& arguments) {
  const answer_t answer(arguments.head, arguments.json);
  mdx_options_t options = MDX_OPTIONS_INIT;
  if (arguments.timeout_s) options.timeout_s = *arguments.timeout_s;
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
