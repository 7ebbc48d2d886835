// SPDX-License-Identifier: Apache-2.0

// mdxctl modem: which one it is; and its restart.

#include <unistd.h>

#include <iostream>

#include "tools/mdxctl/commands.h"
#include "tools/mdxctl/modem_query.h"
#include "tools/mdxctl/output.h"

using nlohmann::ordered_json;

namespace {

// clang-format off
constexpr struct { const char* name; const char* json; const char* command; } kQuestions[] = {
  {"maker",        "maker",        "+CGMI"},
  {"model",        "model",        "+CGMM"},
  {"revision",     "revision",     "+CGMR"},
  {"IMEI",         "imei",         "+CGSN"},
  {"capabilities", "capabilities", "+GCAP"},
};
// clang-format on

/// All of the answer in one line; some modems put the command's name in front.
std::string value_in(const std::string& text, const std::string& name) {
  std::string value;
  for (const std::string& line : answer_lines(text, "")) {
    const std::vector<std::string> named = answer_lines(line, name + ':');
    value += (value.empty() ? "" : " ") + (named.empty() ? line : named.front());
  }
  if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
    value = value.substr(1, value.size() - 2);
  return value;
}

bool agreed() {
  if (isatty(STDIN_FILENO) == 0) {
    tell("a restart cuts calls and data off: --yes does it");
    return false;
  }
  std::cerr << "A restart cuts calls and data off. Restart the modem? [y/N] " << std::flush;
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

}  // namespace

int run_modem(const modem_arguments_t& arguments) {
  const modem_query_t modem(arguments.timeout_s.value_or(kQuestionTimeoutS));
  ordered_json object;
  for (const auto& question : kQuestions) {
    const reply_t reply = modem.ask(std::string("AT") + question.command);
    if (!reply.ok() && reply.code != EXIT_MODEM_ERROR)
      return fail_with(reply.code, reply.error, arguments.json);
    const std::string value = value_in(reply.text, question.command);
    object[question.json] = or_null(value);
    if (!arguments.json) print_line(question.name, value);
  }
  if (arguments.json) print_json(object);
  return EXIT_OK;
}

int run_modem_reset(const modem_arguments_t& arguments) {
  if (!arguments.yes && !agreed()) return EXIT_USAGE;
  const modem_query_t modem(arguments.timeout_s.value_or(kQuestionTimeoutS));
  const reply_t reply = modem.ask("AT+CFUN=1,1");
  // Some modems are gone before they have said OK.
  if (!reply.ok() && reply.code != EXIT_NO_ANSWER)
    return fail_with(reply.code, reply.error, arguments.json);
  if (arguments.json) print_json({{"restarted", true}, {"confirmed", reply.ok()}});
  tell(std::string("the modem restarts") + (reply.ok() ? "" : ", without having said so") +
       "; mdxctl wait modem tells when it is back");
  return EXIT_OK;
}
