// Deliveries to the parser, under every kind of record. A tilde ends a delivery.

#include "fuzz/fuzz.h"
#include "server/at_parser.h"
#include "server/at_stream.h"
#include "tests/fake_platform/server_on_fake.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static constexpr const char* kMatches[] = {"", "+CSQ", "OK", "x"};
  fuzz::input input(data, size);
  mdx_trace_mask = 0;
  fake::bring_up_server();
  const uint8_t how = input.byte();
  at_msg_t msg = {};
  msg.req_type = how % 6;
  msg.multi_line = how / 8 % 4 == 3 ? 7 : how / 8 % 2;
  std::strcpy(msg.at_match_str, kMatches[how / 64]);
  std::strcpy(mdx_state.sent_cmd_head, "AT+CSQ;+CMGR=1;^HCMGR=1");
  while (!input.empty()) {
    const std::string delivery = input.piece('~').substr(0, 1499);
    int retcode = 0;
    mdx_get_data_from_nas(0, delivery.data(), static_cast<uint32_t>(delivery.size()));
    fuzz::require(read_from_smd(&msg, &retcode) == 0);
    parse_response(&msg);
    fuzz::require(at_sm_is_rcv_buf_empty(&mdx_state.stream) == 0);
    fuzz::require(mdx_state.nas_response_legth >= 0 && mdx_state.nas_response_legth < 1500);
    fuzz::require(mdx_state.line_buf[1500] == '\0');
    fuzz::require(msg.snd_rcv_msg.rmsg[1499] == '\0');
  }
  return 0;
}
