// SPDX-License-Identifier: Apache-2.0

// The hub, beyond what mdx_platform.h says: who receives, and how well it keeps up.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "wire/border.h"

constexpr size_t kMaxReceivers = 128;

struct hub_receiver_t {
  pid_t process;  ///< 0 when it cannot be seen from here
  uid_t user;
  char name[sizeof(mdx_packet_header_t::to)];  ///< as in the subscription: any bytes, and a NUL
  uint32_t module;                             ///< for an empty name
  uint64_t sent;
  uint64_t lost;
};

/// Copies the receivers that have subscribed. Any thread.
/// @return how many were copied, at most `room`
size_t hub_receivers(hub_receiver_t* list, size_t room);

/// Makes the hub's socket again, should somebody have removed it. For the thread that dispatches.
/// @return whether it is there
bool hub_restore();
