// SPDX-License-Identifier: Apache-2.0

// Whose a task is stands in /proc. Where that is hidden from the server, a FIFO stays as long as
// its task lives, whoever made it.
//
// By its FIFO the serving task sees that a client has ended. So its requests go before the FIFO
// does.

#include "platform/linux/task_names.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "platform/linux/counters.h"
#include "platform/linux/directory.h"
#include "platform/linux/record_queue.h"
#include "platform/linux/removal.h"
#include "platform/mdx_platform.h"
#include "wire/border.h"

namespace {

constexpr int kNamesAtOnce = 256;
constexpr int32_t kNever = -1;
/// Before root is given up the directory may already be the other user's.
constexpr int32_t kStuckMs = 100;
constexpr uint32_t kTellAgainMs = 60'000;
constexpr char kUserLine[] = "\nUid:";
constexpr size_t kUserIds = 4;  // real, effective, saved, of the file system

enum verdict_t { STAYS, TOO_YOUNG, LEFT_BEHIND, NO_TASKS };

constinit directory_reader look;  ///< open while one is under way
constinit int32_t look_again_ms = kNever;

/// @return the task's id, 0 when the name is none
int32_t task_of(const char* name) {
  char* end = nullptr;
  const unsigned long task = strtoul(name, &end, 10);
  if (name[0] < '1' || name[0] > '9' || *end != '\0' || task > INT32_MAX) return 0;
  return static_cast<int32_t>(task);
}

bool read_users(int32_t task, uid_t (&users)[kUserIds]) {
  char path[32];
  snprintf(path, sizeof(path), "/proc/%d/status", task);
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  char text[1024];
  const ssize_t size = read(fd, text, sizeof(text) - 1);
  close(fd);
  text[size > 0 ? size : 0] = '\0';
  char* number = strstr(text, kUserLine);
  if (number == nullptr) return false;
  number += strlen(kUserLine);
  for (uid_t& user : users) {
    const char* begin = number;
    user = static_cast<uid_t>(strtoul(begin, &number, 10));
    if (number == begin) return false;
  }
  return true;
}

bool is_there(int32_t task) { return kill(task, 0) == 0 || errno != ESRCH; }

/// @return whether `user` may have made an event FIFO for the task
bool may_serve(int32_t task, uid_t user) {
  uid_t users[kUserIds];
  if (user == 0 || !read_users(task, users)) return true;
  for (const uid_t own : users)
    if (own == user) return true;
  return false;
}

bool is_young(const struct stat& status) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  const int64_t age_ms = (static_cast<int64_t>(now.tv_sec) - status.st_ctim.tv_sec) * 1000 +
                         (now.tv_nsec - status.st_ctim.tv_nsec) / 1000000;
  return age_ms > -static_cast<int64_t>(kTaskNamePatienceMs) && age_ms < kTaskNamePatienceMs;
}

/// @param found  set to what bears the name
verdict_t judge(int directory, const char* name, struct stat* found) {
  struct stat& status = *found;
  if (fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return STAYS;
  const int32_t task = task_of(name);
  if (task == 0 || !S_ISFIFO(status.st_mode)) return NO_TASKS;
  if (!is_there(task)) return LEFT_BEHIND;
  if (!may_serve(task, status.st_uid)) return NO_TASKS;
  if (is_young(status)) return TOO_YOUNG;
  const int fd = openat(directory, name, O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
  if (fd >= 0) close(fd);
  return fd < 0 && errno == ENXIO ? LEFT_BEHIND : STAYS;
}

/// A task of the same number, or the same one, may have made its FIFO anew since the look.
bool is_still(const struct stat& found, int directory, const char* name) {
  struct stat now {};
  return fstatat(directory, name, &now, AT_SYMLINK_NOFOLLOW) == 0 && now.st_ino == found.st_ino &&
         now.st_ctim.tv_sec == found.st_ctim.tv_sec && now.st_ctim.tv_nsec == found.st_ctim.tv_nsec;
}

bool remove_left_behind(int directory, const char* name, const struct stat& found) {
  const requests_wait_t none_is_taken;
  if (!is_still(found, directory, name)) return true;
  requests_drop(task_of(name));
  return !is_still(found, directory, name) || remove_entry(directory, name);
}

/// One who plants without pause must not fill the log.
void tell_of_plant() {
  static constinit bool told = false;
  static constinit uint32_t told_at = 0;
  counter_add(COUNT_TASK_NAMES_REFUSED);
  const uint32_t now = MDX_elapse();
  if (told && now - told_at < kTellAgainMs) return;
  told = true;
  told_at = now;
  MDX_TRACE(MDX_FROM_PLATFORM, MDX_TRACE_ERROR,
            "%s: %" PRIu64 " names so far that were no task's own\n", kMdxTaskDirectory,
            counter_value(COUNT_TASK_NAMES_REFUSED));
}

bool begin_look(int directory) {
  look_again_ms = kNever;
  return look.open(directory, ".");
}

}  // namespace

int32_t task_name_tend(int directory, const char* name) {
  if (is_removed_entry(name)) return kNever;  // this was all that could be done
  struct stat found {};
  const verdict_t verdict = judge(directory, name, &found);
  if (verdict == STAYS) return kNever;
  if (verdict == TOO_YOUNG) return kTaskNamePatienceMs;
  if (verdict == LEFT_BEHIND) return remove_left_behind(directory, name, found) ? kNever : kStuckMs;
  if (!remove_entry(directory, name)) return kStuckMs;
  tell_of_plant();
  return kNever;
}

int32_t task_names_tend_some(int directory) {
  if (!look.is_open() && !begin_look(directory)) return kTaskNamePatienceMs;
  for (int i = 0; i < kNamesAtOnce; ++i) {
    const char* entry = look.next();
    if (entry == nullptr) {
      look.close();
      return look_again_ms;
    }
    const int32_t again_ms = task_name_tend(look.fd(), entry);
    if (look_again_ms < 0 || (again_ms >= 0 && again_ms < look_again_ms)) look_again_ms = again_ms;
  }
  return 0;
}
