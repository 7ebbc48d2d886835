// A client's record, and behind it what the modem says to whatever the server writes.

#include "fuzz/fuzz.h"
#include "server/client_request.h"
#include "tests/fake_platform/server_on_fake.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::input input(data, size);
  mdx_trace_mask = 0;
  fake::bring_up_server();
  at_msg_t msg = {};
  const std::string image = input.take(sizeof(msg));
  image.copy(reinterpret_cast<char*>(&msg), sizeof(msg));
  fake::on_write = [&](const std::string&) {
    fake::deliver({{10, input.piece('~').substr(0, 1499)}});
  };
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
  MDX_sleep(1000);
  return 0;
}
