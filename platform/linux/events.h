// SPDX-License-Identifier: Apache-2.0

// Event sets as the rest of the platform needs them, beyond what mdx_platform.h says.
#pragma once

#include <cstdint>

/// Makes the FIFOs of this process's tasks again that somebody has removed. Any thread; the tasks
/// may be asleep in them.
/// @return whether they are there
bool event_fifos_restore();

/// Whether the calling task has an event set that other processes can find.
bool event_set_is_public();

/// Whether nobody is left who could take an answer for this task: its event set has no reader, or
/// it has none and there is no such task.
bool task_is_dead(int32_t task_id);
