// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <string_view>

namespace mdxline {

/// Whether a line, without its line end, ends a command: the words of V.250 and 3GPP TS 27.007,
/// blanks around of no account.
bool is_result(std::string_view line);

/// "+CMT" of "+CMT: ,35"; empty for a line that has no name in front. Names are capitals and digits
/// behind a sign.
std::string_view report_name(std::string_view line);

}  // namespace mdxline
