// SPDX-License-Identifier: Apache-2.0

// Before anything else is touched: is this the only server, and is the directory really ours?
//
// Once it is ours nobody else can make a name in it. Until then its group could, if a server of
// another layout or a person has made it: so what bears a name of ours is looked at, links are
// never followed, and all that is no lock goes. The lock file stays when the server ends; only the
// lock on it counts, and the kernel gives that back after a crash.

#include "platform/linux/claim.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/linux/identity.h"
#include "platform/linux/line_memory.h"
#include "platform/linux/privileges.h"
#include "platform/linux/removal.h"
#include "platform/linux/standard_output.h"
#include "platform/mdx_platform.h"
#include "wire/border.h"

namespace {

constexpr mode_t kDirectoryMode = 0755;
constexpr mode_t kTaskDirectoryMode = 03770;
constexpr mode_t kPrivateMode = 0700;
constexpr char kLockName[] = "lock";
constexpr char kTasksName[] = "tasks";
constexpr int kLockAttempts = 100;
constexpr rlim_t kDescriptors = 256;       ///< for all places of the hub
constexpr rlim_t kFewestDescriptors = 64;  ///< for clients and a few receivers

constinit std::atomic_flag claimed = ATOMIC_FLAG_INIT;
constinit int lock = -1;
/// Tells a file from all others.
struct file_id_t {
  ino_t number;
  dev_t device;
};
constinit file_id_t own_directory{};  ///< as it was claimed, as the next
constinit file_id_t own_tasks{};
constinit const char* complaint = nullptr;  ///< why it could not be made again, said once

/// Why the directory is not to be had; errno tells more where it is not 0.
using refusal_t = const char*;
constexpr refusal_t kGranted = nullptr;

[[noreturn]] void refuse(const char* what, int error) {
  dprintf(STDERR_FILENO, "mdxgate: %s%s%s\n", what, error != 0 ? ": " : "",
          error != 0 ? strerror(error) : "");
  _exit(1);
}

/// Rather than to run and be deaf.
void have_enough_descriptors() {
  rlimit limit{};
  if (prlimit(0, RLIMIT_NOFILE, nullptr, &limit) != 0 || limit.rlim_cur >= kDescriptors) return;
  limit.rlim_cur = limit.rlim_max < kDescriptors ? limit.rlim_max : kDescriptors;
  if (limit.rlim_cur < kFewestDescriptors || prlimit(0, RLIMIT_NOFILE, &limit, nullptr) != 0)
    refuse("too few files may be open here: allow 256, with \"ulimit -n\" or LimitNOFILE=", 0);
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

bool is_root() { return geteuid() == 0; }

/// Whether it is this process's user, or one that a server of root's becomes.
bool is_servers_user(uid_t user) {
  const mdx_identity_t& identity = mdx_identity();
  return user == geteuid() || (is_root() && identity.has_user && user == identity.user);
}

file_id_t id_of(const struct stat& status) { return {status.st_ino, status.st_dev}; }

bool is_file(const struct stat& status, const file_id_t& file) {
  return status.st_ino == file.number && status.st_dev == file.device;
}

refusal_t open_directory(int* directory, struct stat* status) {
  if (mkdir(kMdxDirectory, kPrivateMode) != 0 && errno != EEXIST)
    return "cannot make /var/run/mdxgate";
  *directory = open(kMdxDirectory, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (*directory < 0) return "cannot open /var/run/mdxgate as a directory";
  if (fstat(*directory, status) != 0) return "cannot look at /var/run/mdxgate";
  if (!is_servers_user(status->st_uid)) {
    return refuse_with(
        0, "/var/run/mdxgate belongs to another user: give it to the server's, or start as root");
  }
  return kGranted;
}

/// @return whether `fd` is a lock of a server, not a plant; and still the one that bears the name
bool is_lock(int directory, int fd) {
  struct stat opened {};
  struct stat named {};
  return fstat(fd, &opened) == 0 && S_ISREG(opened.st_mode) && is_servers_user(opened.st_uid) &&
         opened.st_nlink == 1 && fstatat(directory, kLockName, &named, AT_SYMLINK_NOFOLLOW) == 0 &&
         is_file(opened, id_of(named));
}

refusal_t refuse_for_another() {
  return refuse_with(errno == EWOULDBLOCK ? 0 : errno,
                     "another server runs on this machine; this one ends");
}

/// Looks for another server's lock before anything is changed.
refusal_t find_lock(int directory) {
  if (lock >= 0) close(lock);
  lock = openat(directory, kLockName, O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (lock < 0 && errno == EACCES)
    return "cannot open /var/run/mdxgate/lock (does another user's server run?)";
  if (lock >= 0 && is_lock(directory, lock) && flock(lock, LOCK_EX | LOCK_NB) != 0)
    return refuse_for_another();
  return kGranted;
}

/// Takes the lock in a directory that is ours alone.
refusal_t take_lock(int directory) {
  for (int attempt = 0; attempt < kLockAttempts; ++attempt) {
    if (lock >= 0 && is_lock(directory, lock)) {
      if (flock(lock, LOCK_EX | LOCK_NB) != 0) return refuse_for_another();
      if (is_lock(directory, lock)) return kGranted;
    }
    if (lock >= 0) close(lock);
    remove_entry(directory, kLockName);
    constexpr int kNew = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    lock = openat(directory, kLockName, kNew, 0600);
  }
  return "cannot make /var/run/mdxgate/lock";
}

/// Nobody but this process's user, or whom the mode lets in, can use the directory from here on. To
/// root it belongs first, whoever had it: so the mode can be set without a capability for that.
bool set_rights(int directory, mode_t mode) {
  const mdx_identity_t& identity = mdx_identity();
  const uid_t owner = is_root() ? 0 : static_cast<uid_t>(-1);
  const gid_t group = identity.has_group ? identity.group : static_cast<gid_t>(-1);
  static constinit bool told = false;
  if (fchown(directory, owner, group) != 0 && identity.has_group && !told) {
    MDX_TRACE(MDX_FROM_PLATFORM, MDX_TRACE_MISSING, "%s does not get its group: %s\n",
              kMdxDirectory, strerror(errno));
    told = true;
  }
  return fchmod(directory, mode) == 0;
}

/// The server goes on as this user once it has given up root.
void hand_over(int fd) {
  const mdx_identity_t& identity = mdx_identity();
  if (!is_root() || !identity.has_user) return;
  if (fchown(fd, identity.user, static_cast<gid_t>(-1)) != 0) {
    MDX_TRACE(MDX_FROM_PLATFORM, MDX_TRACE_ERROR, "%s stays root's: %s\n", kMdxDirectory,
              strerror(errno));
  }
}

/// All but lock and tasks was an earlier server's, or somebody planted it.
bool is_leftover(int, const char* name) {
  return strcmp(name, kLockName) != 0 && strcmp(name, kTasksName) != 0;
}

/// What is no FIFO is no task's; a server that has given up root could not empty it.
bool is_no_fifo(int directory, const char* name) {
  struct stat status {};
  return fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) == 0 && !S_ISFIFO(status.st_mode);
}

/// @return a descriptor of a directory of this name that is ours, -1 with errno
int open_tasks(int directory, struct stat* status) {
  constexpr int kDirectory = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  for (int attempt = 0; attempt < 2; ++attempt) {
    mkdirat(directory, kTasksName, kPrivateMode);
    const int tasks = openat(directory, kTasksName, kDirectory);
    if (tasks >= 0 && fstat(tasks, status) == 0 && (is_root() || is_servers_user(status->st_uid)))
      return tasks;
    if (tasks >= 0) close(tasks);
    remove_entry(directory, kTasksName);
  }
  return -1;
}

refusal_t make_tasks(int directory) {
  struct stat status {};
  const int tasks = open_tasks(directory, &status);
  if (tasks < 0) return "cannot make /var/run/mdxgate/tasks";
  const bool alone = set_rights(tasks, kPrivateMode);
  if (alone) remove_entries(tasks, is_no_fifo);
  const bool is_set = alone && set_rights(tasks, kTaskDirectoryMode);
  const int error = errno;
  hand_over(tasks);
  close(tasks);
  if (!is_set) return refuse_with(error, "cannot set the mode of /var/run/mdxgate/tasks");
  own_tasks = id_of(status);
  return kGranted;
}

/// Makes a directory that no server has claimed yet, or whose server is dead, ours alone.
refusal_t take_directory(int directory) {
  refusal_t why = find_lock(directory);
  if (why != kGranted) return why;
  if (!set_rights(directory, kDirectoryMode)) return "cannot set the mode of /var/run/mdxgate";
  why = take_lock(directory);
  if (why != kGranted) return why;
  hand_over(lock);
  line_memory_attach(lock);
  remove_entries(directory, is_leftover);
  return kGranted;
}

refusal_t make_directory_ours() {
  int directory = -1;
  struct stat status {};
  refusal_t why = open_directory(&directory, &status);
  if (why == kGranted && !is_file(status, own_directory)) why = take_directory(directory);
  if (why == kGranted) own_directory = id_of(status);
  if (why == kGranted) why = make_tasks(directory);
  const int error = errno;
  if (why == kGranted) hand_over(directory);
  if (directory >= 0) close(directory);
  errno = error;
  return why;
}

}  // namespace

void claim_machine() {
  if (claimed.test_and_set()) return;
  occupy_standard_files();
  have_enough_descriptors();
  standard_output_never_waits();
  signal(SIGPIPE, SIG_IGN);
  umask(022);  // an odd one would keep a server that is not root out of its own directory
  privileges_forbid_gain();
  const refusal_t why = make_directory_ours();
  if (why != kGranted) refuse(why, errno);
}

size_t open_files_allowed() {
  rlimit limit{};
  prlimit(0, RLIMIT_NOFILE, nullptr, &limit);
  return static_cast<size_t>(limit.rlim_cur);
}

bool directory_restore() {
  struct stat directory {};
  struct stat tasks {};
  const bool is_there = lstat(kMdxDirectory, &directory) == 0 && is_file(directory, own_directory);
  if (is_there && lstat(kMdxTaskDirectory, &tasks) == 0 && is_file(tasks, own_tasks)) return true;
  const char* gone = is_there ? kMdxTaskDirectory : kMdxDirectory;
  const refusal_t why = make_directory_ours();
  if (why != complaint && why != kGranted) {
    MDX_TRACE(MDX_FROM_PLATFORM, MDX_TRACE_ERROR, "%s was removed, no client can come: %s: %s\n",
              gone, why, strerror(errno));
  }
  complaint = why;
  if (why != kGranted) return false;
  MDX_TRACE(MDX_FROM_PLATFORM, MDX_TRACE_ERROR, "%s was removed: made again\n", gone);
  return true;
}
