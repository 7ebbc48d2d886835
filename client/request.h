// SPDX-License-Identifier: Apache-2.0

// From what a caller gives to the record that goes to the server. Pure: nothing is sent here.
#pragma once

#include <cstdint>

#include "client/mdxclient.h"
#include "wire/at_msg.h"

/// A request that can be served, and how long its answer is waited for.
struct request_t {
  at_msg_t record;
  int64_t deadline_ms;
  int64_t wait_ms;   ///< for its turn, 0 without a bound of its own
  int64_t serve_ms;  ///< behind that
};

/// Each fills `request` but for the sender's fields (`msg_type`, `seq`), zeroed.
/// @return MDX_OK or MDX_ERR_ARGUMENT; mdx_check tells why
int request_command(const char* command, const mdx_options_t* options, request_t* request);
int request_pdu(const char* head, const char* pdu, const mdx_options_t* options,
                request_t* request);
int request_report(int32_t report, const mdx_options_t* options, request_t* request);

/// Reads the answer to `sent` out of `answer`.
/// @param text    gets the response text and its NUL; the result points there
/// @param result  its `size` stands; fields beyond it are not written
void read_answer(const at_msg_t& sent, const at_msg_t& answer,
                 char (&text)[MAX_ATCMD_REPORT_SIZE + 1], mdx_result_t* result);

/// Whether `result` can be filled.
bool result_usable(const mdx_result_t* result);
