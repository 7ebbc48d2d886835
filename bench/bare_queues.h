// SPDX-License-Identifier: Apache-2.0

// The least that serves clients over two System V queues: beside it the server's own share shows.
#pragma once

#include "bench/roads.h"

enum class bare_wait_t {
  in_queue,    ///< in the queue's own call, which knows no time-out
  for_events,  ///< for a pipe that tells of the record; with a time-out, so as the library waits
};

/// Two queues, a process that serves them, and a modem that answers it.
class bare_queues_t {
 public:
  explicit bare_queues_t(bare_wait_t wait);
  ~bare_queues_t();
  bare_queues_t(const bare_queues_t&) = delete;
  bare_queues_t& operator=(const bare_queues_t&) = delete;

  /// Puts a command and takes its answer.
  /// @param client  a number above 0, its own for each client that asks at the same time
  void send(const char* command, long client = 1) const;

 private:
  void serve() const;

  bare_wait_t wait_;
  terminal_t terminal_ = open_terminal();
  int requests_;
  int answers_;
  int asked_[2] = {-1, -1};
  int answered_[2] = {-1, -1};
  pid_t modem_;
  pid_t server_;
};
