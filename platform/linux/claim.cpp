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

#include "platform/linux/border.h"
#include "platform/linux/event_fifo.h"
#include "platform/linux/identity.h"
#include "platform/linux/privileges.h"
#include "platform/mdx_platform.h"

namespace {

constexpr mode_t kDirectoryMode = 03770;
constexpr char kLockName[] = "lock";
constexpr char kEventName[] = "event.";
constexpr char kLinkName[] = "queue.2";

constinit std::atomic_flag claimed = ATOMIC_FLAG_INIT;

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

int open_directory() {
  if (mkdir(kMdxDirectory, 0700) != 0 && errno != EEXIST)
    refuse("cannot make /var/run/mdxgate", errno);
  const int directory = open(kMdxDirectory, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (directory < 0) refuse("cannot open /var/run/mdxgate as a directory", errno);

  struct stat status {};
  if (fstat(directory, &status) != 0) refuse("cannot look at /var/run/mdxgate", errno);
  const bool is_safe_of_root = status.st_uid == 0 && (status.st_mode & S_IWOTH) == 0;
  if (status.st_uid != geteuid() && !is_safe_of_root)
    refuse("/var/run/mdxgate belongs to somebody else; remove it", 0);
  return directory;
}

void take_lock(int directory) {
  const int lock =
      openat(directory, kLockName, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
  if (lock < 0)
    refuse("cannot open /var/run/mdxgate/lock (does another user's server run?)", errno);
  struct stat status {};
  if (fstat(lock, &status) != 0 || !S_ISREG(status.st_mode) || status.st_uid != geteuid() ||
      status.st_nlink != 1)
    refuse("/var/run/mdxgate/lock is not the lock of a server; remove it", 0);
  if (flock(lock, LOCK_EX | LOCK_NB) != 0)
    refuse("another server runs on this machine; this one ends", errno == EWOULDBLOCK ? 0 : errno);
  fchmod(lock, 0600);
}

void set_directory_rights(int directory) {
  struct stat status {};
  if (fstat(directory, &status) != 0 || status.st_uid != geteuid()) return;
  const mdx_identity_t& identity = mdx_identity();
  if (identity.has_group && fchown(directory, static_cast<uid_t>(-1), identity.group) != 0)
    MDX_TRACE("platform", MDX_TRACE_MISSING, "%s does not get its group: %s\n", kMdxDirectory,
              strerror(errno));
  if (fchmod(directory, kDirectoryMode) != 0)
    refuse("cannot set the mode of /var/run/mdxgate", errno);
}

bool is_dead_event_set(const char* name) {
  if (strncmp(name, kEventName, strlen(kEventName)) != 0) return false;
  char path[sizeof(kMdxDirectory) + sizeof(dirent::d_name)];
  snprintf(path, sizeof(path), "%s/%s", kMdxDirectory, name);
  const int fd = event_fifo_open(path);
  if (fd >= 0) close(fd);
  return fd < 0 && (errno == ENXIO || errno == EINVAL || errno == ELOOP);
}

bool is_leftover(const char* name) {
  return strcmp(name, "hub") == 0 || strcmp(name, "console") == 0 ||
         strncmp(name, kLinkName, strlen(kLinkName)) == 0 || is_dead_event_set(name);
}

void remove_leftovers(int directory) {
  DIR* entries = fdopendir(directory);
  if (entries == nullptr) return;
  while (const dirent* entry = readdir(entries)) {
    if (is_leftover(entry->d_name) && unlinkat(directory, entry->d_name, 0) != 0)
      MDX_TRACE("platform", MDX_TRACE_MISSING, "%s/%s stays from an earlier run: %s\n",
                kMdxDirectory, entry->d_name, strerror(errno));
  }
  closedir(entries);
}

}  // namespace

void claim_machine() {
  if (claimed.test_and_set()) return;
  occupy_standard_files();
  signal(SIGPIPE, SIG_IGN);
  privileges_forbid_gain();
  const int directory = open_directory();
  take_lock(directory);
  set_directory_rights(directory);
  remove_leftovers(directory);
}
