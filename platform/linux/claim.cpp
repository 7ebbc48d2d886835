// SPDX-License-Identifier: Apache-2.0

// Before anything else is touched: is this the only server, and is the directory really ours?
//
// The directory's group may write in it, so each name in it can have been planted: links are never
// followed, and what belongs to somebody else is refused. The lock file stays when the server ends;
// only the lock on it counts, and the kernel gives that back after a crash.

#include "platform/linux/claim.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/linux/identity.h"
#include "platform/linux/line_memory.h"
#include "platform/linux/privileges.h"
#include "platform/linux/standard_output.h"
#include "platform/mdx_platform.h"
#include "wire/border.h"
#include "wire/event_fifo.h"

namespace {

constexpr mode_t kDirectoryMode = 03770;
constexpr char kLockName[] = "lock";
constexpr char kEventName[] = "event.";
constexpr char kLinkName[] = "queue.2";

constinit std::atomic_flag claimed = ATOMIC_FLAG_INIT;
constinit int lock = -1;
constinit struct stat own_directory {};     ///< as it was claimed
constinit const char* complaint = nullptr;  ///< why it could not be made again, said once

/// Why the directory is not to be had; errno tells more where it is not 0.
using refusal_t = const char*;
constexpr refusal_t kGranted = nullptr;

[[noreturn]] void refuse(const char* what, int error) {
  dprintf(STDERR_FILENO, "mdxgate: %s%s%s\n", what, error != 0 ? ": " : "",
          error != 0 ? strerror(error) : "");
  _exit(1);
}

/// Without this a file opened later could become standard error and get its texts.
void occupy_standard_files() {
  int fd = -1;
  do {
    fd = open("/dev/null", O_RDWR);
  } while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd > STDERR_FILENO) close(fd);
}

refusal_t refuse_with(int error, refusal_t why) {
  errno = error;
  return why;
}

refusal_t open_directory(int* directory) {
  if (mkdir(kMdxDirectory, 0700) != 0 && errno != EEXIST) return "cannot make /var/run/mdxgate";
  *directory = open(kMdxDirectory, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (*directory < 0) return "cannot open /var/run/mdxgate as a directory";

  struct stat status {};
  if (fstat(*directory, &status) != 0) return "cannot look at /var/run/mdxgate";
  const bool is_safe_of_root = status.st_uid == 0 && (status.st_mode & S_IWOTH) == 0;
  if (status.st_uid != geteuid() && !is_safe_of_root)
    return refuse_with(0, "/var/run/mdxgate belongs to somebody else; remove it");
  own_directory = status;
  return kGranted;
}

refusal_t take_lock(int directory) {
  if (lock >= 0) close(lock);
  lock = openat(directory, kLockName, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
  if (lock < 0) return "cannot open /var/run/mdxgate/lock (does another user's server run?)";
  struct stat status {};
  if (fstat(lock, &status) != 0 || !S_ISREG(status.st_mode) || status.st_uid != geteuid() ||
      status.st_nlink != 1)
    return refuse_with(0, "/var/run/mdxgate/lock is not the lock of a server; remove it");
  if (flock(lock, LOCK_EX | LOCK_NB) != 0) {
    return refuse_with(errno == EWOULDBLOCK ? 0 : errno,
                       "another server runs on this machine; this one ends");
  }
  fchmod(lock, 0600);
  line_memory_attach(lock);
  return kGranted;
}

void set_directory_rights(int directory) {
  struct stat status {};
  if (fstat(directory, &status) != 0 || status.st_uid != geteuid()) return;
  const mdx_identity_t& identity = mdx_identity();
  if (identity.has_group && fchown(directory, static_cast<uid_t>(-1), identity.group) != 0) {
    MDX_TRACE("platform", MDX_TRACE_MISSING, "%s does not get its group: %s\n", kMdxDirectory,
              strerror(errno));
  }
  if (fchmod(directory, kDirectoryMode) != 0)
    refuse("cannot set the mode of /var/run/mdxgate", errno);
}

bool is_dead_event_set(const char* name) {
  if (strncmp(name, kEventName, strlen(kEventName)) != 0) return false;
  char path[sizeof(kMdxDirectory) + sizeof(dirent::d_name)];
  snprintf(path, sizeof(path), "%s/%s", kMdxDirectory, name);
  const int fd = event_fifo_open(path);
  if (fd >= 0) close(fd);
  return fd < 0 && (errno == ENXIO || errno == EINVAL || errno == ELOOP || errno == EISDIR);
}

bool is_leftover(const char* name) {
  return strcmp(name, "hub") == 0 || strcmp(name, "console") == 0 ||
         strncmp(name, kLinkName, strlen(kLinkName)) == 0 || is_dead_event_set(name);
}

/// Removes what bears a name that is the server's. A directory that is not empty is only moved out
/// of the way. @return whether the name is free
bool free_name(int directory, const char* name) {
  if (unlinkat(directory, name, 0) == 0) return true;
  if (unlinkat(directory, name, AT_REMOVEDIR) == 0) return true;
  char aside[sizeof("refused.") + sizeof(dirent::d_name)];
  snprintf(aside, sizeof(aside), "refused.%s", name);
  return renameat(directory, name, directory, aside) == 0;
}

void remove_leftovers(int directory) {
  DIR* entries = fdopendir(directory);
  if (entries == nullptr) return;
  while (const dirent* entry = readdir(entries)) {
    if (is_leftover(entry->d_name) && !free_name(directory, entry->d_name)) {
      MDX_TRACE("platform", MDX_TRACE_MISSING, "%s/%s stays from an earlier run: %s\n",
                kMdxDirectory, entry->d_name, strerror(errno));
    }
  }
  closedir(entries);
}

refusal_t make_directory_ours() {
  int directory = -1;
  refusal_t why = open_directory(&directory);
  if (why == kGranted) why = take_lock(directory);
  const int error = errno;
  if (why == kGranted) {
    set_directory_rights(directory);
    remove_leftovers(directory);
  } else if (directory >= 0) {
    close(directory);
  }
  errno = error;
  return why;
}

}  // namespace

void claim_machine() {
  if (claimed.test_and_set()) return;
  occupy_standard_files();
  standard_output_never_waits();
  signal(SIGPIPE, SIG_IGN);
  umask(022);  // an odd one would keep a server that is not root out of its own directory
  privileges_forbid_gain();
  const refusal_t why = make_directory_ours();
  if (why != kGranted) refuse(why, errno);
}

bool directory_restore() {
  struct stat status {};
  if (lstat(kMdxDirectory, &status) == 0 && status.st_ino == own_directory.st_ino &&
      status.st_dev == own_directory.st_dev)
    return true;
  const refusal_t why = make_directory_ours();
  if (why != complaint && why != kGranted) {
    MDX_TRACE("platform", MDX_TRACE_ERROR, "%s was removed, no client can come: %s: %s\n",
              kMdxDirectory, why, strerror(errno));
  }
  complaint = why;
  if (why != kGranted) return false;
  MDX_TRACE("platform", MDX_TRACE_ERROR, "%s was removed: made again\n", kMdxDirectory);
  return true;
}
