// SPDX-License-Identifier: Apache-2.0

// Characters one at a time: UTF-8, and the 7-bit alphabets of 3GPP TS 23.038.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr uint8_t kSmsEscape = 0x1b;

/// Takes the next character off a text. Strict: no overlong forms, no surrogates, nothing past
/// U+10FFFF.
/// @param at  moved behind it; stays where the text is wrong
/// @return false when it is no UTF-8
bool utf8_take(const char** at, const char* end, char32_t* character);

/// Writes one to four bytes. @return how many
size_t utf8_put(char32_t character, char* bytes);

/// The septets of a character in the default alphabet and its extension table.
/// @return how many; 0 when it is in neither
int gsm_septets_of(char32_t character, uint8_t (&septets)[2]);
