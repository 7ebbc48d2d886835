// SPDX-License-Identifier: Apache-2.0

// The line sorter as one would write it down first: the baseline that the server's own is held
// against, in speed and in every answer.
//
// It uses the server's tables, so a new row counts for both. It has no traces, and does not do SMS
// headers.
#pragma once

#include "wire/at_msg.h"

struct plain_sorter_t {
  char stream[1532];
  char* p_cur;
  char* p_end;
  int32_t line_state;
  char line_buf[MAX_ATCMD_REPORT_SIZE + 1];
  at_msg_t last_nas_msg;
  char nas_response[MAX_ATCMD_REPORT_SIZE];
  int32_t nas_response_legth;
  int32_t result_received;
  char sent_cmd_head[64];
};

/// Works through the delivery in `stream`, as parse_response does.
void plain_parse_response(plain_sorter_t* sorter, at_msg_t* msg);
