// SPDX-License-Identifier: Apache-2.0

// Raises and waits: the hot path of each command, so each system call counts.
//
// A raise inside the process sets bits in memory and writes the FIFO only while the task sleeps;
// the sleeper says so first and looks at the bits again after, so that one of the two sees the
// other. What comes out of the FIFO was written by other processes: whatever is no clean raise may
// hide one. The task that bound the modem's channel reads the modem while it sleeps here.

#include "platform/linux/events.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "platform/linux/answer_room.h"
#include "platform/linux/claim.h"
#include "platform/linux/counters.h"
#include "platform/linux/identity.h"
#include "platform/linux/modem_channel.h"
#include "platform/linux/record_queue.h"
#include "platform/mdx_platform.h"
#include "wire/border.h"
#include "wire/event_fifo.h"

namespace {

constexpr size_t kMaxTasks = 8;
constexpr size_t kRecentTasks = 64;
constexpr size_t kFilesForEach = 8;      // that may be open; where few may, others need them more
constexpr uint32_t kFailureNapMs = 100;  // a caller that repeats a failed wait must not spin
constexpr uint32_t kLookAgain = 0;
constexpr mode_t kNobodysMode = 0600;

struct event_set_t {
  std::atomic<int32_t> task_id{0};
  std::atomic<uint32_t> pending{0};
  std::atomic<uint32_t> sleeping{0};  ///< a word: not every processor exchanges bytes
  std::atomic<uint32_t> mask{0};
  int wait_fd = -1;
  int wake_fd = -1;
  bool is_public = false;
  bool unlooked = false;  ///< the last wait was over before it looked into the FIFO
};
constinit event_set_t event_sets[kMaxTasks];
constinit thread_local event_set_t* own_set = nullptr;

/// Where other processes' tasks were raised lately: most clients come more than once. To open a
/// FIFO anew for each command costs a crowd a third of its time.
struct recent_task_t {
  int32_t task_id;
  int fd;
};
constinit recent_task_t recent_tasks[kRecentTasks] = {};
constinit uint32_t recent_in_use = 1;  ///< of them
constinit uint32_t oldest_recent = 0;
pthread_mutex_t recent_lock = PTHREAD_MUTEX_INITIALIZER;

event_set_t* find_set(int32_t task_id) {
  for (event_set_t& set : event_sets)
    if (set.task_id.load(std::memory_order_acquire) == task_id) return &set;
  return nullptr;
}

/// Makes a FIFO by which the clients' group finds a task of this process.
int create_public_fifo(const char* path) {
  const int fd = event_fifo_create(path, kNobodysMode);
  if (fd < 0) return -1;
  identity_give_to_group(path);
  fchmod(fd, kEventMode);
  return fd;
}

void open_set(event_set_t& set, int32_t task_id) {
  char path[kEventPathSize];
  server_fifo_path(task_id, path);
  set.wait_fd = set.wake_fd = create_public_fifo(path);
  set.is_public = set.wait_fd >= 0;
  if (set.is_public) return;
  MDX_TRACE(MDX_FROM_PLATFORM, MDX_TRACE_ERROR, "no client can wake this task, %s: %s\n", path,
            strerror(errno));
  int ends[2] = {-1, -1};
  if (pipe2(ends, O_NONBLOCK | O_CLOEXEC) != 0) return;
  set.wait_fd = ends[0];
  set.wake_fd = ends[1];
}

/// SIGPIPE is ignored by this process.
/// @return false when the task has died
bool write_raise(int fd, uint32_t bits) {
  ssize_t written = 0;
  do {
    written = write(fd, &bits, sizeof(bits));
  } while (written < 0 && errno == EINTR);
  // A full pipe is as good: who empties it takes that for every raise there is.
  return written >= 0 || errno == EAGAIN;
}

/// Puts a new FIFO behind the set's descriptor. A sleeper is woken in the old one, and goes on in
/// the new one, as if everything had been raised: what the old one still held is gone.
/// @return whether it is there
bool restore_fifo(const event_set_t& set, int32_t task_id) {
  char path[kEventPathSize];
  struct stat status;
  server_fifo_path(task_id, path);
  if (lstat(path, &status) == 0) return true;
  const int fresh = create_public_fifo(path);
  if (fresh < 0) return false;
  const int old = fcntl(set.wait_fd, F_DUPFD_CLOEXEC, 0);
  dup3(fresh, set.wait_fd, O_CLOEXEC);
  write_raise(fresh, set.mask.load());
  close(fresh);
  if (old >= 0) write_raise(old, kLookAgain);
  if (old >= 0) close(old);
  MDX_TRACE(MDX_FROM_PLATFORM, MDX_TRACE_ERROR, "%s was removed: made again\n", path);
  return true;
}

/// Moves what other processes raised to the bits in memory.
void collect(event_set_t& set) {
  uint32_t bits = event_fifo_take(set.wait_fd, request_queue_wanted);
  const uint32_t mask = set.mask.load();
  if ((bits & ~mask) != 0) bits = mask;
  if (bits != 0) set.pending.fetch_or(bits);
}

/// Sleeps until something is raised, `wait_ms` at most; may also return for no reason.
/// @return false when it cannot wait
bool sleep_in(event_set_t& set, uint32_t mask, int wait_ms) {
  modem_channel_is_clean();  // who waits for events is in no exchange
  set.sleeping.store(1);
  pollfd readable = {set.wait_fd, POLLIN, 0};
  int ready = 1;
  if ((set.pending.load() & mask) == 0) ready = modem_channel_poll(&readable, wait_ms);
  const int error = errno;
  set.sleeping.store(0);
  if ((readable.revents & POLLIN) != 0) collect(set);
  return (ready >= 0 || error == EINTR) && (readable.revents & (POLLNVAL | POLLERR)) == 0;
}

void limit_recent_tasks() {
  const size_t share = open_files_allowed() / kFilesForEach;
  pthread_mutex_lock(&recent_lock);
  recent_in_use = static_cast<uint32_t>(std::clamp<size_t>(share, 1, kRecentTasks));
  pthread_mutex_unlock(&recent_lock);
}

recent_task_t* find_recent(int32_t task_id) {
  for (recent_task_t& recent : recent_tasks)
    if (recent.task_id == task_id) return &recent;
  return nullptr;
}

/// Who is served is polled meanwhile: the next task that is opened takes another's place.
void keep_next(const recent_task_t* recent) {
  if (recent == &recent_tasks[oldest_recent]) oldest_recent = (oldest_recent + 1) % recent_in_use;
}

void forget(recent_task_t* recent) {
  close(recent->fd);
  *recent = {0, -1};
}

/// @return a descriptor that is kept open, or -1 with errno
int open_task(int32_t task_id) {
  char path[kEventPathSize];
  event_fifo_path(task_id, path);
  const int fd = event_fifo_open(path);
  if (fd < 0) return -1;
  recent_task_t& replaced = recent_tasks[oldest_recent];
  oldest_recent = (oldest_recent + 1) % recent_in_use;
  if (replaced.task_id != 0) close(replaced.fd);
  replaced = {task_id, fd};
  return fd;
}

bool raise_recent(int32_t task_id, uint32_t bits) {
  recent_task_t* recent = find_recent(task_id);
  if (recent == nullptr) return false;
  if (write_raise(recent->fd, bits)) return true;
  forget(recent);
  return false;
}

bool raise_other_process(int32_t task_id, uint32_t bits) {
  return raise_recent(task_id, bits) || (open_task(task_id) >= 0 && raise_recent(task_id, bits));
}

/// A FIFO that its task has replaced may still be read, by a child that its task forked.
bool is_current(int fd) {
  struct stat status;
  pollfd fifo = {fd, 0, 0};
  return fstat(fd, &status) == 0 && status.st_nlink != 0 && poll(&fifo, 1, 0) == 0;
}

}  // namespace

void server_fifo_path(int32_t task_id, char (&path)[kEventPathSize]) {
  snprintf(path, sizeof(path), "%s%d", kMdxEventPrefix, task_id);
}

bool event_fifos_restore() {
  bool all = true;
  for (event_set_t& set : event_sets) {
    const int32_t task_id = set.task_id.load(std::memory_order_acquire);
    if (task_id > 0 && set.is_public && !restore_fifo(set, task_id)) all = false;
  }
  return all;
}

int event_task_fd(int32_t task_id) {
  pthread_mutex_lock(&recent_lock);
  const recent_task_t* recent = find_recent(task_id);
  keep_next(recent);
  const int fd = recent != nullptr ? recent->fd : -1;
  pthread_mutex_unlock(&recent_lock);
  return fd;
}

int event_task_open(int32_t task_id) {
  pthread_mutex_lock(&recent_lock);
  recent_task_t* recent = find_recent(task_id);
  if (recent != nullptr && !is_current(recent->fd)) {
    forget(recent);
    recent = nullptr;
  }
  keep_next(recent);
  const int fd = recent != nullptr ? recent->fd : open_task(task_id);
  pthread_mutex_unlock(&recent_lock);
  return fd;
}

bool task_is_dead(int32_t task_id) {
  if (find_set(task_id) != nullptr) return false;
  char path[kEventPathSize];
  event_fifo_path(task_id, path);
  const int fd = event_fifo_open(path);
  if (fd >= 0) close(fd);
  if (fd >= 0) return false;
  return errno == ENXIO || (errno == ENOENT && kill(task_id, 0) != 0 && errno == ESRCH);
}

uid_t task_user(int32_t task_id) {
  char path[kEventPathSize];
  struct stat status;
  event_fifo_path(task_id, path);
  return lstat(path, &status) == 0 && S_ISFIFO(status.st_mode) ? status.st_uid : kNobody;
}

int32_t MDX_task_getid() {
  static constinit thread_local int32_t task_id = 0;
  if (task_id == 0) task_id = static_cast<int32_t>(syscall(SYS_gettid));
  return task_id;
}

void MDX_event_init(uint32_t mask) {
  const int32_t task_id = MDX_task_getid();
  if (own_set == nullptr) {
    for (event_set_t& set : event_sets) {
      int32_t unused = 0;
      if (!set.task_id.compare_exchange_strong(unused, -task_id)) continue;
      own_set = &set;
      break;
    }
    if (own_set == nullptr) {
      MDX_TRACE(MDX_FROM_PLATFORM, MDX_TRACE_ERROR, "no event set is left for task %d\n", task_id);
      return;
    }
    open_set(*own_set, task_id);
    limit_recent_tasks();
  }
  own_set->mask = mask;
  own_set->pending.store(0);
  own_set->task_id.store(task_id, std::memory_order_release);
}

int32_t MDX_event_send(int32_t task_id, uint32_t bits) {
  if (task_id <= 0) return 0;
  if (event_set_t* set = find_set(task_id)) {
    set->pending.fetch_or(bits);
    if (set != own_set && set->sleeping.exchange(0) != 0) write_raise(set->wake_fd, kLookAgain);
    return 1;
  }
  pthread_mutex_lock(&recent_lock);
  const bool raised = raise_other_process(task_id, bits);
  pthread_mutex_unlock(&recent_lock);
  if (!raised) counter_add(COUNT_RAISES_FAILED);
  return raised ? 1 : 0;
}

int32_t MDX_event_recv(uint32_t mask, int32_t wait_ms, uint32_t* bits) {
  if (own_set == nullptr || own_set->wait_fd < 0 || bits == nullptr) {
    MDX_sleep(kFailureNapMs);
    return 0;
  }
  event_set_t& set = *own_set;
  const uint32_t begin = MDX_elapse();
  bool time_left = true;
  // A busy modem must not keep clients waiting: of two waits that need none, one looks.
  set.unlooked = (set.pending.load() & mask) != 0 && !set.unlooked;
  if ((set.pending.load() & mask) != 0 && !set.unlooked) collect(set);
  for (;;) {
    const uint32_t taken = set.pending.fetch_and(~mask) & mask;
    if (taken != 0) {
      *bits = taken;
      return 1;
    }
    if (!time_left) return 0;
    const uint32_t waited = MDX_elapse() - begin;
    const auto limit = static_cast<uint32_t>(wait_ms);
    time_left = wait_ms < 0 || waited < limit;
    const int left = wait_ms < 0 ? -1 : time_left ? static_cast<int>(limit - waited) : 0;
    if (!sleep_in(set, mask, left)) {
      MDX_sleep(kFailureNapMs);
      return 0;
    }
  }
}
