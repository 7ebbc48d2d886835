// SPDX-License-Identifier: Apache-2.0

// A server whose queues and channel are up, on the platform in memory.
#pragma once

#include <new>

#include "channel/mdx_register.h"
#include "reports/stored_report.h"
#include "server/mdx_state.h"
#include "tests/fake_platform/fake_platform.h"

namespace fake {

/// The server's state as it is before the process starts.
inline void forget_server() {
  mdx_state.~mdx_state_t();
  new (&mdx_state) mdx_state_t();
  mdx_state_init();
  mdx_rssi_report = {};
}

/// A server as it is before its first request. The world is the caller's to reset.
inline void bring_up_server() {
  forget_server();
  mdx_state.stream.p_cur = mdx_state.stream.p_end = mdx_state.stream.data;
  mdx_state.ring_head = mdx_state.ring_tail = 0;
  mdx_state.req_queue_id = MDX_msgQex_create(2, 10, 1600);
  mdx_state.rsp_queue_id = MDX_msgQex_create(1, 10, 1600);
  mdx_state.nas_queue_id = MDX_msgQ_create(3, 10, 1516);
  mdx_state.main_task_id = MDX_task_getid();
  mdx_register_nas_channel();
  journal.clear();
}

}  // namespace fake
