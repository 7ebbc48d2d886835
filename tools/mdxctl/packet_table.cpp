// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxctl/packet_table.h"

#include <iterator>
#include <string_view>
#include <type_traits>

#include "client/mdxclient.h"
#include "wire/call_records.h"
#include "wire/destinations.h"
#include "wire/report_records.h"

namespace {

template <typename T>
constexpr value_kind_t kind_of() {
  if (std::is_array_v<T>) return VALUE_TEXT;
  return std::is_signed_v<T> ? VALUE_SIGNED : VALUE_UNSIGNED;
}

#define FIELD(record, member, unit)                            \
  {                                                            \
#member, offsetof(record, member), sizeof(record::member), \
        kind_of < decltype(record::member)>(), unit            \
  }

// clang-format off
constexpr value_row_t kConn[] = {
  FIELD(dialup_conn_msg, cid,      ""),
  FIELD(dialup_conn_msg, err_code, ""),
};
constexpr value_row_t kNetChange[] = {
  FIELD(dialup_net_change_msg, status, ""),
};
constexpr value_row_t kFlowCms[] = {
  FIELD(at_dsflow_cms_info, tx_rate,      "B/s"),
  FIELD(at_dsflow_cms_info, rx_rate,      "B/s"),
  FIELD(at_dsflow_cms_info, curr_tx_flow, "B"),
  FIELD(at_dsflow_cms_info, curr_rx_flow, "B"),
};
constexpr value_row_t kFlow[] = {
  FIELD(at_dsflow_info, curr_ds_time, "s"),
  FIELD(at_dsflow_info, tx_rate,      "B/s"),
  FIELD(at_dsflow_info, rx_rate,      "B/s"),
  FIELD(at_dsflow_info, curr_tx_flow, "B"),
  FIELD(at_dsflow_info, curr_rx_flow, "B"),
  FIELD(at_dsflow_info, qos_tx_rate,  "B/s"),
  FIELD(at_dsflow_info, qos_rx_rate,  "B/s"),
};
constexpr value_row_t kHcsq[] = {
  FIELD(at_hcsq_info, sysmode, ""),
  FIELD(at_hcsq_info, value1,  ""),
  FIELD(at_hcsq_info, value2,  ""),
  FIELD(at_hcsq_info, value3,  ""),
  FIELD(at_hcsq_info, value4,  ""),
  FIELD(at_hcsq_info, value5,  ""),
};
constexpr value_row_t kFreq[] = {
  {"switch", offsetof(at_hfreqinfo_info, switch_), sizeof(int32_t), VALUE_SIGNED, ""},
  FIELD(at_hfreqinfo_info, sysmode,    ""),
  FIELD(at_hfreqinfo_info, band_class, ""),
  FIELD(at_hfreqinfo_info, dl_fcn1,    ""),
  FIELD(at_hfreqinfo_info, dl_freq1,   ""),
  FIELD(at_hfreqinfo_info, dl_bw1,     ""),
  FIELD(at_hfreqinfo_info, ul_fcn1,    ""),
  FIELD(at_hfreqinfo_info, ul_freq1,   ""),
  FIELD(at_hfreqinfo_info, ul_bw1,     ""),
};
static_assert(offsetof(at_nwtime_info, time_val) == 0);
constexpr value_row_t kNetworkTime[] = {
  FIELD(at_time_val, tm_year, ""),
  FIELD(at_time_val, tm_mon,  ""),
  FIELD(at_time_val, tm_mday, ""),
  FIELD(at_time_val, tm_hour, ""),
  FIELD(at_time_val, tm_min,  ""),
  FIELD(at_time_val, tm_sec,  ""),
  FIELD(at_nwtime_info, time_zone, "quarter hours"),
};
constexpr value_row_t kNorstfact[] = {
  FIELD(at_norstfact_info, value, ""),
};
constexpr value_row_t kSmsContent[] = {
  FIELD(at_sms_content_info, id,     ""),
  FIELD(at_sms_content_info, length, ""),
  FIELD(at_sms_content_info, pdu,    ""),
};
constexpr value_row_t kSmsIndex[] = {
  FIELD(at_sms_index_info, id,    ""),
  FIELD(at_sms_index_info, mem,   ""),
  FIELD(at_sms_index_info, index, ""),
};
static_assert(offsetof(at_sms_sent_info, sent) == 0);
constexpr value_row_t kSmsSent[] = {
  FIELD(at_sms_send_info, id, ""),
  FIELD(at_sms_send_info, mr, ""),
};
constexpr value_row_t kSmsNotSent[] = {
  FIELD(at_sms_send_info, id,      ""),
  FIELD(at_sms_send_info, errCode, ""),
};
constexpr value_row_t kSim[] = {
  FIELD(at_sim_values, sim_state,  ""),
  FIELD(at_sim_values, lock_state, ""),
};
constexpr value_row_t kSimWithId[] = {
  FIELD(at_sim_state_info, id, ""),
  {"sim_state",  offsetof(at_sim_state_info, sim.sim_state),  sizeof(int32_t), VALUE_SIGNED, ""},
  {"lock_state", offsetof(at_sim_state_info, sim.lock_state), sizeof(int32_t), VALUE_SIGNED, ""},
};
constexpr value_row_t kUssd[] = {
  FIELD(at_ussd_info, rspType,    ""),
  FIELD(at_ussd_info, cusdStr,    ""),
  FIELD(at_ussd_info, cusdStrLen, "B"),
  FIELD(at_ussd_info, codeType,   ""),
};
constexpr value_row_t kStk[] = {
  FIELD(at_stin_info, cmdTpye,   ""),
  FIELD(at_stin_info, cmdIndex,  ""),
  FIELD(at_stin_info, isTimeOut, ""),
};
constexpr value_row_t kRing[] = {
  FIELD(cs_ring_info, ringing, ""),
};
constexpr value_row_t kCall[] = {
  FIELD(mdx_call_record_t, call_id,   ""),
  FIELD(mdx_call_record_t, call_type, ""),
};
constexpr value_row_t kCallAlerted[] = {
  FIELD(mdx_call_alerted_record_t, call_id, ""),
};
constexpr value_row_t kCallEnd[] = {
  FIELD(mdx_call_end_record_t, call_id,    ""),
  FIELD(mdx_call_end_record_t, duration,   "s"),
  FIELD(mdx_call_end_record_t, end_status, ""),
  FIELD(mdx_call_end_record_t, cause,      ""),
};
constexpr value_row_t kCaller[] = {
  FIELD(mdx_caller_record_t, number,        ""),
  FIELD(mdx_caller_record_t, type,          ""),
  FIELD(mdx_caller_record_t, service_class, ""),
  FIELD(mdx_caller_record_t, cli_validity,  ""),
};
constexpr value_row_t kCallState[] = {
  FIELD(mdx_call_state_record_t, call_id,      ""),
  FIELD(mdx_call_state_record_t, state,        ""),
  FIELD(mdx_call_state_record_t, voice_domain, ""),
};
constexpr value_row_t kEmergency[] = {
  FIELD(mdx_emergency_number_record_t, index,       ""),
  FIELD(mdx_emergency_number_record_t, total,       ""),
  FIELD(mdx_emergency_number_record_t, number,      ""),
  FIELD(mdx_emergency_number_record_t, category,    ""),
  FIELD(mdx_emergency_number_record_t, sim_present, ""),
  FIELD(mdx_emergency_number_record_t, mcc,         ""),
};
constexpr value_row_t kSpeechChannel[] = {
  FIELD(mdx_speech_channel_record_t, status,       ""),
  FIELD(mdx_speech_channel_record_t, voice_domain, ""),
};

#define NOTIFICATION(module, event) MDX_KIND_NOTIFICATION, nullptr, module, event, #event
#define SERVICE(service, message) MDX_KIND_SERVICE, service, 0, message, #message
#define VOICE(type) MDX_KIND_VOICE, "voice", type, VOICE_MSG, #type

constexpr packet_row_t kPackets[] = {
  {SERVICE("dialup", DIALUP_MSG_V4_UP),       sizeof(dialup_conn_msg),       nullptr, nullptr, kConn},
  {SERVICE("dialup", DIALUP_MSG_V4_DOWN),     sizeof(dialup_conn_msg),       nullptr, nullptr, kConn},
  {SERVICE("dialup", DIALUP_MSG_V6_UP),       sizeof(dialup_conn_msg),       nullptr, nullptr, kConn},
  {SERVICE("dialup", DIALUP_MSG_V6_DOWN),     sizeof(dialup_conn_msg),       nullptr, nullptr, kConn},
  {SERVICE("dialup", DIALUP_MSG_NET_CHANGE),  sizeof(dialup_net_change_msg), nullptr, nullptr, kNetChange},
  {SERVICE("dialup", DIALUP_MSG_NET_CHANGE),  0,                             nullptr, nullptr, {}},
  {SERVICE("cms", CMS_MSG_DATACARD_INSERTED), 0,                             nullptr, nullptr, {}},
  {SERVICE("cms", CMS_MSG_FLOW_REPORT),       sizeof(at_dsflow_cms_info),    nullptr, nullptr, kFlowCms},
  {SERVICE("cms", CMS_MSG_MMI_ENTER),         0,                             nullptr, nullptr, {}},

  {NOTIFICATION(NOTIFY_MODULE_1, EVT_AT_SMS_MEM_FULL),      0,                           nullptr, nullptr, {}},
  {NOTIFICATION(NOTIFY_MODULE_1, EVT_AT_SMS_NEW),           sizeof(at_sms_content_info), nullptr, nullptr, kSmsContent},
  {NOTIFICATION(NOTIFY_MODULE_1, EVT_AT_SMS_NEW),           sizeof(at_sms_index_info),   nullptr, nullptr, kSmsIndex},
  {NOTIFICATION(NOTIFY_MODULE_1, EVT_AT_SMS_SEND_RESULT),   sizeof(at_sms_sent_info),    nullptr, nullptr, kSmsSent},
  {NOTIFICATION(NOTIFY_MODULE_1, EVT_AT_SMS_SEND_RESULT),   sizeof(at_sms_send_info),    nullptr, nullptr, kSmsNotSent},
  {NOTIFICATION(NOTIFY_MODULE_2, EVT_AT_USSD),              sizeof(at_ussd_info),        nullptr, nullptr, kUssd},
  {NOTIFICATION(NOTIFY_MODULE_4, EVT_AT_SIM_STATE_4),       0,                           "sim_state", "lock_state", {}},
  {NOTIFICATION(NOTIFY_MODULE_6, EVT_AT_SIM_STATE_6),       sizeof(at_sim_values),       nullptr, nullptr, kSim},
  {NOTIFICATION(NOTIFY_MODULE_7, EVT_AT_ROAMING_STATUS_0),  0,                           nullptr, nullptr, {}},
  {NOTIFICATION(NOTIFY_MODULE_7, EVT_AT_ROAMING_STATUS_1),  0,                           nullptr, nullptr, {}},
  {NOTIFICATION(NOTIFY_MODULE_7, EVT_AT_EONS),              0,                           nullptr, nullptr, {}},
  {NOTIFICATION(NOTIFY_MODULE_7, EVT_AT_SIM_REFRESH),       0,                           "file_type", nullptr, {}},
  {NOTIFICATION(RUT_MDL_DEVICE, EVT_AT_NETWORK_TIME),       sizeof(at_nwtime_info),      nullptr, nullptr, kNetworkTime},
  {NOTIFICATION(RUT_MDL_DEVICE, EVT_AT_FACTORY),            0,                           "value", nullptr, {}},
  {NOTIFICATION(RUT_MDL_DEVICE, EVT_AT_SIM_STATE_9),        0,                           "sim_state", "lock_state", {}},
  {NOTIFICATION(RUT_MDL_DEVICE, EVT_AT_NO_SERVICE),         0,                           nullptr, nullptr, {}},
  {NOTIFICATION(RUT_MDL_DEVICE, EVT_AT_MACHINE_TEMP),       0,                           "event", "parameter", {}},
  {NOTIFICATION(NOTIFY_MODULE_16, EVT_AT_FREQ_INFO),        sizeof(at_hfreqinfo_info),   nullptr, nullptr, kFreq},
  {NOTIFICATION(NOTIFY_MODULE_18, EVT_AT_FLOW_REPORT),      sizeof(at_dsflow_info),      nullptr, nullptr, kFlow},
  {NOTIFICATION(NOTIFY_MODULE_19, EVT_AT_SYS_MODE),         0,                           "sys_mode", "sys_submode", {}},
  {NOTIFICATION(NOTIFY_MODULE_19, EVT_AT_SIM_STATE_19),     0,                           "sim_state", "lock_state", {}},
  {NOTIFICATION(NOTIFY_MODULE_19, EVT_AT_REG_CHANGE),       0,                           nullptr, nullptr, {}},
  {NOTIFICATION(NOTIFY_MODULE_19, EVT_AT_SIGNAL_LEVEL),     0,                           "level", nullptr, {}},
  {NOTIFICATION(NOTIFY_MODULE_19, EVT_AT_HCSQ),             sizeof(at_hcsq_info),        nullptr, nullptr, kHcsq},
  {NOTIFICATION(NOTIFY_MODULE_27, EVT_AT_SIM_STATE_27),     sizeof(at_sim_state_info),   nullptr, nullptr, kSimWithId},
  {NOTIFICATION(NOTIFY_MODULE_33, EVT_AT_STK_IND),          sizeof(at_stin_info),        nullptr, nullptr, kStk},
  {NOTIFICATION(NOTIFY_MODULE_55, EVT_AT_WAKEUP_IN),        0,                           "value", nullptr, {}},
  {NOTIFICATION(NOTIFY_MODULE_74, EVT_AT_NORSTFACT),        sizeof(at_norstfact_info),   nullptr, nullptr, kNorstfact},

  {VOICE(VOICE_ORIG),          sizeof(mdx_call_record_t),             nullptr, nullptr, kCall},
  {VOICE(VOICE_CLIP),          sizeof(mdx_caller_record_t),           nullptr, nullptr, kCaller},
  {VOICE(VOICE_RING),          sizeof(cs_ring_info),                  nullptr, nullptr, kRing},
  {VOICE(VOICE_CONF),          sizeof(mdx_call_alerted_record_t),     nullptr, nullptr, kCallAlerted},
  {VOICE(VOICE_CONN),          sizeof(mdx_call_record_t),             nullptr, nullptr, kCall},
  {VOICE(VOICE_CEND),          sizeof(mdx_call_end_record_t),         nullptr, nullptr, kCallEnd},
  {VOICE(VOICE_CCWA),          sizeof(mdx_caller_record_t),           nullptr, nullptr, kCaller},
  {VOICE(VOICE_CCALLSTATE),    sizeof(mdx_call_state_record_t),       nullptr, nullptr, kCallState},
  {VOICE(VOICE_XLEMA),         sizeof(mdx_emergency_number_record_t), nullptr, nullptr, kEmergency},
  {VOICE(VOICE_CSCHANNELINFO), sizeof(mdx_speech_channel_record_t),   nullptr, nullptr, kSpeechChannel},
};

constexpr struct { uint32_t number; const char* name; } kModules[] = {
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
// clang-format on

/// Whether every field lies within its row's payload.
constexpr bool fields_fit() {
  for (const packet_row_t& row : kPackets) {
    for (const value_row_t& value : row.values) {
      if (value.offset + value.size > row.length) return false;
    }
  }
  return true;
}
static_assert(fields_fit());

constexpr bool same_packet(const packet_row_t& one, const packet_row_t& other) {
  if (one.kind != other.kind || one.number != other.number || one.type != other.type) return false;
  const bool same_service = one.to == nullptr || std::string_view(one.to) == other.to;
  return same_service && one.length == other.length;
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

std::span<const packet_row_t> packet_table() { return kPackets; }

const char* module_name(uint32_t module) {
  for (const auto& row : kModules) {
    if (row.number == module) return row.name;
  }
  return nullptr;
}
