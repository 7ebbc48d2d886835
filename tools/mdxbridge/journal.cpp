// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxbridge/journal.h"

#include <unistd.h>

namespace mdxbridge {

void journal(const std::string& line) {
  constexpr size_t kMost = 500;
  std::string shown = "mdxbridge: ";
  for (const char c : line.substr(0, kMost)) shown += c >= ' ' && c < 0x7f ? c : '?';
  if (line.size() > kMost) shown += "...";
  shown += '\n';
  // A reader that went away changes nothing.
  if (write(STDERR_FILENO, shown.data(), shown.size()) < 0) return;
}

}  // namespace mdxbridge
