// SPDX-License-Identifier: Apache-2.0

// Copies, clears and joins that know how large their destination is.
//
// What does not fit is refused whole: nothing is written, and the error says so. A caller that
// wants a cut copy says how much it wants.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstring>

/// Copies `count` bytes of `src` to `dest`, which has room for `dest_size`.
/// @return 0; EINVAL for a null pointer, ERANGE when it does not fit: `dest` is untouched then
inline int memcpy_s(void* dest, size_t dest_size, const void* src, size_t count) {
  if (dest == nullptr || src == nullptr) return EINVAL;
  if (count > dest_size) return ERANGE;
  std::memcpy(dest, src, count);
  return 0;
}

/// Sets `count` bytes of `dest`, which has room for `dest_size`, to `value`.
/// @return as memcpy_s
inline int memset_s(void* dest, size_t dest_size, int value, size_t count) {
  if (dest == nullptr) return EINVAL;
  if (count > dest_size) return ERANGE;
  std::memset(dest, value, count);
  return 0;
}

/// Appends the first `count` characters of `src`, or all of it if that is shorter, to the text in
/// `dest`, which has room for `dest_size` bytes, its NUL included.
/// @return 0; EINVAL for a null pointer or a `dest` without NUL, ERANGE when text and NUL do not
///         fit: `dest` is untouched then
inline int strncat_s(char* dest, size_t dest_size, const char* src, size_t count) {
  if (dest == nullptr || src == nullptr) return EINVAL;
  const size_t used = strnlen(dest, dest_size);
  if (used == dest_size) return EINVAL;
  const size_t added = strnlen(src, count);
  if (added >= dest_size - used) return ERANGE;
  std::memcpy(dest + used, src, added);
  dest[used + added] = '\0';
  return 0;
}
