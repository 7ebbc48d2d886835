// SPDX-License-Identifier: Apache-2.0

// Serves one client request: takes it off queue 2, has it done, puts the answer on queue 1.
#pragma once

#include <cstdint>

#include "wire/at_msg.h"

/// Serves one request, whatever its outcome.
/// @param retcode  never null
/// @return -1 when there was nothing to read or the text was no AT command; else what the last step
///         gave
int32_t process_msg_queue(int* retcode);

/// Answers GET_REPORT out of the store.
/// @return 0 with the report in the record's answer area; -1 with `*retcode` 1 when there is no
///         such report, the answer area is clear then
int32_t get_report(at_msg_t* pmsg, int* retcode);

/// Gives the search for networks the 240 seconds it needs: "+COPS=?" or "+cops=?", no other
/// spelling.
void at_cmd_cops_timeout(at_msg_t* msg);
