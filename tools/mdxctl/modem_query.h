// SPDX-License-Identifier: Apache-2.0

// What the verbs about the modem have in common: questions to it, and how answers are shown.
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/mdxclient.h"
#include "tools/mdxctl/client_session.h"
#include "tools/mdxctl/exit_codes.h"
#include "tools/words/answer_fields.h"

/// What a question brought.
struct reply_t {
  exit_code_t code = EXIT_OK;
  std::string text;   ///< the lines of an OK, without the result
  std::string error;  ///< why there is none, empty for EXIT_OK; refusal_with_words

  bool ok() const { return code == EXIT_OK; }
};

/// Asks the modem, one question after the other. Ends the program at a signal, as send_command.
class modem_query_t {
 public:
  /// @param timeout_s  for each question
  explicit modem_query_t(int32_t timeout_s) : timeout_s_(timeout_s) {}

  reply_t ask(const std::string& command) const { return ask(command, timeout_s_); }
  reply_t ask(const std::string& command, int32_t timeout_s) const;

  /// Calls `tick` about once a second while the modem works.
  void on_tick(std::function<void()> tick) { tick_ = std::move(tick); }

 private:
  client_session_t session_;
  int32_t timeout_s_;
  std::function<void()> tick_;
};

/// JSON's null for what is not known.
template <typename T>
nlohmann::ordered_json or_null(const std::optional<T>& value) {
  return value ? nlohmann::ordered_json(*value) : nlohmann::ordered_json(nullptr);
}
nlohmann::ordered_json or_null(const std::string& text);

/// Prints one object on a line; what is no UTF-8 is replaced.
void print_json(const nlohmann::ordered_json& object);

/// One line of what is shown to people, its name in a column. Nothing for an empty text.
void print_line(std::string_view name, const std::string& text);

/// Says on standard error what went wrong, with --json as an object with `error`, too.
/// @return the exit code
int fail_with(exit_code_t code, const std::string& error, bool json);
