// SPDX-License-Identifier: Apache-2.0

// The preparation moves forward only: nothing done, identity read, operator format set. What was
// done is kept in the global block, so each query does what is still missing and no more.

#include "server/status_query.h"

#include <cstring>

#include "platform/at_fields.h"
#include "platform/bounded.h"
#include "platform/mdx_platform.h"
#include "server/mdx_state.h"
#include "server/modem_setup.h"

namespace {

constexpr mdx_trace_source_t kSource = MDX_FROM_SERVER;
constexpr int kQueryAnswer = 15;
constexpr int kResponseText = 0;
constexpr int32_t kServiceValid = 2;
constexpr int32_t kNoSim = 255;

/// What ^SYSINFO tells; 0 for what it leaves out.
struct sysinfo_t {
  int32_t srv_status;
  int32_t srv_domain;
  int32_t roam_status;
  int32_t sys_mode;
  int32_t sim_state;
  int32_t lock_state;
  int32_t sys_submode;
};

struct sysinfo_field_t {
  const char* name;
  int32_t sysinfo_t::*member;
};

// clang-format off
constexpr sysinfo_field_t kSysinfoFields[] = {
    {"srv_status",  &sysinfo_t::srv_status },
    {"srv_domain",  &sysinfo_t::srv_domain },
    {"roam_status", &sysinfo_t::roam_status},
    {"sys_mode",    &sysinfo_t::sys_mode   },
    {"sim_state",   &sysinfo_t::sim_state  },
    {"lock_state",  &sysinfo_t::lock_state },
    {"sys_submode", &sysinfo_t::sys_submode},
};
// clang-format on

void store_answer(at_answer_t* report, const at_msg_t& msg) {
  memcpy_s(report, sizeof(*report), at_answer_area(&msg), sizeof(at_answer_t));
}

void take_field(const at_field_t& field, sysinfo_t* sysinfo) {
  for (const sysinfo_field_t& known : kSysinfoFields) {
    if (std::strcmp(field.AtFieldName, known.name) != 0) continue;
    if (field.AtFieldValue != nullptr) sysinfo->*known.member = safe_atoi(field.AtFieldValue);
    return;
  }
  MDX_TRACE(kSource, MDX_TRACE_FLOW,
            "get_wm_sysinfo  at_cmd_parse the sysinfo_rep->AtFieldName = "
            "%s,sysinfo_rep->AtFieldValue = ***\n",
            field.AtFieldName);
}

/// Reads the stored answer to the query. 0, or the field parser's failure.
int get_wm_sysinfo(sysinfo_t* sysinfo) {
  at_field_t* chain = nullptr;
  const int parsed = at_cmd_parse(&chain, "^SYSINFO", mdx_state.sysinfo_report.snd_rcv_msg.rmsg,
                                  kQueryAnswer, kResponseText);
  if (parsed != 0) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "get_wm_sysinfo at_cmd_parse error ,and the return = %d",
              parsed);
    return parsed;
  }
  for (const at_field_t* field = chain; field != nullptr; field = field->next) {
    take_field(*field, sysinfo);
  }
  if (chain != nullptr) free_at_cmd(chain);
  return 0;
}

/// Notes a change of roaming, but only while the modem is fully in service.
void note_roaming(const sysinfo_t& sysinfo) {
  const bool in_service = sysinfo.srv_status == kServiceValid && sysinfo.srv_domain != 0 &&
                          sysinfo.sys_mode != 0 && sysinfo.sim_state != 0 &&
                          sysinfo.sim_state != kNoSim && sysinfo.sys_submode != 0;
  if (!in_service || sysinfo.roam_status == mdx_state.last_roam_status) return;
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "current roam status is %d,last roam status is %d",
            sysinfo.roam_status, mdx_state.last_roam_status);
  mdx_state.last_roam_status = sysinfo.roam_status;
}

bool sim_allows_preparation(int32_t sim_state) { return sim_state >= 1 && sim_state <= 3; }

int32_t prepare(int* retcode) {
  if (mdx_state.cimi_done == 0) {
    *retcode = 0;
    if (mdx_check_cimi(retcode) == -1) {
      MDX_TRACE(kSource, MDX_TRACE_ERROR, "check the cimi is failed and the retcode =%d", *retcode);
      return -1;
    }
    mdx_state.cimi_done = 1;
  }
  if ((mdx_state.query_flags & COPS_FORMAT_DONE) == 0) {
    *retcode = 0;
    if (mdx_set_cops_format(retcode) == -1) {
      MDX_TRACE(kSource, MDX_TRACE_ERROR,
                "check the current operater name is failed and the retcode =%d", *retcode);
      return -1;
    }
    mdx_state.query_flags |= COPS_FORMAT_DONE;
  }
  return 0;
}

}  // namespace

int32_t mdx_query_sysinfo(int* retcode) {
  if (retcode == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "mdx_query_sysinfo: retcode is NULL!");
    return -1;
  }
  at_msg_t msg;
  if (mdx_run_own_command(&msg, "AT^SYSINFO", "^SYSINFO", retcode) == -1) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "Error:mdx_query_sysinfo,ret =-1");
    return -1;
  }
  if (msg.ret_val != AT_OK) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "Error:mdx_query_sysinfo,ret_val =%d", msg.ret_val);
    return -1;
  }
  store_answer(&mdx_state.sysinfo_report, msg);
  return 0;
}

int32_t mdx_check_cimi(int* retcode) {
  if (retcode == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_FLOW, "mdx_check_cimi: retcode is NULL!");
    return -1;
  }
  at_msg_t msg;
  if (mdx_run_own_command(&msg, "AT+CIMI", "", retcode) == -1 || msg.ret_val != AT_OK) return -1;
  store_answer(&mdx_state.cimi_report, msg);
  return 0;
}

int32_t mdx_set_cops_format(int* retcode) {
  if (retcode == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "mdx_set_cops_format: retcode is NULL!\n");
    return -1;
  }
  at_msg_t msg;
  if (mdx_run_own_command(&msg, "AT+COPS=3,2,,", "+COPS:", retcode) == -1) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "AT+COPS=3,2 send cmd error!\n");
    return -1;
  }
  if (msg.ret_val != AT_OK) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "AT+COPS=3,2 set cmd error!\n");
    return -1;
  }
  return 0;
}

int32_t at_repetition_query(int* retcode) {
  if (retcode == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "at_repetition_query: retcode is NULL!");
    return -1;
  }
  sysinfo_t sysinfo = {};
  *retcode = 0;
  if (mdx_query_sysinfo(retcode) == -1) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "mdx_query_sysinfo error and the retcode =%d", *retcode);
    return -1;
  }
  if (get_wm_sysinfo(&sysinfo) != 0) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "mdx_parse_sysinfo error and the retcode =%d", *retcode);
    return -1;
  }
  note_roaming(sysinfo);
  if (!sim_allows_preparation(sysinfo.sim_state)) return 0;
  return prepare(retcode);
}

int32_t at_handshake(int* retcode) {
  if (retcode == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "at_handshake: retcode is NULL!");
    return -1;
  }
  if (at_repetition_query(retcode) == -1) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "at_repetition_query error and the retcode =%d", *retcode);
    return -1;
  }
  return 0;
}
