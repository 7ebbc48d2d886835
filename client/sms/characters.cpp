// SPDX-License-Identifier: Apache-2.0

#include "client/sms/characters.h"

#include <iterator>

#include "wire/gsm_alphabet.h"

bool utf8_take(const char** at, const char* end, char32_t* character) {
  constexpr char32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};
  const auto lead = static_cast<unsigned char>(**at);
  const unsigned more = lead < 0x80 ? 0 : lead < 0xc0 ? 4 : lead < 0xe0 ? 1 : lead < 0xf0 ? 2 : 3;
  if (more == 4 || lead > 0xf4 || end - *at <= static_cast<ptrdiff_t>(more)) return false;
  char32_t value = more == 0 ? lead : lead & (0x3fu >> more);
  for (unsigned i = 1; i <= more; ++i) {
    const auto next = static_cast<unsigned char>((*at)[i]);
    if ((next & 0xc0) != 0x80) return false;
    value = value << 6 | (next & 0x3f);
  }
  const bool surrogate = value >= 0xd800 && value < 0xe000;
  if (value < kSmallest[more] || value > 0x10ffff || surrogate) return false;
  *at += more + 1;
  *character = value;
  return true;
}

size_t utf8_put(char32_t character, char* bytes) {
  const size_t more = character < 0x80 ? 0 : character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
  constexpr unsigned char kLead[] = {0, 0xc0, 0xe0, 0xf0};
  for (size_t i = more; i > 0; --i) {
    bytes[i] = static_cast<char>(0x80 | (character & 0x3f));
    character >>= 6;
  }
  bytes[0] = static_cast<char>(kLead[more] | character);
  return more + 1;
}

int gsm_septets_of(char32_t character, uint8_t (&septets)[2]) {
  if (character == 0) return 0;
  if (character < std::size(kDefaultAlphabet) && kDefaultAlphabet[character] == character) {
    septets[0] = static_cast<uint8_t>(character);
    return 1;
  }
  for (size_t i = 0; i < std::size(kDefaultAlphabet); ++i) {
    if (kDefaultAlphabet[i] != character) continue;
    septets[0] = static_cast<uint8_t>(i);
    return 1;
  }
  for (const shifted_t& row : kDefaultExtension) {
    if (row.character != character) continue;
    septets[0] = kSmsEscape;
    septets[1] = row.value;
    return 2;
  }
  return 0;
}
