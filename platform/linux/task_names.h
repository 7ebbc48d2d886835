// SPDX-License-Identifier: Apache-2.0

// Looks after the directory in which clients make their event FIFOs.
//
// Each member of the group can make any name there, and only the server can remove what is
// another's. So a name stays only while it is the FIFO of a task that lives, made by that task's
// user or by root, and somebody reads it. All else goes, and the next task of that number finds its
// name free.
//
// For one thread, the one that watches.
#pragma once

#include <cstdint>

/// How long a FIFO may be without a reader.
constexpr int32_t kTaskNamePatienceMs = 2000;

/// Removes a name if it has to go.
/// @return in how many milliseconds to look at all names, so that this one is seen to; -1: no need
int32_t task_name_tend(int directory, const char* name);

/// Does so with some of all names, as many as cost little time. The first call begins a look, which
/// goes on in the same directory until it is through.
/// @return in how many milliseconds to call it again; -1: no need
int32_t task_names_tend_some(int directory);
