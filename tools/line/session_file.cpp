// SPDX-License-Identifier: Apache-2.0

// Reads session files.
//
// They are recorded, pasted from logs and written by hand: what is wrong is told with its line.
#include "tools/line/session_file.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "tools/line/escape.h"

namespace mdxline {
namespace {

constexpr std::string_view kRecorded = "# recorded by mdxtap ";
constexpr std::string_view kTimeMark = "# at ";
constexpr size_t kMostDigits = 8;

// "# at 12.345" or "# at 12.345: what"; any other remark is none of a time.
void read_time(std::string_view line, Session& session, std::optional<SessionTime>& now) {
  line.remove_prefix(kTimeMark.size());
  const size_t colon = std::min(line.find(": "), line.size());
  const std::string_view time = line.substr(0, colon);
  const size_t point = time.find('.');
  if (point == time.npos || point == 0 || point > kMostDigits || time.size() != point + 4) return;
  long long milliseconds = 0;
  for (const char c : time) {
    if (c == '.') continue;
    if (c < '0' || c > '9') return;
    milliseconds = milliseconds * 10 + (c - '0');
  }
  now = SessionTime{milliseconds};
  if (colon < line.size()) session.remarks.push_back({*now, std::string(line.substr(colon + 2))});
}

}  // namespace

SessionError::SessionError(const std::string& name, int line, const std::string& problem)
    : std::runtime_error(name + ":" + std::to_string(line) + ": " + problem) {}

Session parse_session(std::istream& text, std::string name) {
  Session session{std::move(name), {}, {}};
  std::optional<SessionTime> now;
  std::string line;
  int number = 0;
  bool recorded = false;
  while (std::getline(text, line)) {
    ++number;
    recorded |= number == 1 && line.starts_with(kRecorded);
    if (recorded && text.eof()) break;                          // a power cut has torn it
    if (!line.empty() && line.back() == '\r') line.pop_back();  // an editor's line end
    if (line.starts_with(kTimeMark)) read_time(line, session, now);
    if (line.empty() || line == "#" || line.starts_with("# ")) continue;
    const bool from_host = line.starts_with("> ");
    if (!from_host && !line.starts_with("< ")) {
      throw SessionError(session.name, number, "a line begins with '> ', '< ' or '# '");
    }
    try {
      session.steps.push_back({from_host, unescape(std::string_view(line).substr(2)), number, now});
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
