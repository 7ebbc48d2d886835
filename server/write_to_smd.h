// SPDX-License-Identifier: Apache-2.0

// The gate through which every AT text goes out to the modem.
#pragma once

#include <cstdint>

/// Sends a text as one command line: trailing CR, LF and NUL trimmed, one CR behind it.
/// @param patcmd   the text; of more than 638 bytes the first 638 go out
/// @param retcode  never null; 22 when `patcmd` is null, else not written
/// @param length   bytes of the text
/// @return 0 when the modem channel took the line, else -1
int32_t write_to_smd(const char* patcmd, int* retcode, uint32_t length);
