// SPDX-License-Identifier: Apache-2.0

// The server's own commands to the modem.
//
// Each builds a local record, runs it through the normal exchange and counts "OK" alone as success.
// The start path uses mdx_cmee only; the others are ready to be called.
#pragma once

#include <cstdint>

#include "wire/at_msg.h"

/// Switches on error numbers in the modem's answers. As all here: blocks up to 3 seconds.
/// @param retcode  never null
/// @return 0 for "OK", -1 for anything else
int32_t mdx_cmee(int* retcode);
int32_t mdx_set_ate(int* retcode);
int32_t mdx_set_srvst_unsolicited_enable(int* retcode);
int32_t mdx_set_creg_unsolicited_enable(int* retcode);
int32_t mdx_set_cgreg_unsolicited_enable(int* retcode);
int32_t mdx_set_mode_unsolicited_enable(int* retcode);

/// Switches on four kinds of reports, one after the other; a failure does not stop the next.
/// @return the result of the last
int32_t mdx_set_unsolicited_enable(int* retcode);

/// Runs one of the server's own commands through the normal exchange and takes the next sequence
/// number.
/// @param msg      never null; receives the record as the exchange left it
/// @param command  at most 639 characters
/// @param match    the pattern of its response lines, at most 63 characters, "" for none
/// @return what the exchange returned
int32_t mdx_run_own_command(at_msg_t* msg, const char* command, const char* match, int* retcode);
