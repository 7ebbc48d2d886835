// SPDX-License-Identifier: Apache-2.0

// The server's own commands differ in their texts alone; what they share stands once.

#include "server/modem_setup.h"

#include "platform/at_fields.h"
#include "platform/mdx_platform.h"
#include "server/at_exchange.h"
#include "server/mdx_state.h"

namespace {

constexpr mdx_trace_source_t kSource = MDX_FROM_SERVER;
constexpr int32_t kOwnMsgType = 5;
constexpr int32_t kOwnTimeoutSeconds = 3;
constexpr uint32_t kSeqWrap = 255;

/// The numbers run from 1 to 256, then from 0.
uint32_t next_seq() {
  uint32_t& counter = mdx_state.msg_seq_counter;
  counter = counter <= kSeqWrap ? counter + 1 : 0;
  return counter;
}

struct setup_t {
  const char* name;
  const char* command;
  const char* match;
};

// clang-format off
constexpr setup_t kAte   = {"mdx_set_ate",                      "ATE0",       "ATE0"  };
constexpr setup_t kSrvst = {"mdx_set_srvst_unsolicited_enable", "AT^SRVST=1", "^SRVST"};
constexpr setup_t kCreg  = {"mdx_set_creg_unsolicited_enable",  "AT+CREG=2",  "+CREG" };
constexpr setup_t kCgreg = {"mdx_set_cgreg_unsolicited_enable", "AT+CGREG=2", "+CGREG"};
constexpr setup_t kMode  = {"mdx_set_mode_unsolicited_enable",  "AT^MODE=1",  ""      };
// clang-format on

/// "OK" alone is success.
int32_t run_to_ok(const char* command, const char* match, int* retcode) {
  at_msg_t msg;
  if (mdx_run_own_command(&msg, command, match, retcode) == -1) return -1;
  return msg.ret_val == AT_OK ? 0 : -1;
}

int32_t set_up(const setup_t& setup, int* retcode) {
  if (retcode == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "%s: retcode is NULL!\n", setup.name);
    return -1;
  }
  const int32_t done = run_to_ok(setup.command, setup.match, retcode);
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "at_send_normal_cmd_msg = %d\n", *retcode);
  return done;
}

}  // namespace

int32_t mdx_run_own_command(at_msg_t* msg, const char* command, const char* match, int* retcode) {
  *retcode = 0;
  *msg = {};
  msg->msg_type = kOwnMsgType;
  msg->req_type = NORMAL_CMD;
  msg->seq = next_seq();
  msg->timeout = kOwnTimeoutSeconds;
  new_snprintf_s(__FILE__, __LINE__, msg->snd_rcv_msg.smsg, kCommandSize, kCommandSize - 1, "%s",
                 command);
  new_snprintf_s(__FILE__, __LINE__, msg->at_match_str, kMatchSize, kMatchSize - 1, "%s", match);
  return at_send_normal_cmd_msg(msg, retcode);
}

int32_t mdx_cmee(int* retcode) {
  if (retcode == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "retcode is NULL!\n");
    return -1;
  }
  return run_to_ok("AT+CMEE=1", "+CMEE:", retcode);
}

int32_t mdx_set_ate(int* retcode) { return set_up(kAte, retcode); }
int32_t mdx_set_srvst_unsolicited_enable(int* retcode) { return set_up(kSrvst, retcode); }
int32_t mdx_set_creg_unsolicited_enable(int* retcode) { return set_up(kCreg, retcode); }
int32_t mdx_set_cgreg_unsolicited_enable(int* retcode) { return set_up(kCgreg, retcode); }
int32_t mdx_set_mode_unsolicited_enable(int* retcode) { return set_up(kMode, retcode); }

int32_t mdx_set_unsolicited_enable(int* retcode) {
  if (retcode == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "retcode is NULL!\n");
    return -1;
  }
  int32_t done = -1;
  for (const setup_t* setup : {&kSrvst, &kCreg, &kCgreg, &kMode}) {
    done = set_up(*setup, retcode);
    if (done == -1) MDX_TRACE(kSource, MDX_TRACE_ERROR, "%s failed. \n", setup->name);
  }
  return done;
}
