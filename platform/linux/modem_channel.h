// SPDX-License-Identifier: Apache-2.0

// The modem's part in the waits of the task that bound its channel.
//
// That task is the only one that reads the modem, and it does so whenever it waits, be it for
// events or for modem data. So what the modem says changes no thread on its way.
#pragma once

#include <cstdint>

struct pollfd;

/// Whether the calling task is the one that bound the channel.
bool modem_channel_is_read_here();

/// Waits for a descriptor like poll, reads the modem meanwhile and notices the end of the served
/// client, if this task bound its channel.
/// It may return early, as when a delivery has been handed over: look again, and come back.
/// @param own      what the caller waits for; its descriptor may be -1
/// @param wait_ms  -1: no time-out
/// @return -1 with errno when it cannot wait
int modem_channel_poll(pollfd* own, int wait_ms);

/// Whether nothing of an earlier exchange can still come, so that the next may begin. To be asked
/// between two exchanges only: it ends the one before. Once it has said no, bit 1 is raised at the
/// task that serves requests as soon as it would say yes.
bool modem_channel_is_clean();

/// Whether the device went away during the exchange under way: no answer will come.
bool modem_channel_answer_is_lost();

/// MDX_sleep, but that the modem is read meanwhile, if this task bound its channel.
void modem_channel_sleep(uint32_t milliseconds);

/// Ends the wait that the reading task may be in. Any thread.
void modem_channel_wake();
