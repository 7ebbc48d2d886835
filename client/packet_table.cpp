// SPDX-License-Identifier: Apache-2.0

#include "client/packet_table.h"

#include <iterator>
#include <string_view>
#include <type_traits>

#include "client/mdxclient.h"
#include "wire/call_records.h"
#include "wire/destinations.h"
#include "wire/report_records.h"

namespace {

template <typename T>
constexpr uint8_t kind_of() {
  if (std::is_array_v<T>) return MDX_FIELD_TEXT;
  static_assert(!std::is_signed_v<T> || sizeof(T) == sizeof(int32_t));
  return std::is_signed_v<T> ? MDX_FIELD_NUMBER : MDX_FIELD_UNSIGNED;
}

static_assert(int(MDX_LINK_UP) == int(LINK_MSG_UP) && int(MDX_LINK_GONE) == int(LINK_MSG_GONE));

// clang-format off
#define FIELD(payload, record, member, name, unit) \
  {payload, name, offsetof(record, member), sizeof(record::member), kind_of<decltype(record::member)>(), unit}

constexpr field_row_t kFields[] = {
  FIELD(CONN,           dialup_conn_msg,               cid,              "cid",           NO_UNIT),
  FIELD(CONN,           dialup_conn_msg,               err_code,         "err_code",      NO_UNIT),
  FIELD(NET_CHANGE,     dialup_net_change_msg,         status,           "status",        NO_UNIT),
  FIELD(FLOW_CMS,       at_dsflow_cms_info,            tx_rate,          "tx_rate",       BYTES_PER_S),
  FIELD(FLOW_CMS,       at_dsflow_cms_info,            rx_rate,          "rx_rate",       BYTES_PER_S),
  FIELD(FLOW_CMS,       at_dsflow_cms_info,            curr_tx_flow,     "curr_tx_flow",  BYTES),
  FIELD(FLOW_CMS,       at_dsflow_cms_info,            curr_rx_flow,     "curr_rx_flow",  BYTES),
  FIELD(FLOW,           at_dsflow_info,                curr_ds_time,     "curr_ds_time",  SECONDS),
  FIELD(FLOW,           at_dsflow_info,                tx_rate,          "tx_rate",       BYTES_PER_S),
  FIELD(FLOW,           at_dsflow_info,                rx_rate,          "rx_rate",       BYTES_PER_S),
  FIELD(FLOW,           at_dsflow_info,                curr_tx_flow,     "curr_tx_flow",  BYTES),
  FIELD(FLOW,           at_dsflow_info,                curr_rx_flow,     "curr_rx_flow",  BYTES),
  FIELD(FLOW,           at_dsflow_info,                qos_tx_rate,      "qos_tx_rate",   BYTES_PER_S),
  FIELD(FLOW,           at_dsflow_info,                qos_rx_rate,      "qos_rx_rate",   BYTES_PER_S),
  FIELD(HCSQ,           at_hcsq_info,                  sysmode,          "sysmode",       NO_UNIT),
  FIELD(HCSQ,           at_hcsq_info,                  value1,           "value1",        NO_UNIT),
  FIELD(HCSQ,           at_hcsq_info,                  value2,           "value2",        NO_UNIT),
  FIELD(HCSQ,           at_hcsq_info,                  value3,           "value3",        NO_UNIT),
  FIELD(HCSQ,           at_hcsq_info,                  value4,           "value4",        NO_UNIT),
  FIELD(HCSQ,           at_hcsq_info,                  value5,           "value5",        NO_UNIT),
  FIELD(FREQ,           at_hfreqinfo_info,             switch_,          "switch",        NO_UNIT),
  FIELD(FREQ,           at_hfreqinfo_info,             sysmode,          "sysmode",       NO_UNIT),
  FIELD(FREQ,           at_hfreqinfo_info,             band_class,       "band_class",    NO_UNIT),
  FIELD(FREQ,           at_hfreqinfo_info,             dl_fcn1,          "dl_fcn1",       NO_UNIT),
  FIELD(FREQ,           at_hfreqinfo_info,             dl_freq1,         "dl_freq1",      NO_UNIT),
  FIELD(FREQ,           at_hfreqinfo_info,             dl_bw1,           "dl_bw1",        NO_UNIT),
  FIELD(FREQ,           at_hfreqinfo_info,             ul_fcn1,          "ul_fcn1",       NO_UNIT),
  FIELD(FREQ,           at_hfreqinfo_info,             ul_freq1,         "ul_freq1",      NO_UNIT),
  FIELD(FREQ,           at_hfreqinfo_info,             ul_bw1,           "ul_bw1",        NO_UNIT),
  FIELD(NETWORK_TIME,   at_nwtime_info,                time_val.tm_sec,  "tm_sec",        NO_UNIT),
  FIELD(NETWORK_TIME,   at_nwtime_info,                time_val.tm_min,  "tm_min",        NO_UNIT),
  FIELD(NETWORK_TIME,   at_nwtime_info,                time_val.tm_hour, "tm_hour",       NO_UNIT),
  FIELD(NETWORK_TIME,   at_nwtime_info,                time_val.tm_mday, "tm_mday",       NO_UNIT),
  FIELD(NETWORK_TIME,   at_nwtime_info,                time_val.tm_mon,  "tm_mon",        NO_UNIT),
  FIELD(NETWORK_TIME,   at_nwtime_info,                time_val.tm_year, "tm_year",       NO_UNIT),
  FIELD(NETWORK_TIME,   at_nwtime_info,                time_zone,        "time_zone",     QUARTER_HOURS),
  FIELD(NORSTFACT,      at_norstfact_info,             value,            "value",         NO_UNIT),
  FIELD(SMS_CONTENT,    at_sms_content_info,           id,               "id",            NO_UNIT),
  FIELD(SMS_CONTENT,    at_sms_content_info,           length,           "length",        NO_UNIT),
  FIELD(SMS_CONTENT,    at_sms_content_info,           pdu,              "pdu",           NO_UNIT),
  FIELD(SMS_INDEX,      at_sms_index_info,             id,               "id",            NO_UNIT),
  FIELD(SMS_INDEX,      at_sms_index_info,             mem,              "mem",           NO_UNIT),
  FIELD(SMS_INDEX,      at_sms_index_info,             index,            "index",         NO_UNIT),
  FIELD(SMS_SENT,       at_sms_sent_info,              sent.id,          "id",            NO_UNIT),
  FIELD(SMS_SENT,       at_sms_sent_info,              sent.mr,          "mr",            NO_UNIT),
  FIELD(SMS_NOT_SENT,   at_sms_send_info,              id,               "id",            NO_UNIT),
  FIELD(SMS_NOT_SENT,   at_sms_send_info,              errCode,          "errCode",       NO_UNIT),
  FIELD(SIM,            at_sim_values,                 sim_state,        "sim_state",     NO_UNIT),
  FIELD(SIM,            at_sim_values,                 lock_state,       "lock_state",    NO_UNIT),
  FIELD(SIM_WITH_ID,    at_sim_state_info,             id,               "id",            NO_UNIT),
  FIELD(SIM_WITH_ID,    at_sim_state_info,             sim.sim_state,    "sim_state",     NO_UNIT),
  FIELD(SIM_WITH_ID,    at_sim_state_info,             sim.lock_state,   "lock_state",    NO_UNIT),
  FIELD(USSD,           at_ussd_info,                  rspType,          "rspType",       NO_UNIT),
  FIELD(USSD,           at_ussd_info,                  cusdStr,          "cusdStr",       NO_UNIT),
  FIELD(USSD,           at_ussd_info,                  cusdStrLen,       "cusdStrLen",    BYTES),
  FIELD(USSD,           at_ussd_info,                  codeType,         "codeType",      NO_UNIT),
  FIELD(STK,            at_stin_info,                  cmdTpye,          "cmdTpye",       NO_UNIT),
  FIELD(STK,            at_stin_info,                  cmdIndex,         "cmdIndex",      NO_UNIT),
  FIELD(STK,            at_stin_info,                  isTimeOut,        "isTimeOut",     NO_UNIT),
  FIELD(RING,           cs_ring_info,                  ringing,          "ringing",       NO_UNIT),
  FIELD(CALL,           mdx_call_record_t,             call_id,          "call_id",       NO_UNIT),
  FIELD(CALL,           mdx_call_record_t,             call_type,        "call_type",     NO_UNIT),
  FIELD(CALL_ALERTED,   mdx_call_alerted_record_t,     call_id,          "call_id",       NO_UNIT),
  FIELD(CALL_END,       mdx_call_end_record_t,         call_id,          "call_id",       NO_UNIT),
  FIELD(CALL_END,       mdx_call_end_record_t,         duration,         "duration",      SECONDS),
  FIELD(CALL_END,       mdx_call_end_record_t,         end_status,       "end_status",    NO_UNIT),
  FIELD(CALL_END,       mdx_call_end_record_t,         cause,            "cause",         NO_UNIT),
  FIELD(CALLER,         mdx_caller_record_t,           number,           "number",        NO_UNIT),
  FIELD(CALLER,         mdx_caller_record_t,           type,             "type",          NO_UNIT),
  FIELD(CALLER,         mdx_caller_record_t,           service_class,    "service_class", NO_UNIT),
  FIELD(CALLER,         mdx_caller_record_t,           cli_validity,     "cli_validity",  NO_UNIT),
  FIELD(CALL_STATE,     mdx_call_state_record_t,       call_id,          "call_id",       NO_UNIT),
  FIELD(CALL_STATE,     mdx_call_state_record_t,       state,            "state",         NO_UNIT),
  FIELD(CALL_STATE,     mdx_call_state_record_t,       voice_domain,     "voice_domain",  NO_UNIT),
  FIELD(EMERGENCY,      mdx_emergency_number_record_t, index,            "index",         NO_UNIT),
  FIELD(EMERGENCY,      mdx_emergency_number_record_t, total,            "total",         NO_UNIT),
  FIELD(EMERGENCY,      mdx_emergency_number_record_t, number,           "number",        NO_UNIT),
  FIELD(EMERGENCY,      mdx_emergency_number_record_t, category,         "category",      NO_UNIT),
  FIELD(EMERGENCY,      mdx_emergency_number_record_t, sim_present,      "sim_present",   NO_UNIT),
  FIELD(EMERGENCY,      mdx_emergency_number_record_t, mcc,              "mcc",           NO_UNIT),
  FIELD(SPEECH_CHANNEL, mdx_speech_channel_record_t,   status,           "status",        NO_UNIT),
  FIELD(SPEECH_CHANNEL, mdx_speech_channel_record_t,   voice_domain,     "voice_domain",  NO_UNIT),
};

#define NOTIFICATION(module, event) MDX_KIND_NOTIFICATION, "", module, event, #event
#define SERVICE(service, message) MDX_KIND_SERVICE, service, 0, message, #message
#define VOICE(type) MDX_KIND_VOICE, "voice", type, VOICE_MSG, #type

constexpr packet_row_t kPackets[] = {
  {SERVICE("dialup", DIALUP_MSG_V4_UP),                    sizeof(dialup_conn_msg),               CONN,           "",          ""           },
  {SERVICE("dialup", DIALUP_MSG_V4_DOWN),                  sizeof(dialup_conn_msg),               CONN,           "",          ""           },
  {SERVICE("dialup", DIALUP_MSG_V6_UP),                    sizeof(dialup_conn_msg),               CONN,           "",          ""           },
  {SERVICE("dialup", DIALUP_MSG_V6_DOWN),                  sizeof(dialup_conn_msg),               CONN,           "",          ""           },
  {SERVICE("dialup", DIALUP_MSG_NET_CHANGE),               sizeof(dialup_net_change_msg),         NET_CHANGE,     "",          ""           },
  {SERVICE("dialup", DIALUP_MSG_NET_CHANGE),               0,                                     NOTHING,        "",          ""           },
  {SERVICE("cms", CMS_MSG_DATACARD_INSERTED),              0,                                     NOTHING,        "",          ""           },
  {SERVICE("cms", CMS_MSG_FLOW_REPORT),                    sizeof(at_dsflow_cms_info),            FLOW_CMS,       "",          ""           },
  {SERVICE("cms", CMS_MSG_MMI_ENTER),                      0,                                     NOTHING,        "",          ""           },
  {SERVICE("link", MDX_LINK_UP),                           0,                                     NOTHING,        "",          ""           },
  {SERVICE("link", MDX_LINK_GONE),                         0,                                     NOTHING,        "",          ""           },

  {NOTIFICATION(NOTIFY_MODULE_1, EVT_AT_SMS_MEM_FULL),     0,                                     NOTHING,        "",          ""           },
  {NOTIFICATION(NOTIFY_MODULE_1, EVT_AT_SMS_NEW),          sizeof(at_sms_content_info),           SMS_CONTENT,    "",          ""           },
  {NOTIFICATION(NOTIFY_MODULE_1, EVT_AT_SMS_NEW),          sizeof(at_sms_index_info),             SMS_INDEX,      "",          ""           },
  {NOTIFICATION(NOTIFY_MODULE_1, EVT_AT_SMS_SEND_RESULT),  sizeof(at_sms_sent_info),              SMS_SENT,       "",          ""           },
  {NOTIFICATION(NOTIFY_MODULE_1, EVT_AT_SMS_SEND_RESULT),  sizeof(at_sms_send_info),              SMS_NOT_SENT,   "",          ""           },
  {NOTIFICATION(NOTIFY_MODULE_2, EVT_AT_USSD),             sizeof(at_ussd_info),                  USSD,           "",          ""           },
  {NOTIFICATION(NOTIFY_MODULE_4, EVT_AT_SIM_STATE_4),      0,                                     NOTHING,        "sim_state", "lock_state" },
  {NOTIFICATION(NOTIFY_MODULE_6, EVT_AT_SIM_STATE_6),      sizeof(at_sim_values),                 SIM,            "",          ""           },
  {NOTIFICATION(NOTIFY_MODULE_7, EVT_AT_ROAMING_STATUS_0), 0,                                     NOTHING,        "",          ""           },
  {NOTIFICATION(NOTIFY_MODULE_7, EVT_AT_ROAMING_STATUS_1), 0,                                     NOTHING,        "",          ""           },
  {NOTIFICATION(NOTIFY_MODULE_7, EVT_AT_EONS),             0,                                     NOTHING,        "",          ""           },
  {NOTIFICATION(NOTIFY_MODULE_7, EVT_AT_SIM_REFRESH),      0,                                     NOTHING,        "file_type", ""           },
  {NOTIFICATION(RUT_MDL_DEVICE, EVT_AT_NETWORK_TIME),      sizeof(at_nwtime_info),                NETWORK_TIME,   "",          ""           },
  {NOTIFICATION(RUT_MDL_DEVICE, EVT_AT_FACTORY),           0,                                     NOTHING,        "value",     ""           },
  {NOTIFICATION(RUT_MDL_DEVICE, EVT_AT_SIM_STATE_9),       0,                                     NOTHING,        "sim_state", "lock_state" },
  {NOTIFICATION(RUT_MDL_DEVICE, EVT_AT_NO_SERVICE),        0,                                     NOTHING,        "",          ""           },
  {NOTIFICATION(RUT_MDL_DEVICE, EVT_AT_MACHINE_TEMP),      0,                                     NOTHING,        "event",     "parameter"  },
  {NOTIFICATION(NOTIFY_MODULE_16, EVT_AT_FREQ_INFO),       sizeof(at_hfreqinfo_info),             FREQ,           "",          ""           },
  {NOTIFICATION(NOTIFY_MODULE_18, EVT_AT_FLOW_REPORT),     sizeof(at_dsflow_info),                FLOW,           "",          ""           },
  {NOTIFICATION(NOTIFY_MODULE_19, EVT_AT_SYS_MODE),        0,                                     NOTHING,        "sys_mode",  "sys_submode"},
  {NOTIFICATION(NOTIFY_MODULE_19, EVT_AT_SIM_STATE_19),    0,                                     NOTHING,        "sim_state", "lock_state" },
  {NOTIFICATION(NOTIFY_MODULE_19, EVT_AT_REG_CHANGE),      0,                                     NOTHING,        "",          ""           },
  {NOTIFICATION(NOTIFY_MODULE_19, EVT_AT_SIGNAL_LEVEL),    0,                                     NOTHING,        "level",     ""           },
  {NOTIFICATION(NOTIFY_MODULE_19, EVT_AT_HCSQ),            sizeof(at_hcsq_info),                  HCSQ,           "",          ""           },
  {NOTIFICATION(NOTIFY_MODULE_27, EVT_AT_SIM_STATE_27),    sizeof(at_sim_state_info),             SIM_WITH_ID,    "",          ""           },
  {NOTIFICATION(NOTIFY_MODULE_33, EVT_AT_STK_IND),         sizeof(at_stin_info),                  STK,            "",          ""           },
  {NOTIFICATION(NOTIFY_MODULE_55, EVT_AT_WAKEUP_IN),       0,                                     NOTHING,        "value",     ""           },
  {NOTIFICATION(NOTIFY_MODULE_74, EVT_AT_NORSTFACT),       sizeof(at_norstfact_info),             NORSTFACT,      "",          ""           },

  {VOICE(VOICE_ORIG),                                      sizeof(mdx_call_record_t),             CALL,           "",          ""           },
  {VOICE(VOICE_CLIP),                                      sizeof(mdx_caller_record_t),           CALLER,         "",          ""           },
  {VOICE(VOICE_RING),                                      sizeof(cs_ring_info),                  RING,           "",          ""           },
  {VOICE(VOICE_CONF),                                      sizeof(mdx_call_alerted_record_t),     CALL_ALERTED,   "",          ""           },
  {VOICE(VOICE_CONN),                                      sizeof(mdx_call_record_t),             CALL,           "",          ""           },
  {VOICE(VOICE_CEND),                                      sizeof(mdx_call_end_record_t),         CALL_END,       "",          ""           },
  {VOICE(VOICE_CCWA),                                      sizeof(mdx_caller_record_t),           CALLER,         "",          ""           },
  {VOICE(VOICE_CCALLSTATE),                                sizeof(mdx_call_state_record_t),       CALL_STATE,     "",          ""           },
  {VOICE(VOICE_XLEMA),                                     sizeof(mdx_emergency_number_record_t), EMERGENCY,      "",          ""           },
  {VOICE(VOICE_CSCHANNELINFO),                             sizeof(mdx_speech_channel_record_t),   SPEECH_CHANNEL, "",          ""           },
};

constexpr struct { uint32_t number; char name[17]; } kModules[] = {
  {NOTIFY_MODULE_1,  "NOTIFY_MODULE_1" },
  {NOTIFY_MODULE_2,  "NOTIFY_MODULE_2" },
  {NOTIFY_MODULE_4,  "NOTIFY_MODULE_4" },
  {NOTIFY_MODULE_6,  "NOTIFY_MODULE_6" },
  {NOTIFY_MODULE_7,  "NOTIFY_MODULE_7" },
  {RUT_MDL_DEVICE,   "RUT_MDL_DEVICE"  },
  {NOTIFY_MODULE_16, "NOTIFY_MODULE_16"},
  {NOTIFY_MODULE_18, "NOTIFY_MODULE_18"},
  {NOTIFY_MODULE_19, "NOTIFY_MODULE_19"},
  {NOTIFY_MODULE_27, "NOTIFY_MODULE_27"},
  {NOTIFY_MODULE_33, "NOTIFY_MODULE_33"},
  {NOTIFY_MODULE_55, "NOTIFY_MODULE_55"},
  {NOTIFY_MODULE_74, "NOTIFY_MODULE_74"},
};

constexpr char kUnits[][14] = {"", "B", "B/s", "s", "quarter hours"};
// clang-format on

/// Whether the fields of a payload stand together, in the order of its bytes.
constexpr bool fields_are_in_order() {
  for (const field_row_t* field = kFields; field + 1 != std::end(kFields); ++field) {
    const field_row_t& next = field[1];
    const int end = field->offset + field->width;
    if (next.payload < field->payload) return false;
    if (next.payload == field->payload && next.offset < end) return false;
  }
  return true;
}
static_assert(fields_are_in_order());

constexpr bool fields_fit() {
  for (const packet_row_t& row : kPackets) {
    for (const field_row_t& field : kFields) {
      if (field.payload == row.payload && field.offset + field.width > row.length) return false;
    }
  }
  return true;
}
static_assert(fields_fit());

constexpr bool same_packet(const packet_row_t& one, const packet_row_t& other) {
  return one.kind == other.kind && one.number == other.number && one.type == other.type &&
         std::string_view(one.to) == other.to && one.length == other.length;
}

constexpr bool rows_differ() {
  for (const packet_row_t& row : kPackets) {
    for (const packet_row_t* other = &row + 1; other != std::end(kPackets); ++other) {
      if (same_packet(row, *other)) return false;
    }
  }
  return true;
}
static_assert(rows_differ());

}  // namespace

std::span<const packet_row_t> packet_rows() { return kPackets; }

std::span<const field_row_t> field_rows() { return kFields; }

const char* unit_name(unit_t unit) { return kUnits[unit]; }

const char* mdx_module_name(uint32_t module) {
  for (const auto& row : kModules) {
    if (row.number == module) return row.name;
  }
  return nullptr;
}
