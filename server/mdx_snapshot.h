// A record that one thread replaces and any other may look at, without a lock.
//
// The console shows what last passed over the channel while the main thread goes on writing it. The
// writer never waits: it makes a counter odd, writes, makes it even again. A reader copies and
// looks at the counter before and after; what was written in between is copied again.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

template <class Record>
class mdx_snapshot {
  static_assert(sizeof(Record) % sizeof(uint32_t) == 0 && alignof(Record) <= alignof(uint32_t));

 public:
  /// Replaces the record. One thread only.
  void store(const Record& record) {
    begin();
    put(0, reinterpret_cast<const char*>(&record), sizeof(Record));
    end();
  }

  /// Replaces the record by `record`, but for the `room` bytes of text at `offset`, which become
  /// `text` and NUL bytes behind it. Text and NUL bytes that stand there already are not written
  /// again, so the cost is that of the longer of the two texts. Offset and room are multiples of 4;
  /// a record is stored this way either always or never.
  void store_with_text(const Record& record, size_t offset, size_t room, std::string_view text) {
    const char* image = reinterpret_cast<const char*>(&record);
    const size_t words = (text.size() + sizeof(uint32_t) - 1) / sizeof(uint32_t);
    begin();
    if (std::memcmp(words_, image, offset) != 0) put(0, image, offset);
    put(offset, text.data(), text.size());
    for (size_t i = words; i < text_words_; ++i) put_word(offset / sizeof(uint32_t) + i, 0);
    put(offset + room, image + offset + room, sizeof(Record) - offset - room);
    end();
    text_words_ = words;
  }

  /// A copy that was whole at one moment. Any thread.
  Record load() const {
    uint32_t copy[kWords];
    uint32_t before = 0;
    uint32_t after = 0;
    do {
      before = load_word(version_, std::memory_order_acquire);
      for (size_t i = 0; i < kWords; ++i) copy[i] = load_word(words_[i], std::memory_order_relaxed);
      std::atomic_thread_fence(std::memory_order_acquire);
      after = load_word(version_, std::memory_order_relaxed);
    } while (before != after || before % 2 != 0);
    Record record;
    std::memcpy(&record, copy, sizeof(Record));
    return record;
  }

 private:
  static constexpr size_t kWords = sizeof(Record) / sizeof(uint32_t);

  static uint32_t load_word(const uint32_t& word, std::memory_order order) {
    return std::atomic_ref<uint32_t>(const_cast<uint32_t&>(word)).load(order);
  }
  void begin() {
    std::atomic_ref<uint32_t>(version_).store(version_ + 1, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release);
  }
  void put_word(size_t index, uint32_t word) {
    std::atomic_ref<uint32_t>(words_[index]).store(word, std::memory_order_relaxed);
  }
  /// The last word is filled up with NUL bytes.
  void put(size_t offset, const char* bytes, size_t size) {
    size_t index = offset / sizeof(uint32_t);
    for (; size >= sizeof(uint32_t); size -= sizeof(uint32_t), bytes += sizeof(uint32_t)) {
      uint32_t word;
      std::memcpy(&word, bytes, sizeof(word));
      put_word(index++, word);
    }
    if (size == 0) return;
    uint32_t word = 0;
    std::memcpy(&word, bytes, size);
    put_word(index, word);
  }
  void end() { std::atomic_ref<uint32_t>(version_).store(version_ + 1, std::memory_order_release); }

  uint32_t version_ = 0;
  size_t text_words_ = 0;  // the writer's: words of the text that are in place
  uint32_t words_[kWords] = {};
};
