// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace mdxtap {

/// What stands in a recording in place of what nobody is to read there.
///
/// A stand-in has the length and the kind of what it replaces, so what is replayed still parses:
/// digits stay digits, a capital stays one, control characters and blanks stay, check digits are
/// right where they were. It is made of the value and a key alone, so it is the same each time, and
/// without the key nobody can try values until one fits. It is never the value itself where that
/// has a letter or a digit.
class StandIn {
 public:
  using Key = std::array<uint64_t, 2>;
  explicit StandIn(Key key) : key_(key) {}

  /// A key that nobody knows. Throws std::system_error.
  static Key random_key();

  /// Numbers, names, texts and MMI codes, whatever character set they are written in: as they are,
  /// or in hexadecimal as UCS-2 or packed septets. Each run of digits of a number has a stand-in of
  /// its own, so "+4930123" and the digits alone get the same one.
  [[nodiscard]] std::string words(std::string_view value) const;

  /// Text that is no number, letter by letter.
  [[nodiscard]] std::string text(std::string_view value) const;

  /// The same in the 7-bit alphabet of 3GPP TS 23.038, one septet a byte.
  [[nodiscard]] std::string septets(std::string_view value) const;

  /// The same in UCS-2, big-endian.
  [[nodiscard]] std::string ucs2(std::string_view octets) const;

  /// Each run of digits.
  [[nodiscard]] std::string number(std::string_view value) const;

  /// Letters and digits, and punctuation but for what has a meaning in a command.
  [[nodiscard]] std::string secret(std::string_view value) const;

  /// Hexadecimal digits; all else stays.
  [[nodiscard]] std::string hex(std::string_view value) const;

  /// All bytes above the blank.
  [[nodiscard]] std::string octets(std::string_view value) const;

  /// IMEI and IMEISV keep the model (8 digits), ICCID its first 4, IMSI and all else its first 5.
  /// `imsi` says that 15 digits are that even if their check digit would suit an IMEI.
  [[nodiscard]] std::string identity(std::string_view digits, bool imsi) const;

  /// Decimal degrees, or degrees and minutes in one number, in their range.
  [[nodiscard]] std::string position(std::string_view value) const;

  /// An IP address.
  [[nodiscard]] std::string address(std::string_view value) const;

 private:
  class Random;
  template <typename Change>
  std::string changed(std::string_view domain, std::string_view value, Change change) const;
  [[nodiscard]] std::string digits_but(std::string_view value, size_t kept) const;

  Key key_;
};

/// Whether the last digit is the check digit of those before (ISO/IEC 7812-1).
bool has_check_digit(std::string_view digits);

}  // namespace mdxtap
