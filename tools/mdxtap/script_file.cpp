// SPDX-License-Identifier: Apache-2.0

// A file of its own takes the script's name at once: so nothing is written through a link.
#include "tools/mdxtap/script_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string_view>

namespace mdxtap {
namespace {

bool is_no_file(const std::string& path) {
  struct stat there {};
  return lstat(path.c_str(), &there) == 0 && !S_ISREG(there.st_mode);
}

int write_all(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(fd, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return written < 0 ? errno : EIO;
    bytes.remove_prefix(static_cast<size_t>(written));
  }
  return fsync(fd) == 0 ? 0 : errno;
}

mode_t usual_mode() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

}  // namespace

std::string script_obstacle(const std::string& path) {
  if (is_no_file(path)) return path + " is no file; not touching it";
  const auto directory = std::filesystem::absolute(path).parent_path();
  return access(directory.c_str(), W_OK | X_OK) == 0 ? "" : "cannot write " + path;
}

int write_script_file(const std::string& path, const std::string& script, bool secret) {
  if (is_no_file(path)) return EEXIST;
  std::string made = path + '.' + std::string(6, 'X');
  const int fd = mkostemp(made.data(), O_CLOEXEC);
  if (fd < 0) return errno;
  int error = write_all(fd, script);
  if (error == 0 && !secret && fchmod(fd, usual_mode()) != 0) error = errno;
  close(fd);
  if (error == 0 && rename(made.c_str(), path.c_str()) != 0) error = errno;
  if (error != 0) unlink(made.c_str());
  return error;
}

}  // namespace mdxtap
