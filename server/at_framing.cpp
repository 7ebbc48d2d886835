// SPDX-License-Identifier: Apache-2.0

// What the modem ends with CR LF is a line; the SMS headers, whose second half is not a line of its
// own, are put together here, before anything is matched.

#include "server/at_framing.h"

#include <cstring>

#include "platform/bounded.h"
#include "server/at_stream.h"
#include "server/mdx_state.h"

namespace {

constexpr mdx_trace_source_t kSource = MDX_FROM_LINE;
constexpr char kCtrlZ = 26;
/// Behind the Ctrl-Z of a raw body stand a CR and an LF, which belong to it.
constexpr int32_t kBodyEnd = 2;
constexpr int32_t kLineEnd = 2;

bool holds(const char* line, const char* marker) { return std::strstr(line, marker) != nullptr; }

void store(char* line, int32_t* count, char ch) {
  mdx_state.line_state = LINE_IN_TEXT;
  line[(*count)++] = ch;
}

/// The next line where it does not stand in the stream as text and CR LF.
[[gnu::cold]] int32_t get_line_by_bytes(char* line, int32_t* pos) {
  int32_t count = 0;
  char ch = '\0';
  while (at_sm_getchar(&ch) == 0) {
    if (ch == '\n' && mdx_state.line_state == LINE_CR_PENDING) {
      line[count] = '\0';
      mdx_state.line_state = LINE_DONE;
      return 0;
    }
    if (ch != '\r') {
      store(line, &count, ch);
      continue;
    }
    if (at_sm_getchar(&ch) != 0) {
      mdx_state.line_state = LINE_CR_PENDING;
      return -1;
    }
    if (ch == '\n') {
      line[count] = '\0';
      mdx_state.line_state = LINE_DONE;
      *pos += count;
      return 0;
    }
    store(line, &count, ch);
  }
  *pos = count;
  return count == 0 ? -1 : 0;
}

/// Joins the PDU of a cell broadcast to its header, which already has its CR LF back.
[[gnu::cold]] void append_cbm_pdu(int32_t* pos) {
  char* line = mdx_state.line_buf;
  MDX_TRACE(kSource, MDX_TRACE_DETAIL, "at_sm_getline begin CBM1 pdu=%s\n", line);
  char pdu[sizeof(mdx_state.line_buf)] = {};
  int32_t pdu_length = 0;
  if (at_sm_getline(pdu, &pdu_length) == -1) {
    MDX_TRACE(kSource, MDX_TRACE_DETAIL, "at_sm_getline CBM return error\n");
  }
  MDX_TRACE(kSource, MDX_TRACE_DETAIL, "at_sm_getline begin CBM2 pdu=%s\n", pdu);
  // Header and PDU come out of one delivery, so together they fit the line.
  strncat_s(line, MAX_ATCMD_REPORT_SIZE, pdu, static_cast<size_t>(pdu_length));
  *pos += pdu_length;
  line[*pos] = '\0';
  MDX_TRACE(kSource, MDX_TRACE_DETAIL, "at_sm_getline CBM3 pdu=%s\n", line);
}

}  // namespace

int32_t at_sm_getline(char* rcv_buffer, int32_t* pos) {
  if (rcv_buffer == nullptr || pos == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "at_sm_getline: error ,rcv_buffer or pos is null!\n");
    return -1;
  }
  const int32_t size = mdx_state.line_state == LINE_CR_PENDING ? -1 : at_sm_get_line(rcv_buffer);
  if (size < 0) return get_line_by_bytes(rcv_buffer, pos);
  rcv_buffer[size] = '\0';
  mdx_state.line_state = LINE_DONE;
  *pos += size;
  return 0;
}

void handle_sms_at(const at_msg_t* msg, int32_t* pos, int32_t* hcmgr_pending) {
  if (msg == nullptr || pos == nullptr || hcmgr_pending == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "handle_sms_at: msg or line or pos is null.\n");
    return;
  }
  char* line = mdx_state.line_buf;
  const bool raw_body_follows = holds(line, "^HCMGR");
  const bool pdu_follows = holds(line, "+CBM");
  if (!holds(line, "+CMGR") && !holds(line, "+CMGL") && !raw_body_follows && !pdu_follows) return;
  if (msg->req_type == TRANSPARENT_CMD) return;
  if (*pos > MAX_ATCMD_REPORT_SIZE - kLineEnd) return;
  line[(*pos)++] = '\r';
  line[(*pos)++] = '\n';
  if (raw_body_follows) *hcmgr_pending = 1;
  if (pdu_follows) append_cbm_pdu(pos);
}

void parse_hcmgr_line(char* dest, int32_t* hcmgr_pending) {
  MDX_TRACE(kSource, MDX_TRACE_DETAIL, "parse_hcmgr_line enter.\n");
  if (dest == nullptr || hcmgr_pending == nullptr) return;
  *hcmgr_pending = 0;

  char body[MAX_ATCMD_REPORT_SIZE] = {};
  const int32_t length = at_find_last_of_char(kCtrlZ) + kBodyEnd;
  if (at_sm_get_buf(body, length) == -1) {
    MDX_TRACE(kSource, MDX_TRACE_DETAIL, "at_sm_get_buf return error\n");
    return;
  }
  if (mdx_state.nas_response_legth + length >= MAX_ATCMD_REPORT_SIZE) {
    MDX_TRACE(kSource, MDX_TRACE_MISSING, "^HCMGR body of %d bytes behind %d does not fit\n",
              length, mdx_state.nas_response_legth);
    mdx_state.nas_response_cut = 1;
    return;
  }
  std::memcpy(dest, body, static_cast<size_t>(length));
  mdx_state.nas_response_legth += length;
}
