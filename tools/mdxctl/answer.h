// SPDX-License-Identifier: Apache-2.0

// Shows answers: text to standard output, the result to standard error, or all as one JSON object.
#pragma once

#include <chrono>
#include <string>

#include "client/mdxclient.h"

class answer_t {
 public:
  /// Begins the time that the answer takes.
  answer_t(std::string command, bool json);

  /// Shows an answer with its text.
  /// @return the exit code
  int show(const mdx_result_t& result, const std::string& text) const;

  /// Says why there is no answer.
  /// @return the exit code
  int fail(int error) const;
  int fail(int error, const std::string& reason) const;

 private:
  double seconds() const;

  std::string command_;
  bool json_;
  std::chrono::steady_clock::time_point start_;
};

/// `error` of the library in words, with what this machine tells about it: the system's own words,
/// or that there is no modem to serve a request.
std::string error_text(int error);
