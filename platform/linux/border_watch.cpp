// SPDX-License-Identifier: Apache-2.0

// Removals come in bursts, as when a whole directory goes, and who removes it is to find it empty.
// So the look comes a moment after the first of them. Where the kernel has no watch to give, or
// what is missing could not be made again, the look is repeated.
//
// A name that appears among the tasks is looked at on the spot: its task may be waiting for it to
// go.

#include "platform/linux/border_watch.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>

#include "platform/linux/claim.h"
#include "platform/linux/console.h"
#include "platform/linux/counters.h"
#include "platform/linux/events.h"
#include "platform/linux/hub.h"
#include "platform/linux/record_queue.h"
#include "platform/linux/task_names.h"
#include "platform/mdx_platform.h"
#include "wire/border.h"

namespace {

constexpr int32_t kSettleMs = 200;
constexpr int32_t kRepeatMs = 1000;
constexpr uint32_t kRemovals = IN_DELETE | IN_MOVED_FROM | IN_DELETE_SELF | IN_MOVE_SELF;
constexpr uint32_t kArrivals = IN_CREATE | IN_MOVED_TO;
constexpr uint32_t kEnds = IN_CLOSE_WRITE;  // a client holds its FIFO as long as it lives

/// A look that is due at some time, or is not.
struct due_t {
  bool is_due;
  uint32_t at;  ///< MDX_elapse

  /// Not later than in so many milliseconds; -1 changes nothing.
  void come_in(int32_t milliseconds) {
    if (milliseconds < 0) return;
    const uint32_t then = MDX_elapse() + static_cast<uint32_t>(milliseconds);
    if (!is_due || static_cast<int32_t>(then - at) < 0) at = then;
    is_due = true;
  }
  /// Milliseconds until then, -1 for ever.
  int32_t left() const {
    if (!is_due) return -1;
    const auto left = static_cast<int32_t>(at - MDX_elapse());
    return left > 0 ? left : 0;
  }
};

constinit int watch = -1;
constinit int own_watch = -1;    ///< of the server's directory
constinit int tasks_watch = -1;  ///< of the tasks' directory
constinit int tasks = -1;
constinit due_t border{};
constinit due_t tending{};

void take_event(const inotify_event& event) {
  if ((event.mask & IN_Q_OVERFLOW) != 0) {
    border.come_in(kSettleMs);
    tending.come_in(0);
  } else if (event.wd != tasks_watch || (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF)) != 0) {
    border.come_in(kSettleMs);
  } else if (event.len > 0) {
    tending.come_in(kTaskNamePatienceMs);
    if ((event.mask & kArrivals) != 0) tending.come_in(task_name_tend(tasks, event.name));
  }
}

/// Takes some of the events; the descriptor stays readable while there are more.
void take_events() {
  alignas(inotify_event) char events[1024];  // some events: the longest name takes 272 bytes
  const ssize_t size = watch >= 0 ? read(watch, events, sizeof(events)) : 0;
  for (ssize_t at = 0; at < size;) {
    const auto* event = reinterpret_cast<const inotify_event*>(events + at);
    take_event(*event);
    at += static_cast<ssize_t>(sizeof(*event) + event->len);
  }
}

/// Looks at names of tasks, which opens FIFOs, and must not be taken for clients that end.
void tend_tasks() {
  constexpr uint32_t kWithoutEnds = kRemovals | kArrivals | IN_ONLYDIR;
  const int same = inotify_add_watch(watch, kMdxTaskDirectory, kWithoutEnds);
  tending.come_in(task_names_tend_some(tasks));
  if (same >= 0) inotify_add_watch(watch, kMdxTaskDirectory, kWithoutEnds | kEnds);
}

/// The directory may be another one than before.
bool watch_tasks() {
  const int fresh = open(kMdxTaskDirectory, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (tasks >= 0) close(tasks);
  tasks = fresh;
  const int before = tasks_watch;
  tasks_watch =
      inotify_add_watch(watch, kMdxTaskDirectory, kRemovals | kArrivals | kEnds | IN_ONLYDIR);
  if (tasks_watch != before) tending.come_in(0);
  return tasks >= 0 && tasks_watch >= 0;
}

/// What goes while this looks is told afterwards.
/// @return whether all is there and watched
bool restore_all() {
  if (!directory_restore()) return false;
  own_watch = inotify_add_watch(watch, kMdxDirectory, kRemovals | IN_ONLYDIR);
  const bool all[] = {
      own_watch >= 0,        watch_tasks(), hub_restore(), console_restore(), server_link_restore(),
      event_fifos_restore(),  // who waited in the old one goes by the link
  };
  return std::ranges::find(all, false) == std::end(all);
}

}  // namespace

void border_watch_begin() {
  watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  border.come_in(0);
}

int border_watch_fd() { return watch; }

int border_watch_wait_ms() {
  const int32_t first = border.left();
  const int32_t second = tending.left();
  if (first < 0 || second < 0) return std::max(first, second);
  return std::min(first, second);
}

void border_watch_look() {
  take_events();
  if (border.left() == 0) {
    border.is_due = false;
    if (!restore_all()) {
      counter_add(COUNT_NAMES_MISSING);
      border.come_in(kRepeatMs);
    }
  }
  if (tending.left() != 0) return;
  tending.is_due = false;
  tend_tasks();
}
