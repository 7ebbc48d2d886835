// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxctl/answer.h"

#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <iostream>
#include <nlohmann/json.hpp>
#include <utility>

#include "tools/mdxctl/exit_codes.h"
#include "tools/mdxctl/output.h"
#include "wire/border.h"

using nlohmann::ordered_json;

namespace {

const std::string kModem = std::string(kMdxChannelPrefix) + "6";

/// Modems may send any byte; JSON takes UTF-8 only.
void print(const ordered_json& object) {
  std::cout << object.dump(-1, ' ', false, ordered_json::error_handler_t::replace) << std::endl;
}

/// Lines end in LF, the last one too.
void print_lines(std::string text) {
  for (size_t at = 0; (at = text.find("\r\n", at)) != std::string::npos;) text.erase(at, 1);
  if (!text.empty() && text.back() != '\n') text += '\n';
  std::cout << for_output(text) << std::flush;
}

}  // namespace

std::string error_text(int error, const std::string& for_its_turn) {
  if (error == MDX_ERR_BUSY && access(kModem.c_str(), F_OK) != 0) {
    return "the server waits for its modem, and nothing was run: " + kModem +
           " is not there; plug the modem in, or make " + kModem + " a link to its AT port";
  }
  if (error == MDX_ERR_BUSY) {
    return "the command did not get its turn, and was not run: the modem works for other clients, "
           "or the server cannot open it; " +
           for_its_turn + ", mdxctl status tells more";
  }
  std::string text = mdx_strerror(error);
  if (error == MDX_ERR_SYSTEM) text += ": " + std::string(std::strerror(errno));
  return text;
}

answer_t::answer_t(std::string command, bool json, int32_t timeout_s)
    : command_(std::move(command)),
      json_(json),
      timeout_s_(timeout_s),
      start_(std::chrono::steady_clock::now()) {}

double answer_t::seconds() const {
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start_;
  return std::round(taken.count() * 1e6) / 1e6;
}

std::string answer_t::no_answer_text() const {
  return "no answer: the modem had " + std::to_string(timeout_s_) +
         " s for it; --timeout SECONDS allows more, and mdxctl status tells whether it answers at "
         "all";
}

int answer_t::show(const mdx_result_t& result, const std::string& text) const {
  switch (exit_code_of_result(result)) {
    case EXIT_REFUSED:
      return show(result, text, kModemAway);
    case EXIT_NO_ANSWER:
      return show(result, text, no_answer_text());
    default:
      return show(result, text, "");
  }
}

int answer_t::show_message(const mdx_result_t& result, const std::string& text) const {
  if (exit_code_of_result(result) == EXIT_NO_ANSWER) return show(result, text, kUnconfirmed);
  return show(result, text);
}

int answer_t::show(const mdx_result_t& result, const std::string& text,
                   const std::string& error) const {
  const exit_code_t code = exit_code_of_result(result);
  const std::string name = mdx_result_name(result.ret_val);
  if (result.truncated != 0) tell(kTruncated);
  if (link_) warn_if_gone(*link_);
  if (json_) {
    ordered_json object = {{"command", command_},
                           {"result", {{"name", name}, {"number", result.ret_val}}},
                           {"text", text},
                           {"truncated", result.truncated != 0},
                           {"seconds", seconds()}};
    if (link_) object["modem"] = link_json(*link_);
    if (!error.empty()) object["error"] = error;
    print(object);
    return code;
  }
  // A result with a number is the answer's text.
  const bool numbered = text.starts_with(name + ':') && text.find('\n') == std::string::npos;
  if (!numbered) print_lines(text);
  std::cerr << (!error.empty() ? harmless_line(error)
                : numbered     ? harmless_line(text)
                               : name)
            << std::endl;
  return code;
}

int answer_t::fail(int error) const {
  if (error == MDX_ERR_TIMEOUT) return fail(error, no_answer_text());
  return fail(error, error_text(error, "--wait SECONDS waits longer"));
}

int answer_t::fail(int error, const std::string& reason) const {
  if (json_) {
    print({{"command", command_},
           {"result", nullptr},
           {"text", ""},
           {"seconds", seconds()},
           {"error", reason}});
  }
  tell(reason);
  return exit_code_of_error(error);
}
