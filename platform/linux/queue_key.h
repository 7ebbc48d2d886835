// SPDX-License-Identifier: Apache-2.0

// The System V keys of the two queues. Anybody on the machine can make a queue under any key, so
// what is found there may be an outsider's.
#pragma once

#include <cstdint>

/// Makes the queue of a number for the clients' group, with room for `bytes` of records. What
/// somebody else has put at its key is removed, and again, for some seconds, while he goes on.
/// @return the kernel's id, or -1 with errno: EEXIST when the key stays somebody else's
int32_t queue_key_take(int32_t number, int32_t bytes);

/// Removes a queue with all in it, whose ever it is: root may without a capability for that.
/// @return 0, or -1 with errno
int queue_key_remove(int32_t kernel_id);
