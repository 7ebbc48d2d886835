// SPDX-License-Identifier: Apache-2.0

// Reports of the SIM card, USSD, the SIM toolkit and supplementary services.
//
// The state of the SIM goes to five receivers. USSD text may hold zero bytes, which would end it
// for the field parser. Some reports are read only so that they are nobody's answer.

#include <algorithm>

#include "reports/mdx_report_callback.h"
#include "reports/report_frame.h"
#include "wire/at_msg.h"
#include "wire/destinations.h"
#include "wire/report_records.h"

namespace {

constexpr char kCr = '\r';

/// Replaces one byte by another in the first `length` bytes, at most `room`.
void replace_bytes(char* text, int64_t length, int64_t room, char from, char to) {
  std::replace(text, text + std::min(length, room), from, to);
}

walk_t take_cusd_text(const at_field_t& field, void* target) {
  auto* record = static_cast<at_ussd_info*>(target);
  if (field.AtFieldValue == nullptr) return walk_t::ON;
  record->cusdStrLen = static_cast<int32_t>(MDX_strlen_s(field.AtFieldValue));
  new_snprintf_s(__FILE__, __LINE__, record->cusdStr, sizeof(record->cusdStr),
                 sizeof(record->cusdStr), "%s", field.AtFieldValue);
  return walk_t::ON;
}

walk_t trace_cireg_field(const at_field_t& field, void*) {
  MDX_TRACE(kReportSource, MDX_TRACE_DETAIL, "point1->AtFieldName =%s,point1->AtFieldValue =%s",
            field.AtFieldName, field.AtFieldValue);
  return walk_t::ON;
}

/// +CSSI and +CSSU are parsed and dropped. Only -1 is a failure here, and its trace tells no
/// number.
/// @return 0, or -1
int consume_supplementary(const char* prefix, const char* line) {
  at_field_t* chain = nullptr;
  if (at_cmd_parse(&chain, prefix, line, 0, 3) == -1) {
    MDX_TRACE(kReportSource, MDX_TRACE_ERROR, "execute at_cmd_parse failed\n");
    return -1;
  }
  if (chain != nullptr) free_at_cmd(chain);
  return 0;
}

}  // namespace

// ^SIMST: 255,1
void simst_report_callback(char* rptbuf, int32_t) {
  if (rptbuf == nullptr) return;
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "[simst_report_callback] enter!\n");
  at_sim_values sim = {};
  static constexpr report_parse_t how = {
      "^SIMST", MDX_TRACE_ERROR, "simst_report_callback at_cmd_parse  error,and the ret = %d\n",
      kNeedsFields};
  static constexpr report_field_t fields[] = {
      MDX_REPORT_FIELD("sim_state", NUMBER, sim, sim_state),
      MDX_REPORT_FIELD("lock_state", NUMBER, sim, lock_state),
  };
  if (read_fields(how, rptbuf, fields, &sim) < 0) return;

  const at_sim_state_info record = {10, sim};
  MDX_post_notify_ex(NOTIFY_MODULE_27, EVT_AT_SIM_STATE_27, &record, sizeof(record), 0, 0);
  MDX_post_notify(NOTIFY_MODULE_19, EVT_AT_SIM_STATE_19, sim.sim_state, sim.lock_state);
  MDX_post_notify(RUT_MDL_DEVICE, EVT_AT_SIM_STATE_9, sim.sim_state, sim.lock_state);
  MDX_post_notify_ex(NOTIFY_MODULE_6, EVT_AT_SIM_STATE_6, &sim, sizeof(sim), 0, 0);
  MDX_post_notify(NOTIFY_MODULE_4, EVT_AT_SIM_STATE_4, sim.sim_state, sim.lock_state);
}

// ^EXSIMST:1
void exsimst_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_ERROR, "[exsimst_report_callback]: enter \n");
  if (rptbuf == nullptr) {
    MDX_TRACE(kReportSource, MDX_TRACE_ERROR, "[exsimst_report_callback]: NULL == rptbuf \n");
    return;
  }
  MDX_TRACE(kReportSource, MDX_TRACE_ERROR, "[exsimst_report_callback]: leave \n");
}

// ^SIMREFRESH:1
void sim_refresh_report_callback(char* rptbuf, int32_t) {
  if (rptbuf == nullptr) return;
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "[sim_refresh_report_callback] enter!\n");
  struct {
    char file_type[kNumberTextSize];
  } text = {};
  static constexpr report_parse_t how = {
      "^SIMREFRESH", MDX_TRACE_ERROR,
      "sim_refresh_report_callback at_cmd_parse  error,and the ret = %d\n", kNeedsFields};
  static constexpr report_field_t fields[] = {
      MDX_REPORT_FIELD("file_type", FIRST_PRINTED, text, file_type)};
  if (read_fields(how, rptbuf, fields, &text) < 0) return;

  const int32_t type = safe_atoi(text.file_type);
  MDX_TRACE(kReportSource, MDX_TRACE_ERROR, "sim_refresh_report_callback file_type = %d\n", type);
  MDX_post_notify(NOTIFY_MODULE_7, EVT_AT_SIM_REFRESH, type, 0);
}

// +CUSD: 0,"Available Balance: R 96.45 .",15
void cusd_report_callback(char* rptbuf, int32_t length) {
  if (rptbuf == nullptr) return;
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "[cusd_report_callback] enter!\n");
  // A CR stands in for each zero byte, so that the text reaches the parser's end of it.
  const bool has_zero_bytes = int64_t{MDX_strlen_s(rptbuf)} < length;
  if (has_zero_bytes) {
    replace_bytes(rptbuf, length, MAX_ATCMD_REPORT_SIZE, '\0', kCr);
    MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "cusd report string include zero char: %s\n", rptbuf);
  }

  at_ussd_info record = {};
  static constexpr report_parse_t how = {
      "+CUSD", MDX_TRACE_ERROR, "ussd_report_callback at_cmd_parse  error,and the ret = %d\n"};
  static constexpr report_field_t fields[] = {
      MDX_REPORT_FIELD("rspType", NUMBER, record, rspType),
      MDX_REPORT_TAKEN("cusdStr"),
      MDX_REPORT_FIELD("codeType", NUMBER, record, codeType),
  };
  if (read_fields(how, rptbuf, fields, &record, take_cusd_text) < 0) return;

  if (has_zero_bytes) {
    replace_bytes(record.cusdStr, record.cusdStrLen, sizeof(record.cusdStr), kCr, '\0');
  }
  MDX_post_notify_ex(NOTIFY_MODULE_2, EVT_AT_USSD, &record, sizeof(record), 0, 0);
}

// ^STIN: 7, 0, 0
void stin_report_callback(char* rptbuf, int32_t) {
  if (rptbuf == nullptr) return;
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "[stin_report_callback] enter!\n");
  struct {
    int32_t type;
    int32_t index;
    int32_t timed_out;
  } value = {};
  static constexpr report_parse_t how = {
      "^STIN", MDX_TRACE_ERROR, "[stk]stin_report_callback: at_cmd_parse return error ret = %d\n"};
  static constexpr report_field_t fields[] = {
      MDX_REPORT_FIELD("cmdTpye", NUMBER, value, type),
      MDX_REPORT_FIELD("cmdIndex", NUMBER, value, index),
      MDX_REPORT_FIELD("isTimeOut", NUMBER, value, timed_out),
  };
  if (read_fields(how, rptbuf, fields, &value) < 0) return;

  at_stin_info record = {};
  record.cmdTpye = static_cast<uint8_t>(value.type & UINT8_MAX);
  record.cmdIndex = static_cast<uint8_t>(value.index & UINT8_MAX);
  record.isTimeOut = static_cast<uint8_t>(value.timed_out & UINT8_MAX);
  MDX_post_notify_ex(NOTIFY_MODULE_33, EVT_AT_STK_IND, &record, sizeof(record), 0, 0);
}

// +CSSI: 1
void cssi_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "enter cssi_report_callback\n");
  if (rptbuf == nullptr) {
    MDX_TRACE(kReportSource, MDX_TRACE_ERROR, "passing param is invalid\n");
    return;
  }
  if (consume_supplementary("+CSSI", rptbuf) != 0) return;
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "finish cssi_report_callback\n");
}

// +CSSU: 1
void cssu_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "enter cssu_report_callback\n");
  if (rptbuf == nullptr) {
    MDX_TRACE(kReportSource, MDX_TRACE_ERROR, "passing param is invalid\n");
    return;
  }
  if (consume_supplementary("+CSSU", rptbuf) != 0) return;
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "finish cssu_report_callback\n");
}

// +CIREGU: 1,1
void ims_cireg_report_callback(char* rptbuf, int32_t) {
  if (rptbuf == nullptr) {
    MDX_TRACE(kReportSource, MDX_TRACE_ERROR,
              "ims_cireg_report_callback parameter  error, return. \n");
    return;
  }
  MDX_TRACE(kReportSource, MDX_TRACE_DETAIL, "[ims_cireg_report_callback] enter... \n");
  struct {
    int32_t id;
    int32_t reg_info;
  } record = {75, 0};
  static constexpr report_parse_t how = {
      "+CIREGU", MDX_TRACE_ERROR,
      "ims_cireg_report_callback at_cmd_parse  error,and the ret = %d\n"};
  static constexpr report_field_t fields[] = {
      MDX_REPORT_TAKEN(""),
      MDX_REPORT_FIELD("reg_info", NUMBER, record, reg_info),
  };
  if (read_fields(how, rptbuf, fields, &record, trace_cireg_field) < 0) return;

  MDX_TRACE(kReportSource, MDX_TRACE_DETAIL, "[ims_cireg_report_callback] end ! \n");
}
