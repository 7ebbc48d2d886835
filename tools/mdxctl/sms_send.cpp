// SPDX-License-Identifier: Apache-2.0

// mdxctl sms send: a text becomes PDUs, and each goes through the modem's dialogue. A message is
// whole only when all of its parts went out, so the first that fails ends it.

#include <chrono>
#include <iostream>
#include <nlohmann/json.hpp>

#include "tools/mdxctl/answer.h"
#include "tools/mdxctl/client_session.h"
#include "tools/mdxctl/commands.h"
#include "tools/mdxctl/exit_codes.h"
#include "tools/mdxctl/request.h"
#include "tools/mdxctl/sms_pdu.h"

using nlohmann::ordered_json;

namespace {

constexpr int32_t kTimeoutS = 60;

/// What became of the message so far.
struct progress_t {
  exit_code_t code = EXIT_OK;
  std::string error;
  ordered_json parts = ordered_json::array();
};

/// Differs from that of the messages shortly before, which is all it has to do.
uint8_t fresh_reference() {
  return static_cast<uint8_t>(std::chrono::system_clock::now().time_since_epoch() /
                              std::chrono::seconds(1));
}

/// The number in "+CMGS: 12".
ordered_json reference_in(const std::string& text) {
  const size_t digits = text.find_first_of("0123456789", text.find("+CMGS"));
  if (digits == std::string::npos) return nullptr;
  return std::stoi(text.substr(digits, 9));
}

std::string refusal(const mdx_result_t& result, const std::string& text) {
  if (exit_code_of_result(result) == EXIT_NO_ANSWER) return kUnconfirmed;
  if (result.refused != 0) {
    return "the server could not write to the modem: check that it is plugged in with: mdxctl "
           "status";
  }
  const std::string reason = text.empty() ? mdx_result_name(result.ret_val) : text;
  return "the modem said " + reason +
         ": check SIM and network, and that AT+CMGF? shows 0, with mdxctl at";
}

void send_part(mdx_client_t* client, const sms_part_t& part, int32_t timeout_s,
               progress_t* progress) {
  mdx_options_t options = MDX_OPTIONS_INIT;
  options.timeout_s = timeout_s;
  mdx_result_t result = MDX_RESULT_INIT;
  const int error = send_message(client, part.head, part.pdu, options, &result);
  ordered_json shown = {{"head", part.head}, {"pdu", part.pdu}, {"result", nullptr}};
  if (error != MDX_OK) {
    progress->code = exit_code_of_error(error);
    progress->error = error == MDX_ERR_TIMEOUT ? kUnconfirmed : error_text(error);
  } else {
    const std::string text(result.text, result.length);
    shown["result"] = {{"name", mdx_result_name(result.ret_val)}, {"number", result.ret_val}};
    progress->code = exit_code_of_result(result);
    shown["reference"] = progress->code == EXIT_OK ? reference_in(text) : ordered_json();
    if (progress->code != EXIT_OK) progress->error = refusal(result, text);
  }
  progress->parts.push_back(shown);
}

void send_parts(const sms_message_t& message, const sms_send_arguments_t& arguments,
                progress_t* progress) {
  const client_session_t session;
  if (session.error() != MDX_OK) {
    progress->code = exit_code_of_error(session.error());
    progress->error = error_text(session.error());
    return;
  }
  for (const sms_part_t& part : message.parts) {
    send_part(session.client(), part, arguments.timeout_s.value_or(kTimeoutS), progress);
    if (progress->code != EXIT_OK) break;
    if (!arguments.json) std::cout << "+CMGS: " << progress->parts.back()["reference"] << std::endl;
  }
  if (progress->code == EXIT_OK || message.parts.size() == 1) return;
  progress->error = "part " + std::to_string(progress->parts.size()) + " of " +
                    std::to_string(message.parts.size()) + ": " + progress->error;
}

void show_parts(const sms_message_t& message, bool json, progress_t* progress) {
  for (const sms_part_t& part : message.parts) {
    progress->parts.push_back({{"head", part.head}, {"pdu", part.pdu}});
    if (!json) std::cout << part.head << ' ' << part.pdu << std::endl;
  }
}

}  // namespace

int run_sms_send(const sms_send_arguments_t& arguments) {
  mdx_sms_options_t options = MDX_SMS_OPTIONS_INIT;
  options.reference = fresh_reference();
  const sms_message_t message = encode_sms(arguments.number, arguments.text, options);
  progress_t progress;
  if (!message.error.empty()) {
    progress.code = EXIT_USAGE;
    progress.error = message.error;
  } else if (arguments.dry_run) {
    show_parts(message, arguments.json, &progress);
  } else {
    send_parts(message, arguments, &progress);
  }
  if (arguments.json) {
    ordered_json object = {{"number", arguments.number},
                           {"alphabet", message.alphabet == MDX_SMS_UCS_2 ? "UCS-2" : "GSM 7-bit"},
                           {"parts", progress.parts}};
    if (!progress.error.empty()) object["error"] = progress.error;
    std::cout << object.dump(-1, ' ', false, ordered_json::error_handler_t::replace) << std::endl;
  }
  if (!progress.error.empty()) std::cerr << "mdxctl: " << progress.error << std::endl;
  return progress.code;
}
