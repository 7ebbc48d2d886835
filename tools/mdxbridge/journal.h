// SPDX-License-Identifier: Apache-2.0

// What its owner reads: one line each on standard error, which is the journal under systemd.
#pragma once

#include <string>

namespace mdxbridge {

/// As much of a text as fits on a line, with question marks in the place of what a terminal would
/// act on.
std::string printable(const std::string& text);

/// Characters of a sender's that a terminal would act on, or that would begin a line of their own,
/// become question marks; a very long line is cut.
void journal(const std::string& line);

}  // namespace mdxbridge
