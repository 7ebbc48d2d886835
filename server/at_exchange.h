// SPDX-License-Identifier: Apache-2.0

// One AT command and its answer.
//
// Writes the command, reads deliveries until a result has come or the budget is spent. Nothing ties
// an answer to its command but the time it comes in. So the platform shows no request as long as an
// answer to an earlier one can still come.
#pragma once

#include <cstdint>

#include "wire/at_msg.h"

/// Runs one command against the modem. Blocks, at most `timeout` seconds, and before that for as
/// long as the platform needs to send.
///
/// The first delivery may take the whole budget. After that each delivery that leaves the answer
/// open costs its own time, rounded up to a second.
/// @param msg      the record, its texts NUL-terminated; changed in place: `ret_val`, `timeout`,
///                 `snd_rcv_msg`, `rsp_len`. A failed write clears its answer area and sets
///                 `ret_val` 8
/// @param retcode  never null; 0 after a successful write, else what write_to_smd leaves
/// @return 0 when an answer came, `ret_val` telling which; -1 when none did or it could not be
///         written
int32_t at_send_normal_cmd_msg(at_msg_t* msg, int* retcode);

/// Whole seconds of a pass that began at `start` and ended at `now`, both from MDX_elapse: rounded
/// up.
int32_t at_pass_seconds(uint32_t start, uint32_t now);

/// Charges a delivery that left the answer open, and begins the next pass.
/// @param timeout  the budget in seconds; what is left of it on return
/// @param start    when the pass began; now, on return
/// @return false when the budget is spent: both are untouched then
bool at_charge_pass(int32_t* timeout, uint32_t* start);
