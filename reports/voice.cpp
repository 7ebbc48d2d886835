// SPDX-License-Identifier: Apache-2.0

// Reports of voice calls: each becomes one call record for the voice service, which this server
// does not look into. A line that the record's parser refuses is dropped.

#include "reports/mdx_report_callback.h"
#include "reports/report_frame.h"
#include "wire/call_records.h"
#include "wire/destinations.h"
#include "wire/report_records.h"

namespace {

constexpr size_t kLargestRecord = sizeof(mdx_emergency_number_record_t);

void send_to_voice(voice_type_t type, const void* record, size_t size) {
  KRP_UTIL_SendMsgToVoice2(VOICE_MSG, type, 0, record, static_cast<uint32_t>(size));
}

void read_and_send(voice_type_t type, int (*parse)(const char*, void*), const char* line,
                   size_t size) {
  char record[kLargestRecord];
  if (parse(line, record) == 0) send_to_voice(type, record, size);
}

/// Sends what `parse` makes of the line.
template <typename Record>
void tell_voice(voice_type_t type, int (*parse)(const char*, void*), const char* line) {
  static_assert(sizeof(Record) <= kLargestRecord);
  read_and_send(type, parse, line, sizeof(Record));
}

}  // namespace

// ^ORIG:1,0
void cs_orig_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "[cs_orig_report_callback] enter!\n");
  tell_voice<mdx_call_record_t>(VOICE_ORIG, MdxOrigParse, rptbuf);
}

// ^CONF:1
void cs_conf_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "[cs_conf_report_callback] enter!\n");
  tell_voice<mdx_call_alerted_record_t>(VOICE_CONF, MdxConfParse, rptbuf);
}

// ^CONN:1,0
void cs_conn_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "[cs_conn_report_callback] enter!\n");
  tell_voice<mdx_call_record_t>(VOICE_CONN, MdxConnParse, rptbuf);
}

// ^CEND:1,82,29
void cs_cend_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "[cs_cend_report_callback] enter!\n");
  tell_voice<mdx_call_end_record_t>(VOICE_CEND, MdxCendParse, rptbuf);
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
  tell_voice<mdx_caller_record_t>(VOICE_CLIP, MdxClipParse, rptbuf);
}

// +CCWA: "123456789",129,1,,0
void cs_ccwa_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "enter cs_ccwa_report_callback .\n");
  tell_voice<mdx_caller_record_t>(VOICE_CCWA, MdxCcwaParse, rptbuf);
}

// ^CCWA:"123456789",129,1
void cs_ccwa_ims_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "enter cs_ccwa_report_callback .\n");
  tell_voice<mdx_caller_record_t>(VOICE_CCWA, MdxCcwaImsParse, rptbuf);
}

// ^XLEMA:1,2,112,0,1,fff
void cs_xlema_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "enter cs_xlema_report_callback .\n");
  tell_voice<mdx_emergency_number_record_t>(VOICE_XLEMA, MdxXlemaParse, rptbuf);
}

// ^CCALLSTATE: 1,0,1
void cs_ccallstate_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "enter cs_ccallstate_report_callback .\n");
  tell_voice<mdx_call_state_record_t>(VOICE_CCALLSTATE, MdxCallStateParse, rptbuf);
}

// ^CSCHANNELINFO: 0,1
void cs_cschannelinfo_report_callback(char* rptbuf, int32_t) {
  MDX_TRACE(kReportSource, MDX_TRACE_FLOW, "enter cs_cschannelinfo_report_callback .\n");
  tell_voice<mdx_speech_channel_record_t>(VOICE_CSCHANNELINFO, at_cschaninfo_parse, rptbuf);
}
