// SPDX-License-Identifier: Apache-2.0

// What the threads of the server are allowed to do, beyond what mdx_platform.h says.
#pragma once

/// Keeps the process from ever gaining rights by starting a program. Before the first thread.
void privileges_forbid_gain();

/// Gives up what the calling thread has inherited from the main thread. Each new thread calls it.
void privileges_enter_thread();

/// Between these two the calling thread uses nothing that it holds beyond the user's rights.
void privileges_set_aside();
void privileges_take_up();
