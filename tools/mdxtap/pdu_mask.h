// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tools/mdxtap/stand_in.h"

namespace mdxtap {

/// A message in hexadecimal (3GPP TS 23.040 behind the service centre's address, as +CMGS and +CMGL
/// write it) with stand-ins for its addresses and its text. Types, references, lengths, coding,
/// concatenation and times stay.
///
/// @param from_host  tells a command from a status report, which begin alike
/// @return nullopt when it can't be read as one up to its end
std::optional<std::string> mask_pdu(const StandIn& stand_in, std::string_view hex, bool from_host);

/// The same for a broadcast (23.041): its header stays.
std::optional<std::string> mask_broadcast(const StandIn& stand_in, std::string_view hex);

}  // namespace mdxtap
