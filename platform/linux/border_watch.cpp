// SPDX-License-Identifier: Apache-2.0

// Removals come in bursts, as when a whole directory goes, and who removes it is to find it empty.
// So the look comes a moment after the first of them. Where the kernel has no watch to give, or
// what is missing could not be made again, the look is repeated.

#include "platform/linux/border_watch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>

#include "platform/linux/claim.h"
#include "platform/linux/console.h"
#include "platform/linux/events.h"
#include "platform/linux/hub.h"
#include "platform/linux/record_queue.h"
#include "platform/mdx_platform.h"
#include "wire/border.h"

namespace {

constexpr uint32_t kSettleMs = 200;
constexpr uint32_t kRepeatMs = 2000;
constexpr uint32_t kRemovals = IN_DELETE | IN_MOVED_FROM | IN_DELETE_SELF | IN_MOVE_SELF;

constinit int watch = -1;
constinit bool look_is_due = false;
constinit uint32_t due_at = 0;  ///< MDX_elapse, where a look is due

void look_in(uint32_t milliseconds) {
  look_is_due = true;
  due_at = MDX_elapse() + milliseconds;
}

bool drain() {
  char removals[4096];
  bool any = false;
  while (watch >= 0 && read(watch, removals, sizeof(removals)) > 0) any = true;
  return any;
}

/// The directory may be another one than before. What goes while this looks is told afterwards.
/// @return whether all is there and watched
bool restore_all() {
  if (!directory_restore()) return false;
  const bool all[] = {
      inotify_add_watch(watch, kMdxDirectory, kRemovals | IN_ONLYDIR) >= 0,
      hub_restore(),
      console_restore(),
      event_fifos_restore(),
      server_link_restore(),
  };
  return std::find(std::begin(all), std::end(all), false) == std::end(all);
}

}  // namespace

void border_watch_begin() {
  watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  look_in(0);
}

int border_watch_fd() { return watch; }

int border_watch_wait_ms() {
  if (!look_is_due) return -1;
  const auto left = static_cast<int32_t>(due_at - MDX_elapse());
  return left > 0 ? left : 0;
}

void border_watch_look() {
  const int wait_ms = border_watch_wait_ms();
  if (drain() && (wait_ms < 0 || wait_ms > static_cast<int>(kSettleMs))) look_in(kSettleMs);
  if (border_watch_wait_ms() != 0) return;
  look_is_due = false;
  if (!restore_all()) look_in(kRepeatMs);
}
