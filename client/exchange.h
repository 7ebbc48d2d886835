// SPDX-License-Identifier: Apache-2.0

// The request that a handle has under way.
#pragma once

#include <cstdint>

#include "client/mdxclient.h"
#include "client/request.h"

enum exchange_phase_t {
  EXCHANGE_NONE,
  EXCHANGE_QUEUE_FULL,  ///< the request has yet to find room on its queue
  EXCHANGE_SENT,        ///< it is on the queue, or with the server
};

struct exchange_t {
  exchange_phase_t phase;
  bool raised;       ///< the server was told
  bool called;       ///< the server said that there is room
  int64_t deadline;  ///< monotonic milliseconds, as the next two
  int64_t end;       ///< the deadline of the whole, from which on nothing is waited for
  int64_t look_at;   ///< when to look again though nothing was heard
  int64_t retry_ms;
  int64_t serve_ms;  ///< above 0: the deadline is that of the request's turn, and so long follows
  at_msg_t sent;
};

/// Takes a request that nobody serves yet back off the queue; the exchange is over.
void exchange_give_up(mdx_client_t* client);
