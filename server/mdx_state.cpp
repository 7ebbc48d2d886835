// SPDX-License-Identifier: Apache-2.0

// What lives for the process. Static, so that it costs no heap; server/variables.ld says where each
// section stands.

#include "server/mdx_state.h"

#include "reports/stored_report.h"

[[gnu::section(".bss.mdx_state")]] constinit mdx_state_t mdx_state;
[[gnu::section(".bss.mdx_rssi_report")]] constinit at_answer_t mdx_rssi_report = {};

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
