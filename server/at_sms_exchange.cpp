// SPDX-License-Identifier: Apache-2.0

// The command's text holds both halves of the dialogue, and the first read would clear it. So the
// reads work on a copy of the record, and the client's own record is overwritten only when both
// halves are out.

#include "server/at_sms_exchange.h"

#include <cerrno>
#include <cstring>
#include <string_view>

#include "platform/bounded.h"
#include "platform/mdx_platform.h"
#include "server/at_exchange.h"
#include "server/at_parser.h"
#include "server/at_stream.h"
#include "server/write_to_smd.h"

namespace {

constexpr mdx_trace_source_t kSource = MDX_FROM_SERVER;
constexpr char kCtrlZ = 0x1A;
constexpr char kEscape[] = {0x1B};
/// The code that would make a time-out cancel the modem's prompt; no result row has it.
constexpr int32_t kCancelOnTimeout = 1;
/// The longest text that goes out whole, with a CR behind it.
constexpr size_t kLineMax = kCommandSize - 2;

struct dialogue_t {
  std::string_view head;  // the command line
  std::string_view body;  // the PDU, its Ctrl-Z and one NUL
};

/// The end mark is a Ctrl-Z that two NUL bytes follow; any other Ctrl-Z is text.
/// @return its offset in `text`, npos without one
size_t find_end_mark(std::string_view text) {
  for (size_t i = 0; i + 2 < text.size(); ++i) {
    if (text[i] == kCtrlZ && text[i + 1] == '\0' && text[i + 2] == '\0') return i;
  }
  return std::string_view::npos;
}

bool split(const at_msg_t& msg, dialogue_t* dialogue) {
  const std::string_view text(msg.snd_rcv_msg.rmsg, sizeof(msg.snd_rcv_msg.rmsg));
  const char* cr = std::strchr(text.data(), '\r');
  if (cr == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "the cmd str have not '\r',and the str is ***\n");
    return false;
  }
  dialogue->head = {text.data(), cr};
  const std::string_view behind(cr + 1, text.data() + text.size());
  const size_t end = find_end_mark(behind);
  if (end == std::string_view::npos) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "the sms text has no Ctrl-Z and two NUL at its end\n");
    return false;
  }
  dialogue->body = {behind.data(), end + 2};
  if (dialogue->head.size() <= kLineMax && end + 1 <= kLineMax) return true;
  MDX_TRACE(kSource, MDX_TRACE_ERROR, "the sms text is too long: head %zu, body %zu\n",
            dialogue->head.size(), end + 1);
  return false;
}

int32_t write_half(std::string_view half, int* retcode) {
  char buffer[kCommandSize] = {};
  memcpy_s(buffer, sizeof(buffer), half.data(), half.size());
  return write_to_smd(buffer, retcode, static_cast<uint32_t>(half.size()));
}

int32_t refuse_unwritten(at_msg_t* msg, at_msg_t* work, const int* retcode) {
  MDX_TRACE(kSource, MDX_TRACE_ERROR, "write_to_smd error and the errcode = %d\n", *retcode);
  work->ret_val = *retcode == EINVAL ? 0 : AT_NOT_SUPPORTED;
  *msg = *work;
  return -1;
}

/// Waits for the prompt. Silence is no refusal: the body goes out when the wait is over.
/// @return false when the modem said something else than a prompt or a report
bool head_is_accepted(at_msg_t* work, int* retcode) {
  const int32_t read = read_from_smd(work, retcode);
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "read_from_smd retval = %d\n", read);
  if (read != 0) return true;
  parse_response(work);
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "parse_response report str = ***\n");
  if (work->ret_val == AT_NONE) return true;
  MDX_TRACE(kSource, MDX_TRACE_MISSING, "can math the cmgs or cmgw response string, retval = %d\n",
            work->ret_val);
  return false;
}

bool body_is_answered(const at_msg_t& msg) {
  if (msg.ret_val != AT_NONE) return true;
  return msg.at_match_str[0] != '\0' &&
         std::strstr(msg.snd_rcv_msg.rmsg, msg.at_match_str) != nullptr;
}

int32_t end_unanswered(const at_msg_t& msg, int* retcode) {
  if (msg.ret_val == kCancelOnTimeout) {
    MDX_TRACE(kSource, MDX_TRACE_FLOW, "sms timeout, cancel it\n");
    write_to_smd(kEscape, retcode, sizeof(kEscape));
  }
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "read_from_smd error and the errcode = %d\n", *retcode);
  return -1;
}

int32_t wait_for_answer(at_msg_t* msg, at_msg_t* work, uint32_t start, int* retcode) {
  int32_t read = read_from_smd(work, retcode);
  *msg = *work;
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "read_from_smd retval = %d\n", read);
  while (read == 0) {
    parse_response(msg);
    MDX_TRACE(kSource, MDX_TRACE_FLOW, "parse_response pMsg = ***\n");
    if (body_is_answered(*msg)) return 0;
    if (!at_charge_pass(&work->timeout, &start)) break;
    read = read_from_smd(work, retcode);
    *msg = *work;
  }
  return end_unanswered(*msg, retcode);
}

}  // namespace

int32_t at_cmd_is_smssw(const char* cmd_buf) {
  if (cmd_buf == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "at_cmd_is_smssw : error,cmd_buf is null!\n");
    return -1;
  }
  for (const char* command : {"+CMGS", "+CMGW", "^HCMGS", "^HCMGW"}) {
    if (std::strstr(cmd_buf, command) != nullptr) return 0;
  }
  return -1;
}

int32_t at_send_or_save_msg(at_msg_t* msg, int* retcode) {
  if (msg == nullptr || retcode == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "at_send_or_save_msg: the msg is null and return\n");
    return -1;
  }
  at_msg_t work = *msg;
  clear_answer_area(&work);
  memcpy_s(work.at_match_str, sizeof(work.at_match_str), msg->at_match_str, kMatchSize);

  dialogue_t dialogue;
  if (!split(*msg, &dialogue)) return -1;
  if (write_half(dialogue.head, retcode) == -1) return refuse_unwritten(msg, &work, retcode);
  const uint32_t start = MDX_elapse();
  if (!head_is_accepted(&work, retcode)) {
    msg->ret_val = work.ret_val;
    return -1;
  }
  if (write_half(dialogue.body, retcode) == -1) return refuse_unwritten(msg, &work, retcode);
  return wait_for_answer(msg, &work, start, retcode);
}
