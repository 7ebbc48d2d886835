// SPDX-License-Identifier: Apache-2.0

#include "platform/linux/answer_room.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr uint32_t kInVainMs = 10000;

using same_t = bool (*)(const unread_answer_t& one, const unread_answer_t& other);

bool same_user(const unread_answer_t& one, const unread_answer_t& other) {
  return one.user == other.user;
}

bool same_task(const unread_answer_t& one, const unread_answer_t& other) {
  return one.task == other.task && same_user(one, other);
}

size_t count_same(const unread_answer_t* unread, size_t count, const unread_answer_t& as,
                  same_t same) {
  size_t found = 0;
  for (size_t i = 0; i < count; ++i) found += same(unread[i], as) ? 1 : 0;
  return found;
}

/// The oldest answer of the user that has the most.
size_t first_of_hoarder(const unread_answer_t* unread, size_t count) {
  size_t first = count;
  size_t most = 1;
  for (size_t i = 0; i < count; ++i) {
    const size_t held = count_same(unread, count, unread[i], same_user);
    if (held <= most) continue;
    most = held;
    first = i;
  }
  return first;
}

}  // namespace

size_t answer_to_lose(const unread_answer_t* unread, size_t count) {
  const size_t oldest = first_of_hoarder(unread, count);
  if (oldest == count) return count;
  size_t lost = oldest;
  size_t most = 1;
  for (size_t i = oldest; i < count; ++i) {
    if (!same_user(unread[i], unread[oldest])) continue;
    const size_t held = count_same(unread, count, unread[i], same_task);
    if (held <= most) continue;
    most = held;
    lost = i;
  }
  return most > 1 || unread[lost].age_ms >= kTakingMs ? lost : count;
}

bool answer_patience::is_over(uid_t user, uint32_t now_ms) const {
  return std::ranges::any_of(users_, [user, now_ms](const user_t& known) {
    return known.known && known.user == user && now_ms - known.at < kInVainMs;
  });
}

void answer_patience::was_in_vain(uid_t user, uint32_t now_ms) {
  users_[next_] = {user, true, now_ms};
  next_ = (next_ + 1) % std::size(users_);
}
