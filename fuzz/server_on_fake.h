// A server whose queues and channel are up, on the platform in memory.
#pragma once

#include <new>

#include "channel/mdx_register.h"
#include "server/mdx_state.h"
#include "tests/fake_platform/fake_platform.h"

namespace fuzz {

inline void start_server() {
  static bool started = false;
  if (!started) fake::reset();
  started = true;
  mdx_trace_mask = 0;
  mdx_state.~mdx_state_t();
  new (&mdx_state) mdx_state_t();
  mdx_state.stream.p_cur = mdx_state.stream.p_end = mdx_state.stream.data;
  mdx_state.req_queue_id = MDX_msgQex_create(2, 10, 1600);
  mdx_state.rsp_queue_id = MDX_msgQex_create(1, 10, 1600);
  mdx_state.nas_queue_id = MDX_msgQ_create(3, 10, 1516);
  mdx_state.main_task_id = MDX_task_getid();
  mdx_register_nas_channel();
  fake::journal.clear();
}

}  // namespace fuzz
