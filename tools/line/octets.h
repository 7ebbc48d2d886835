// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace mdxline {

using Octets = std::vector<uint8_t>;

/// The value of a hexadecimal digit in either case, -1 for any other character.
int hex_digit(char c);

/// nullopt for an odd number of digits, or anything but digits.
std::optional<Octets> from_hex(std::string_view hex);

/// In capitals.
std::string to_hex(const Octets& octets);

/// Septets, one a byte, packed as in 3GPP TS 23.038, 6.1.2.1; the first begins `first_bit` (0 to 6)
/// bits into the first octet. Bits that no septet covers are 0.
Octets pack_septets(std::string_view septets, size_t first_bit = 0);

/// The reverse: at most `count`, fewer where the octets end before.
std::string unpack_septets(const Octets& packed, size_t count, size_t first_bit = 0);

}  // namespace mdxline
