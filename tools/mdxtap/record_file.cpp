// SPDX-License-Identifier: Apache-2.0

// Keeps a recording on the disk, within its size.
#include "tools/mdxtap/record_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <utility>

namespace mdxtap {
namespace {

constexpr int kMostRemarks = 20;

// The name is on the disk, too. A directory that can't be synchronised has nothing to keep.
void sync_directory(const std::string& path) {
  const size_t slash = path.rfind('/');
  const std::string directory = slash == path.npos ? "." : path.substr(0, slash + 1);
  const int fd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  fsync(fd);
  close(fd);
}

// What a run leaves that never came to record anything: a few remarks. Many such runs, as a service
// that is started again and again makes them, must not push real recordings out.
bool holds_nothing(const std::string& path) {
  std::ifstream file(path);
  int lines = 0;
  for (std::string line; std::getline(file, line); ++lines) {
    if (!line.starts_with('#') || lines == kMostRemarks) return false;
  }
  return file.eof();
}

}  // namespace

RecordFile::~RecordFile() {
  if (fd_ < 0) return;
  sync();
  close(fd_);
}

int RecordFile::open() {
  struct stat there {};
  if (lstat(options_.path.c_str(), &there) != 0) return errno == ENOENT ? create() : errno;
  if (!S_ISREG(there.st_mode)) return EEXIST;
  int error = 0;
  if (!holds_nothing(options_.path)) {
    error = turn();
  } else if (unlink(options_.path.c_str()) != 0) {
    error = errno;
  }
  return error != 0 ? error : create();
}

// Never through a link, and never into a file that somebody else has put there.
int RecordFile::create() {
  if (fd_ >= 0) close(fd_);
  size_ = 0;
  fd_ = ::open(options_.path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd_ < 0) return errno;
  sync_directory(options_.path);
  return write_all(options_.head);
}

// PATH becomes PATH.1, what was PATH.1 becomes PATH.2; the oldest goes.
int RecordFile::turn() {
  const auto name = [this](int number) {
    return number == 0 ? options_.path : options_.path + "." + std::to_string(number);
  };
  if (options_.keep == 0 && unlink(name(0).c_str()) != 0 && errno != ENOENT) return errno;
  for (int number = options_.keep; number > 0; --number) {
    if (rename(name(number - 1).c_str(), name(number).c_str()) != 0 && errno != ENOENT)
      return errno;
  }
  return 0;
}

int RecordFile::append(std::string_view lines) {
  const bool full = options_.max_size > 0 && size_ > options_.head.size() &&
                    size_ + lines.size() > options_.max_size;
  int error = 0;
  if (fd_ >= 0 && is_removed()) {
    ++removed_;
    close(std::exchange(fd_, -1));
  } else if (fd_ >= 0 && full) {
    error = sync();
    if (error == 0) error = turn();
    if (error != 0) return error;
    ++turned_;
    close(std::exchange(fd_, -1));
  }
  if (fd_ < 0) error = create();
  if (error != 0) return error;
  return size_ == 0 ? write_all(options_.head + std::string(lines)) : write_all(lines);
}

int RecordFile::write_all(std::string_view bytes) {
  const uint64_t before = size_;
  while (!bytes.empty()) {
    const ssize_t written = write(fd_, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      const int error = written < 0 ? errno : EIO;
      size_ = before;
      if (ftruncate(fd_, static_cast<off_t>(before)) != 0) return errno;
      return lseek(fd_, 0, SEEK_END) < 0 ? errno : error;
    }
    size_ += static_cast<uint64_t>(written);
    bytes.remove_prefix(static_cast<size_t>(written));
  }
  dirty_ = true;
  return 0;
}

bool RecordFile::is_removed() const {
  struct stat own {};
  return fstat(fd_, &own) == 0 && own.st_nlink == 0;
}

int RecordFile::sync() {
  if (!std::exchange(dirty_, false)) return 0;
  return fdatasync(fd_) == 0 ? 0 : errno;
}

}  // namespace mdxtap
