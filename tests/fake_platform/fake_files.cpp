// SPDX-License-Identifier: Apache-2.0

#include "tests/fake_platform/fake_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/fake_platform/fake_platform.h"

extern "C" {
void* __real_malloc(size_t size);
int __real_open(const char* path, int flags, mode_t mode);
int __real_mkdir(const char* path, mode_t mode);
int __real_pthread_join(pthread_t thread, void** result);
}

namespace fake {
namespace {

struct private_directory {
  std::string path =
      (std::filesystem::temp_directory_path() / "mdxgate-").string() + std::string(6, 'X');
  private_directory() {
    if (mkdtemp(path.data()) == nullptr) std::abort();
  }
  ~private_directory() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
};

std::string real_path(const std::string& path) {
  static const private_directory root;
  return path.starts_with("/var/") ? root.path + path : path;
}

void note(const char* call, const std::string& arguments) {
  journal.push_back({.at = now(), .name = call, .text = arguments});
}

bool refused(const std::string& path) {
  if (fail.files.empty() || !path.starts_with(fail.files)) return false;
  errno = EACCES;
  return true;
}

}  // namespace

void files::reset() {
  std::filesystem::remove_all(real_path("/var/"));
  std::filesystem::create_directories(real_path("/var/run"));
}

bool file_exists(const std::string& path) { return std::filesystem::exists(real_path(path)); }

std::string file_content(const std::string& path) {
  std::ifstream file(real_path(path), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void make_directory(const std::string& path) {
  std::filesystem::create_directories(real_path(path));
}

void make_file(const std::string& path, std::string_view content) {
  std::ofstream(real_path(path), std::ios::binary) << content;
}

}  // namespace fake

extern "C" {

void* __wrap_malloc(size_t size) {
  if (fake::fail.allocations <= 0) return __real_malloc(size);
  --fake::fail.allocations;
  return nullptr;
}

int __wrap_open(const char* path, int flags, mode_t mode) {
  const std::string asked = path;
  if (!asked.starts_with("/var/")) return __real_open(path, flags, mode);
  if ((flags & O_CREAT) != 0) fake::note("open", asked);
  return fake::refused(asked) ? -1 : __real_open(fake::real_path(asked).c_str(), flags, mode);
}

int __wrap_mkdir(const char* path, mode_t mode) {
  char octal[16];
  snprintf(octal, sizeof octal, " %o", mode);
  fake::note("mkdir", std::string(path) + octal);
  return fake::refused(path) ? -1 : __real_mkdir(fake::real_path(path).c_str(), mode);
}

int __wrap_pthread_join(pthread_t thread, void** result) {
  if (thread != fake::files::kThread) return __real_pthread_join(thread, result);
  fake::note("pthread_join", "");
  return 0;
}

[[noreturn]] void __wrap_pthread_exit(void*) {
  fake::note("pthread_exit", "");
  throw fake::thread_ended{};
}

}  // extern "C"
