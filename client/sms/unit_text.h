// SPDX-License-Identifier: Apache-2.0

// Units as text.
#pragma once

#include <cstddef>
#include <cstdint>

#include "client/sms/characters.h"

/// Text that is written as far as there is room, and counted to its end. A character stands there
/// whole or not at all.
class text_sink_t {
 public:
  text_sink_t(char* text, size_t room) : text_(text), room_(room) {}

  void put(char32_t character);
  /// Ends what is there with a NUL, if there is any room at all.
  /// @return bytes of the whole text
  size_t end();

 private:
  char* text_;
  size_t room_;
  size_t written_ = 0;
  size_t length_ = 0;
};

/// Takes units one after the other, also from several parts.
class unit_reader_t {
 public:
  explicit unit_reader_t(text_sink_t* sink) : sink_(sink) {}

  /// A septet, in the tables of two languages.
  void take_septet(uint8_t septet, uint32_t locking, uint32_t single);
  /// A word of UTF-16.
  void take_word(uint16_t word);
  /// What waits for its second half will not get it.
  void finish();

 private:
  text_sink_t* sink_;
  bool escaped_ = false;
  uint16_t high_ = 0;  ///< first half of a surrogate pair, 0 for none
};
