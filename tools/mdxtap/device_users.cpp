// SPDX-License-Identifier: Apache-2.0

// Locks hold off who asks for them; who does not is found among the open files of all processes.
#include "tools/mdxtap/device_users.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <charconv>
#include <filesystem>
#include <fstream>
#include <string_view>

namespace mdxtap {
namespace {

namespace fs = std::filesystem;

const dev_t kMaker = makedev(5, 2);     // /dev/ptmx
constexpr unsigned kFirstPseudo = 136;  // major numbers of what it makes
constexpr unsigned kLastPseudo = 143;

struct Uses {
  bool device = false;
  bool makes_terminals = false;
};

bool is_pseudo(const struct stat& terminal) {
  return major(terminal.st_rdev) >= kFirstPseudo && major(terminal.st_rdev) <= kLastPseudo;
}

// Each mounted devpts counts its terminals from nought.
bool is_same(const struct stat& one, const struct stat& other) {
  return one.st_rdev == other.st_rdev && (!is_pseudo(one) || one.st_dev == other.st_dev);
}

Uses uses_of(const fs::path& process, const struct stat& device) {
  Uses uses;
  std::error_code error;
  for (fs::directory_iterator file(process / "fd", error), end; !error && file != end;
       file.increment(error)) {
    struct stat there {};
    if (stat(file->path().c_str(), &there) != 0 || !S_ISCHR(there.st_mode)) continue;
    uses.device |= is_same(there, device);
    uses.makes_terminals |= there.st_rdev == kMaker;
  }
  return uses;
}

}  // namespace

std::string other_user_of(const std::string& path) {
  struct stat own {};
  if (stat(path.c_str(), &own) != 0) return {};
  std::error_code error;
  for (fs::directory_iterator process("/proc", error), end; !error && process != end;
       process.increment(error)) {
    const std::string id = process->path().filename();
    int number = 0;
    const auto [rest, wrong] = std::from_chars(id.data(), id.data() + id.size(), number);
    if (wrong != std::errc{} || *rest != '\0' || number == getpid()) continue;
    const Uses uses = uses_of(process->path(), own);
    if (!uses.device || (is_pseudo(own) && uses.makes_terminals)) continue;
    std::string name;
    std::getline(std::ifstream(process->path() / "comm"), name);
    return name + " (process " + id + ")";
  }
  return {};
}

}  // namespace mdxtap
