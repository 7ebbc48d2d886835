// SPDX-License-Identifier: Apache-2.0

// The kernel's own form of directory entries, the same for all processors: inode and offset of 64
// bits each, length of the entry in 16 bits, type in 8, name.

#include "platform/linux/directory.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>

namespace {

constexpr size_t kLengthAt = 16;
constexpr size_t kNameAt = 19;

bool is_dot(const char* name) { return strcmp(name, ".") == 0 || strcmp(name, "..") == 0; }

}  // namespace

bool directory_reader::open(int parent, const char* name) {
  close();
  fd_ = openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  is_open_ = fd_ >= 0;
  return is_open_;
}

const char* directory_reader::next() {
  for (;;) {
    if (used_ == size_) {
      const long size = syscall(SYS_getdents64, fd_, entries_, sizeof(entries_));
      used_ = size_ = 0;
      if (size <= 0) return nullptr;
      size_ = static_cast<size_t>(size);
    }
    const char* entry = entries_ + used_;
    uint16_t length = 0;
    memcpy(&length, entry + kLengthAt, sizeof(length));
    used_ += length;
    if (!is_dot(entry + kNameAt)) return entry + kNameAt;
  }
}

void directory_reader::close() {
  if (is_open_) ::close(fd_);
  is_open_ = false;
  used_ = size_ = 0;
}
