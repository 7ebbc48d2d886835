// SPDX-License-Identifier: Apache-2.0

// What a person at the device's console can look at: the state, and what last passed over the
// channel.
//
// The module registers itself before `main`, so the console works from the first moment. The
// handlers run on the console's thread, write nothing and return 0.
#pragma once

#include <cstdint>

/// What the module is for.
int32_t mdx_debug_help();

/// Name of the state machine's state.
int32_t mdx_debug_state();

/// The last client request's text and the modem's last line, unmasked. A line counts whoever it was
/// for, so after start-up it is the answer to the server's own set-up command.
int32_t mdx_debug_dialog();
