// SPDX-License-Identifier: Apache-2.0

// The payloads that leave the server: what a packet of the hub holds behind its header.
//
// Receivers are other processes, so every record is a wire format: fixed widths, the host's
// byte order, no padding that is not named. Reserved bytes are 0. Texts are
// NUL-terminated within their field. A field that a report leaves out is 0 or empty.
#pragma once

#include <cstddef>
#include <cstdint>

// ---------------------------------------------------------------------------------------------------
// Service messages
// ---------------------------------------------------------------------------------------------------

/// DIALUP_MSG_V4_UP, _V4_DOWN, _V6_UP, _V6_DOWN: a data connection came up or went down.
struct dialup_conn_msg {
  int32_t cid;       ///< context id; 1 from ^NDISSTAT, which tells none
  int32_t err_code;  ///< the modem's code where it refused or lost a connection, -1 for none
};
static_assert(sizeof(dialup_conn_msg) == 8);
static_assert(offsetof(dialup_conn_msg, cid) == 0 && offsetof(dialup_conn_msg, err_code) == 4);

/// DIALUP_MSG_NET_CHANGE from ^SRVST and ^MODE; from +CREG and +CGREG it comes without data.
struct dialup_net_change_msg {
  /// `srv_status` of ^SRVST or `sys_mode` of ^MODE: the message does not tell which.
  int32_t status;
};
static_assert(sizeof(dialup_net_change_msg) == 4 && offsetof(dialup_net_change_msg, status) == 0);

/// CMS_MSG_FLOW_REPORT: traffic of the data connection, at every tenth ^DSFLOWRPT.
struct at_dsflow_cms_info {
  uint32_t tx_rate;       ///< bytes per second
  uint32_t rx_rate;       ///< bytes per second
  uint64_t curr_tx_flow;  ///< bytes since the connection came up
  uint64_t curr_rx_flow;  ///< bytes since the connection came up
};
static_assert(sizeof(at_dsflow_cms_info) == 24);
static_assert(offsetof(at_dsflow_cms_info, tx_rate) == 0);
static_assert(offsetof(at_dsflow_cms_info, rx_rate) == 4);
static_assert(offsetof(at_dsflow_cms_info, curr_tx_flow) == 8);
static_assert(offsetof(at_dsflow_cms_info, curr_rx_flow) == 16);

// ---------------------------------------------------------------------------------------------------
// Network, signal and traffic
// ---------------------------------------------------------------------------------------------------

/// EVT_AT_HCSQ. What the values measure depends on `sysmode`.
struct at_hcsq_info {
  /// 0 GSM, 1 WCDMA, 2 LTE, 3 CDMA, 4 EVDO, 5 TD-SCDMA, 6 CDMA-EVDO, -1 no service.
  int32_t sysmode;
  int32_t value1;
  int32_t value2;
  int32_t value3;
  int32_t value4;
  int32_t value5;
};
static_assert(sizeof(at_hcsq_info) == 24);
static_assert(offsetof(at_hcsq_info, sysmode) == 0 && offsetof(at_hcsq_info, value1) == 4);
static_assert(offsetof(at_hcsq_info, value2) == 8 && offsetof(at_hcsq_info, value3) == 12);
static_assert(offsetof(at_hcsq_info, value4) == 16 && offsetof(at_hcsq_info, value5) == 20);

/// EVT_AT_FREQ_INFO: the first carrier's band, channel numbers, frequencies and bandwidths, each in
/// the modem's own unit.
struct at_hfreqinfo_info {
  int32_t switch_;  ///< the report's `switch`, which is a keyword here
  int32_t sysmode;
  int32_t band_class;
  int32_t dl_fcn1;
  int32_t dl_freq1;
  int32_t dl_bw1;
  int32_t ul_fcn1;
  int32_t ul_freq1;
  int32_t ul_bw1;
  int32_t reserved;
};
static_assert(sizeof(at_hfreqinfo_info) == 40);
static_assert(offsetof(at_hfreqinfo_info, switch_) == 0);
static_assert(offsetof(at_hfreqinfo_info, sysmode) == 4);
static_assert(offsetof(at_hfreqinfo_info, band_class) == 8);
static_assert(offsetof(at_hfreqinfo_info, dl_fcn1) == 12);
static_assert(offsetof(at_hfreqinfo_info, dl_freq1) == 16);
static_assert(offsetof(at_hfreqinfo_info, dl_bw1) == 20);
static_assert(offsetof(at_hfreqinfo_info, ul_fcn1) == 24);
static_assert(offsetof(at_hfreqinfo_info, ul_freq1) == 28);
static_assert(offsetof(at_hfreqinfo_info, ul_bw1) == 32);
static_assert(offsetof(at_hfreqinfo_info, reserved) == 36);

/// A broken-down time with the field order of a 32-bit process's `struct tm`, but with the month
/// from 1 and the full year.
struct at_time_val {
  int32_t tm_sec;
  int32_t tm_min;
  int32_t tm_hour;
  int32_t tm_mday;
  int32_t tm_mon;   ///< 1 to 12
  int32_t tm_year;  ///< such as 2024
  char reserved[20];
};
static_assert(sizeof(at_time_val) == 44);
static_assert(offsetof(at_time_val, tm_sec) == 0 && offsetof(at_time_val, tm_min) == 4);
static_assert(offsetof(at_time_val, tm_hour) == 8 && offsetof(at_time_val, tm_mday) == 12);
static_assert(offsetof(at_time_val, tm_mon) == 16 && offsetof(at_time_val, tm_year) == 20);
static_assert(offsetof(at_time_val, reserved) == 24);

/// EVT_AT_NETWORK_TIME.
struct at_nwtime_info {
  at_time_val time_val;
  int32_t time_zone;  ///< quarter hours from UTC, signed
  int32_t reserved;
};
static_assert(sizeof(at_nwtime_info) == 52);
static_assert(offsetof(at_nwtime_info, time_val) == 0);
static_assert(offsetof(at_nwtime_info, time_zone) == 44);
static_assert(offsetof(at_nwtime_info, reserved) == 48);

/// EVT_AT_FLOW_REPORT: traffic of the data connection.
struct at_dsflow_info {
  uint32_t curr_ds_time;  ///< seconds that the connection has been up
  uint32_t tx_rate;       ///< bytes per second
  uint32_t rx_rate;       ///< bytes per second
  uint32_t reserved;
  uint64_t curr_tx_flow;  ///< bytes since the connection came up
  uint64_t curr_rx_flow;  ///< bytes since the connection came up
  uint32_t qos_tx_rate;   ///< negotiated, bytes per second
  uint32_t qos_rx_rate;   ///< negotiated, bytes per second
};
static_assert(sizeof(at_dsflow_info) == 40);
static_assert(offsetof(at_dsflow_info, curr_ds_time) == 0);
static_assert(offsetof(at_dsflow_info, tx_rate) == 4 && offsetof(at_dsflow_info, rx_rate) == 8);
static_assert(offsetof(at_dsflow_info, reserved) == 12);
static_assert(offsetof(at_dsflow_info, curr_tx_flow) == 16);
static_assert(offsetof(at_dsflow_info, curr_rx_flow) == 24);
static_assert(offsetof(at_dsflow_info, qos_tx_rate) == 32);
static_assert(offsetof(at_dsflow_info, qos_rx_rate) == 36);

/// EVT_AT_NORSTFACT.
struct at_norstfact_info {
  int32_t value;  ///< always 5
};
static_assert(sizeof(at_norstfact_info) == 4 && offsetof(at_norstfact_info, value) == 0);

// ---------------------------------------------------------------------------------------------------
// SMS. `id` tells which report a record comes from, for events that several reports share.
// ---------------------------------------------------------------------------------------------------

/// EVT_AT_SMS_NEW, when 518 bytes long: a message handed over by the modem without being stored.
struct __attribute__((packed)) at_sms_content_info {
  int32_t id;       ///< 1 +CMT, 3 +CDS, 4 +CBM
  uint16_t length;  ///< as reported, its low 16 bits; the PDU may have been cut
  char pdu[512];    ///< hexadecimal digits; empty for +CMT and +CDS, whose PDU is a line of its own
};
static_assert(sizeof(at_sms_content_info) == 518);
static_assert(offsetof(at_sms_content_info, id) == 0);
static_assert(offsetof(at_sms_content_info, length) == 4);
static_assert(offsetof(at_sms_content_info, pdu) == 6);

/// EVT_AT_SMS_NEW, when 24 bytes long: a message the modem has stored.
struct at_sms_index_info {
  int32_t id;     ///< 0 +CMTI, 2 +CDSI
  char mem[16];   ///< the store, such as "SM"
  int32_t index;  ///< where in it
};
static_assert(sizeof(at_sms_index_info) == 24);
static_assert(offsetof(at_sms_index_info, id) == 0 && offsetof(at_sms_index_info, mem) == 4);
static_assert(offsetof(at_sms_index_info, index) == 20);

/// EVT_AT_SMS_SEND_RESULT, when 8 bytes long: a message could not be sent (^HCMGSF).
struct at_sms_send_info {
  int32_t id;  ///< 42 ^HCMGSS, 43 ^HCMGSF
  union {
    int32_t mr;       ///< ^HCMGSS: message reference
    int32_t errCode;  ///< ^HCMGSF: why
  };
};
static_assert(sizeof(at_sms_send_info) == 8);
static_assert(offsetof(at_sms_send_info, id) == 0);
static_assert(offsetof(at_sms_send_info, mr) == 4 && offsetof(at_sms_send_info, errCode) == 4);

/// EVT_AT_SMS_SEND_RESULT, when 518 bytes long: a message was sent (^HCMGSS). The same two words in
/// the size of an at_sms_content_info.
struct __attribute__((packed)) at_sms_sent_info {
  at_sms_send_info sent;
  char reserved[510];
};
static_assert(sizeof(at_sms_sent_info) == sizeof(at_sms_content_info));
static_assert(offsetof(at_sms_sent_info, sent) == 0 && offsetof(at_sms_sent_info, reserved) == 8);

// ---------------------------------------------------------------------------------------------------
// SIM, USSD, SIM toolkit
// ---------------------------------------------------------------------------------------------------

/// EVT_AT_SIM_STATE_6: what became of the SIM card, in the modem's own values.
struct at_sim_values {
  int32_t sim_state;
  int32_t lock_state;
};
static_assert(sizeof(at_sim_values) == 8);
static_assert(offsetof(at_sim_values, sim_state) == 0 && offsetof(at_sim_values, lock_state) == 4);

/// EVT_AT_SIM_STATE_27: the same behind the report's id.
struct at_sim_state_info {
  int32_t id;  ///< 10
  at_sim_values sim;
};
static_assert(sizeof(at_sim_state_info) == 12);
static_assert(offsetof(at_sim_state_info, id) == 0 && offsetof(at_sim_state_info, sim) == 4);

/// EVT_AT_USSD: the network's answer in a USSD session.
struct at_ussd_info {
  int32_t rspType;     ///< 3GPP TS 27.007 <m>: 0 no further action, 1 an answer is expected, ...
  char cusdStr[512];   ///< the text; may hold zero bytes, `cusdStrLen` gives its extent
  int32_t cusdStrLen;  ///< length of the text as reported, even where it did not fit
  int32_t codeType;    ///< data coding scheme
  int32_t reserved;
};
static_assert(sizeof(at_ussd_info) == 528);
static_assert(offsetof(at_ussd_info, rspType) == 0 && offsetof(at_ussd_info, cusdStr) == 4);
static_assert(offsetof(at_ussd_info, cusdStrLen) == 516);
static_assert(offsetof(at_ussd_info, codeType) == 520);
static_assert(offsetof(at_ussd_info, reserved) == 524);

/// EVT_AT_STK_IND: the SIM toolkit wants something. Values are cut to their low 8 bits.
struct at_stin_info {
  uint8_t cmdTpye;  ///< kind of proactive command
  uint8_t cmdIndex;
  uint8_t isTimeOut;
  uint8_t reserved[5];
};
static_assert(sizeof(at_stin_info) == 8);
static_assert(offsetof(at_stin_info, cmdTpye) == 0 && offsetof(at_stin_info, cmdIndex) == 1);
static_assert(offsetof(at_stin_info, isTimeOut) == 2 && offsetof(at_stin_info, reserved) == 3);

// ---------------------------------------------------------------------------------------------------
// Voice. The other call records stand in call_records.h.
// ---------------------------------------------------------------------------------------------------

/// VOICE_RING: a call is coming in.
struct cs_ring_info {
  uint8_t ringing;  ///< always 1
  uint8_t reserved;
};
static_assert(sizeof(cs_ring_info) == 2);
static_assert(offsetof(cs_ring_info, ringing) == 0 && offsetof(cs_ring_info, reserved) == 1);
