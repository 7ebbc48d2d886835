// SPDX-License-Identifier: Apache-2.0

// A client as the library sees it: a task of the system with an event set of its own.
#pragma once

#include <cstdint>

#include "client/exchange.h"
#include "client/mdxclient.h"
#include "client/server_link.h"

struct mdx_client {
  int32_t task;  ///< kernel's id of the owning thread: `msg_type` of its records
  int event_fd;  ///< own event FIFO, raised when an answer was queued
  int watch_fd;  ///< for callers that poll, -1 until one asks; as the next
  int timer_fd;
  uint32_t seq;  ///< of the last request
  bool settled;  ///< the last request got its answer: the server holds nothing else of this task
  server_link_t link;
  exchange_t exchange;
  char text[MAX_ATCMD_REPORT_SIZE + 1];  ///< the last response
};

/// Makes sure that the handle's link leads to a living server.
/// @return as server_link_open; MDX_ERR_THREAD when another thread calls
int client_connect(mdx_client_t* client);

/// Closes the link to the server.
void client_disconnect(mdx_client_t* client);
