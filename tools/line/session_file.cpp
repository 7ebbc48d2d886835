// SPDX-License-Identifier: Apache-2.0

// Reads session files.
//
// They are recorded, pasted from logs and written by hand: what is wrong is told with its line.
#include "tools/line/session_file.h"

#include <utility>

#include "tools/line/escape.h"

namespace mdxline {

SessionError::SessionError(const std::string& name, int line, const std::string& problem)
    : std::runtime_error(name + ":" + std::to_string(line) + ": " + problem) {}

Session parse_session(std::istream& text, std::string name) {
  Session session{std::move(name), {}};
  std::string line;
  int number = 0;
  while (std::getline(text, line)) {
    ++number;
    if (!line.empty() && line.back() == '\r') line.pop_back();  // an editor's line end
    if (line.empty() || line == "#" || line.starts_with("# ")) continue;
    const bool from_host = line.starts_with("> ");
    if (!from_host && !line.starts_with("< ")) {
      throw SessionError(session.name, number, "a line begins with '> ', '< ' or '# '");
    }
    try {
      session.steps.push_back({from_host, unescape(std::string_view(line).substr(2)), number});
    } catch (const std::invalid_argument& problem) {
      throw SessionError(session.name, number, problem.what());
    }
    if (session.steps.back().bytes.empty()) {
      throw SessionError(session.name, number, "nothing is sent or read here");
    }
  }
  if (session.steps.empty()) throw SessionError(session.name, number, "the session is empty");
  return session;
}

}  // namespace mdxline
