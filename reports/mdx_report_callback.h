// The report handlers: one for each unsolicited report that leads anywhere.
//
// A handler digests one line and passes the news to the rest of the device. It sends no AT command and
// answers no client.
#pragma once

#include <cstdint>

/// Keeps the last ^RSSI line for clients that ask for it. A line of more than MAX_ATCMD_REPORT_SIZE
/// bytes is refused and the stored one stays.
/// @param rptbuf  the whole line, NUL-terminated
void rssi_report_callback(char* rptbuf, int32_t length);
