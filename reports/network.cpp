// How the modem stands with the radio network.

#include "platform/at_fields.h"
#include "platform/bounded.h"
#include "platform/mdx_platform.h"
#include "reports/mdx_report_callback.h"
#include "server/mdx_state.h"

// ^RSSI:20
void rssi_report_callback(char* rptbuf, int32_t) {
  constexpr char kSource[] = "mdx_report_callback";
  if (rptbuf == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_MISSING, "rssi_buf is empty.\n");
    return;
  }
  if (std::strstr(rptbuf, "^RSSI") == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_MISSING, "Buffer(%s) do not have ^RSSI\n", rptbuf);
    return;
  }
  const uint32_t length = MDX_strlen_s(rptbuf);
  if (length > MAX_ATCMD_REPORT_SIZE) {
    MDX_TRACE(kSource, MDX_TRACE_MISSING, "MAX_ATCMD_REPORT_SIZE < rssi_length\n");
    return;
  }
  at_answer_t& report = mdx_state.rssi_report;
  memset_s(&report, sizeof(report), 0, sizeof(report));
  memcpy_s(report.snd_rcv_msg.rmsg, sizeof(report.snd_rcv_msg.rmsg), rptbuf, length);
  report.ret_val = AT_OK;
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "rssi buffer length: (%d) ,is : %s\n",
            static_cast<int>(length), rptbuf);
}
