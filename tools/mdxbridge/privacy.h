// SPDX-License-Identifier: Apache-2.0

// What stays on the device unless its owner opened it by name: texts of messages, USSD, numbers,
// identities, and what nobody here knows.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "client/mdxclient.h"

namespace mdxbridge {

using open_kinds_t = std::vector<std::string>;

/// Whether it is one of the words.
bool is_private_kind(std::string_view word);
std::string private_kinds(std::string_view separator);

/// The object of packet_json. A text that stays is null, and "withheld" names its kind.
nlohmann::ordered_json published_packet(const mdx_packet_t& packet, const open_kinds_t& open);

/// The kind of what the answer to a command would hold and that is not open; empty when it may go.
std::string withheld_by_command(std::string_view command, const open_kinds_t& open);

/// An answer without what looks like an identity (14 digits and more in a row), unless these are
/// open: a star for each digit. Unless what is unknown is open, so is what stands in quotes or has
/// 7 digits in lines of other names than the command's: they report something, such as a caller.
/// @param prefixes  the command's own, such as "+CSQ:"
std::string published_answer(std::string text, const std::vector<std::string>& prefixes,
                             const open_kinds_t& open);

}  // namespace mdxbridge
