// SPDX-License-Identifier: Apache-2.0

// Who is told what: the modules, services and message numbers that reports are sent to.
//
// The numbers are the receivers' and cannot be changed from here. Most event numbers are the
// module's number times 1000 plus a running number; the others are as odd as they look. Two events
// share 9004: only the module tells them apart.
#pragma once

#include <cstdint>

enum notify_module_t : int32_t {
  NOTIFY_MODULE_1 = 1,    ///< SMS
  NOTIFY_MODULE_2 = 2,    ///< USSD
  NOTIFY_MODULE_4 = 4,    ///< SIM state
  NOTIFY_MODULE_6 = 6,    ///< SIM state
  NOTIFY_MODULE_7 = 7,    ///< network and display: roaming, network name, SIM refresh
  RUT_MDL_DEVICE = 9,     ///< the device: temperature, time, factory, SIM state, loss of service
  NOTIFY_MODULE_16 = 16,  ///< radio frequencies
  NOTIFY_MODULE_18 = 18,  ///< traffic
  NOTIFY_MODULE_19 = 19,  ///< signal level, system mode, registration, SIM state
  NOTIFY_MODULE_27 = 27,  ///< SIM state
  NOTIFY_MODULE_33 = 33,  ///< SIM toolkit
  NOTIFY_MODULE_55 = 55,  ///< wake-up
  NOTIFY_MODULE_74 = 74,  ///< ^NORSTFACT alone
};

/// Notifications; behind each its module and what it carries: two values, or a record of
/// report_records.h.
enum notify_event_t : int32_t {
  EVT_AT_SMS_MEM_FULL = 1001,  ///< 1: nothing; the SIM's store is full
  EVT_AT_SMS_NEW = 1008,       ///< 1: at_sms_content_info, or at_sms_index_info; the length tells
  EVT_AT_SMS_SEND_RESULT = 1010,   ///< 1: at_sms_sent_info, or at_sms_send_info; the length tells
  EVT_AT_USSD = 2003,              ///< 2: at_ussd_info
  EVT_AT_SIM_STATE_4 = 4082,       ///< 4: a sim state, b lock state
  EVT_AT_SIM_STATE_6 = 6001,       ///< 6: at_sim_values
  EVT_AT_ROAMING_STATUS_0 = 7012,  ///< 7: 0, 0; not roaming
  EVT_AT_ROAMING_STATUS_1 = 7013,  ///< 7: 0, 0; roaming
  EVT_AT_EONS = 7022,              ///< 7: 0, 0; the operator's name has changed
  EVT_AT_SIM_REFRESH = 7043,       ///< 7: a file type, b 0
  EVT_AT_NETWORK_TIME = 4047,      ///< 9: at_nwtime_info
  EVT_AT_FACTORY = 9004,           ///< 9: a 1, b 0
  EVT_AT_SIM_STATE_9 = 9010,       ///< 9: a sim state, b lock state
  EVT_AT_NO_SERVICE = 9040,        ///< 9: 0, 0
  EVT_AT_MACHINE_TEMP = 31000,     ///< 9: a event, b parameter of the temperature protection
  EVT_AT_FREQ_INFO = 16035,        ///< 16: at_hfreqinfo_info
  EVT_AT_FLOW_REPORT = 18002,      ///< 18: at_dsflow_info
  EVT_AT_SYS_MODE = 19005,         ///< 19: a system mode, b submode; 0, 0 from ^LCACELLURC
  EVT_AT_SIM_STATE_19 = 19007,     ///< 19: a sim state, b lock state
  EVT_AT_REG_CHANGE = 19008,       ///< 19: 0, 0
  EVT_AT_SIGNAL_LEVEL = 19011,     ///< 19: a level, b 0
  EVT_AT_HCSQ = 19016,             ///< 19: at_hcsq_info
  EVT_AT_SIM_STATE_27 = 27003,     ///< 27: at_sim_state_info
  EVT_AT_STK_IND = 33001,          ///< 33: at_stin_info
  EVT_AT_WAKEUP_IN = 55013,        ///< 55: a value, b -1
  EVT_AT_NORSTFACT = 9004,         ///< 74: at_norstfact_info
};

inline constexpr char kServiceDialup[] = "dialup";
inline constexpr char kServiceCms[] = "cms";
/// The modem's link: the server's own news, in order with the modem's.
inline constexpr char kServiceLink[] = "link";

/// Messages to services; behind each the record it carries.
enum service_message_t : uint32_t {
  DIALUP_MSG_V4_UP = 166657,           ///< "dialup": dialup_conn_msg
  DIALUP_MSG_V4_DOWN = 166658,         ///< "dialup": dialup_conn_msg
  DIALUP_MSG_V6_UP = 166659,           ///< "dialup": dialup_conn_msg
  DIALUP_MSG_V6_DOWN = 166660,         ///< "dialup": dialup_conn_msg
  DIALUP_MSG_NET_CHANGE = 166661,      ///< "dialup": dialup_net_change_msg, or nothing
  CMS_MSG_DATACARD_INSERTED = 0x8804,  ///< "cms": nothing; the modem is up
  CMS_MSG_FLOW_REPORT = 0x881B,        ///< "cms": at_dsflow_cms_info
  CMS_MSG_MMI_ENTER = 0x881C,          ///< "cms": nothing
  LINK_MSG_UP = 1,                     ///< "link": nothing; the modem's device was opened
  LINK_MSG_GONE = 2,                   ///< "link": nothing; it went away, or was given up
};

/// The one message that others send: to "mdxgate", nothing; ends the modem binding.
inline constexpr uint32_t SERVER_MSG_UNINSTALL = 0x8805;

/// The one message of the voice service.
inline constexpr int32_t VOICE_MSG = 8907;

/// Its types; behind each the record it carries. All but the ring record are call records of
/// call_records.h.
enum voice_type_t : int32_t {
  VOICE_ORIG = 9,            ///< ^ORIG
  VOICE_CLIP = 10,           ///< +CLIP
  VOICE_RING = 11,           ///< RING, IRING: cs_ring_info
  VOICE_CONF = 12,           ///< ^CONF
  VOICE_CONN = 13,           ///< ^CONN
  VOICE_CEND = 14,           ///< ^CEND
  VOICE_CCWA = 19,           ///< +CCWA and ^CCWA
  VOICE_CCALLSTATE = 21,     ///< ^CCALLSTATE
  VOICE_XLEMA = 27,          ///< XLEMA
  VOICE_CSCHANNELINFO = 28,  ///< ^CSCHANNELINFO
};
