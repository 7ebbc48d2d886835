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

template <class Record>
class mdx_snapshot {
  static_assert(sizeof(Record) % sizeof(uint32_t) == 0 && alignof(Record) <= alignof(uint32_t));

 public:
  /// Replaces the record. One thread only.
  void store(const Record& record) {
    begin();
    put(0, &record, sizeof(Record));
    end();
  }

  /// Replaces the record by `record` with `size` bytes at `offset` replaced by `bytes`: the copy
  /// that readers see never holds the bytes of `record` there. Offset and size are multiples of 4.
  void store(const Record& record, size_t offset, const void* bytes, size_t size) {
    const char* image = reinterpret_cast<const char*>(&record);
    begin();
    put(0, image, offset);
    put(offset, bytes, size);
    put(offset + size, image + offset + size, sizeof(Record) - offset - size);
    end();
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
  void put(size_t offset, const void* bytes, size_t size) {
    const char* from = static_cast<const char*>(bytes);
    for (size_t i = 0; i < size / sizeof(uint32_t); ++i) {
      uint32_t word;
      std::memcpy(&word, from + i * sizeof(uint32_t), sizeof(word));
      std::atomic_ref<uint32_t>(words_[offset / sizeof(uint32_t) + i])
          .store(word, std::memory_order_relaxed);
    }
  }
  void end() { std::atomic_ref<uint32_t>(version_).store(version_ + 1, std::memory_order_release); }

  uint32_t version_ = 0;
  uint32_t words_[kWords] = {};
};
