// SPDX-License-Identifier: Apache-2.0

// Who gives way at a full hub. No I/O here.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

struct hub_place_t {
  uid_t user;
  uint64_t number;  ///< connections are numbered as they come
};

/// Chooses the connection that gives way to one more of `newcomer`: the youngest of the user that
/// has the most, if the newcomer's user has fewer of them even with it.
/// @return its position; `count` when the newcomer has to be refused
size_t place_to_give_up(const hub_place_t* places, size_t count, uid_t newcomer);
