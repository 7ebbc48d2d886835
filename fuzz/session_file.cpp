// SPDX-License-Identifier: Apache-2.0

// A session file: it is refused with a word about the line, or it is written again as it was read.

#include <sstream>

#include "fuzz/fuzz.h"
#include "tools/line/escape.h"
#include "tools/line/session_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::istringstream text(std::string(reinterpret_cast<const char*>(data), size));
  try {
    for (const mdxline::SessionStep& step : mdxline::parse_session(text, "fuzz").steps)
      fuzz::require(mdxline::unescape(mdxline::escape(step.bytes)) == step.bytes);
  } catch (const mdxline::SessionError& error) {
    fuzz::require(std::strncmp(error.what(), "fuzz:", 5) == 0);
  }
  return 0;
}
