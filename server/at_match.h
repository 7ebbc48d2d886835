// SPDX-License-Identifier: Apache-2.0

// Is this line a result code? Is it a report? Two tables answer, and their order is part of the
// answer.
//
// A result stands at the start of the line. A report is found anywhere in it, and its handler runs
// on the spot.
#pragma once

#include <cstdint>

#include "wire/at_msg.h"

struct at_result_row_t {
  int32_t code;         ///< becomes `ret_val`
  const char* literal;  ///< null in the last row
};

/// Takes the whole line, which it may change in place, and the length that the framing counted.
using at_report_handler_t = void (*)(char* rptbuf, int32_t length);

struct at_report_row_t {
  int32_t id;
  const char* literal;          ///< null in the last row
  at_report_handler_t handler;  ///< null: known, and deliberately dropped
};

extern const at_result_row_t at_result_table[];
extern const at_report_row_t* const at_report_table;

/// What a line holds of the tables' literals: the lowest row of each table, -1 for none.
struct at_findings_t {
  int32_t sms_header = -1;    ///< of at_sms_headers
  int32_t notification = -1;  ///< of literal_notify_table
  int32_t report = -1;        ///< of at_report_table
};

/// Looks a line through, once for all these tables. Bytes behind a NUL do not count.
at_findings_t at_look_through(const char* line);

/// Looks for a result code at the start of a line; more may follow it.
/// @return 0 with the code in `*err_code`; -1 when there is none, or a pointer is null: `*err_code`
///         is untouched then
int32_t atcmd_match_result(const char* rcv_buf, int* err_code);

/// Decides whether a line is a report, and runs its handler if it has one.
///
/// The SMS prompt counts as a report. So does a line with a plus sign or caret that no row knows,
/// unless it answers the command in flight: its text up to the first colon stands in
/// `sent_cmd_head`. A text of more than 63 characters in front of the colon answers nothing and is
/// a report.
/// @param msg       the record in hand
/// @param rcv_buf   the line, NUL-terminated, writable
/// @param len       its length as the framing counted it, passed on to the handler
/// @param index     the row's id, -1 when no row was hit
/// @param err_code  never null; not written
/// @return 0 when the line is dealt with, -1 when it is response text or a pointer is null
int32_t Is_report_msg(const at_msg_t* msg, char* rcv_buf, int32_t len, int* index, int* err_code);

/// The same for a line that has been looked through: `row` is the report row that was found.
int32_t at_take_report(const at_msg_t& msg, char* line, int32_t len, int32_t row, int* index);
