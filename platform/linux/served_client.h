// SPDX-License-Identifier: Apache-2.0

// The client whose request the server has in hand.
//
// Nobody works for a client that is gone: its request is not begun, its wait is over, nothing more
// is sent for it. All calls are the serving task's.
#pragma once

#include <poll.h>

#include <cstdint>

/// A request has been taken.
/// @param task_id  who asked; 0 or less is nobody, and lives
/// @param seq      the request's number
/// @return whether it lives
bool served_client_begin(int32_t task_id, uint32_t seq);

/// What tells of the client's end in a poll, for `served_client_polled`; its descriptor may be -1.
pollfd served_client_source();

/// Takes notice of what the poll has brought.
void served_client_polled(const pollfd& source);

/// Whether the client is gone since its request was taken.
bool served_client_is_dead();
