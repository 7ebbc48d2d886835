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

/// The calling thread's id, which costs a system call only once. A forked child has another.
int32_t client_own_task();

/// The process's id, as `client_own_task`.
int32_t client_own_process();

/// Makes sure that the handle has a link; its server may be dead.
/// @return as server_link_open
int client_connect(mdx_client_t* client);

/// Closes the link to the server.
void client_disconnect(mdx_client_t* client);
