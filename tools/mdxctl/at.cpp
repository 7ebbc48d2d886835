// SPDX-License-Identifier: Apache-2.0

// mdxctl at and sms-pdu: commands to the modem, one answer each.

#include <iostream>

#include "tools/mdxctl/answer.h"
#include "tools/mdxctl/client_session.h"
#include "tools/mdxctl/collection.h"
#include "tools/mdxctl/commands.h"
#include "tools/mdxctl/exit_codes.h"

namespace {

/// What the user asked for, or what suits the command when nothing was asked for.
std::optional<collection_t> collection_of(const at_arguments_t& arguments,
                                          const std::string& command) {
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

int send_one(const at_arguments_t& arguments, const client_session_t& session,
             const std::string& command) {
  const answer_t answer(command, arguments.json);
  if (session.error() != MDX_OK) return answer.fail(session.error());
  const std::optional<collection_t> collection = collection_of(arguments, command);
  if (!collection) {
    return answer.fail(MDX_ERR_ARGUMENT,
                       "the modem would wait for a PDU; use: mdxctl sms-pdu '" + command + "' PDU");
  }
  const mdx_options_t options = options_of(arguments, *collection);
  mdx_result_t result = MDX_RESULT_INIT;
  const int error = mdx_send(session.client(), command.c_str(), &options, &result);
  if (error != MDX_OK) return answer.fail(error);
  return answer.show(result, shown_text(result, *collection));
}

int send_lines(const at_arguments_t& arguments, const client_session_t& session) {
  int first_failure = EXIT_OK;
  for (std::string line; std::getline(std::cin, line);) {
    if (line.ends_with('\r')) line.pop_back();
    if (line.empty()) continue;
    const int code = send_one(arguments, session, line);
    if (first_failure == EXIT_OK) first_failure = code;
  }
  return first_failure;
}

}  // namespace

int run_at(const at_arguments_t& arguments) {
  const client_session_t session;
  if (arguments.command != "-") return send_one(arguments, session, arguments.command);
  return send_lines(arguments, session);
}

int run_sms_pdu(const sms_pdu_arguments_t& arguments) {
  const answer_t answer(arguments.head, arguments.json);
  const client_session_t session;
  if (session.error() != MDX_OK) return answer.fail(session.error());
  mdx_options_t options = MDX_OPTIONS_INIT;
  if (arguments.timeout_s) options.timeout_s = *arguments.timeout_s;
  if (arguments.match) options.match = arguments.match->c_str();
  mdx_result_t result = MDX_RESULT_INIT;
  const int error = mdx_send_pdu(session.client(), arguments.head.c_str(), arguments.pdu.c_str(),
                                 &options, &result);
  if (error != MDX_OK) return answer.fail(error);
  return answer.show(result, std::string(result.text, result.length));
}
