// SPDX-License-Identifier: Apache-2.0

// Works off what the modem has said by itself while no exchange was running.
#pragma once

#include <cstdint>

/// Parses deliveries until the NAS queue is empty. Never waits.
/// @param retcode  never null; not written
/// @return 0 when there was at least one delivery, -1 when there was none or `retcode` is null
int32_t process_nas_queue(int* retcode);
