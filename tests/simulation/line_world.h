// SPDX-License-Identifier: Apache-2.0

// A line's life at random: the platform's own channel, a modem that answers late, never or with a
// prompt, clients that put anything into a command, run out of time and die.
//
// What must hold: no answer reaches who did not ask, an answer that came in time reaches who did,
// nothing is sent for the dead, no command becomes the text of a message, each report reaches its
// handler once, and no request waits longer than the modem is given.
#pragma once

#include <cstdint>

namespace simulation {

/// Starts the server and lets it live in the world that belongs to `seed`, always the same one.
/// Throws broken_rule.
/// @param hours  of the device's time, at least
/// @return requests that were answered
uint64_t live_on_a_line(uint32_t seed, uint64_t hours);

}  // namespace simulation
