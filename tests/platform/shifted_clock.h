// SPDX-License-Identifier: Apache-2.0

// The platform's clock with an offset, so that no test sits out the limits counted in seconds.
#pragma once

#include <cstdint>

/// Lets the platform's millisecond counter jump ahead.
void shift_clock(uint32_t milliseconds);
