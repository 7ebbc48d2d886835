// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxctl/modem_query.h"

#include <iomanip>
#include <iostream>

#include "tools/mdxctl/answer.h"
#include "tools/mdxctl/output.h"
#include "tools/mdxctl/request.h"
#include "tools/words/collection.h"
#include "tools/words/refusal.h"

using nlohmann::ordered_json;

reply_t modem_query_t::ask(const std::string& command, int32_t timeout_s) const {
  if (session_.error() != MDX_OK) {
    return {exit_code_of_error(session_.error()), "", error_text(session_.error())};
  }
  const collection_t collection = collection_for(command, true);
  mdx_options_t options = MDX_OPTIONS_INIT;
  options.timeout_s = timeout_s;
  options.match = collection.match.c_str();
  options.multi_line = collection.multi_line ? 1 : 0;
  options.transparent = collection.transparent ? 1 : 0;
  mdx_result_t result = MDX_RESULT_INIT;
  const int error = send_command(session_.client(), command, options, &result, tick_);
  if (error != MDX_OK) return {exit_code_of_error(error), "", error_text(error)};
  reply_t reply{exit_code_of_result(result), shown_text(result, collection), ""};
  const std::string name = mdx_result_name(result.ret_val);
  if (reply.code == EXIT_NO_ANSWER) {
    reply.error = "no answer: the modem had " + std::to_string(timeout_s) +
                  " s for it; --timeout SECONDS allows more";
  } else if (reply.code == EXIT_REFUSED) {
    reply.error = kModemAway;
  } else if (reply.code != EXIT_OK) {
    reply.error = reply.text.starts_with(name) ? refusal_with_words(reply.text) : name;
    reply.text.clear();
  }
  return reply;
}

ordered_json or_null(const std::string& text) {
  return text.empty() ? ordered_json(nullptr) : ordered_json(text);
}

void print_json(const ordered_json& object) {
  std::cout << object.dump(-1, ' ', false, ordered_json::error_handler_t::replace) << std::endl;
}

void print_line(std::string_view name, const std::string& text) {
  constexpr int kNameWidth = 14;
  if (text.empty()) return;
  std::cout << std::left << std::setw(kNameWidth) << name << harmless_line(text) << '\n';
}

int fail_with(exit_code_t code, const std::string& error, bool json) {
  if (json) print_json({{"error", error}});
  tell(error);
  return code;
}
