// SPDX-License-Identifier: Apache-2.0

#include "tools/line/text_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace mdxline {

namespace fs = std::filesystem;

std::ifstream open_to_read(const std::string& path) {
  std::error_code error;
  const bool directory = fs::is_directory(path, error);
  errno = 0;
  std::ifstream file(path);
  if (directory || !file) {
    throw std::invalid_argument("cannot read " + path + ": " +
                                std::strerror(directory ? EISDIR : errno));
  }
  return file;
}

bool is_writable(const std::string& path) {
  std::error_code error;
  if (fs::is_directory(path, error)) return false;
  const bool there = fs::exists(path, error);
  const fs::path place = there ? fs::path(path) : fs::absolute(path).parent_path();
  return access(place.c_str(), W_OK) == 0;
}

}  // namespace mdxline
