// SPDX-License-Identifier: Apache-2.0

// Write, then read and parse until a result has come or the budget is spent. The budget runs out
// faster than the clock: each delivery that leaves the answer open is charged in whole seconds.

#include "server/at_exchange.h"

#include <cstring>

#include "platform/at_fields.h"
#include "platform/bounded.h"
#include "platform/mdx_platform.h"
#include "server/at_parser.h"
#include "server/at_stream.h"
#include "server/mdx_state.h"
#include "server/write_to_smd.h"

namespace {

constexpr mdx_trace_source_t kSource = MDX_FROM_SERVER;
constexpr char kEscape[] = {0x1B};

/// The response parser tells by the head of a command which lines answer it; the record's own text
/// is gone after the first read.
void keep_command_head(const char* text) {
  memcpy_s(mdx_state.sent_cmd_head, kSentHeadSize, text, kSentHeadSize - 1);
  mdx_state.sent_cmd_head[kSentHeadSize - 1] = '\0';
}

bool pattern_matched(const at_msg_t& msg) {
  if (msg.at_match_str[0] == '\0') return false;
  if (std::strstr(msg.snd_rcv_msg.rmsg, msg.at_match_str) == nullptr) return false;
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "Sting is matched \n");
  return true;
}

bool result_has_come(const at_msg_t& msg) {
  if (msg.ret_val == AT_NONE) return false;
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "AT_NONE != p_rsp->ret_val \n");
  return true;
}

int32_t refuse_unwritten(at_msg_t* msg, const int* retcode) {
  MDX_TRACE(kSource, MDX_TRACE_ERROR, "write_to_smd error and the errcode = %d\n", *retcode);
  clear_answer_area(msg);
  msg->ret_val = AT_NOT_SUPPORTED;
  return -1;
}

int32_t end_unanswered(int* retcode) {
  if (mdx_state.sms_cancel_marker == 0) {
    MDX_TRACE(kSource, MDX_TRACE_FLOW, "sms sending ,pc crack\n");
    write_to_smd(kEscape, retcode, sizeof(kEscape));
  }
  mdx_state.sms_cancel_marker = -1;
  MDX_TRACE(kSource, MDX_TRACE_ERROR, "Error = %d , cmd =***\n", *retcode);
  return -1;
}

}  // namespace

int32_t at_pass_seconds(uint32_t start, uint32_t now) {
  const int64_t elapsed = static_cast<int32_t>(now - start);
  return static_cast<int32_t>((elapsed + 999) / 1000);
}

bool at_charge_pass(int32_t* timeout, uint32_t* start) {
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "Wait for the next report msg\n");
  const uint32_t now = MDX_elapse();
  const int32_t duration = at_pass_seconds(*start, now);
  if (duration >= *timeout) {
    MDX_TRACE(kSource, MDX_TRACE_MISSING, "get at result timeout duration %d timeout %d\n",
              duration, *timeout);
    return false;
  }
  *timeout -= duration;
  *start = now;
  MDX_TRACE(kSource, MDX_TRACE_DETAIL, "next timeout %d\n", *timeout);
  return true;
}

int32_t at_send_normal_cmd_msg(at_msg_t* msg, int* retcode) {
  if (msg == nullptr || retcode == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "at_send_normal_cmd_msg: the msg is null and return\n");
    return -1;
  }
  const char* text = msg->snd_rcv_msg.smsg;
  const int32_t cmd_len = msg->snd_rcv_msg.command.cmd_len;
  const uint32_t length = cmd_len > 0 ? static_cast<uint32_t>(cmd_len) : MDX_strlen_s(text);
  keep_command_head(text);
  if (write_to_smd(text, retcode, length) == -1) return refuse_unwritten(msg, retcode);

  msg->ret_val = AT_NONE;
  *retcode = 0;
  uint32_t start = MDX_elapse();
  int32_t read = read_from_smd(msg, retcode);
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "read_from_smd retval = %d\n", read);
  while (read == 0) {
    parse_response(msg);
    MDX_TRACE(kSource, MDX_TRACE_FLOW, "parse_response pMsg = ***, ret_val = %d \n", msg->ret_val);
    if (pattern_matched(*msg) || result_has_come(*msg)) {
      if (msg->ret_val != AT_OK) {
        MDX_TRACE(kSource, MDX_TRACE_FLOW, "rsp_msg ret_val = %d\n", msg->ret_val);
      }
      return 0;
    }
    if (!at_charge_pass(&msg->timeout, &start)) break;
    read = read_from_smd(msg, retcode);
  }
  return end_unanswered(retcode);
}
