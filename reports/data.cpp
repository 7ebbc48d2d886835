// SPDX-License-Identifier: Apache-2.0

// Reports of data connections: up or down, IPv6 or not, reduced to one message for the dial-up
// service. Nothing is remembered, so a report that comes twice is told twice.

#include "reports/mdx_report_callback.h"
#include "reports/report_frame.h"
#include "wire/destinations.h"
#include "wire/report_records.h"

namespace {

constexpr int32_t kNoErrorCode = -1;
/// ^NDISSTAT does not tell its context; there is only the first.
constexpr int32_t kNdisCid = 1;

/// `stat` of ^NDISSTAT and ^NDISSTATEX.
enum ndis_stat_t : int32_t { NDIS_DOWN = 0, NDIS_UP = 1 };

/// Only the exact text is IPv6; anything else, an empty text too, is not.
void send_up(const char* pdp_type, int32_t cid) {
  const bool ipv6 = safe_strcmp(pdp_type, "IPV6") == 0;
  const dialup_conn_msg message = {cid, kNoErrorCode};
  KRP_MSG_SendMsgData(kServiceDialup, ipv6 ? DIALUP_MSG_V6_UP : DIALUP_MSG_V4_UP, &message,
                      sizeof(message));
}

void send_down(const char* pdp_type, int32_t cid, int32_t err_code) {
  const bool ipv6 = safe_strcmp(pdp_type, "IPV6") == 0;
  const dialup_conn_msg message = {cid, err_code};
  KRP_MSG_SendMsgData(kServiceDialup, ipv6 ? DIALUP_MSG_V6_DOWN : DIALUP_MSG_V4_DOWN, &message,
                      sizeof(message));
}

}  // namespace

// ^DCONN:1,"IPV4"
void dconn_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "[dconn_report_callback] enter!\n");
  struct {
    char cid[kNumberTextSize];
    char pdp_type[kNumberTextSize];
  } text = {};
  static constexpr report_parse_t how = {
      "^DCONN", MDX_TRACE_ERROR, "dconn_report_callback at_cmd_parse  error,and the ret = %d\n"};
  static constexpr report_field_t fields[] = {
      MDX_REPORT_FIELD("cid", TEXT, text, cid),
      MDX_REPORT_FIELD("pdp_type", TEXT, text, pdp_type),
  };
  if (read_fields(how, rptbuf, fields, &text) < 0) return;

  send_up(text.pdp_type, safe_atoi(text.cid));
}

// ^DEND: 1,0,"IPV4"
void dend_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "[dend_report_callback] enter!\n");
  struct {
    char cid[kNumberTextSize];
    char pdp_type[kNumberTextSize];
  } text = {};
  static constexpr report_parse_t how = {
      "^DEND", MDX_TRACE_FLOW, "dend_report_callback at_cmd_parse  error,and the ret = %d\n"};
  static constexpr report_field_t fields[] = {
      MDX_REPORT_FIELD("cid", TEXT, text, cid),
      MDX_REPORT_FIELD("pdp_type", TEXT, text, pdp_type),
  };
  if (read_fields(how, rptbuf, fields, &text) < 0) return;

  // The report's cause stays here: the service knows codes of refused connections only.
  send_down(text.pdp_type, safe_atoi(text.cid), kNoErrorCode);
}

// ^NDISSTAT:0,50,,"IPV6"
void ndisstat_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "[ndisstat_report_callback] enter!\n");
  struct {
    char pdp_type[kNumberTextSize];
    char stat[kNumberTextSize];
    char err_code[kNumberTextSize];
  } text = {};
  static constexpr report_parse_t how = {
      "^NDISSTAT", MDX_TRACE_ERROR,
      "ndisstat_report_callback at_cmd_parse  error,and the ret = %d\n"};
  static constexpr report_field_t fields[] = {
      MDX_REPORT_FIELD("PDP_type", TEXT, text, pdp_type),
      MDX_REPORT_FIELD("stat", TEXT, text, stat),
      MDX_REPORT_FIELD("err_code", TEXT, text, err_code),
  };
  if (read_fields(how, rptbuf, fields, &text) < 0) return;

  const int32_t rptbuf_stat_dec = safe_atoi(text.stat);
  if (rptbuf_stat_dec == NDIS_UP) {
    send_up(text.pdp_type, kNdisCid);
  } else if (rptbuf_stat_dec == NDIS_DOWN) {
    send_down(text.pdp_type, kNdisCid, safe_atoi(text.err_code));
  } else {
    MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "ndisstat_report_callback rptbuf_stat_dec =[%d]\n",
              rptbuf_stat_dec);
  }
}

// ^NDISSTATEX:1,1,,,"IPV4"
void ndisstatex_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "[ndisstatex_report_callback] enter!\n");
  struct {
    char cid[kNumberTextSize];
    char pdp_type[kNumberTextSize];
    char stat[kNumberTextSize];
    char err_code[kNumberTextSize];
  } text = {};
  static constexpr report_parse_t how = {
      "^NDISSTATEX", MDX_TRACE_ERROR,
      "ndisstatex_report_callback at_cmd_parse  error,and the ret = %d\n"};
  static constexpr report_field_t fields[] = {
      MDX_REPORT_FIELD("cid", TEXT, text, cid),
      MDX_REPORT_FIELD("PDP_type", TEXT, text, pdp_type),
      MDX_REPORT_FIELD("stat", TEXT, text, stat),
      MDX_REPORT_FIELD("err_code", TEXT, text, err_code),
  };
  if (read_fields(how, rptbuf, fields, &text) < 0) return;

  const int32_t rptbuf_stat_dec = safe_atoi(text.stat);
  if (rptbuf_stat_dec == NDIS_UP) {
    send_up(text.pdp_type, safe_atoi(text.cid));
  } else if (rptbuf_stat_dec == NDIS_DOWN) {
    send_down(text.pdp_type, safe_atoi(text.cid), safe_atoi(text.err_code));
  } else {
    MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "ndisstatex_report_callback rptbuf_stat_dec =[%d]\n",
              rptbuf_stat_dec);
  }
}

// ^APDIALUPRPT:1
void apdialup_report_callback(char* rptbuf, int32_t) {
  static constexpr report_parse_t how = {"^APDIALUPRPT", MDX_TRACE_FLOW,
                                         "apdialup_report_callback, error,and the ret = %d"};
  read_fields(how, rptbuf, {}, nullptr);
}
