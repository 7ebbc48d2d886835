// SPDX-License-Identifier: Apache-2.0

// A delivery is worked through in passes. A pass takes line after line until a result or an instant
// update ends it, or the delivery does; then the next pass goes on with what is left. The response
// text waits in a collector of its own, because each read clears the record's.

#include "server/at_parser.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "channel/mdx_register.h"
#include "platform/bounded.h"
#include "server/at_framing.h"
#include "server/at_match.h"
#include "server/at_stream.h"
#include "server/mdx_state.h"

namespace {

constexpr mdx_trace_source_t kSource = MDX_FROM_LINE;
constexpr std::string_view kLineEnd = "\r\n";
/// The collector never holds more, so that a response always has its NUL inside `rmsg`.
constexpr int32_t kResponseMax = MAX_ATCMD_REPORT_SIZE - 1;

/// What a line does to the pass it came in.
enum class pass_t { kGoesOn, kEndsDone, kEndsOpen };

/// One line as the framing left it.
struct line_t {
  char* text;
  int32_t pos;            // its length, which counts NUL bytes in it
  int32_t hcmgr_pending;  // 1: a raw body follows
  at_findings_t found;    // what it holds of the tables' literals
};

/// Cuts the response text to `size` bytes, and notes that some of it is missing.
void shorten_to(int32_t size) {
  mdx_state.nas_response_legth = size;
  mdx_state.nas_response_cut = 1;
}

bool has_room_for(int32_t size) { return mdx_state.nas_response_legth + size <= kResponseMax; }

void append(std::string_view bytes) {
  std::memcpy(mdx_state.nas_response + mdx_state.nas_response_legth, bytes.data(), bytes.size());
  mdx_state.nas_response_legth += static_cast<int32_t>(bytes.size());
}

std::string_view view(const line_t& line) { return {line.text, static_cast<size_t>(line.pos)}; }

/// The line as the console shows it: no more than fits a record. The NUL bytes that stand behind it
/// in the line buffer make it whole words, which are quicker to store.
std::string_view shown(const line_t& line) {
  const size_t whole_words = (static_cast<size_t>(line.pos) | (sizeof(uintptr_t) - 1)) + 1;
  return {line.text, std::min<size_t>(whole_words, MAX_ATCMD_REPORT_SIZE)};
}

/// A header without line end can leave a line one byte longer than a response: it is cut.
void set_response(at_msg_t* msg, std::string_view text) {
  char* rmsg = msg->snd_rcv_msg.rmsg;
  const size_t length = std::min<size_t>(text.size(), kResponseMax);
  memset_s(rmsg, sizeof(msg->snd_rcv_msg.rmsg), 0, MAX_ATCMD_REPORT_SIZE);
  memcpy_s(rmsg, sizeof(msg->snd_rcv_msg.rmsg), text.data(), length);
  msg->rsp_len = static_cast<int32_t>(length);
}

std::string_view collected() {
  return {mdx_state.nas_response, static_cast<size_t>(mdx_state.nas_response_legth)};
}

void empty_collector() { mdx_state.nas_response_legth = mdx_state.nas_response_cut = 0; }

/// The collected text becomes the answer's. That a part of it is missing is told by a length that
/// no text has.
void set_collected_response(at_msg_t* msg) {
  set_response(msg, collected());
  if (mdx_state.nas_response_cut != 0) msg->rsp_len = MAX_ATCMD_REPORT_SIZE;
}

/// After one line that did not fit no other is taken: the text is the beginning of the answer.
bool fits(int32_t size) { return mdx_state.nas_response_cut == 0 && has_room_for(size); }

/// The line is left out, and so is all behind it but the result.
[[gnu::cold]] pass_t leave_out(at_msg_t* msg) {
  shorten_to(mdx_state.nas_response_legth);
  msg->rsp_len = MAX_ATCMD_REPORT_SIZE;
  return pass_t::kGoesOn;
}

/// The line would take the response past its bound: both are dropped, and collecting starts anew.
[[gnu::cold]] pass_t drop_response(at_msg_t* msg) {
  MDX_TRACE(kSource, MDX_TRACE_DETAIL,
            "(nas_response_legth + pos) >= MAX_ATCMD_REPORT_SIZE : %d \n", MAX_ATCMD_REPORT_SIZE);
  msg->rsp_len = kResponseMax;
  MDX_TRACE(kSource, MDX_TRACE_DETAIL, "line_buf : <***>\n");
  MDX_TRACE(kSource, MDX_TRACE_DETAIL, "msg->snd_rcv_msg.rmsg : <***>\n");
  empty_collector();
  return pass_t::kEndsOpen;
}

/// A line that holds the client's pattern. `rsp_len` stays.
pass_t take_pattern_line(at_msg_t* msg, const line_t& line) {
  if (msg->multi_line != 0 && msg->multi_line != 1) return pass_t::kEndsOpen;
  const std::string_view end = msg->multi_line == 1 ? kLineEnd : "";
  if (!fits(line.pos + static_cast<int32_t>(end.size()))) return leave_out(msg);
  append(view(line));
  append(end);
  return pass_t::kGoesOn;
}

/// A line of a transparent answer, which also goes straight into `rmsg`: a client whose exchange
/// times out gets what the last delivery held.
[[gnu::cold]] pass_t take_transparent_line(at_msg_t* msg, const line_t& line) {
  if (!fits(line.pos + static_cast<int32_t>(kLineEnd.size()))) return leave_out(msg);
  const int32_t start = mdx_state.nas_response_legth;
  append(view(line));
  append(kLineEnd);
  std::memcpy(msg->snd_rcv_msg.rmsg + start, mdx_state.nas_response + start,
              static_cast<size_t>(mdx_state.nas_response_legth - start));
  msg->rsp_len = mdx_state.nas_response_legth;
  return pass_t::kGoesOn;
}

/// A line that is nothing else: text of the answer.
pass_t take_text_line(at_msg_t* msg, const line_t& line) {
  if (msg->multi_line != 1) {
    if (msg->req_type == TRANSPARENT_CMD) return take_transparent_line(msg, line);
    if (msg->multi_line != 0) return pass_t::kEndsOpen;
    MDX_TRACE(kSource, MDX_TRACE_DETAIL, "nas_response_legth : %d,  pos : %d \n",
              mdx_state.nas_response_legth, line.pos);
  }
  if (msg->multi_line == 1 && !fits(line.pos)) return leave_out(msg);
  if (!has_room_for(line.pos)) return drop_response(msg);
  append(view(line));
  msg->rsp_len = mdx_state.nas_response_legth;
  if (msg->multi_line == 0) {
    MDX_TRACE(kSource, MDX_TRACE_DETAIL, "msg->snd_rcv_msg.rmsg : <***>\n");
  }
  return pass_t::kGoesOn;
}

/// The response of a transparent command ends with the result line itself. Lines at the end of a
/// response that leaves no room for it give way; a result line too long for its CR LF is cut.
[[gnu::cold]] void answer_transparent(at_msg_t* msg, const line_t& line) {
  constexpr int32_t kLongest = kResponseMax - static_cast<int32_t>(kLineEnd.size());
  const auto size = static_cast<size_t>(std::min(line.pos, kLongest));
  while (!has_room_for(static_cast<int32_t>(size + kLineEnd.size()))) {
    std::string_view text = collected();
    text.remove_suffix(1);
    const size_t end = text.rfind(kLineEnd);
    shorten_to(end == std::string_view::npos ? 0 : static_cast<int32_t>(end + kLineEnd.size()));
  }
  append({line.text, size});
  append(kLineEnd);
  set_collected_response(msg);
}

pass_t accept_result(at_msg_t* msg, const line_t& line, int err_code) {
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "The result of one AT cmd, ret value is %d \n", err_code);
  msg->ret_val = err_code;
  mdx_state.result_received = 1;
  mdx_state.sms_cancel_marker = -1;

  const bool valid = msg->multi_line == 0 || msg->multi_line == 1;
  if (msg->req_type == TRANSPARENT_CMD) {
    answer_transparent(msg, line);
  } else if (valid && (err_code == AT_CME_ERROR || err_code == AT_CMS_ERROR)) {
    set_response(msg, view(line));
  } else if (msg->multi_line == 0 || (valid && err_code == AT_OK)) {
    set_collected_response(msg);
  } else {
    msg->rsp_len = 0;
  }
  empty_collector();
  return pass_t::kEndsDone;
}

/// An instant update: neither a report nor text, and the end of the pass.
[[gnu::cold]] pass_t take_instant_update(at_msg_t* msg) {
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "instant update\n");
  if (mdx_state.result_received == 0) {
    msg->ret_val = AT_NONE;
    MDX_TRACE(kSource, MDX_TRACE_FLOW, "instant update ret_val = %d \n", msg->ret_val);
  }
  mdx_state.line_buf[0] = '\0';
  return pass_t::kEndsDone;
}

/// A report, whose handler has run by now, or the SMS prompt.
pass_t take_report(at_msg_t* msg, const line_t& line) {
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "report msg\n");
  if (mdx_state.result_received == 0) {
    msg->ret_val = AT_NONE;
    MDX_TRACE(kSource, MDX_TRACE_FLOW, "report msge ret_val = %d \n", msg->ret_val);
  }
  msg->rsp_len = line.pos;
  return pass_t::kGoesOn;
}

bool holds_pattern(const at_msg_t& msg, const char* line) {
  return msg.at_match_str[0] != '\0' && std::strstr(line, msg.at_match_str) != nullptr;
}

/// Decides what a line is. The order of the questions is the contract with the clients.
pass_t sort_line(at_msg_t* msg, const line_t& line) {
  int err_code = 0;
  int index = 0;
  if (line.found.notification != -1 && mdx_instant_update(line.text) == 0) {
    return take_instant_update(msg);
  }
  if (holds_pattern(*msg, line.text)) {
    MDX_TRACE(kSource, MDX_TRACE_FLOW, "match str = %s\n", msg->at_match_str);
    return take_pattern_line(msg, line);
  }
  if (atcmd_match_result(line.text, &err_code) == 0 && mdx_state.result_received == 0) {
    return accept_result(msg, line, err_code);
  }
  if (at_take_report(*msg, line.text, line.pos, line.found.report, &index) == 0) {
    return take_report(msg, line);
  }
  return take_text_line(msg, line);
}

/// Clears what the line before has left, and no more.
void clear_line() {
  std::memset(mdx_state.line_buf, 0, static_cast<size_t>(mdx_state.line_used));
  mdx_state.line_used = 0;
}

/// What the header gets may hold a literal, too.
void complete_sms_header(const at_msg_t& msg, line_t* line) {
  handle_sms_at(&msg, &line->pos, &line->hcmgr_pending);
  line->found = at_look_through(line->text);
}

/// The next line, complete if it is an SMS header. It takes no more of the line buffer than was
/// read for it, and the CR LF that a header gets back.
/// @return false when the delivery is used up
bool take_line(const at_msg_t& msg, line_t* line) {
  const char* start = mdx_state.stream.p_cur;
  const int32_t taken = at_sm_getline(line->text, &line->pos);
  if (taken == 0 && line->pos != 0) {
    line->found = at_look_through(line->text);
    if (line->found.sms_header != -1) complete_sms_header(msg, line);
  }
  mdx_state.line_used =
      static_cast<int32_t>(mdx_state.stream.p_cur - start) + static_cast<int32_t>(kLineEnd.size());
  return taken == 0;
}

/// Works through lines until one of them ends the pass, or the delivery is used up.
/// @return 0 when a result or an instant update ended it, else -1
int32_t parse_exc_result(at_msg_t* msg) {
  if (msg == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "parse_exc_result:error,msg is null!\n");
    return -1;
  }
  line_t line = {mdx_state.line_buf, 0, 0, {}};
  pass_t pass = pass_t::kGoesOn;
  while (pass == pass_t::kGoesOn) {
    clear_line();
    line.pos = 0;
    line.found = {};
    if (line.hcmgr_pending == 1) {
      parse_hcmgr_line(mdx_state.nas_response + mdx_state.nas_response_legth, &line.hcmgr_pending);
      continue;
    }
    if (!take_line(*msg, &line)) return -1;
    if (line.text[0] == '\0' && line.pos == 0) continue;

    MDX_TRACE(kSource, MDX_TRACE_FLOW, "data from usb  = ***,and at_match_str  = <%s>,pos = %d!\n",
              msg->at_match_str, line.pos);
    mdx_state.last_nas_msg.store(*msg, shown(line));
    pass = sort_line(msg, line);
  }
  return pass == pass_t::kEndsDone ? 0 : -1;
}

}  // namespace

int32_t parse_response(at_msg_t* msg) {
  if (msg == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "parse_response : error,msg is null!\n");
    return -1;
  }
  mdx_state.result_received = 0;
  while (at_sm_is_rcv_buf_empty(&mdx_state.stream) == -1) parse_exc_result(msg);
  return 0;
}
