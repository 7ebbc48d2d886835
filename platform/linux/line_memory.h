// SPDX-License-Identifier: Apache-2.0

// What the modem owes, known beyond the death of the process: a server that is killed with a
// command under way leaves an answer behind, which would be taken for the answer to its successor's
// first.
//
// It lies in the lock file, whose pages the kernel keeps; writing it costs no system call.
#pragma once

#include "platform/linux/line_debt.h"

struct line_account_t {
  line_balance_t balance;
  /// Bytes of a command that the modem may hold without its end.
  uint32_t half = 0;
  /// modem_device_t's mark of whose account it is.
  uint32_t device = 0;
};

/// Takes a lock file, open for writing and locked, as the place. What was kept in another one
/// before goes along. Without a place nothing is remembered.
void line_memory_attach(int lock_fd);

/// What the process before this one left; nothing when it is the first, and from the second call
/// on: the first opening collects it.
line_account_t line_memory_left();

void line_memory_keep(const line_account_t& account);
