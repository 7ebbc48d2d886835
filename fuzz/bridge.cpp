// SPDX-License-Identifier: Apache-2.0

// What anybody may send through a broker: a request, with the patterns of an owner who is generous.
// What is accepted holds one command of those, and nothing of what stays on the device; what is not
// gets an answer in words. Behind a zero byte stand a configuration's lines and figures.

#include <sstream>

#include "fuzz/fuzz.h"
#include "tools/mdxbridge/figures.h"
#include "tools/mdxbridge/privacy.h"
#include "tools/mdxbridge/request.h"
#include "tools/mdxbridge/settings.h"

namespace {

using mdxbridge::request_t;

void require_one_command(const request_t& request, const mdxbridge::settings_t& settings) {
  const std::string& command = request.command;
  fuzz::require(command.size() <= MDX_COMMAND_MAX);
  for (const char c : command) {
    fuzz::require(static_cast<unsigned char>(c) >= ' ' && c != 0x7f && c != ';');
  }
  fuzz::require(mdxbridge::withheld_by_command(command, settings.open).empty());
  mdx_options_t options = MDX_OPTIONS_INIT;
  options.transparent = 1;
  fuzz::require(mdx_check(command.c_str(), nullptr, &options, nullptr) == MDX_MISTAKE_NONE);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::input input(data, size);
  const std::string payload = input.piece('\0');
  mdxbridge::settings_t settings;
  settings.id = "fuzzed";
  settings.allow_commands = {"AT*", "AT+*"};
  settings.allow_sms = {"*"};
  std::string error;
  const request_t request = mdxbridge::read_request(payload, &error);
  if (error.empty()) error = mdxbridge::refusal(request, settings);
  if (!error.empty()) {
    const nlohmann::ordered_json answer = mdxbridge::failure_object(request, error, true);
    answer.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
  } else if (!request.is_sms) {
    require_one_command(request, settings);
  }
  if (mdxbridge::may_answer_at(payload, settings)) {
    fuzz::require(payload.rfind("mdxgate/", 0) != 0 ||
                  payload.rfind("mdxgate/fuzzed/answer", 0) == 0);
  }
  const std::string rest = input.take(size);
  std::istringstream lines(rest);
  mdxbridge::read_settings(lines, "f", &settings);
  nlohmann::ordered_json figures;
  mdxbridge::add_figures_of(rest, &figures);
  return 0;
}
