// SPDX-License-Identifier: Apache-2.0

// The way to the server: its event FIFO, which also tells whether it lives, and the two queues.
#pragma once

#include <cstdint>

#include "wire/at_msg.h"

struct server_link_t {
  /// Write end of the server's event FIFO; polls POLLERR once the server is dead.
  int event_fd = -1;
  int request_queue = -1;   ///< -1 while it is missing, as the next
  int response_queue = -1;  ///< a server makes a queue again that somebody has removed
  bool has_line = false;    ///< the server calls those who wait for room on the queue
  int64_t line_until = 0;   ///< until then (monotonic milliseconds) others come first
};

/// Finds the server that runs now.
/// @return MDX_OK, MDX_ERR_NO_SERVER, MDX_ERR_ACCESS, MDX_ERR_NAMESPACE or MDX_ERR_SYSTEM; `link`
/// is closed on failure
int server_link_open(server_link_t* link);

/// Whether the server's link is there and its FIFO is not, or not yet for everybody: a server makes
/// one again that somebody has removed.
bool server_link_lacks_fifo();

void server_link_close(server_link_t* link);

/// Waits until `deadline` (monotonic milliseconds) or the server's death.
/// @return whether the server lives
bool server_link_alive(const server_link_t& link, int64_t deadline);

/// Goes over to the FIFO that a living server has made anew, after somebody removed the one that
/// `link` leads to.
/// @return whether it is the same server, which still has all requests
bool server_link_follow(server_link_t* link);

/// Asks the server for room on the request queue, and has it look there.
/// @param was_called  there was room, but not any more
/// @return MDX_ERR_BUSY, or MDX_ERR_SERVER_GONE when there was nobody to raise
int server_link_wait_in_line(const server_link_t& link, int32_t task, bool was_called);

/// Puts a record on the request queue, once; where that is full or missing its task waits in line.
/// @return MDX_OK; MDX_ERR_BUSY when the queue is full or missing; MDX_ERR_SERVER_GONE when it was
///         deleted, or when there was nobody to raise; MDX_ERR_ACCESS, MDX_ERR_SYSTEM
int server_link_put(server_link_t* link, const at_msg_t& record, bool was_called);

/// Takes the next answer to `task`, without waiting; messages of a wrong size are thrown away.
/// @return MDX_OK; MDX_ERR_TIMEOUT when there is none; MDX_ERR_ACCESS, MDX_ERR_SYSTEM
int server_link_take_answer(server_link_t* link, int32_t task, at_msg_t* record);

/// Takes the next request of `task` back, without waiting.
/// @return as server_link_take_answer
int server_link_take_request(server_link_t* link, int32_t task, at_msg_t* record);
