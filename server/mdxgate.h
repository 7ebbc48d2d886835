// SPDX-License-Identifier: Apache-2.0

// The process: start-up, the ring of pending requests, the state machine.
#pragma once

#include <cstdint>

/// Adds a request to the ring unless it is pending already; a full ring drops it silently, since an
/// entry only asks for a look at a queue.
void mdx_ring_push(int32_t value);

/// Takes the oldest request. The ring must not be empty.
int32_t mdx_ring_pop();

/// One pass of the state machine.
/// @return the next state
int32_t mdx_state_pass(int32_t state);

/// Tells "cms" that the modem is there.
void mdx_notify_krp_datacard_inserted();

/// The orderly stop. Nothing on the running path calls it.
void mdx_exit();
