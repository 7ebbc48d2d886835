// SPDX-License-Identifier: Apache-2.0

// What the tests of the client library share: a handle, its times, and servers that say nothing or
// what they heard.
#pragma once

#include <chrono>
#include <string>

#include "client/mdxclient.h"
#include "tests/client/stand_in_server.h"

using namespace std::chrono_literals;
using namespace std::string_literals;

struct Handle {
  Handle() { error = mdx_open(&client); }
  ~Handle() { mdx_close(client); }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  operator mdx_client_t*() const { return client; }
  mdx_client_t* client = nullptr;
  int error = MDX_OK;
};

inline mdx_options_t within(int32_t deadline_ms, int32_t timeout_s = 1) {
  mdx_options_t options = MDX_OPTIONS_INIT;
  options.timeout_s = timeout_s;
  options.deadline_ms = deadline_ms;
  return options;
}

inline void ignore(StandInServer&, const at_msg_t&) {}
inline void echo(StandInServer& server, const at_msg_t& record) {
  server.answer(with_text(record, record.snd_rcv_msg.smsg));
}
