// SPDX-License-Identifier: Apache-2.0

// The C library's part of the world: files below /var, the heap, the end of a thread. The linker
// hands the server's calls over (--wrap).
#pragma once

#include <pthread.h>

namespace fake::files {

/// The handle of the thread that MDX_pthread_create only pretends to start.
inline constexpr pthread_t kThread = static_cast<pthread_t>(77);

/// Empties the private directory that stands for /var.
void reset();

}  // namespace fake::files
