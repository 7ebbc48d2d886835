// SPDX-License-Identifier: Apache-2.0

// Looks after what other processes find the server by: directory, sockets, FIFOs, link.
//
// Somebody may remove them while the server runs; they are made again then. It costs nothing until
// something happens. Queues are no files: they are made again by whoever misses them
// (record_queue.cpp).
#pragma once

/// Begins to watch. For the thread that calls the other two.
void border_watch_begin();

/// A descriptor that is readable when there is something to look at, -1 when there is none.
int border_watch_fd();

/// How long the thread may wait until it calls `border_watch_look`, in milliseconds; -1 for ever,
/// if the descriptor stays silent.
int border_watch_wait_ms();

/// Makes again what is missing, if it is time to look.
void border_watch_look();
