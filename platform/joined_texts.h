// SPDX-License-Identifier: Apache-2.0

// The texts of a table, joined while compiling.
//
// A table of pointers has to be written by the loader at each start, so that its pages are the
// process's own memory; texts behind each other are a part of the program's file like its code.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

constexpr size_t joined_size(const auto& texts) {
  size_t size = 0;
  for (const char* text : texts) size += std::string_view(text).size() + 1;
  return size;
}

/// The texts of the array `texts`, in its order, each with its NUL.
template <const auto& texts>
constexpr auto join_texts() {
  std::array<char, joined_size(texts)> joined{};
  char* end = joined.data();
  for (const char* text : texts) {
    for (; *text != '\0'; ++text) *end++ = *text;
    ++end;
  }
  return joined;
}

/// Whether `test` holds for `line` and one of `texts`, which stand behind each other, each with its
/// NUL; an empty one ends them.
inline bool any_text(const char* texts, bool (*test)(std::string_view line, std::string_view text),
                     std::string_view line) {
  for (std::string_view text = texts; !text.empty(); text = text.data() + text.size() + 1) {
    if (test(line, text)) return true;
  }
  return false;
}
