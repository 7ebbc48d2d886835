// SPDX-License-Identifier: Apache-2.0

// The platform's clock with an offset, so that no test sits out the limits counted in seconds, nor
// meets one on a busy machine.
#pragma once

#include <cstdint>

/// Lets the platform's millisecond counter jump ahead.
void shift_clock(uint32_t milliseconds);

/// Stops the counter, so that only shift_clock moves it, or lets it go on.
void hold_clock(bool hold);
