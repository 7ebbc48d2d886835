// SPDX-License-Identifier: Apache-2.0

// A client's request, the modem's bytes in answer, and what comes when nobody waits. A tilde ends
// the request's text and each delivery.

#include "fuzz/fuzz.h"
#include "server/client_request.h"
#include "server/nas_request.h"
#include "tests/fake_platform/server_on_fake.h"

namespace {

at_msg_t request(fuzz::input* input) {
  static constexpr const char* kMatches[] = {"", "+CSQ", "OK", "x"};
  const uint8_t how = input->byte();
  at_msg_t msg = {};
  if (how == UINT8_MAX) {  // any record at all
    input->take(sizeof(msg)).copy(reinterpret_cast<char*>(&msg), sizeof(msg));
    return msg;
  }
  msg.req_type = how % 8;
  msg.multi_line = how / 8 % 4 == 3 ? 7 : how / 8 % 2;
  msg.timeout = 3;
  std::strcpy(msg.at_match_str, kMatches[how / 64]);
  msg.snd_rcv_msg.command.cmd_len = input->byte();
  input->piece('~').copy(msg.snd_rcv_msg.rmsg, sizeof(msg.snd_rcv_msg.rmsg));
  return msg;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  mdx_trace_mask = 0;
  fake::bring_up_server();
  fuzz::input input(data, size);
  const auto say = [&input] { fake::deliver({{10, input.piece('~').substr(0, 1499)}}); };
  fake::on_write = [&say](const std::string&) { say(); };
  const at_msg_t msg = request(&input);
  fake::request(msg);
  MDX_sleep(0);
  int retcode = 0;
  process_msg_queue(&retcode);
  const bool may_stay_silent = msg.req_type == NORMAL_CMD || msg.req_type == TRANSPARENT_CMD;
  const bool is_owed = (msg.req_type & ~2U) != 1;
  const std::vector<at_msg_t> replies = fake::replies();
  fuzz::require(replies.size() == (is_owed ? 1 : 0) || (may_stay_silent && replies.empty()));
  for (const at_msg_t& reply : replies)
    fuzz::require(std::memcmp(&reply, &msg, offsetof(at_msg_t, timeout)) == 0);
  fake::on_write = nullptr;
  while (!input.empty()) {
    say();
    MDX_sleep(10);
    process_nas_queue(&retcode);
    fuzz::require(mdx_state.nas_response_legth >= 0 && mdx_state.nas_response_legth < 1500);
    fuzz::require(mdx_state.line_buf[1500] == '\0');
  }
  return 0;
}
