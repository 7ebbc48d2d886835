// SPDX-License-Identifier: Apache-2.0

// How long the queues between clients and server are, as any client may see.
#pragma once

#include <cstdint>
#include <optional>

struct queue_depth_t {
  uint64_t waiting;
  uint64_t room;  ///< records that fit
};

/// @param number  kMdxRequestQueue or kMdxResponseQueue
/// @return nothing when there is no such queue, or this user may not look
std::optional<queue_depth_t> queue_depth(int32_t number);
