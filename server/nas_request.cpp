// SPDX-License-Identifier: Apache-2.0

// The same parser as for answers, with a record that nobody reads: what counts here is what the
// report handlers do.

#include "server/nas_request.h"

#include "platform/mdx_platform.h"
#include "server/at_parser.h"
#include "server/at_stream.h"

int32_t process_nas_queue(int* retcode) {
  if (retcode == nullptr) {
    MDX_TRACE(MDX_FROM_SERVER, MDX_TRACE_ERROR, "Error: retcode is null\n");
    return -1;
  }
  at_msg_t msg = {};
  msg.req_type = ACTIVE_REPORT;
  msg.timeout = 0;

  int32_t parsed = -1;
  while (read_from_smd(&msg, retcode) == 0) parsed = parse_response(&msg);
  return parsed;
}
