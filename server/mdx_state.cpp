// SPDX-License-Identifier: Apache-2.0

// The one instance. Static, so that it costs no heap and lives for the process.

#include "server/mdx_state.h"

constinit mdx_state_t mdx_state;

void mdx_state_init() {
  mdx_state.req_queue_id = -1;
  mdx_state.rsp_queue_id = -1;
  mdx_state.nas_queue_id = -1;
  mdx_state.main_task_id = -1;
  mdx_state.ring_head = -1;
  mdx_state.ring_tail = -1;
  mdx_state.sms_cancel_marker = -1;
  mdx_state.line_state = LINE_IN_TEXT;
}
