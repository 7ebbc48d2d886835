// SPDX-License-Identifier: Apache-2.0

// Makes stand-ins.
//
// Each character is drawn anew from its own class by a generator whose seed is a keyed hash of the
// whole value. A recording keeps nothing of the key, so it can't be turned round, and the recorder
// keeps nothing of the values.
#include "tools/mdxtap/stand_in.h"

#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "tools/line/octets.h"

namespace mdxtap {
namespace {

using mdxline::from_hex;
using mdxline::hex_digit;
using mdxline::Octets;

constexpr uint64_t kMostTries = 32;
constexpr char kEscapeSeptet = 0x1B;

bool is_digit(char c) { return c >= '0' && c <= '9'; }
bool is_upper(char c) { return c >= 'A' && c <= 'Z'; }
bool is_lower(char c) { return c >= 'a' && c <= 'z'; }

uint64_t rotated(uint64_t word, unsigned bits) { return word << bits | word >> (64U - bits); }

void mix(std::array<uint64_t, 4>& v) {
  v[0] += v[1], v[2] += v[3];
  v[1] = rotated(v[1], 13) ^ v[0], v[3] = rotated(v[3], 16) ^ v[2];
  v[0] = rotated(v[0], 32);
  v[2] += v[1], v[0] += v[3];
  v[1] = rotated(v[1], 17) ^ v[2], v[3] = rotated(v[3], 21) ^ v[0];
  v[2] = rotated(v[2], 32);
}

// SipHash-2-4: short inputs, a secret key, 64 bits.
uint64_t keyed_hash(const StandIn::Key& key, std::string_view bytes) {
  std::array<uint64_t, 4> v{key[0] ^ 0x736F6D6570736575U, key[1] ^ 0x646F72616E646F6DU,
                            key[0] ^ 0x6C7967656E657261U, key[1] ^ 0x7465646279746573U};
  const auto word_at = [bytes](size_t at) {
    uint64_t word = 0;
    for (size_t i = 0; i < 8 && at + i < bytes.size(); ++i) {
      word |= static_cast<uint64_t>(static_cast<unsigned char>(bytes[at + i])) << (8 * i);
    }
    return word;
  };
  for (size_t at = 0; at <= bytes.size(); at += 8) {
    const bool last = at + 8 > bytes.size();
    const uint64_t word = word_at(at) | (last ? static_cast<uint64_t>(bytes.size()) << 56U : 0);
    v[3] ^= word;
    mix(v), mix(v);
    v[0] ^= word;
  }
  v[2] ^= 0xFFU;
  for (int round = 0; round < 4; ++round) mix(v);
  return v[0] ^ v[1] ^ v[2] ^ v[3];
}

constexpr std::string_view kPhoneCharacters = "0123456789+*#pPwW-./() ,";

bool is_number(std::string_view value) {
  return value.find_first_not_of(kPhoneCharacters) == std::string_view::npos &&
         std::any_of(value.begin(), value.end(), is_digit);
}

// Letters that are no ASCII, by the range that their stand-in comes from; it has as many octets in
// UTF-8 and UCS-2.
// clang-format off
constexpr struct { uint32_t first, last, from, to; } kLetters[] = {
    {0x00C0,  0x024F,  0x00E0,  0x00F6 },  // Latin
    {0x0370,  0x03FF,  0x03B1,  0x03C9 },  // Greek
    {0x0400,  0x052F,  0x0430,  0x044F },  // Cyrillic
    {0x0590,  0x05FF,  0x05D0,  0x05EA },  // Hebrew
    {0x0600,  0x06FF,  0x0627,  0x063A },  // Arabic
    {0x0900,  0x097F,  0x0905,  0x0939 },  // Devanagari
    {0x0E00,  0x0E7F,  0x0E01,  0x0E2E },  // Thai
    {0x3040,  0x309F,  0x3041,  0x3093 },  // kana
    {0x30A0,  0x30FF,  0x30A1,  0x30F6 },
    {0x3400,  0x9FFF,  0x4E00,  0x9FA5 },  // Chinese
    {0xAC00,  0xD7A3,  0xAC00,  0xD7A3 },  // Hangul
    {0x1F300, 0x1FAFF, 0x1F600, 0x1F64F},  // pictures
};
// clang-format on

bool is_sign(uint32_t point) {
  return (point >= 0x80 && point < 0xC0) || (point >= 0x2000 && point < 0x20D0);
}

// The code point at the front of UTF-8 and its length; 0 when it is none.
size_t utf8_length(std::string_view bytes, uint32_t& point) {
  const auto lead = static_cast<unsigned char>(bytes.front());
  const size_t length = lead >= 0xF0 && lead < 0xF8 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 ? 2 : 0;
  if (length == 0 || lead >= 0xF8 || bytes.size() < length) return 0;
  point = lead & (0x7FU >> length);
  for (size_t i = 1; i < length; ++i) {
    const auto next = static_cast<unsigned char>(bytes[i]);
    if ((next & 0xC0U) != 0x80) return 0;
    point = point << 6U | (next & 0x3FU);
  }
  return length;
}

void put_utf8(std::string& to, uint32_t point, size_t length) {
  constexpr std::array<unsigned, 5> kLead{0, 0, 0xC0, 0xE0, 0xF0};
  to += static_cast<char>(kLead[length] | point >> (6 * (length - 1)));
  for (size_t i = length - 1; i-- > 0;) to += static_cast<char>(0x80U | (point >> (6 * i) & 0x3FU));
}

// Capitals and small letters of the 7-bit alphabet that are no ASCII.
constexpr std::string_view kOtherCapitals =
    "\x09\x0B\x0E\x10\x12\x13\x14\x15\x16\x17\x18\x19\x1A\x1C\x1F\x5B\x5C\x5D\x5E";
constexpr std::string_view kOtherSmall = "\x04\x05\x06\x07\x08\x0C\x0F\x1D\x1E\x7B\x7C\x7D\x7E\x7F";

bool in(std::string_view set, char c) { return set.find(c) != std::string_view::npos; }

std::string as_string(const Octets& octets) { return {octets.begin(), octets.end()}; }
Octets as_octets(std::string_view bytes) { return {bytes.begin(), bytes.end()}; }

std::string in_case_of(std::string hex, std::string_view model) {
  if (std::any_of(model.begin(), model.end(), is_lower)) {
    std::transform(hex.begin(), hex.end(), hex.begin(),
                   [](char c) { return is_upper(c) ? static_cast<char>(c + 'a' - 'A') : c; });
  }
  return hex;
}

// Whether octets read as UCS-2 of an alphabet rather than as anything else.
bool looks_like_ucs2(const Octets& octets) {
  if (octets.size() % 2 != 0 || octets.empty()) return false;
  size_t plain = 0;
  for (size_t i = 0; i < octets.size(); i += 2) {
    const bool ascii = octets[i] == 0 && (octets[i + 1] >= ' ' || octets[i + 1] == '\n');
    if (ascii || (octets[i] >= 3 && octets[i] <= 6)) ++plain;
  }
  return plain * 4 > octets.size();
}

bool looks_like_septets(std::string_view septets) {
  return !septets.empty() && std::all_of(septets.begin(), septets.end(), [](char c) {
    return c == '\n' || c == '\r' || c == ' ' || c >= '!';
  });
}

char check_digit(std::string_view digits) {
  int sum = 0;
  bool doubled = true;
  for (size_t i = digits.size(); i-- > 0; doubled = !doubled) {
    const int value = (digits[i] - '0') * (doubled ? 2 : 1);
    sum += value > 9 ? value - 9 : value;
  }
  return static_cast<char>('0' + (10 - sum % 10) % 10);
}

}  // namespace

class StandIn::Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}

  // SplitMix64: the seed decides everything, and bad seeds do not exist.
  uint32_t below(uint32_t limit) {
    state_ += 0x9E3779B97F4A7C15U;
    uint64_t word = state_;
    word = (word ^ word >> 30U) * 0xBF58476D1CE4E5B9U;
    word = (word ^ word >> 27U) * 0x94D049BB133111EBU;
    return static_cast<uint32_t>((word ^ word >> 31U) % limit);
  }
  char from(char first, uint32_t count) {
    return static_cast<char>(first + static_cast<int>(below(count)));
  }
  char from(std::string_view set) { return set[below(static_cast<uint32_t>(set.size()))]; }

  // A character of the same class; what has none stays.
  char like(char c) {
    if (is_digit(c)) return from('0', 10);
    if (is_upper(c)) return from('A', 26);
    return is_lower(c) ? from('a', 26) : c;
  }
  char like_hex(char c) {
    if (is_digit(c)) return from('0', 10);
    if (c >= 'A' && c <= 'F') return from('A', 6);
    return c >= 'a' && c <= 'f' ? from('a', 6) : c;
  }
  char like_septet(char c) {
    if (in(kOtherCapitals, c)) return from('A', 26);
    return in(kOtherSmall, c) ? from('a', 26) : like(c);
  }
  uint32_t like_point(uint32_t point) {
    if (point < 0x80) return static_cast<unsigned char>(like(static_cast<char>(point)));
    for (const auto& range : kLetters) {
      if (point < range.first || point > range.last) continue;
      return range.from + below(range.to - range.from + 1);
    }
    return is_sign(point) ? point : (point & ~0x3FU) | below(0x40);
  }

 private:
  uint64_t state_;
};

// Draws until the stand-in differs; a value without anything to change stays.
template <typename Change>
std::string StandIn::changed(std::string_view domain, std::string_view value, Change change) const {
  std::string result(value);
  for (uint64_t attempt = 0; attempt < kMostTries && result == value; ++attempt) {
    std::string seed(domain);
    seed += static_cast<char>('0' + attempt);
    seed += value;
    Random random(keyed_hash(key_, seed));
    result = change(random);
  }
  return result;
}

StandIn::Key StandIn::random_key() {
  Key key{};
  if (getrandom(key.data(), sizeof key, 0) != static_cast<ssize_t>(sizeof key)) {
    throw std::system_error(errno, std::generic_category(), "no random key");
  }
  return key;
}

std::string StandIn::text(std::string_view value) const {
  return changed("text", value, [value](Random& random) {
    std::string result;
    for (size_t at = 0; at < value.size();) {
      uint32_t point = 0;
      const char c = value[at];
      const bool ascii = static_cast<unsigned char>(c) < 0x80;
      const size_t length = ascii ? 0 : utf8_length(value.substr(at), point);
      if (length > 0) {
        put_utf8(result, random.like_point(point), length);
      } else {
        result += ascii ? random.like(c) : random.from('\xE0', 0x1F);
      }
      at += std::max<size_t>(length, 1);
    }
    return result;
  });
}

// What stands behind an escape is a sign of the second table.
std::string StandIn::septets(std::string_view value) const {
  return changed("text", value, [value](Random& random) {
    std::string result;
    bool escaped = false;
    for (const char c : value) {
      result += escaped ? c : random.like_septet(c);
      escaped = !escaped && c == kEscapeSeptet;
    }
    return result;
  });
}

// A pair of surrogates keeps its first half.
std::string StandIn::ucs2(std::string_view octets) const {
  std::string plain;
  for (size_t i = 0; i + 1 < octets.size(); i += 2) {
    if (octets[i] != 0 || static_cast<unsigned char>(octets[i + 1]) >= 0x80) plain.clear();
    if (octets[i] != 0 || static_cast<unsigned char>(octets[i + 1]) >= 0x80) break;
    plain += octets[i + 1];
  }
  std::string result(octets);
  if (plain.size() * 2 == octets.size()) {  // so that it is the same in each alphabet
    const std::string shown = is_number(plain) ? number(plain) : text(plain);
    for (size_t i = 0; i < shown.size(); ++i) result[2 * i + 1] = shown[i];
    return result;
  }
  return changed("ucs2", octets, [octets](Random& random) {
    std::string drawn(octets);
    for (size_t i = 0; i + 1 < octets.size(); i += 2) {
      const auto high = static_cast<unsigned char>(octets[i]);
      const uint32_t unit =
          static_cast<uint32_t>(high) << 8U | static_cast<unsigned char>(octets[i + 1]);
      uint32_t drawn_unit = unit;
      if (unit < 0xD800 || unit > 0xDFFF) drawn_unit = random.like_point(unit);
      if (unit >= 0xDC00 && unit <= 0xDFFF) drawn_unit = (unit & ~0x3FU) | random.below(0x40);
      drawn[i] = static_cast<char>(drawn_unit >> 8U);
      drawn[i + 1] = static_cast<char>(drawn_unit & 0xFFU);
    }
    return drawn;
  });
}

// One leading zero or two say how a number is dialled, and stay; a short number is all of a code.
std::string StandIn::number(std::string_view value) const {
  std::string result;
  for (size_t at = 0; at < value.size();) {
    if (!is_digit(value[at])) {
      result += value[at++];
      continue;
    }
    const size_t end = std::min(value.find_first_not_of("0123456789", at), value.size());
    const std::string_view run = value.substr(at, end - at);
    constexpr size_t kShortestDialled = 6;
    const bool dialled = run.size() >= kShortestDialled;
    const size_t zeros = dialled ? std::min<size_t>(run.find_first_not_of('0'), 2) : 0;
    result += changed("number", run, [run, zeros, dialled](Random& random) {
      std::string digits(run.substr(0, zeros));
      for (size_t i = zeros; i < run.size(); ++i) {
        digits += dialled && i == zeros ? random.from('1', 9) : random.from('0', 10);
      }
      return digits;
    });
    at = end;
  }
  return result;
}

std::string StandIn::words(std::string_view value) const {
  constexpr size_t kLongestCode = 6;
  if (value.size() <= kLongestCode && std::all_of(value.begin(), value.end(), is_digit)) {
    return number(value);
  }
  const std::optional<Octets> coded = value.size() >= 4 ? from_hex(value) : std::nullopt;
  if (coded && looks_like_ucs2(*coded)) {
    return in_case_of(mdxline::to_hex(as_octets(ucs2(as_string(*coded)))), value);
  }
  if (is_number(value)) return number(value);
  if (!coded) return text(value);
  const std::string shown = mdxline::unpack_septets(*coded, coded->size() * 8 / 7);
  if (coded->size() < 3 || !looks_like_septets(shown)) return hex(value);
  return in_case_of(mdxline::to_hex(mdxline::pack_septets(septets(shown))), value);
}

std::string StandIn::secret(std::string_view value) const {
  return changed("secret", value, [value](Random& random) {
    std::string result;
    for (const char c : value) {
      const bool fixed = c == '"' || c == ',' || c == ';' || c == '\\' || c <= ' ' || c == '\x7f';
      const bool other = static_cast<unsigned char>(c) >= 0x80;
      const char drawn = other ? random.from('\xE0', 0x1F) : random.like(c);
      const bool sign = !other && !is_digit(c) && !is_upper(c) && !is_lower(c);
      result += sign && !fixed ? random.from("!#$%&*-_.@") : drawn;
    }
    return result;
  });
}

std::string StandIn::hex(std::string_view value) const {
  return changed("hex", value, [value](Random& random) {
    std::string result;
    for (const char c : value) result += random.like_hex(c);
    return result;
  });
}

std::string StandIn::octets(std::string_view value) const {
  return changed("octets", value, [value](Random& random) {
    std::string result;
    for (const char c : value) {
      const auto byte = static_cast<unsigned char>(c);
      const bool plain = byte > ' ' && byte < 0x7F;
      result += plain ? random.from('!', 94) : byte >= 0x80 ? random.from('\x80', 128) : c;
    }
    return result;
  });
}

std::string StandIn::digits_but(std::string_view value, size_t kept) const {
  return changed("digits", value, [value, kept](Random& random) {
    std::string result(value.substr(0, kept));
    for (const char c : value.substr(result.size())) result += random.like(c);
    return result;
  });
}

// The 14 digits that IMEI and IMEISV share have one stand-in.
std::string StandIn::identity(std::string_view digits, bool imsi) const {
  constexpr size_t kModel = 8;
  constexpr size_t kSerialEnd = 14;
  const bool checked = has_check_digit(digits);
  const size_t size = digits.size();
  const bool card = size >= 18 && digits.starts_with("89");
  const size_t kept = card ? 4 : kModel;
  if (checked && (card || (size == 15 && !imsi))) {
    const std::string stem = digits_but(digits.substr(0, size - 1), kept);
    return stem + check_digit(stem);
  }
  if (card) return digits_but(digits, kept);
  if (size == 16 || size == kSerialEnd) {
    return digits_but(digits.substr(0, kSerialEnd), kModel) +
           std::string(digits.substr(kSerialEnd));
  }
  return digits_but(digits, 5);
}

// 52.5163 and 13.3777 as they are, 5231.0342 and 01322.6234 with the minutes behind the degrees.
std::string StandIn::position(std::string_view value) const {
  const size_t point = std::min(value.find('.'), value.size());
  const size_t first = std::min(value.find_first_of("0123456789"), point);
  const size_t whole = point - first;
  const bool with_minutes = whole >= 4;
  const size_t degrees = with_minutes ? whole - 2 : whole;
  return changed("position", value, [=](Random& random) {
    std::string result(value.substr(0, first));
    for (size_t i = first; i < value.size(); ++i) {
      const size_t place = i - first;
      const bool leads = place == 0 && degrees > 1;
      if (i >= point || !is_digit(value[i])) {
        result += random.like(value[i]);
      } else if (leads) {
        result += degrees > 2 ? random.from('0', 2) : random.from('1', 8);
      } else if (place == 1 && degrees > 2) {
        result += random.from('0', 8);
      } else {
        result += with_minutes && place == degrees ? random.from('0', 6) : random.from('0', 10);
      }
    }
    return result;
  });
}

// 0 and 255 say what kind of address or mask it is.
std::string StandIn::address(std::string_view value) const {
  if (value.find(':') != std::string_view::npos) return hex(value);
  return changed("address", value, [value](Random& random) {
    std::string result;
    for (size_t at = 0; at < value.size();) {
      const size_t end = std::min(value.find('.', at), value.size());
      const std::string_view part = value.substr(at, end - at);
      const uint32_t lowest = part.size() == 3 ? 100 : part.size() == 2 ? 10 : 1;
      const uint32_t highest = part.size() == 3 ? 254 : part.size() == 2 ? 99 : 9;
      const bool kept = part.empty() || part.size() > 3 || part == "0" || part == "255" ||
                        !std::all_of(part.begin(), part.end(), is_digit);
      result +=
          kept ? std::string(part) : std::to_string(lowest + random.below(highest - lowest + 1));
      if (end < value.size()) result += '.';
      at = end + 1;
    }
    return result;
  });
}

bool has_check_digit(std::string_view digits) {
  return digits.size() > 1 && std::all_of(digits.begin(), digits.end(), is_digit) &&
         check_digit(digits.substr(0, digits.size() - 1)) == digits.back();
}

}  // namespace mdxtap
