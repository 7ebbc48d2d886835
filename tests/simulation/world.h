// SPDX-License-Identifier: Apache-2.0

// A device's life at random: clients that ask for anything, a modem with every fault, reports at
// any byte.
#pragma once

#include "tests/simulation/witness.h"

namespace simulation {

/// Starts the server and lets it live in the world that belongs to `seed`, always the same one.
/// Throws broken_rule.
/// @param hours   of the device's time, at least
/// @param counts  what happened is added to it
void live(uint32_t seed, uint64_t hours, counts_t* counts);

/// Runs the server, which is in this state, until nothing is left to happen. Throws broken_rule.
void run_until_idle(int32_t state);

}  // namespace simulation
