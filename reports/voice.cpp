// SPDX-License-Identifier: Apache-2.0

// Reports of voice calls: each becomes one call record for the voice service, which this server
// does not look into. A line that the record's parser refuses is dropped.

#include "reports/mdx_report_callback.h"
#include "reports/report_frame.h"
#include "wire/call_records.h"
#include "wire/destinations.h"
#include "wire/report_records.h"

namespace {

void send_to_voice(voice_type_t type, const void* record, size_t size) {
  KRP_UTIL_SendMsgToVoice2(VOICE_MSG, type, 0, record, static_cast<uint32_t>(size));
}

}  // namespace

// ^ORIG:1,0
void cs_orig_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "[cs_orig_report_callback] enter!\n");
  mdx_call_record_t record = {};
  if (MdxOrigParse(rptbuf, &record) != 0) return;
  send_to_voice(VOICE_ORIG, &record, sizeof(record));
}

// ^CONF:1
void cs_conf_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "[cs_conf_report_callback] enter!\n");
  mdx_call_alerted_record_t record = {};
  if (MdxConfParse(rptbuf, &record) != 0) return;
  send_to_voice(VOICE_CONF, &record, sizeof(record));
}

// ^CONN:1,0
void cs_conn_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "[cs_conn_report_callback] enter!\n");
  mdx_call_record_t record = {};
  if (MdxConnParse(rptbuf, &record) != 0) return;
  send_to_voice(VOICE_CONN, &record, sizeof(record));
}

// ^CEND:1,82,29
void cs_cend_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "[cs_cend_report_callback] enter!\n");
  mdx_call_end_record_t record = {};
  if (MdxCendParse(rptbuf, &record) != 0) return;
  send_to_voice(VOICE_CEND, &record, sizeof(record));
}

// RING
void cs_ring_report_callback(char*, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "[cs_ring_report_callback] enter!\n");
  cs_ring_info record = {};
  record.ringing = 1;
  send_to_voice(VOICE_RING, &record, sizeof(record));
}

// +CLIP: "+123456789",145
void cs_clip_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_ERROR, "enter cs_clip_report_callback .\n");
  mdx_caller_record_t record = {};
  if (MdxClipParse(rptbuf, &record) != 0) return;
  send_to_voice(VOICE_CLIP, &record, sizeof(record));
}

// +CCWA: "123456789",129,1,,0
void cs_ccwa_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "enter cs_ccwa_report_callback .\n");
  mdx_caller_record_t record = {};
  if (MdxCcwaParse(rptbuf, &record) != 0) return;
  send_to_voice(VOICE_CCWA, &record, sizeof(record));
}

// ^CCWA:"123456789",129,1
void cs_ccwa_ims_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "enter cs_ccwa_report_callback .\n");
  mdx_caller_record_t record = {};
  if (MdxCcwaImsParse(rptbuf, &record) != 0) return;
  send_to_voice(VOICE_CCWA, &record, sizeof(record));
}

// ^XLEMA:1,2,112,0,1,fff
void cs_xlema_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "enter cs_xlema_report_callback .\n");
  mdx_emergency_number_record_t record = {};
  if (MdxXlemaParse(rptbuf, &record) != 0) return;
  send_to_voice(VOICE_XLEMA, &record, sizeof(record));
}

// ^CCALLSTATE: 1,0,1
void cs_ccallstate_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "enter cs_ccallstate_report_callback .\n");
  mdx_call_state_record_t record = {};
  if (MdxCallStateParse(rptbuf, &record) != 0) return;
  send_to_voice(VOICE_CCALLSTATE, &record, sizeof(record));
}

// ^CSCHANNELINFO: 0,1
void cs_cschannelinfo_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "enter cs_cschannelinfo_report_callback .\n");
  mdx_speech_channel_record_t record = {};
  if (at_cschaninfo_parse(rptbuf, &record) != 0) return;
  send_to_voice(VOICE_CSCHANNELINFO, &record, sizeof(record));
}
