// SPDX-License-Identifier: Apache-2.0

// Reports of the device itself, temperature, wake-up, factory, MMI, and of its data traffic.
//
// Traffic is told to its module at every report and to "cms" at every tenth.

#include <unistd.h>

#include <cstdio>

#include "reports/mdx_report_callback.h"
#include "reports/report_frame.h"
#include "wire/destinations.h"
#include "wire/report_records.h"

namespace {

/// "cms" is told of the traffic once in so many reports.
constexpr uint32_t kReportsPerCmsMessage = 10;

/// ^DSFLOWRPT reports since "cms" was last told, those that could not be parsed included.
uint32_t dsflow_report_count = 0;

}  // namespace

// ^NORSTFACT:1
void norstfact_report_callback(char*, int32_t) {
  dprintf(STDOUT_FILENO, "mdx norstfact_report_callback enter\n");
  const at_norstfact_info record = {5};
  MDX_post_notify_ex(NOTIFY_MODULE_74, EVT_AT_NORSTFACT, &record, sizeof(record), 0, 0);
}

// ^TEMPPRT:1,2
void tempprt_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "tempprt_report_callback at_cmd_parse \n");
  struct {
    char event[kNumberTextSize];
    char param[kNumberTextSize];
  } text = {};
  static constexpr report_parse_t how = {
      "^TEMPPRT", MDX_TRACE_FLOW, "tempprt_report_callback at_cmd_parse  error,and the ret = %d\n"};
  static constexpr report_field_t fields[] = {
      MDX_REPORT_FIELD("tempprotect_event", TEXT, text, event),
      MDX_REPORT_FIELD("tempprotect_param", TEXT, text, param),
  };
  if (read_fields(how, rptbuf, fields, &text) < 0) return;

  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "send EVT_AT_MACHINE_TEMP  to RUT_MDL_DEVICE\n");
  MDX_post_notify(RUT_MDL_DEVICE, EVT_AT_MACHINE_TEMP, safe_atoi(text.event),
                  safe_atoi(text.param));
}

// ^WAKEUPIN: 1
void wakeupin_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "[wakeupin_report_callback] enter!\n");
  struct {
    char value[kNumberTextSize];
  } text = {};
  static constexpr report_parse_t how = {
      "^WAKEUPIN", MDX_TRACE_FLOW,
      "wakeupin_report_callback at_cmd_parse error,and the ret = %d\n"};
  static constexpr report_field_t fields[] = {MDX_REPORT_FIELD("value", TEXT, text, value)};
  if (read_fields(how, rptbuf, fields, &text) < 0) return;

  const int32_t value = safe_atoi(text.value);
  MDX_post_notify(NOTIFY_MODULE_55, EVT_AT_WAKEUP_IN, value, -1);
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW,
            "[wakeupin_report_callback]send wakeupin value to M2MAPI =[%d]\n", value);
}

// ^FACTORY
void factory_report_callback(char*, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "factory_report_callback called.\n");
  MDX_post_notify(RUT_MDL_DEVICE, EVT_AT_FACTORY, 1, 0);
}

// ^MMIENTER
void mmi_enter_report_callback(char* rptbuf, int32_t) {
  if (rptbuf == nullptr) {
    MDX_TRACE(kReportSource, MDX_TRACE_ERROR, "[mmi_enter_report_callback]: NULL == rptbuf \n");
    return;
  }
  MDX_TRACE(kReportSource, MDX_TRACE_ERROR, "[mmi_enter_report_callback]: enter \n");
  KRP_MSG_SendMsgData(kServiceCms, CMS_MSG_MMI_ENTER, nullptr, 0);
  MDX_TRACE(kReportSource, MDX_TRACE_ERROR, "[mmi_enter_report_callback]: leave \n");
}

// ^DSFLOWRPT:00000124,00000082,00000EA6,0000000000012325,000000000022771D,0000BB80,0001F400
void dsflow_report_callback(char* rptbuf, int32_t) {
  ++dsflow_report_count;
  if (rptbuf == nullptr) return;
  at_dsflow_info record = {};
  static constexpr report_parse_t how = {
      "^DSFLOWRPT", MDX_TRACE_ERROR,
      "dsflow_report_callback at_cmd_parse  error,and the ret = %d\n"};
  static constexpr report_field_t fields[] = {
      MDX_REPORT_FIELD("curr_ds_time", HEX32, record, curr_ds_time),
      MDX_REPORT_FIELD("tx_rate", HEX32, record, tx_rate),
      MDX_REPORT_FIELD("rx_rate", HEX32, record, rx_rate),
      MDX_REPORT_FIELD("curr_tx_flow", HEX64, record, curr_tx_flow),
      MDX_REPORT_FIELD("curr_rx_flow", HEX64, record, curr_rx_flow),
      MDX_REPORT_FIELD("qos_tx_rate", HEX32, record, qos_tx_rate),
      MDX_REPORT_FIELD("qos_rx_rate", HEX32, record, qos_rx_rate),
  };
  if (read_fields(how, rptbuf, fields, &record) < 0) return;

  MDX_post_notify_ex(NOTIFY_MODULE_18, EVT_AT_FLOW_REPORT, &record, sizeof(record), 0, 0);
  if (dsflow_report_count % kReportsPerCmsMessage != 0) return;
  dsflow_report_count = 0;
  const at_dsflow_cms_info summary = {record.tx_rate, record.rx_rate, record.curr_tx_flow,
                                      record.curr_rx_flow};
  KRP_MSG_SendMsgData(kServiceCms, CMS_MSG_FLOW_REPORT, &summary, sizeof(summary));
}
