// SPDX-License-Identifier: Apache-2.0

#include "client/sms/unit_text.h"

#include <cstring>

#include "client/sms/national_alphabets.h"

namespace {

constexpr char32_t kUnknown = 0xfffd;

}  // namespace

void text_sink_t::put(char32_t character) {
  char bytes[4];
  const size_t size = utf8_put(character, bytes);
  if (length_ == written_ && written_ + size < room_) {
    std::memcpy(text_ + written_, bytes, size);
    written_ += size;
  }
  length_ += size;
}

size_t text_sink_t::end() {
  if (room_ > 0) text_[written_] = '\0';
  return length_;
}

// A shifted character that no table has is shown as the same septet without the escape; an escape
// behind an escape is kept for tables to come, and shown as a blank.
void unit_reader_t::take_septet(uint8_t septet, uint32_t locking, uint32_t single) {
  const bool escaped = escaped_;
  escaped_ = septet == kSmsEscape && !escaped;
  if (escaped_) return;
  if (septet == kSmsEscape) return sink_->put(' ');
  char16_t character = escaped ? shifted_character_of(single, septet) : u'\0';
  if (character == 0) character = character_of(locking, septet);
  sink_->put(character != 0 ? character : kUnknown);
}

void unit_reader_t::take_word(uint16_t word) {
  const bool low = word >= 0xdc00 && word < 0xe000;
  if (high_ != 0 && low) {
    sink_->put(0x10000 + ((high_ - 0xd800u) << 10) + (word - 0xdc00u));
    high_ = 0;
    return;
  }
  finish();
  if (word >= 0xd800 && word < 0xdc00) {
    high_ = word;
    return;
  }
  sink_->put(low ? kUnknown : word);
}

void unit_reader_t::finish() {
  if (high_ != 0) sink_->put(kUnknown);
  if (escaped_) sink_->put(' ');
  high_ = 0;
  escaped_ = false;
}
