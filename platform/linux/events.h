// SPDX-License-Identifier: Apache-2.0

// Event sets as the rest of the platform needs them, beyond what mdx_platform.h says.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "wire/event_fifo.h"

/// Writes the path of the FIFO of a task of this process to `path`.
void server_fifo_path(int32_t task_id, char (&path)[kEventPathSize]);

/// Makes the FIFOs of this process's tasks again that somebody has removed. Any thread; the tasks
/// may be asleep in them.
/// @return whether they are there
bool event_fifos_restore();

/// The event FIFO of another process's task, open for raising and kept so.
/// @return a descriptor, good until tasks are raised, or -1 with errno: ENXIO when the task has
/// died
int event_task_open(int32_t task_id);

/// The same without opening it: -1 when it is not open.
int event_task_fd(int32_t task_id);

/// Whether nobody is left who could take an answer for this task: its event set has no reader, or
/// it has none and there is no such task.
bool task_is_dead(int32_t task_id);

/// The user that made a task's event set, kNobody (answer_room.h) when it has none.
uid_t task_user(int32_t task_id);
