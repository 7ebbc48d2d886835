// SPDX-License-Identifier: Apache-2.0

// A directory that somebody else made can be as deep and as full as he likes, and he may fill it
// again meanwhile. So nothing here recurses, and one call does a bounded amount of work: what is
// left then is out of the way.

#include "platform/linux/removal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "platform/linux/directory.h"
#include "platform/linux/monotonic.h"

namespace {

constexpr char kAside[] = ".refused.";
constexpr int kMostAtOnce = 4096;
constexpr int kMostPasses = 1000;

bool move_aside(int from, const char* name, int to) {
  static constinit uint64_t last = 0;
  const uint64_t now = monotonic_us();
  last = now > last ? now : last + 1;
  char aside[sizeof(kAside) + 20];
  snprintf(aside, sizeof(aside), "%s%" PRIx64, kAside, last);
  return renameat(from, name, to, aside) == 0;
}

bool unlink_at(int directory, const char* name) {
  return unlinkat(directory, name, 0) == 0 || errno == ENOENT ||
         unlinkat(directory, name, AT_REMOVEDIR) == 0;
}

/// Root's powers, or those of an owner.
bool may_empty(int parent, const char* name) {
  struct stat status {};
  if (geteuid() == 0) return true;
  return fstatat(parent, name, &status, AT_SYMLINK_NOFOLLOW) == 0 && status.st_uid == geteuid();
}

/// Removes what is in a directory, and moves what is a full directory up.
void empty_directory(int parent, const char* name) {
  directory_reader entries;
  if (!entries.open(parent, name)) return;
  for (int i = 0; i < kMostAtOnce; ++i) {
    const char* entry = entries.next();
    if (entry == nullptr) break;
    if (!unlink_at(entries.fd(), entry)) move_aside(entries.fd(), entry, parent);
  }
  entries.close();
}

}  // namespace

bool remove_entry(int directory, const char* name) {
  if (unlink_at(directory, name)) return true;
  if (may_empty(directory, name)) empty_directory(directory, name);
  if (unlinkat(directory, name, AT_REMOVEDIR) == 0) return true;
  return !is_removed_entry(name) && move_aside(directory, name, directory);
}

bool is_removed_entry(const char* name) { return strstr(name, kAside) == name; }

void remove_entries(int directory, bool (*goes)(int directory, const char* name)) {
  directory_reader entries;
  bool removed = true;
  for (int pass = 0; removed && pass < kMostPasses && entries.open(directory, "."); ++pass) {
    removed = false;
    while (const char* entry = entries.next())
      if (goes(directory, entry) && remove_entry(directory, entry)) removed = true;
  }
  entries.close();
}
