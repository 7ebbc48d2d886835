// SPDX-License-Identifier: Apache-2.0

// Shows answers: text to standard output, the result to standard error, or all as one JSON object.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "client/mdxclient.h"
#include "tools/mdxctl/known_states.h"

class answer_t {
 public:
  /// Begins the time that the answer takes.
  /// @param timeout_s  what the modem has for it
  answer_t(std::string command, bool json, int32_t timeout_s);

  /// For an answer that the modem did not give now: whether it is there belongs to it.
  void tell_link(const modem_link_t& link) { link_ = link; }

  /// Shows an answer with its text.
  /// @return the exit code
  int show(const mdx_result_t& result, const std::string& text) const;
  /// The same for a message: that it was not confirmed is said in so many words.
  int show_message(const mdx_result_t& result, const std::string& text) const;

  /// Says why there is no answer to a command that --timeout and --wait belong to.
  /// @return the exit code
  int fail(int error) const;
  /// The same in words of the caller's.
  int fail(int error, const std::string& reason) const;

 private:
  int show(const mdx_result_t& result, const std::string& text, const std::string& error) const;
  std::string no_answer_text() const;
  double seconds() const;

  std::string command_;
  bool json_;
  std::optional<modem_link_t> link_;
  int32_t timeout_s_;
  std::chrono::steady_clock::time_point start_;
};

/// For an answer of which a part is missing.
inline constexpr char kTruncated[] =
    "the answer was longer than 1499 bytes, and a part of it is missing: ask in parts, such as "
    "AT+CMGR=N instead of AT+CMGL";
/// For an answer without text to a command that asks for some.
inline constexpr char kNothingInIt[] =
    "the answer holds nothing but its result: a line of it may look like a report, and be told to "
    "its receivers; --match NAME keeps it";
/// For a request that found no modem.
inline constexpr char kModemAway[] =
    "refused: the server could not write to the modem; check that it is plugged in: mdxctl status";
/// For a message whose exchange ended without the modem's word.
inline constexpr char kUnconfirmed[] =
    "the modem did not confirm the message: it may not have been sent, or it may have been";

/// `error` of the library in words, with what this machine tells about it: the system's own words,
/// or that there is no modem to serve a request.
/// @param for_its_turn  what helps a request that waited for its turn in vain
std::string error_text(int error, const std::string& for_its_turn = "try again");
