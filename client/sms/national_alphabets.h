// SPDX-License-Identifier: Apache-2.0

// What septets stand for, in the default alphabet and those of national languages.
#pragma once

#include <cstddef>
#include <cstdint>

/// @param locking  number of the language whose table is used; 0, and unknown ones: the default
/// @return 0 where the table has no character, and at the escape
char16_t character_of(uint32_t locking, uint8_t septet);

/// The same for a septet behind an escape.
/// @param single  number of the language whose table of shifted characters is used
char16_t shifted_character_of(uint32_t single, uint8_t septet);
