// SPDX-License-Identifier: Apache-2.0

// The queues between processes, beyond what mdx_platform.h says.
//
// A queue that somebody has removed is made again when it is missed: when the server looks how much
// is in it, or puts an answer on it. The ids that were handed out stay good.
#pragma once

#include <cstdint>

/// Records that wait on queue 1 or 2 now, 0 when it is missing. Any thread.
int32_t record_queue_depth(int32_t number);

/// Wakes the task that serves queue 2. Any thread.
void request_queue_raise();

/// Notes the ticket of a client that waits for room on queue 2. Any thread; only the task that
/// serves the queue has a line.
void request_queue_wanted(uint32_t ticket);

/// No request is taken off queue 2 while one of these is there.
struct requests_wait_t {
  requests_wait_t();
  ~requests_wait_t();
  requests_wait_t(const requests_wait_t&) = delete;
  requests_wait_t& operator=(const requests_wait_t&) = delete;
};

/// Drops what a client that has ended left on queue 2. Any thread.
void requests_drop(int32_t task_id);

/// Tries once more for the queues that could not be had yet. To be called while this process still
/// is root: where it never can have one it says so on standard error and ends with exit code 1.
void record_queues_settle();

/// Makes the link to the task that serves queue 2 again, should somebody have removed it. Any
/// thread.
/// @return whether it is there
bool server_link_restore();
