// SPDX-License-Identifier: Apache-2.0

// The names in a directory, read into a small buffer of its own: the C library's would be 32 KiB of
// heap that a process which reads directories now and then keeps for good.
#pragma once

#include <cstddef>
#include <cstdint>

/// Closed by `close` alone: one that lives as long as the process is not destroyed at its end, when
/// another thread may still use it.
class directory_reader {
 public:
  constexpr directory_reader() = default;
  directory_reader(const directory_reader&) = delete;
  directory_reader& operator=(const directory_reader&) = delete;

  /// Begins with a directory's first name; symbolic links are not followed. A directory that was
  /// open is closed.
  /// @param parent  an open directory, or AT_FDCWD
  /// @return false when it cannot be opened
  bool open(int parent, const char* name);
  bool is_open() const { return is_open_; }
  int fd() const { return fd_; }
  /// The next name but "." and "..", valid until the next call; null behind the last one.
  const char* next();
  void close();

 private:
  bool is_open_ = false;
  int fd_ = 0;
  size_t used_ = 0;
  size_t size_ = 0;
  alignas(uint64_t) char entries_[512] = {};
};
