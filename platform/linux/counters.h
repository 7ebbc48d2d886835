// SPDX-License-Identifier: Apache-2.0

// What passed through the platform and what it dropped, in one place that a person can read: the
// console's `platform stats` prints every row.
//
// Any thread counts, none waits: relaxed atomics, no order between two counters is promised.
#pragma once

#include <cstdint>

#include "platform/linux/trace_limit.h"
#include "platform/mdx_platform.h"

enum mdx_counter_t : uint32_t {
  // Modem channel
  COUNT_DELIVERIES,             ///< taken by the server
  COUNT_DELIVERY_BYTES,         ///< bytes in them
  COUNT_DELIVERIES_HELD,        ///< offered, not taken, kept to be offered again
  COUNT_DELIVERIES_CUT,         ///< ended at the size limit, not where they wanted to
  COUNT_ECHOES_DROPPED,         ///< lines that repeated what was sent
  COUNT_LINES_DROPPED,          ///< lines that nobody had asked for and that are no report
  COUNT_ANSWERS_TOO_LONG,       ///< answers that do not fit a record
  COUNT_LATE_ANSWERS_ABSORBED,  ///< results whose exchange had ended before
  COUNT_PATIENCE_RAN_OUT,       ///< an answer or a result to an ESC was waited for in vain
  COUNT_PROMPTS_ESCAPED,        ///< an ESC went to a modem that waited for a message
  COUNT_CHANNEL_SENDS,          ///< taken by the device
  COUNT_CHANNEL_SEND_BYTES,     ///< bytes in them
  COUNT_CHANNEL_SENDS_FAILED,
  COUNT_CHANNEL_OPENED,
  COUNT_CHANNEL_REOPENED,  ///< came back after it had gone away
  COUNT_CHANNEL_CLOSED,    ///< went away or was given up
  // Clients
  COUNT_REQUESTS,
  COUNT_REQUESTS_MISSIZED,     ///< dropped: not the size of a record
  COUNT_REQUESTS_OF_THE_DEAD,  ///< dropped: its client is gone
  COUNT_ANSWERS,
  COUNT_COMMANDS,                  ///< answers for which something was sent to the modem
  COUNT_COMMAND_MICROSECONDS,      ///< what those took, from request to answer
  COUNT_COMMAND_MICROSECONDS_MAX,  ///< the slowest of them
  COUNT_ANSWERS_DROPPED_DEAD,      ///< to make room: the client is gone
  COUNT_ANSWERS_DROPPED_UNREAD,    ///< to make room: not read in time
  COUNT_ANSWERS_REFUSED,           ///< the queue stayed full
  COUNT_NAS_QUEUE_REFUSED,         ///< modem data that found its queue full
  COUNT_RAISES_FAILED,             ///< events for a task that is not there
  COUNT_NAMES_MISSING,             ///< times that a name of the server's could not be made again
  COUNT_TASK_NAMES_REFUSED,        ///< removed: no FIFO, or not made by the task's own user
  // Hub
  COUNT_RECEIVERS,
  COUNT_RECEIVERS_REFUSED,    ///< one too many
  COUNT_RECEIVERS_DISPLACED,  ///< hung up for one of another user's
  COUNT_RECEIVERS_SILENT,     ///< hung up: they did not subscribe
  COUNT_PACKETS_SENT,         ///< one for each receiver that got it
  COUNT_PACKETS_LOST,         ///< one for each receiver that missed it
  COUNT_PACKETS_RECEIVED,     ///< service messages for the server
  COUNT_PACKETS_REFUSED,      ///< from receivers: malformed, misplaced, or for nobody here
  COUNT_UNINSTALLS_REFUSED,   ///< from somebody without the right
  // Console
  COUNT_CONSOLE_COMMANDS,
  COUNT_CONSOLE_DROPPED,  ///< clients that sent nothing, rubbish, or did not read
  COUNT_TRACES_LOST,      ///< log, journal or terminal did not keep up, or there is none of them
  COUNT_COUNTERS,
};

void counter_add(mdx_counter_t counter, uint64_t amount = 1);
uint64_t counter_value(mdx_counter_t counter);
/// Raises a counter to `value` if it is lower. One thread only for each counter.
void counter_raise_to(mdx_counter_t counter, uint64_t value);
/// The name that `platform stats` shows; lives for the process.
const char* counter_name(mdx_counter_t counter);

/// Counts what is dropped, and traces it where the level is on and `limit` allows; tells how many
/// were not traced. Call MDX_DROP.
void mdx_drop(trace_limit& limit, mdx_counter_t counter, uint32_t place, const char* format, ...)
    __attribute__((format(printf, 4, 5), cold));

/// The one way something is dropped: counted under its reason, and traced, of many the first few.
#define MDX_DROP(counter, level, ...)                                                          \
  do {                                                                                         \
    static constinit trace_limit mdx_drop_limit;                                               \
    mdx_drop(mdx_drop_limit, counter, MDX_TRACE_PLACE(MDX_FROM_PLATFORM, level), __VA_ARGS__); \
  } while (false)
