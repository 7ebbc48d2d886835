// SPDX-License-Identifier: Apache-2.0

// Records come from any process and may hold anything. What they ask for is decided here, one after
// the other; that is what serialises all clients onto the one modem channel.

#include "server/client_request.h"

#include <cstring>

#include "platform/at_fields.h"
#include "platform/bounded.h"
#include "platform/mdx_platform.h"
#include "reports/stored_report.h"
#include "server/at_exchange.h"
#include "server/at_sms_exchange.h"
#include "server/at_stream.h"
#include "server/mdx_state.h"

namespace {

constexpr mdx_trace_source_t kSource = MDX_FROM_SERVER;
constexpr char kCommandStart[] = "AT";
/// Networks are searched for over all bands.
constexpr int32_t kNetworkSearchSeconds = 240;
constexpr int kNoSuchReport = 1;
/// ACTIVE_REPORT and REQ_RESERVED_3 get no reply; this bit is what tells them apart.
constexpr uint32_t kReplyRuleBit = 2;

/// All searches rely on the NUL that a client's text may lack. A text that has one stays as it is,
/// and so does what stands behind it: clients may look for it in the answer.
template <size_t size>
void terminate(char (&text)[size]) {
  if (std::memchr(text, '\0', size) == nullptr) text[size - 1] = '\0';
}

bool is_at_command(const at_msg_t& msg) {
  const char* text = msg.snd_rcv_msg.smsg;
  if (At_strncasecmp(text, kCommandStart, MDX_strlen_s(kCommandStart)) == 0) return true;
  MDX_TRACE(kSource, MDX_TRACE_ERROR, "process_msg_queue:%s is not AT start!\n", text);
  return false;
}

int32_t run_command(at_msg_t* msg, int* retcode) {
  if (msg->req_type != TRANSPARENT_CMD && at_cmd_is_smssw(msg->snd_rcv_msg.smsg) == 0) {
    return at_send_or_save_msg(msg, retcode);
  }
  return at_send_normal_cmd_msg(msg, retcode);
}

/// Waits for one delivery and lets it be: the next read wipes it.
int32_t discard_delivery(const at_msg_t& msg, int* retcode) {
  at_msg_t copy = msg;
  return read_from_smd(&copy, retcode);
}

int32_t refuse(at_msg_t* msg) {
  clear_answer_area(msg);
  msg->ret_val = AT_NOT_SUPPORTED;
  return 0;
}

int32_t serve(at_msg_t* msg, int* retcode) {
  switch (msg->req_type) {
    case TRANSPARENT_CMD:
    case NORMAL_CMD:
      return run_command(msg, retcode);
    case ACTIVE_REPORT:
      return discard_delivery(*msg, retcode);
    case GET_REPORT:
      return get_report(msg, retcode);
    default:
      return refuse(msg);
  }
}

bool is_replied_to(const at_msg_t& msg) { return (msg.req_type & ~kReplyRuleBit) != 1; }

void trace_failure(const int* retcode) {
  MDX_TRACE(kSource, MDX_TRACE_ERROR, "send_to_msgqueue the cmd rsp error ,retcode = < %d>!\n",
            *retcode);
}

}  // namespace

int32_t process_msg_queue(int* retcode) {
  if (retcode == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "retcode is NULL!\n");
    return -1;
  }
  at_msg_t msg = {};
  if (read_from_msgqueue(mdx_state.req_queue_id, &msg, 0, retcode) == -1) return -1;
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "Client AT cmd= ***, Id= %ld, seq = %u\n",
            static_cast<long>(msg.msg_type), msg.seq);
  mdx_state.last_client_msg.store(msg);
  terminate(msg.at_match_str);
  terminate(msg.snd_rcv_msg.rmsg);

  const bool is_command = msg.req_type == NORMAL_CMD || msg.req_type == TRANSPARENT_CMD;
  if (msg.req_type == TRANSPARENT_CMD) at_cmd_cops_timeout(&msg);
  if (is_command && !is_at_command(msg)) return -1;

  const int32_t served = serve(&msg, retcode);
  if (served == -1) trace_failure(retcode);
  if (!is_replied_to(msg)) return served;

  const int32_t replied = send_to_msgqueue(mdx_state.rsp_queue_id, &msg, retcode);
  if (replied == -1) trace_failure(retcode);
  return replied;
}

int32_t get_report(at_msg_t* pmsg, int* retcode) {
  if (pmsg == nullptr || retcode == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "get_report:error, pmsg is null!\n");
    return -1;
  }
  *retcode = 0;
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "pmsg->rep_type = %d!\n", pmsg->rep_type);
  clear_answer_area(pmsg);
  if (pmsg->rep_type != RSSI_REPORT) {
    *retcode = kNoSuchReport;
    return -1;
  }
  memcpy_s(at_answer_area(pmsg), sizeof(at_answer_t), &mdx_rssi_report, sizeof(at_answer_t));
  return 0;
}

void at_cmd_cops_timeout(at_msg_t* msg) {
  if (msg == nullptr) return;
  const char* text = msg->snd_rcv_msg.smsg;
  if (std::strstr(text, "+COPS=?") != nullptr || std::strstr(text, "+cops=?") != nullptr) {
    msg->timeout = kNetworkSearchSeconds;
  }
}
