// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <string_view>

namespace mdxline {

/// The bytes as a session file writes them: \r, \n, \\, and \xHH for any other byte outside
/// printable ASCII. Blanks stay blanks.
std::string escape(std::string_view bytes);

/// The reverse. Throws std::invalid_argument with a message about the first thing that is no
/// escape, or no printable character; bytes above 127 are taken as they are.
std::string unescape(std::string_view text);

}  // namespace mdxline
