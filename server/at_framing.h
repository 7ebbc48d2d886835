// SPDX-License-Identifier: Apache-2.0

// Cuts the bytes of a delivery into lines.
//
// A delivery can end anywhere, also between a CR and its LF. What has to survive from one delivery
// to the next is one value, line_state. A line that runs out of bytes counts as a line: that is how
// the SMS prompt, which has no terminator, gets through. The headers of stored messages keep their
// line end, a cell broadcast is joined to its PDU, and the raw body of ^HCMGR is not cut at all.
#pragma once

#include <cstdint>

#include "wire/at_msg.h"

struct at_sms_header_t {
  const char* literal;  ///< null in the last row
};

/// What handle_sms_at looks for, anywhere in a line.
inline constexpr at_sms_header_t at_sms_headers[] = {
    {"+CMGR"}, {"+CMGL"}, {"^HCMGR"}, {"+CBM"}, {nullptr}};

/// Takes the next line off the stream. CR LF ends a line; a CR in front of anything else
/// disappears; an LF alone is text.
/// @param rcv_buffer  zero-filled, room for MAX_ATCMD_REPORT_SIZE bytes: no delivery is longer
/// @param pos         0 on entry; the line's length on return
/// @return 0 when there is a line, possibly empty; -1 when the delivery is used up. A CR as its
///         last byte loses the line in front of it.
int32_t at_sm_getline(char* rcv_buffer, int32_t* pos);

/// Gives the line in `line_buf` what an SMS header needs: its CR LF back for +CMGR, +CMGL and
/// ^HCMGR, CR LF and the next line for +CBM. TRANSPARENT_CMD records are left alone, and so is a
/// line of more than 1498 bytes, which has no room for the CR LF.
/// @param msg            the record of the exchange
/// @param pos            length of the line; raised by what was added
/// @param hcmgr_pending  set to 1 when a raw body follows
[[gnu::cold]] void handle_sms_at(const at_msg_t* msg, int32_t* pos, int32_t* hcmgr_pending);

/// Moves the raw body of ^HCMGR into the response: all of the delivery up to its last Ctrl-Z, and
/// the two bytes behind that. A body that the stream does not hold whole is dropped. One that the
/// response has no room for is dropped with all that was collected, and collecting starts anew.
/// @param dest           the end of the response text in `nas_response`
/// @param hcmgr_pending  set to 0
[[gnu::cold]] void parse_hcmgr_line(char* dest, int32_t* hcmgr_pending);
