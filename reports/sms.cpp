// SPDX-License-Identifier: Apache-2.0

// Reports of short messages: arrived, stored, sent, not sent, no room left. All go to module 1,
// where records of different reports share an event and the `id` in them tells which one it was.

#include <cstring>

#include "reports/mdx_report_callback.h"
#include "reports/report_frame.h"
#include "wire/destinations.h"
#include "wire/report_records.h"

namespace {

/// A report that shares its handler with others.
struct sms_report_t {
  int32_t id;
  report_parse_t how;
};

/// The first of these reports, in their order, that the line holds anywhere; null for none.
const sms_report_t* find_report(const char* line, std::span<const sms_report_t> reports) {
  for (const sms_report_t& report : reports) {
    if (strstr(line, report.how.prefix) != nullptr) return &report;
  }
  return nullptr;
}

void post_record(notify_event_t event, const void* record, size_t size) {
  MDX_post_notify_ex(NOTIFY_MODULE_1, event, record, static_cast<uint32_t>(size), 0, 0);
}

/// A full store is news only if it is the SIM's.
walk_t find_sim_store(const at_field_t& field, void* target) {
  if (safe_strcmp(field.AtFieldValue, "SM") != 0) return walk_t::ON;
  *static_cast<bool*>(target) = true;
  return walk_t::STOP;
}

}  // namespace

// +CBM: 88 CR LF <PDU>; +CMT: ,35 LF <PDU>; +CDS: 25 LF <PDU>
void sms_content_report_callback(char* rptbuf, int32_t) {
  if (rptbuf == nullptr) return;
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "[sms_content_report_callback] enter!\n");
  constexpr char failure[] = "sms_content_report_callback at_cmd_parse  error,and the ret = %d\n";
  static constexpr sms_report_t reports[] = {
      {1, {"+CMT", MDX_TRACE_ERROR, failure}},
      {3, {"+CDS", MDX_TRACE_ERROR, failure}},
      {4, {"+CBM", MDX_TRACE_ERROR, failure}},
  };
  const sms_report_t* report = find_report(rptbuf, reports);
  if (report == nullptr) return;

  struct {
    at_sms_content_info record;
    int32_t length;
  } value = {};
  at_sms_content_info& record = value.record;
  static constexpr report_field_t fields[] = {
      MDX_REPORT_FIELD("length", NUMBER, value, length),
      MDX_REPORT_FIELD("pdu", TEXT, value, record.pdu),
  };
  if (read_fields(report->how, rptbuf, fields, &value) < 0) return;

  record.id = report->id;
  record.length = static_cast<uint16_t>(value.length & UINT16_MAX);
  post_record(EVT_AT_SMS_NEW, &record, sizeof(record));
}

// +CMTI: "SM",1
void sms_index_report_callback(char* rptbuf, int32_t) {
  if (rptbuf == nullptr) return;
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "[sms_index_report_callback] enter!\n");
  constexpr char failure[] = "sms_index_report_callback at_cmd_parse  error,and the ret = %d\n";
  static constexpr sms_report_t reports[] = {
      {2, {"+CDSI", MDX_TRACE_ERROR, failure}},
      {0, {"+CMTI", MDX_TRACE_ERROR, failure}},
  };
  const sms_report_t* report = find_report(rptbuf, reports);
  if (report == nullptr) return;

  at_sms_index_info record = {};
  record.id = report->id;
  static constexpr report_field_t fields[] = {
      MDX_REPORT_FIELD("mem", TEXT, record, mem),
      MDX_REPORT_FIELD("index", NUMBER, record, index),
  };
  if (read_fields(report->how, rptbuf, fields, &record) < 0) return;

  post_record(EVT_AT_SMS_NEW, &record, sizeof(record));
}

// ^HCMGSS:31
void sms_hcmgss_report_callback(char* rptbuf, int32_t) {
  if (rptbuf == nullptr) {
    MDX_TRACE(kReportSource, MDX_TRACE_ERROR,
              "sms_hcmgss_report_callback parameter  error, return. \n");
    return;
  }
  MDX_TRACE(kReportSource, MDX_TRACE_DETAIL, "[sms_hcmgss_report_callback] enter... \n");
  struct {
    int32_t mr;
  } value = {};
  static constexpr report_parse_t how = {
      "^HCMGSS", MDX_TRACE_ERROR,
      "sms_hcmgss_report_callback at_cmd_parse  error,and the ret = %d\n"};
  static constexpr report_field_t fields[] = {MDX_REPORT_FIELD("mr", NUMBER, value, mr)};
  if (read_fields(how, rptbuf, fields, &value) < 0) return;

  at_sms_sent_info record = {};
  record.sent.id = 42;
  record.sent.mr = value.mr;
  post_record(EVT_AT_SMS_SEND_RESULT, &record, sizeof(record));
  MDX_TRACE(kReportSource, MDX_TRACE_DETAIL, "[sms_hcmgss_report_callback] end ! \n");
}

// ^HCMGSF:107
void sms_hcmgsf_report_callback(char* rptbuf, int32_t) {
  if (rptbuf == nullptr) {
    MDX_TRACE(kReportSource, MDX_TRACE_ERROR,
              "sms_hcmgsf_report_callback parameter  error, return. \n");
    return;
  }
  MDX_TRACE(kReportSource, MDX_TRACE_DETAIL, "[sms_hcmgsf_report_callback] enter... \n");
  at_sms_send_info record = {};
  record.id = 43;
  static constexpr report_parse_t how = {
      "^HCMGSF", MDX_TRACE_ERROR, "sms_hcmgf_callback at_cmd_parse  error,and the ret = %d\n"};
  static constexpr report_field_t fields[] = {MDX_REPORT_FIELD("errCode", NUMBER, record, errCode)};
  if (read_fields(how, rptbuf, fields, &record) < 0) return;

  post_record(EVT_AT_SMS_SEND_RESULT, &record, sizeof(record));
  MDX_TRACE(kReportSource, MDX_TRACE_DETAIL, "[sms_hcmgsf_report_callback] end ! \n");
}

// ^SMMEMFULL: "SM"
void sms_mem_full_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_DETAIL, "[sms_mem_full_report_callback] enter... \n");
  if (rptbuf == nullptr) {
    MDX_TRACE(kReportSource, MDX_TRACE_ERROR,
              "sms_mem_full_report_callback parameter  error, return. \n");
    return;
  }
  bool sim_full = false;
  static constexpr report_parse_t how = {
      "^SMMEMFULL", MDX_TRACE_ERROR,
      "sms_mem_full_report_callback at_cmd_parse  error,and the ret = %d\n"};
  static constexpr report_field_t fields[] = {MDX_REPORT_TAKEN("mem_type")};
  if (read_fields(how, rptbuf, fields, &sim_full, find_sim_store) < 0) return;

  if (sim_full) post_record(EVT_AT_SMS_MEM_FULL, nullptr, 0);
  MDX_TRACE(kReportSource, MDX_TRACE_DETAIL, "[sms_mem_full_report_callback] end ! \n");
}
