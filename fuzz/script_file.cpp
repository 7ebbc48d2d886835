// SPDX-License-Identifier: Apache-2.0

// A script: it is refused with a word about the line, or played. And a recording: it is refused
// likewise, or learnt, and then the script of it is one.

#include <sstream>

#include "fuzz/fuzz.h"
#include "tools/line/learn.h"
#include "tools/line/session_file.h"
#include "tools/mdxsim/scripted_modem.h"

namespace {

using mdxsim::Time;

void play(const std::string& text) {
  std::istringstream stream(text);
  mdxsim::ScriptedModem modem(mdxsim::parse_script(stream, "fuzz"), {});
  modem.attached(Time{0});
  for (Time now{0}; now < Time{50}; ++now) {
    modem.receive("AT+CSQ\rAT+CMGS=1\r00\x1a", now);
    modem.advance(now);
    while (!modem.transmit(now).empty()) {
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    play(text);
  } catch (const std::invalid_argument& error) {
    fuzz::require(std::strncmp(error.what(), "fuzz:", 5) == 0);
  }
  std::istringstream stream(text);
  std::string learnt;
  try {
    learnt = mdxline::learn(mdxline::parse_session(stream, "fuzz"));
  } catch (const mdxline::SessionError& error) {
    fuzz::require(std::strncmp(error.what(), "fuzz:", 5) == 0);
    return 0;
  }
  play(learnt);
  return 0;
}
