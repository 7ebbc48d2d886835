// SPDX-License-Identifier: Apache-2.0

// A client's event FIFO has no reader any more when its client is gone: the kernel says so to a
// poll that waits for something else anyway. A program that never made one can be asked for only
// before its request is begun.
//
// Most requests come from the client of the one before. It is polled without being looked for anew.

#include "platform/linux/served_client.h"

#include "platform/linux/events.h"

namespace {

constinit int32_t client = 0;
constinit uint32_t next_seq = 0;
constinit bool is_dead = false;

bool lives_now() {
  pollfd source = served_client_source();
  return source.fd >= 0 && poll(&source, 1, 0) == 0;
}

}  // namespace

bool served_client_begin(int32_t task_id, uint32_t seq) {
  // Who has made a FIFO anew since has begun to count anew.
  const bool is_known = task_id == client && seq == next_seq;
  client = task_id;
  next_seq = seq + 1;
  if (is_known && lives_now()) return true;
  is_dead = task_id > 0 && event_task_open(task_id) < 0 && task_is_dead(task_id);
  return !is_dead;
}

pollfd served_client_source() {
  return {client > 0 && !is_dead ? event_task_fd(client) : -1, 0, 0};
}

void served_client_polled(const pollfd& source) {
  if ((source.revents & POLLERR) != 0) is_dead = true;
}

bool served_client_is_dead() { return is_dead; }
