// SPDX-License-Identifier: Apache-2.0

// A client that is called is woken twice for one command, for its place and for its answer, which
// costs a third more where the modem answers at once. So a client that comes again keeps its place
// for about a millisecond. Where a command takes longer, each is followed by the next in line.

#include "platform/linux/waiting_line.h"

#include "platform/linux/large_buffers.h"
#include "platform/mdx_platform.h"
#include "wire/border.h"

namespace {

constexpr uint32_t kLongestLine = 128;
constexpr int kMostDead = 16;  // that are passed over at a time: each costs an attempt to open it
constexpr uint32_t kStayUs = 1250;
constexpr uint32_t kStays = 16;  // more than there are places: some clients have just lost theirs

struct stay_t {
  int32_t task;
  uint32_t since_us;
};

[[MDX_SELDOM_TOUCHED]] constinit int32_t line[kLongestLine] = {};
[[MDX_SELDOM_TOUCHED]] constinit stay_t stays[kStays] = {};
constinit uint32_t first = 0;
constinit uint32_t waiting = 0;
constinit uint32_t oldest_stay = 0;
constinit uint32_t last_taken_us = 0;

int32_t& place(uint32_t index) { return line[(first + index) % kLongestLine]; }

/// @param since_us  of who is new: it had its place when the request before its own was taken
stay_t& stay_of(int32_t task, uint32_t since_us) {
  for (stay_t& stay : stays)
    if (stay.task == task) return stay;
  stay_t& stay = stays[oldest_stay++ % kStays];
  stay = {task, since_us};
  return stay;
}

}  // namespace

void waiting_line_join(uint32_t ticket) {
  const auto task = static_cast<int32_t>(ticket & kMdxTicketTask);
  if (waiting == kLongestLine) return;
  for (uint32_t i = 0; i < waiting; ++i)
    if (place(i) == task) return;
  if ((ticket & kMdxTicketCalled) != 0) --first;
  place((ticket & kMdxTicketCalled) != 0 ? 0 : waiting) = task;
  ++waiting;
}

bool waiting_line_stands() { return waiting != 0; }

bool waiting_line_call(int32_t places) {
  for (int dead = 0; places > 0 && waiting > 0 && dead < kMostDead;) {
    const int32_t task = place(0);
    ++first;
    --waiting;
    if (MDX_event_send(task, kMdxEventRoom) != 0) {
      --places;
    } else {
      ++dead;
    }
  }
  return places == 0;
}

bool waiting_line_move(int32_t task, uint32_t now_us) {
  const uint32_t last_us = last_taken_us;
  last_taken_us = now_us;
  if (waiting == 0) return false;
  for (uint32_t i = 0; i < waiting; ++i)
    if (place(i) == task) place(i) = 0;  // it came before it was called
  stay_t& stay = stay_of(task, last_us);
  if (now_us - stay.since_us < kStayUs) return false;
  stay.task = 0;
  return waiting_line_call(1);
}
