// SPDX-License-Identifier: Apache-2.0

// Who makes room on a full answer queue.
//
// Answers are taken off it by clients, and a client that does not must not hold up the others. Its
// user can run as many of them as it likes, so the users share the queue first, and the tasks of a
// user share what is the user's. No I/O here, and no clock.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

/// Stands for all tasks whose user is not to be seen.
constexpr uid_t kNobody = static_cast<uid_t>(-1);

/// A task that was woken for its answer has so long to take it, whoever else wants its place.
constexpr uint32_t kTakingMs = 300;

struct unread_answer_t {
  int32_t task;
  uid_t user;
  uint32_t age_ms;
};

/// Chooses the answer that is lost: of the user that has the most, of its task that has the most,
/// the oldest. An answer that is its task's only one is not lost before it is kTakingMs old.
/// @param unread  the oldest first; the last is the new one, of age 0
/// @return its position; `count` when all are still to be waited for, as where each user has one
size_t answer_to_lose(const unread_answer_t* unread, size_t count);

/// Remembers for whom it was waited in vain: for a while nobody waits for that user's tasks again.
class answer_patience {
 public:
  bool is_over(uid_t user, uint32_t now_ms) const;
  void was_in_vain(uid_t user, uint32_t now_ms);

 private:
  struct user_t {
    uid_t user = 0;
    bool known = false;
    uint32_t at = 0;
  };
  user_t users_[8];
  size_t next_ = 0;
};
