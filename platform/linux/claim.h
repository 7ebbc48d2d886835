// SPDX-License-Identifier: Apache-2.0

// One server per machine.
#pragma once

#include <cstddef>

/// Makes the machine this process's: the directory /var/run/mdxgate is there with its mode and
/// group, its lock is held for the life of the process, and what an earlier server left in it is
/// gone.
///
/// Calls after the first do nothing. When another server runs, or the directory is not to be had or
/// to be trusted, it says so on standard error and ends the process with exit code 1, with nothing
/// touched.
void claim_machine();

/// @return how many files this process may have open at a time
size_t open_files_allowed();

/// Makes the directory again, should somebody have removed it, and takes its lock. What else was in
/// it is for others to make again.
/// @return whether it is there
bool directory_restore();
