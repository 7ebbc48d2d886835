// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxctl/ussd_text.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string_view>

#include "tools/line/octets.h"
#include "wire/gsm_alphabet.h"

namespace {

constexpr uint8_t kEscape = 0x1b;

constexpr char16_t kReplacement = 0xfffd;

enum class alphabet_t { kSeptets, kOctets, kUcs2 };

alphabet_t alphabet_of(int scheme) {
  if (scheme == 0x11) return alphabet_t::kUcs2;
  const int group = scheme >> 4;
  if (group >= 4 && group <= 7) {
    const int bits = scheme >> 2 & 3;
    return bits == 2 ? alphabet_t::kUcs2 : bits == 1 ? alphabet_t::kOctets : alphabet_t::kSeptets;
  }
  return group == 0xf && (scheme & 4) != 0 ? alphabet_t::kOctets : alphabet_t::kSeptets;
}

void append_utf8(char32_t c, std::string* text) {
  if (c < 0x80) {
    *text += static_cast<char>(c);
  } else if (c < 0x800) {
    *text += static_cast<char>(0xc0 | c >> 6);
    *text += static_cast<char>(0x80 | (c & 0x3f));
  } else if (c < 0x10000) {
    *text += static_cast<char>(0xe0 | c >> 12);
    *text += static_cast<char>(0x80 | (c >> 6 & 0x3f));
    *text += static_cast<char>(0x80 | (c & 0x3f));
  } else {
    *text += static_cast<char>(0xf0 | c >> 18);
    *text += static_cast<char>(0x80 | (c >> 12 & 0x3f));
    *text += static_cast<char>(0x80 | (c >> 6 & 0x3f));
    *text += static_cast<char>(0x80 | (c & 0x3f));
  }
}

std::optional<std::string> octets_in(std::string_view hex) {
  if (hex.empty() || hex.size() % 2 != 0) return std::nullopt;
  std::string octets;
  for (size_t i = 0; i < hex.size(); i += 2) {
    const int high = mdxline::hex_digit(hex[i]);
    const int low = mdxline::hex_digit(hex[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    octets += static_cast<char>(high * 16 + low);
  }
  return octets;
}

std::string of_ucs2(const std::string& octets) {
  const auto unit = [&](size_t i) {
    return static_cast<char32_t>(static_cast<uint8_t>(octets[i]) << 8 |
                                 static_cast<uint8_t>(octets[i + 1]));
  };
  std::string text;
  for (size_t i = 0; i + 1 < octets.size(); i += 2) {
    char32_t c = unit(i);
    const bool high = c >= 0xd800 && c < 0xdc00;
    if (high && i + 3 < octets.size() && unit(i + 2) >= 0xdc00 && unit(i + 2) < 0xe000) {
      c = 0x10000 + ((c - 0xd800) << 10) + (unit(i + 2) - 0xdc00);
      i += 2;
    } else if (c >= 0xd800 && c < 0xe000) {
      c = kReplacement;
    }
    append_utf8(c, &text);
  }
  return text;
}

std::string septets_in(const std::string& octets) {
  std::string septets;
  uint32_t bits = 0;
  int count = 0;
  for (const char octet : octets) {
    bits |= static_cast<uint32_t>(static_cast<uint8_t>(octet)) << count;
    for (count += 8; count >= 7; count -= 7, bits >>= 7) septets += static_cast<char>(bits & 0x7f);
  }
  // A last octet with room for one more septet is filled with a CR.
  if (octets.size() % 7 == 0 && septets.ends_with('\r')) septets.pop_back();
  return septets;
}

std::string of_septets(const std::string& septets) {
  std::string text;
  for (size_t i = 0; i < septets.size(); ++i) {
    const auto septet = static_cast<uint8_t>(septets[i]);
    if (septet != kEscape) {
      append_utf8(septet < 128 ? kDefaultAlphabet[septet] : kReplacement, &text);
      continue;
    }
    if (++i == septets.size()) break;
    const auto* shifted = std::find_if(
        std::begin(kDefaultExtension), std::end(kDefaultExtension),
        [&](const shifted_t& s) { return s.value == static_cast<uint8_t>(septets[i]); });
    append_utf8(shifted != std::end(kDefaultExtension) ? shifted->character : kReplacement, &text);
  }
  return text;
}

/// Only what a network could have meant: a plain text of digits unpacks to rubbish.
bool is_readable(const std::string& septets) {
  return std::all_of(septets.begin(), septets.end(), [](char c) {
    return c == '\n' || c == '\r' || c == kEscape || static_cast<uint8_t>(c) >= ' ';
  });
}

/// Some modems give Latin letters in their own byte.
std::string of_plain(const std::string& text) {
  const bool ascii =
      std::all_of(text.begin(), text.end(), [](char c) { return static_cast<uint8_t>(c) < 0x80; });
  if (ascii) return text;
  std::string utf8;
  for (const char c : text) append_utf8(static_cast<uint8_t>(c), &utf8);
  return utf8;
}

std::string hex_of(std::string_view octets) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string hex;
  for (const char c : octets) {
    hex += kDigits[static_cast<uint8_t>(c) >> 4];
    hex += kDigits[static_cast<uint8_t>(c) & 15];
  }
  return hex;
}

}  // namespace

std::string ussd_text(const std::string& text, int scheme, const std::string& charset) {
  constexpr size_t kShortestPacked = 8;
  const std::optional<std::string> octets = octets_in(text);
  const alphabet_t alphabet = alphabet_of(scheme);
  if (!octets) return charset == "GSM" ? of_septets(text) : of_plain(text);
  if (alphabet == alphabet_t::kUcs2) return of_ucs2(*octets);
  if (alphabet == alphabet_t::kOctets) return of_plain(*octets);
  if (charset == "UCS2" && octets->size() % 2 == 0) return of_ucs2(*octets);
  const std::string septets = septets_in(*octets);
  return text.size() >= kShortestPacked && is_readable(septets) ? of_septets(septets) : text;
}

std::string ussd_for_modem(const std::string& code, const std::string& charset) {
  if (charset != "UCS2") return code;
  std::string units;
  for (const char c : code) units += {'\0', c};
  return hex_of(units);
}

std::string ussd_packed(const std::string& code) {
  std::string octets;
  uint32_t bits = 0;
  int count = 0;
  std::string septets = code;
  if (septets.size() % 8 == 7) septets += '\r';
  for (const char c : septets) {
    bits |= static_cast<uint32_t>(static_cast<uint8_t>(c) & 0x7f) << count;
    for (count += 7; count >= 8; count -= 8, bits >>= 8) octets += static_cast<char>(bits & 0xff);
  }
  if (count > 0) octets += static_cast<char>(bits & 0xff);
  return hex_of(octets);
}

bool is_ussd(const std::string& code) {
  constexpr size_t kMost = 182;
  return !code.empty() && code.size() <= kMost && std::all_of(code.begin(), code.end(), [](char c) {
    return std::isprint(static_cast<unsigned char>(c)) != 0 && c != '"';
  });
}
