// SPDX-License-Identifier: Apache-2.0

// The time now, as it stands in front of what came.
#pragma once

#include <string>

/// To milliseconds: of the day for people, in UTC with its date for programs.
std::string time_text(bool for_programs);
