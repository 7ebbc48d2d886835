// SPDX-License-Identifier: Apache-2.0

// The queue inside the process, as the rest of the platform sees it.
#pragma once

#include <cstdint>

constexpr int32_t kNasQueueNumber = 3;

/// Id of the queue, -1 when there is none.
int32_t nas_queue_find();

/// Whether there is a queue, but no room in it.
bool nas_queue_is_full();

/// Whether nothing waits in it, also when there is none.
bool nas_queue_is_empty();
