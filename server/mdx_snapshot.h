// SPDX-License-Identifier: Apache-2.0

// A record that one thread replaces and any other may look at, without a lock.
//
// The console shows what last passed over the channel while the main thread goes on writing it. The
// writer never waits: it makes a counter odd, writes, makes it even again. A reader copies and
// looks at the counter before and after; what was written in between is copied again.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>

/// How bytes get into words that other threads may read, and out again. Not a part of the template
/// below: it is the same code for all records.
class mdx_snapshot_words {
 protected:
  using word_t = uintptr_t;

  // The compiler's own atomics, since not every C++ library has std::atomic_ref yet. Inline even
  // where the compiler is asked for the smallest code: that would call them for each word.
  [[gnu::always_inline]] static word_t load_word(const word_t& word, int order) {
    return __atomic_load_n(&word, order);
  }
  [[gnu::always_inline]] static void store_word(word_t* word, word_t value, int order) {
    __atomic_store_n(word, value, order);
  }
  [[gnu::always_inline]] static void put_word(word_t* word, const char* bytes, size_t size) {
    word_t value = 0;
    std::memcpy(&value, bytes, size);
    store_word(word, value, __ATOMIC_RELAXED);
  }
  static void put(word_t* words, const char* bytes, size_t size) {
    const size_t whole = size / sizeof(word_t);
    const size_t rest = size % sizeof(word_t);
    for (size_t i = 0; i < whole; ++i)
      put_word(words + i, bytes + i * sizeof(word_t), sizeof(word_t));
    if (rest != 0) put_word(words + whole, bytes + whole * sizeof(word_t), rest);
  }
  static void get(char* bytes, const word_t* words, size_t size) {
    while (size != 0) {
      const word_t word = load_word(*words++, __ATOMIC_RELAXED);
      const size_t count = size < sizeof(word) ? size : sizeof(word);
      std::memcpy(bytes, &word, count);
      bytes += count;
      size -= count;
    }
  }
};

/// The `kTextRoom` bytes at `kTextAt` of a record are text, NUL bytes behind it: of them only the
/// text is written.
template <class Record, size_t kTextAt = 0, size_t kTextRoom = sizeof(Record)>
class mdx_snapshot : mdx_snapshot_words {
  static_assert(std::is_trivially_copyable_v<Record> && kTextAt + kTextRoom <= sizeof(Record));

 public:
  /// Replaces the record. One thread only.
  void store(const Record& record) { store(record, {bytes_of(record) + kTextAt, kTextRoom}); }

  /// Replaces the record by `record`, with `text` in the place of its own. `text` fits the room.
  void store(const Record& record, std::string_view text) {
    store_word(&version_, version_ + 1, __ATOMIC_RELAXED);
    std::atomic_thread_fence(std::memory_order_release);
    put(head_.data(), bytes_of(record), kTextAt);
    put(text_.data(), text.data(), text.size());
    put(tail_.data(), bytes_of(record) + kTextAt + kTextRoom, kTail);
    store_word(&text_size_, text.size(), __ATOMIC_RELAXED);
    store_word(&version_, version_ + 1, __ATOMIC_RELEASE);
  }

  /// A copy that was whole at one moment. Any thread.
  Record load() const {
    Record record;
    word_t before = 0;
    word_t after = 0;
    do {
      std::memset(&record, 0, sizeof(record));
      char* bytes = reinterpret_cast<char*>(&record);
      before = load_word(version_, __ATOMIC_ACQUIRE);
      get(bytes, head_.data(), kTextAt);
      get(bytes + kTextAt, text_.data(), load_word(text_size_, __ATOMIC_RELAXED));
      get(bytes + kTextAt + kTextRoom, tail_.data(), kTail);
      std::atomic_thread_fence(std::memory_order_acquire);
      after = load_word(version_, __ATOMIC_RELAXED);
    } while (before != after || before % 2 != 0);
    return record;
  }

 private:
  static constexpr size_t kTail = sizeof(Record) - kTextAt - kTextRoom;
  static constexpr size_t words_for(size_t size) {
    return (size + sizeof(word_t) - 1) / sizeof(word_t);
  }

  static const char* bytes_of(const Record& record) {
    return reinterpret_cast<const char*>(&record);
  }
  word_t version_ = 0;
  word_t text_size_ = 0;
  std::array<word_t, words_for(kTextAt)> head_ = {};
  std::array<word_t, words_for(kTextRoom)> text_ = {};
  std::array<word_t, words_for(kTail)> tail_ = {};
};
