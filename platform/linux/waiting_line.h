// SPDX-License-Identifier: Apache-2.0

// The clients that found the request queue full, in the order in which they came.
//
// A client that finds it full raises a ticket at the server's FIFO (wire/border.h). The server
// calls the first in line when a place is free, and sends the client whose request it took to the
// end of the line. All of it is a hint: who is never called tries again by itself, so tickets of
// tasks that are dead, or never come, cost others a pause and not their turn.
//
// For the task that serves the request queue.
#pragma once

#include <cstdint>

/// Notes a ticket. A task stands in line once; a line that is full takes no more.
void waiting_line_join(uint32_t ticket);

/// Whether anybody stands in line.
bool waiting_line_stands();

/// Calls the first in line, if there are any, to so many free places.
/// @return whether as many were called
bool waiting_line_call(int32_t places);

/// A request of `task` was taken off the queue: calls the first in line to its place, unless `task`
/// may keep it for its next request.
/// @param now_us  monotonic microseconds
/// @return whether `task` has lost its place, and has to wait in line for the next one
bool waiting_line_move(int32_t task, uint32_t now_us);
