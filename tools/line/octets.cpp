// SPDX-License-Identifier: Apache-2.0

// Octets as modems write them: in hexadecimal, and with eight characters packed into seven.
#include "tools/line/octets.h"

namespace mdxline {

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

std::optional<Octets> from_hex(std::string_view hex) {
  if (hex.size() % 2 != 0) return std::nullopt;
  Octets octets;
  octets.reserve(hex.size() / 2);
  for (size_t at = 0; at < hex.size(); at += 2) {
    const int high = hex_digit(hex[at]);
    const int low = hex_digit(hex[at + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    octets.push_back(static_cast<uint8_t>(high * 16 + low));
  }
  return octets;
}

std::string to_hex(const Octets& octets) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string hex;
  hex.reserve(octets.size() * 2);
  for (const uint8_t octet : octets) {
    hex += kDigits[octet >> 4U];
    hex += kDigits[octet & 0x0FU];
  }
  return hex;
}

Octets pack_septets(std::string_view septets, size_t first_bit) {
  Octets packed((first_bit + septets.size() * 7 + 7) / 8);
  for (size_t i = 0; i < septets.size(); ++i) {
    const size_t bit = first_bit + i * 7;
    const unsigned bits = (static_cast<unsigned char>(septets[i]) & 0x7FU) << (bit % 8);
    packed[bit / 8] = static_cast<uint8_t>(packed[bit / 8] | (bits & 0xFFU));
    if (bits > 0xFFU) packed[bit / 8 + 1] = static_cast<uint8_t>(bits >> 8U);
  }
  return packed;
}

std::string unpack_septets(const Octets& packed, size_t count, size_t first_bit) {
  std::string septets;
  for (size_t i = 0; i < count; ++i) {
    const size_t bit = first_bit + i * 7;
    if ((bit + 6) / 8 >= packed.size()) break;
    unsigned bits = packed[bit / 8];
    if (bit / 8 + 1 < packed.size()) bits |= static_cast<unsigned>(packed[bit / 8 + 1]) << 8U;
    septets += static_cast<char>((bits >> (bit % 8)) & 0x7FU);
  }
  return septets;
}

}  // namespace mdxline
