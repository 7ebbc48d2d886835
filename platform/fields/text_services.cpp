// SPDX-License-Identifier: Apache-2.0

// Small text services: comparing, converting, cutting. All of them take what a modem may send.

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>

#include "platform/at_fields.h"

namespace {

bool is_blank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

/// Value of a hexadecimal digit, -1 for any other character.
int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (lower(c) >= 'a' && lower(c) <= 'f') return lower(c) - 'a' + 10;
  return -1;
}

}  // namespace

int safe_strcmp(const char* a, const char* b) {
  if (a == nullptr || b == nullptr) return a == b ? 0 : -1;
  return std::strcmp(a, b);
}

int32_t safe_atoi(const char* text) {
  if (text == nullptr) return 0;
  while (is_blank(*text)) ++text;
  const bool negative = *text == '-';
  if (*text == '-' || *text == '+') ++text;

  constexpr int64_t kMax = std::numeric_limits<int32_t>::max();
  int64_t value = 0;
  for (; *text >= '0' && *text <= '9'; ++text) {
    value = value * 10 + (*text - '0');
    if (value > kMax + 1) value = kMax + 1;
  }
  if (negative) return static_cast<int32_t>(-value);
  return static_cast<int32_t>(value > kMax ? kMax : value);
}

uint64_t hex_str_to_uinteger(const char* text) {
  if (text == nullptr) return 0;
  uint64_t value = 0;
  for (int digit = 0; (digit = hex_digit(*text)) >= 0; ++text) {
    value = (value << 4) | static_cast<uint64_t>(digit);
  }
  return value;
}

int At_strncasecmp(const char* a, const char* b, size_t n) {
  if (a == nullptr || b == nullptr) return a == b ? 0 : -1;
  for (size_t i = 0; i < n; ++i) {
    const int difference = lower(a[i]) - lower(b[i]);
    if (difference != 0 || a[i] == '\0') return difference;
  }
  return 0;
}

uint32_t MDX_strlen_s(const char* text) {
  return text == nullptr ? 0 : static_cast<uint32_t>(std::strlen(text));
}

int MDX_strncpy_s(char* dst, size_t size, const char* src, size_t count) {
  if (dst == nullptr || src == nullptr || size == 0) return EINVAL;
  const size_t length = strnlen(src, count < size - 1 ? count : size - 1);
  std::memcpy(dst, src, length);
  dst[length] = '\0';
  return 0;
}

int new_snprintf_s(const char*, int, char* dst, size_t size, size_t count, const char* format,
                   ...) {
  if (dst == nullptr || format == nullptr || size == 0) return -1;
  va_list values;
  va_start(values, format);
  const int length = std::vsnprintf(dst, count < size ? count + 1 : size, format, values);
  va_end(values);
  if (length < 0) {
    dst[0] = '\0';
    return -1;
  }
  return static_cast<int>(strnlen(dst, size));
}
