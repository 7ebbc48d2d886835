// SPDX-License-Identifier: Apache-2.0

// Reports of the radio network: registration, service, mode, signal, frequencies, roaming, time.
//
// Most become an event for the modules that show or manage the network; mode and service are told
// to the dial-up service as well. The ^RSSI line is kept for clients. ^LTESIGLEV and ^REJINFO end
// in traces.

#include <cstring>
#include <limits>

#include "platform/bounded.h"
#include "reports/mdx_report_callback.h"
#include "reports/report_frame.h"
#include "reports/stored_report.h"
#include "wire/destinations.h"
#include "wire/report_records.h"

namespace {

/// `srv_status` of ^SRVST when there is a network but no full service on it.
constexpr int32_t kServiceLost = 2;

/// What the network time's texts may hold.
constexpr size_t kTimeTextSize = 160;

void send_net_change(int32_t status) {
  const dialup_net_change_msg message = {status};
  KRP_MSG_SendMsgData(kServiceDialup, DIALUP_MSG_NET_CHANGE, &message, sizeof(message));
}

/// A sum that stops at the largest number: the modem may send any.
int32_t saturating_sum(int32_t value, int32_t added) {
  int32_t sum = 0;
  if (__builtin_add_overflow(value, added, &sum)) return std::numeric_limits<int32_t>::max();
  return sum;
}

/// The mode names of ^HCSQ; the whole text counts, since some names begin alike.
void take_hcsq_sysmode(const char* value, at_hcsq_info* record) {
  // clang-format off
  constexpr struct { const char* name; int32_t sysmode; } modes[] = {
      {"GSM",        0},
      {"WCDMA",      1},
      {"LTE",        2},
      {"CDMA",       3},
      {"EVDO",       4},
      {"TD-SCDMA",   5},
      {"CDMA-EVDO",  6},
      {"NOSERVICE", -1},
  };
  // clang-format on
  for (const auto& mode : modes) {
    if (safe_strcmp(value, mode.name) == 0) record->sysmode = mode.sysmode;
  }
}

walk_t take_hcsq_field(const at_field_t& field, void* record) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "hcsq_report_callback AtFieldName= %s.\n",
            field.AtFieldName);
  if (safe_strcmp(field.AtFieldName, "sysmode") == 0)
    take_hcsq_sysmode(field.AtFieldValue, static_cast<at_hcsq_info*>(record));
  return walk_t::ON;
}

/// ^REJINFO, read and traced; it has no receiver.
struct at_rejinfo_info {
  int32_t id;
  char plmnid[64];
  int32_t srvdomain;
  int32_t rejectcause;
  int32_t rattype;
};

walk_t take_rejinfo_field(const at_field_t& field, void* target) {
  auto* record = static_cast<at_rejinfo_info*>(target);
  const char* value = field.AtFieldValue;
  if (safe_strcmp(field.AtFieldName, "plmnid") == 0 && value != nullptr) {
    MDX_strncpy_s(record->plmnid, sizeof(record->plmnid), value, MDX_strlen_s(value));
    MDX_TRACE(kReportSource, MDX_TRACE_ERROR, "rejinfo_report_callback plmnid=%s.\n",
              record->plmnid);
  } else if (safe_strcmp(field.AtFieldName, "srvdomain") == 0) {
    record->srvdomain = safe_atoi(value);
    MDX_TRACE(kReportSource, MDX_TRACE_DETAIL, "rejinfo_report_callback srvdomain = %d.\n",
              record->srvdomain);
  } else if (safe_strcmp(field.AtFieldName, "rejectcause") == 0) {
    record->rejectcause = safe_atoi(value);
    MDX_TRACE(kReportSource, MDX_TRACE_DETAIL, "rejinfo_report_callback rejectcause = %d.\n",
              record->rejectcause);
  } else if (safe_strcmp(field.AtFieldName, "rattype") == 0) {
    record->rattype = safe_atoi(value);
    MDX_TRACE(kReportSource, MDX_TRACE_DETAIL, "rejinfo_report_callback rattype = %d.\n",
              record->rattype);
  }
  return walk_t::ON;
}

}  // namespace

// +CREG: 1
void creg_report_callback(char*, int32_t) {
  KRP_MSG_SendMsgData(kServiceDialup, DIALUP_MSG_NET_CHANGE, nullptr, 0);
  MDX_post_notify(NOTIFY_MODULE_19, EVT_AT_REG_CHANGE, 0, 0);
}

// ^SRVST: 2
void redirect_noservice_report_callback(char* rptbuf, int32_t) {
  if (rptbuf == nullptr) return;
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "[redirect_noservice_report_callback] enter!\n");
  struct {
    char srv_status[kNumberTextSize];
  } text = {};
  static constexpr report_parse_t how = {
      "^SRVST", MDX_TRACE_ERROR,
      "redirect_noservice_report_callback at_cmd_parse  error,and the ret = %d"};
  static constexpr report_field_t fields[] = {
      MDX_REPORT_FIELD("srv_status", FIRST_PRINTED, text, srv_status)};
  if (read_fields(how, rptbuf, fields, &text) < 0) return;

  const int32_t status = safe_atoi(text.srv_status);
  send_net_change(status);
  if (status != kServiceLost) return;
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW,
            "[redirect_noservice_report_callback] send message to device!\n");
  MDX_post_notify(RUT_MDL_DEVICE, EVT_AT_NO_SERVICE, 0, 0);
}

// ^MODE: 5,4
void mode_report_callback(char* rptbuf, int32_t) {
  if (rptbuf == nullptr) return;
  MDX_TRACE(kReportSource, MDX_TRACE_ERROR, "mode_report_callback .\n");
  struct {
    char sys_mode[kNumberTextSize];
    char sys_submode[kNumberTextSize];
  } text = {};
  static constexpr report_parse_t how = {
      "^MODE", MDX_TRACE_ERROR, "mode_report_callback at_cmd_parse  error,and the ret = %d"};
  static constexpr report_field_t fields[] = {
      MDX_REPORT_FIELD("sys_mode", PRINTED, text, sys_mode),
      MDX_REPORT_FIELD("sys_submode", PRINTED, text, sys_submode),
  };
  if (read_fields(how, rptbuf, fields, &text) < 0) return;

  send_net_change(safe_atoi(text.sys_mode));
  MDX_post_notify(NOTIFY_MODULE_19, EVT_AT_SYS_MODE, safe_atoi(text.sys_mode),
                  safe_atoi(text.sys_submode));
}

// ^LCACELLURC: 1,3
void ltecacell_report_callback(char*, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_DETAIL, "[ltecacell_report_callback] begin! \n");
  MDX_post_notify(NOTIFY_MODULE_19, EVT_AT_SYS_MODE, 0, 0);
}

// ^EONS:1
void net_eons_report_callback(char*, int32_t) {
  MDX_post_notify(NOTIFY_MODULE_7, EVT_AT_EONS, 0, 0);
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "Leave net_eons_report_callback()!\n");
}

// ^ANLEVEL:0,99,10,4,108,7
void anelvel_report_callback(char* rptbuf, int32_t) {
  struct {
    int32_t level;
  } value = {};
  static constexpr report_parse_t how = {"^ANLEVEL", MDX_TRACE_FLOW,
                                         "anelvel_report_callback, error,and the ret = %d"};
  static constexpr report_field_t fields[] = {MDX_REPORT_FIELD("level", NUMBER, value, level)};
  if (read_fields(how, rptbuf, fields, &value) < 0) return;

  MDX_post_notify(NOTIFY_MODULE_19, EVT_AT_SIGNAL_LEVEL, value.level, 0);
}

// ^HCSQ:"LTE",48,35,86,14
void hcsq_report_callback(char* rptbuf, int32_t length) {
  if (rptbuf == nullptr || length < 0) {
    MDX_TRACE(kReportSource, MDX_TRACE_ERROR, "hcsq_report_callback invalid parameter, return!\n");
    return;
  }
  MDX_TRACE(kReportSource, MDX_TRACE_ERROR, "Enter hcsq_report_callback().\n");
  at_hcsq_info record = {};
  static constexpr report_parse_t how = {
      "^HCSQ", MDX_TRACE_ERROR, "hcsq_report_callback  at_cmd_parse  error,and the ret = %d.\n"};
  static constexpr report_field_t fields[] = {
      MDX_REPORT_TAKEN(""),
      MDX_REPORT_FIELD("value1", NUMBER, record, value1),
      MDX_REPORT_FIELD("value2", NUMBER, record, value2),
      MDX_REPORT_FIELD("value3", NUMBER, record, value3),
      MDX_REPORT_FIELD("value4", NUMBER, record, value4),
      MDX_REPORT_FIELD("value5", NUMBER, record, value5),
  };
  if (read_fields(how, rptbuf, fields, &record, take_hcsq_field) < 0) return;

  MDX_post_notify_ex(NOTIFY_MODULE_19, EVT_AT_HCSQ, &record, sizeof(record), 0, 0);
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "Leave hcsq_report_callback() \n");
}

// ^RSSI: 21
void rssi_report_callback(char* rptbuf, int32_t) {
  if (rptbuf == nullptr) {
    MDX_TRACE(kReportSource, MDX_TRACE_MISSING, "rssi_buf is empty.\n");
    return;
  }
  if (strstr(rptbuf, "^RSSI") == nullptr) {
    MDX_TRACE(kReportSource, MDX_TRACE_MISSING, "Buffer(%s) do not have ^RSSI\n", rptbuf);
    return;
  }
  const uint32_t rssi_length = MDX_strlen_s(rptbuf);
  if (rssi_length > MAX_ATCMD_REPORT_SIZE) {
    MDX_TRACE(kReportSource, MDX_TRACE_MISSING, "MAX_ATCMD_REPORT_SIZE < rssi_length\n");
    return;
  }

  at_answer_t& stored = mdx_rssi_report;
  memset_s(&stored, sizeof(stored), 0, sizeof(stored));
  memcpy_s(stored.snd_rcv_msg.rmsg, sizeof(stored.snd_rcv_msg.rmsg), rptbuf, rssi_length);
  stored.ret_val = AT_OK;
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "rssi buffer length: (%d) ,is : %s\n",
            static_cast<int>(rssi_length), rptbuf);
}

// ^LTESIGLEV:3
void ltesiglev_report_callback(char* rptbuf, int32_t) {
  if (rptbuf == nullptr) {
    MDX_TRACE(kReportSource, MDX_TRACE_MISSING, "ltesiglev is empty.\n");
    return;
  }
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "LTESIGLEV ltesiglev_report_callback=[%s]\n", rptbuf);
  struct {
    int32_t level;
  } value = {};
  static constexpr report_parse_t how = {
      "^LTESIGLEV", MDX_TRACE_ERROR,
      "ltesiglev_report_callback at_cmd_parse  error,and the ret = %d\n"};
  static constexpr report_field_t fields[] = {MDX_REPORT_FIELD("level", NUMBER, value, level)};
  if (read_fields(how, rptbuf, fields, &value) < 0) return;

  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "LTESIGLEV send to WiMAX level =[%d]\n",
            saturating_sum(value.level, 1));
}

// ^HFREQINFO:0,6,1,425,21525,15000,18425,19625,15000
void hfreqinfo_report_callback(char* rptbuf, int32_t) {
  if (rptbuf == nullptr) return;
  MDX_TRACE(kReportSource, MDX_TRACE_ERROR, "hfreqinfo_report_callback .\n");
  at_hfreqinfo_info record = {};
  static constexpr report_parse_t how = {"^HFREQINFO", MDX_TRACE_ERROR,
                                         "hfreqinfo_report_callback at_cmd_parse err id = %d.\n"};
  static constexpr report_field_t fields[] = {
      MDX_REPORT_FIELD("switch", NUMBER, record, switch_),
      MDX_REPORT_FIELD("sysmode", NUMBER, record, sysmode),
      MDX_REPORT_FIELD("band_class", NUMBER, record, band_class),
      MDX_REPORT_FIELD("dl_fcn1", NUMBER, record, dl_fcn1),
      MDX_REPORT_FIELD("dl_freq1", NUMBER, record, dl_freq1),
      MDX_REPORT_FIELD("dl_bw1", NUMBER, record, dl_bw1),
      MDX_REPORT_FIELD("ul_fcn1", NUMBER, record, ul_fcn1),
      MDX_REPORT_FIELD("ul_freq1", NUMBER, record, ul_freq1),
      MDX_REPORT_FIELD("ul_bw1", NUMBER, record, ul_bw1),
  };
  if (read_fields(how, rptbuf, fields, &record) < 0) return;

  MDX_post_notify_ex(NOTIFY_MODULE_16, EVT_AT_FREQ_INFO, &record, sizeof(record), 0, 0);
}

// ^NWTIME:18/12/13,06:20:04+28,00
void net_time_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "[net_time_report_callback] begin report time!\n");
  struct {
    char date[kTimeTextSize];  // yy/mm/dd
    char time[kTimeTextSize];  // hh:mm:ss+zz
  } text = {};
  static constexpr report_parse_t how = {
      "^NWTIME", MDX_TRACE_FLOW, "net_time_report_callback at_cmd_parse error,and the ret = %d\n"};
  static constexpr report_field_t fields[] = {
      MDX_REPORT_FIELD("date", TEXT, text, date),
      MDX_REPORT_FIELD("time", TEXT, text, time),
  };
  const int32_t walked = read_fields(how, rptbuf, fields, &text);
  if (walked < 0) return;
  if (walked > 0) MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "at_dend_result is not null\n");

  at_nwtime_info at_nwtime_info = {};
  at_time_val& time_val = at_nwtime_info.time_val;
  time_val.tm_year = saturating_sum(safe_atoi(text.date), 2000);
  time_val.tm_mon = safe_atoi(text.date + 3);
  time_val.tm_mday = safe_atoi(text.date + 6);
  time_val.tm_hour = safe_atoi(text.time);
  time_val.tm_min = safe_atoi(text.time + 3);
  time_val.tm_sec = safe_atoi(text.time + 6);
  at_nwtime_info.time_zone = safe_atoi(text.time + 8);
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW,
            "at_nwtime_info.time_val.tm_year = %d%02d%02d,%02d:%02d:%02d,%02d.\n", time_val.tm_year,
            time_val.tm_mon, time_val.tm_mday, time_val.tm_hour, time_val.tm_min, time_val.tm_sec,
            at_nwtime_info.time_zone);
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "send time to RUT_MDL_DEVICE!\n");
  MDX_post_notify_ex(RUT_MDL_DEVICE, EVT_AT_NETWORK_TIME, &at_nwtime_info, sizeof(at_nwtime_info),
                     0, 0);
}

// ^APROAMRPT:1
void aproaming_report_callback(char* rptbuf, int32_t) {
  struct {
    int32_t status;
  } value = {-1};
  static constexpr report_parse_t how = {"^APROAMRPT", MDX_TRACE_FLOW,
                                         "aproaming_report_callback, error,and the ret = %d"};
  static constexpr report_field_t fields[] = {
      MDX_REPORT_FIELD("roaming_status", NUMBER, value, status)};
  if (read_fields(how, rptbuf, fields, &value) < 0) return;

  MDX_TRACE(kReportSource, MDX_TRACE_FLOW,
            "aproaming_report_callback send notify to net and oled begin...\n");
  if (value.status == 0) MDX_post_notify(NOTIFY_MODULE_7, EVT_AT_ROAMING_STATUS_0, 0, 0);
  if (value.status == 1) MDX_post_notify(NOTIFY_MODULE_7, EVT_AT_ROAMING_STATUS_1, 0, 0);
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW,
            "aproaming_report_callback send notify to net and oled end\n");
}

// ^REJINFO:46000,1,40,2,3,40,"0026F8","FF","0A444202"
void rejinfo_report_callback(char* rptbuf, int32_t) {
  if (rptbuf == nullptr) {
    MDX_TRACE(kReportSource, MDX_TRACE_ERROR, "rejinfo_report_callback report_buf is null.\n");
    return;
  }
  MDX_TRACE(kReportSource, MDX_TRACE_ERROR, "rejinfo_report_callback start.\n");
  if (strstr(rptbuf, "^REJINFO") == nullptr) {
    MDX_TRACE(kReportSource, MDX_TRACE_ERROR,
              "rejinfo_report_callback do not find report_buf flag.\n");
    return;
  }
  MDX_TRACE(kReportSource, MDX_TRACE_ERROR, "rejinfo_report_callback find report_buf flag.\n");

  at_rejinfo_info record = {};
  record.id = 59;
  static constexpr report_parse_t how = {
      "^REJINFO", MDX_TRACE_ERROR, "rejinfo_report_callback at_cmd_parse error,and the ret = %d\n"};
  static constexpr report_field_t fields[] = {MDX_REPORT_TAKEN("")};
  if (read_fields(how, rptbuf, fields, &record, take_rejinfo_field) < 0) return;

  MDX_TRACE(kReportSource, MDX_TRACE_ERROR, "rejinfo_report_callback end.\n");
}
