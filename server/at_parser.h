// SPDX-License-Identifier: Apache-2.0

// Sorts a delivery line by line: results, reports, and the text of the answer.
//
// Everything the modem says comes through here, in any mix. Text is collected across deliveries
// until a result line moves it into the record. What a line is, is decided in one fixed order:
// instant update, the client's own pattern, result, report, text.
#pragma once

#include <cstdint>

#include "wire/at_msg.h"

/// Works through the delivery in the receive stream, to its end.
///
/// A response never grows past 1499 bytes. In plain collection a line that would take it further is
/// dropped with all that was collected, `rsp_len` becomes 1499, and collecting starts anew with the
/// next line. Else (a line with the client's pattern, `multi_line` 1, TRANSPARENT_CMD) the
/// beginning is kept, and `rsp_len` becomes 1500.
/// @param msg  the record in hand: `ret_val`, `rsp_len` and `rmsg` are written
/// @return 0, or -1 when `msg` is null
int32_t parse_response(at_msg_t* msg);
