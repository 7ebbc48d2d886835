// SPDX-License-Identifier: Apache-2.0

#include "bench/plain_sorter.h"

#include <cstring>

#include "server/at_match.h"

namespace {

constexpr const char* kInstantUpdates[] = {"^CPINNTY:READY", "^CPINNTY:SIM PUK",
                                           "^CARDLOCKNTY:SIM LOCKED"};

bool get_char(plain_sorter_t* s, char* ch) {
  if (s->p_cur == s->p_end) return false;
  *ch = *s->p_cur;
  *s->p_cur++ = '\0';
  return true;
}

bool get_line(plain_sorter_t* s, int32_t* pos) {
  int32_t count = 0;
  char ch = '\0';
  while (get_char(s, &ch)) {
    if (ch == '\r') {
      if (!get_char(s, &ch)) return false;
      if (ch == '\n') {
        *pos = count;
        return true;
      }
    }
    s->line_buf[count++] = ch;
  }
  *pos = count;
  return count != 0;
}

bool is_instant_update(const char* line) {
  for (const char* text : kInstantUpdates) {
    if (std::strstr(line, text) != nullptr) return true;
  }
  return false;
}

bool find_result(const char* line, int* code) {
  for (const at_result_row_t* row = at_result_table; row->literal != nullptr; ++row) {
    if (std::strncmp(line, row->literal, std::strlen(row->literal)) != 0) continue;
    *code = row->code;
    return true;
  }
  return false;
}

bool is_report(const plain_sorter_t* s, const at_msg_t* msg, char* line, int32_t length) {
  if (line[0] == '>') return true;
  if (line[0] != '^' && line[0] != '+' && std::strstr(line, "RING") == nullptr &&
      std::strstr(line, "CONNECT") == nullptr) {
    return false;
  }
  for (const at_report_row_t* row = at_report_table; row->literal != nullptr; ++row) {
    if (std::strstr(line, row->literal) == nullptr) continue;
    if (row->handler != nullptr) row->handler(line, length);
    return true;
  }
  if (msg->req_type == TRANSPARENT_CMD) return false;
  if (msg->req_type == ACTIVE_REPORT) return true;
  const char* colon = std::strchr(line, ':');
  if (colon == nullptr) return false;
  char prefix[64] = {};
  if (colon - line >= 64) return true;
  std::memcpy(prefix, line, static_cast<size_t>(colon - line));
  return std::strstr(s->sent_cmd_head, prefix) == nullptr;
}

void accept_result(plain_sorter_t* s, at_msg_t* msg, int32_t pos, int code) {
  msg->ret_val = code;
  s->result_received = 1;
  std::memset(msg->snd_rcv_msg.rmsg, 0, MAX_ATCMD_REPORT_SIZE);
  const bool is_error = code == AT_CME_ERROR || code == AT_CMS_ERROR;
  msg->rsp_len = is_error ? pos : s->nas_response_legth;
  std::memcpy(msg->snd_rcv_msg.rmsg, is_error ? s->line_buf : s->nas_response,
              static_cast<size_t>(msg->rsp_len));
  s->nas_response_legth = 0;
}

void sort_lines(plain_sorter_t* s, at_msg_t* msg) {
  for (;;) {
    std::memset(s->line_buf, 0, MAX_ATCMD_REPORT_SIZE);
    int32_t pos = 0;
    if (!get_line(s, &pos)) return;
    if (pos == 0) continue;
    s->last_nas_msg = *msg;
    std::memcpy(s->last_nas_msg.snd_rcv_msg.rmsg, s->line_buf, MAX_ATCMD_REPORT_SIZE);

    if (is_instant_update(s->line_buf)) {
      if (s->result_received == 0) msg->ret_val = AT_NONE;
      return;
    }
    int code = 0;
    if (find_result(s->line_buf, &code) && s->result_received == 0) {
      return accept_result(s, msg, pos, code);
    }
    if (is_report(s, msg, s->line_buf, pos)) {
      if (s->result_received == 0) msg->ret_val = AT_NONE;
      msg->rsp_len = pos;
      continue;
    }
    if (s->nas_response_legth + pos >= MAX_ATCMD_REPORT_SIZE) {
      msg->rsp_len = MAX_ATCMD_REPORT_SIZE - 1;
      s->nas_response_legth = 0;
      return;
    }
    std::memcpy(s->nas_response + s->nas_response_legth, s->line_buf, static_cast<size_t>(pos));
    s->nas_response_legth += pos;
    msg->rsp_len = s->nas_response_legth;
  }
}

}  // namespace

void plain_parse_response(plain_sorter_t* sorter, at_msg_t* msg) {
  sorter->result_received = 0;
  while (sorter->p_cur != sorter->p_end) sort_lines(sorter, msg);
}
