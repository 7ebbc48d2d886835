// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <chrono>
#include <istream>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace mdxline {

/// Since the recording began.
using SessionTime = std::chrono::milliseconds;

/// One line of a session: what the host sends, or one read that it gets from the modem.
struct SessionStep {
  bool from_host;
  std::string bytes;
  int line;                       ///< in the file, from 1
  std::optional<SessionTime> at;  ///< as the last "# at 1.234" in front of it says
};

/// "# at 1.234: the modem is gone".
struct SessionRemark {
  SessionTime at;
  std::string what;
};

struct Session {
  std::string name;  ///< stands in front of line numbers
  std::vector<SessionStep> steps;
  std::vector<SessionRemark> remarks;  ///< those that have a time
};

/// What is wrong with a session file; `what()` begins with "name:line: ".
class SessionError : public std::runtime_error {
 public:
  SessionError(const std::string& name, int line, const std::string& problem);
};

/// Reads a session: "> " what the host sent, "< " one read from the modem, "# " a remark, bytes
/// escaped as in escape.h; empty lines are skipped. So is the last line of a recording of mdxtap if
/// it has no end: the recorder was cut off there. Throws SessionError, also when there is no step
/// at all.
Session parse_session(std::istream& text, std::string name);

}  // namespace mdxline
