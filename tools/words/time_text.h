// SPDX-License-Identifier: Apache-2.0

// The time now, as it stands in front of what came.
#pragma once

#include <cstdint>
#include <string>

/// To milliseconds: of the day for people, in UTC with its date for programs.
std::string time_text(bool for_programs);

/// When something happened that is so many seconds old: the time of the day, with its date when a
/// day has passed.
std::string past_time_text(uint32_t age_s);
