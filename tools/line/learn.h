// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

#include "tools/line/session_file.h"

namespace mdxline {

/// Makes a script for mdxsim of what a modem was seen to do.
///
/// Each command that was seen becomes a rule with the answer it got; where answers differed, the
/// rules take turns and the last one stays. One without an answer becomes "nothing", all others are
/// refused, but for messages: any other one gets what the last one got. What the modem said by
/// itself becomes "every" where it came at even intervals and "at" elsewhere, but "also" below the
/// command that it followed, if it bears its name. When the modem went away, so does the script's.
///
/// A session without times is taken for one with 50 ms between its lines.
std::string learn(const Session& session);

}  // namespace mdxline
