// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxbridge/journal.h"

#include <unistd.h>

namespace mdxbridge {

std::string printable(const std::string& text) {
  constexpr size_t kMost = 500;
  std::string shown;
  for (const char c : text.substr(0, kMost)) shown += c >= ' ' && c < 0x7f ? c : '?';
  return text.size() > kMost ? shown + "..." : shown;
}

void journal(const std::string& line) {
  const std::string shown = "mdxbridge: " + printable(line) + '\n';
  // A reader that went away changes nothing.
  if (write(STDERR_FILENO, shown.data(), shown.size()) < 0) return;
}

}  // namespace mdxbridge
