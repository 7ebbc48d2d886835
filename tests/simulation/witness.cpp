// SPDX-License-Identifier: Apache-2.0

#include "tests/simulation/witness.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "channel/mdx_register.h"
#include "wire/destinations.h"

namespace simulation {
namespace {

using fake::entry;
using fake::kind;
using namespace std::string_literals;

constexpr size_t kLineMax = kCommandSize - 2;
constexpr size_t kTextMax = MAX_ATCMD_REPORT_SIZE - 1;

/// The start message and every tenth traffic report: they depend on more than the line.
bool is_counted_out(const entry& e) {
  return e.what == kind::SERVICE &&
         (e.type == CMS_MSG_DATACARD_INSERTED || e.type == CMS_MSG_FLOW_REPORT);
}

bool is_witnessed(const entry& e) {
  if (e.is_packet()) return !is_counted_out(e);
  return e.what == kind::WRITE || e.what == kind::WRITE_FAILED || e.what == kind::REQUEST ||
         e.what == kind::DELIVERY || e.what == kind::SILENCE || e.what == kind::REPLY;
}

std::string text_of(const at_msg_t& msg) {
  return {msg.snd_rcv_msg.rmsg, sizeof(msg.snd_rcv_msg.rmsg)};
}

void set_text(at_msg_t* msg, const std::string& text) {
  std::memset(&msg->snd_rcv_msg, 0, sizeof(msg->snd_rcv_msg));
  text.copy(msg->snd_rcv_msg.rmsg, sizeof(msg->snd_rcv_msg.rmsg));
}

void clear_answer(at_msg_t* msg, int32_t ret_val) {
  std::memset(at_answer_area(msg), 0, sizeof(at_answer_t));
  msg->ret_val = ret_val;
}

int64_t wait_of(const at_msg_t& msg) {
  return std::clamp<int64_t>(int64_t{1000} * msg.timeout, 0, INT32_MAX);
}

std::string hex(const std::string& bytes) {
  std::string out;
  for (const char byte : bytes) {
    char text[8];
    const bool plain = byte >= ' ' && byte <= '~';
    snprintf(text, sizeof(text), plain ? "%c" : "\\x%02x", static_cast<uint8_t>(byte));
    out += text;
  }
  return out;
}

/// What a client sees of a record.
std::string shown(const at_msg_t& msg) {
  return "ret_val " + std::to_string(msg.ret_val) + ", rsp_len " + std::to_string(msg.rsp_len) +
         ", timeout " + std::to_string(msg.timeout) + ", match \"" + hex(msg.at_match_str) +
         "\", text \"" + hex(text_of(msg).c_str()) + "\"";
}

}  // namespace

void witness::read(const std::vector<entry>& journal) {
  journal_.clear();
  at_ = 0;
  std::copy_if(journal.begin(), journal.end(), std::back_inserter(journal_), is_witnessed);
  if (!is_set_up_) set_up();
  while (ahead() != nullptr) {
    if (comes(kind::REQUEST)) {
      serve(take(kind::REQUEST));
    } else if (comes(kind::SILENCE)) {
      if (take(kind::SILENCE).a != 0) fail("the server waits with nobody to answer");
    } else {
      std::string delivery;
      is_delivered({}, &delivery);
      parse(delivery, &nobody_);
    }
  }
  if (!said_.empty()) fail("deliveries were not taken");
}

const entry* witness::ahead() const { return at_ < journal_.size() ? &journal_[at_] : nullptr; }

bool witness::comes(kind what) const { return ahead() != nullptr && ahead()->what == what; }

const entry& witness::take(kind what) {
  if (ahead() == nullptr) fail("more was to come: " + std::to_string(static_cast<int>(what)));
  if (!comes(what)) fail("something else was to come: " + std::to_string(static_cast<int>(what)));
  return journal_[at_++];
}

void witness::fail(const std::string& problem) const {
  std::string text = problem;
  for (size_t i = at_ < 8 ? 0 : at_ - 8; i < std::min(at_ + 2, journal_.size()); ++i)
    text += std::string(i == at_ ? "\n> " : "\n  ") + std::to_string(journal_[i].at) + " " +
            hex(journal_[i].line().c_str()).substr(0, 400);
  throw broken_rule(text);
}

/// The server's own command, which no client asked for.
void witness::set_up() {
  at_msg_t msg = {};
  msg.timeout = 3;
  std::strcpy(msg.at_match_str, "+CMEE:");
  set_text(&msg, "AT+CMEE=1");
  run_normal(&msg);
  is_set_up_ = true;
}

void witness::serve(const entry& request) {
  auto msg = request.as<at_msg_t>();
  ++counts_.requests;
  if (strnlen(msg.at_match_str, kMatchSize) == kMatchSize) msg.at_match_str[kMatchSize - 1] = '\0';
  if (text_of(msg).find('\0') == std::string::npos) msg.snd_rcv_msg.rmsg[kTextMax] = '\0';
  const std::string text = msg.snd_rcv_msg.rmsg;
  const bool is_raw = msg.req_type == TRANSPARENT_CMD;
  if (is_raw && (text.find("+COPS=?") != text.npos || text.find("+cops=?") != text.npos))
    msg.timeout = 240;

  if (msg.req_type == NORMAL_CMD || is_raw) {
    if (strncasecmp(text.c_str(), "AT", 2) != 0) return;
    bool is_dialogue = false;
    for (const char* command : {"+CMGS", "+CMGW", "^HCMGS", "^HCMGW"})
      is_dialogue |= !is_raw && text.find(command) != text.npos;
    const auto budget = static_cast<uint64_t>(wait_of(msg));
    is_dialogue ? run_dialogue(&msg) : run_normal(&msg);
    if (ahead() != nullptr && ahead()->at - request.at > budget * (is_dialogue ? 2 : 1))
      fail("the exchange outlasted its budget");
  } else if (msg.req_type == ACTIVE_REPORT) {
    std::string discarded;
    is_delivered(msg, &discarded);
    return;
  } else if (msg.req_type == GET_REPORT) {
    clear_answer(&msg, msg.rep_type == RSSI_REPORT ? AT_OK : 0);
    if (msg.rep_type == RSSI_REPORT) set_text(&msg, rssi_);
  } else {
    clear_answer(&msg, AT_NOT_SUPPORTED);
    if (msg.req_type == REQ_RESERVED_3) return;
  }
  expect_reply(msg);
}

/// @return false when the modem did not get it
bool witness::is_sent(const std::string& text, size_t length) {
  std::string line = text.substr(0, std::min(length, kCommandSize - 1));
  while (!line.empty() && std::strchr("\r\n", line.back()) != nullptr) line.pop_back();
  line = line.substr(0, kLineMax) + '\r';
  const bool failed = comes(kind::WRITE_FAILED);
  if (take(failed ? kind::WRITE_FAILED : kind::WRITE).text != line)
    fail("another line was to be written: " + hex(line));
  return !failed;
}

/// @return false when nothing came in time
bool witness::is_delivered(const at_msg_t& msg, std::string* delivery) {
  const bool silent = comes(kind::SILENCE);
  const entry& e = take(silent ? kind::SILENCE : kind::DELIVERY);
  if (e.a != wait_of(msg)) fail("waited for " + std::to_string(e.a) + " ms");
  if (silent) return false;
  const auto element = e.as<nas_element_t>();
  *delivery = std::string(element.data, element.length);
  if (said_.empty() || said_.front() != *delivery) fail("the modem said something else");
  said_.pop_front();
  ++counts_.deliveries;
  return true;
}

void witness::parse(const std::string& delivery, answer_t* answer) {
  expect_packets(rules_.parse(delivery, answer));
}

/// The handlers run a second time, on a line of their own that ends with its memory.
void witness::expect_packets(const std::vector<report_t>& reports) {
  fake::journal.clear();
  for (const report_t& report : reports) {
    std::vector<char> line(report.line.begin(), report.line.end());
    line.push_back('\0');
    report.row->handler(line.data(), static_cast<int32_t>(report.line.size()));
    if (std::strcmp(report.row->literal, "^RSSI") == 0) rssi_ = report.line.c_str();
    ++counts_.reports;
  }
  rssi_ = rssi_.substr(0, MAX_ATCMD_REPORT_SIZE);
  for (const entry& packet : fake::packets()) {
    if (is_counted_out(packet)) continue;
    const entry& e = take(packet.what);
    if (e.line() != packet.line()) fail("another packet was to be sent: " + packet.line());
  }
}

void witness::run_normal(at_msg_t* msg) {
  const std::string bytes = text_of(*msg);
  const std::string text = bytes.c_str();
  const int32_t cmd_len = msg->snd_rcv_msg.command.cmd_len;
  rules_.sent_head = text.substr(0, 63);
  const uint64_t start = ahead() == nullptr ? 0 : ahead()->at;
  if (!is_sent(bytes, cmd_len > 0 ? static_cast<size_t>(cmd_len) : text.size()))
    return clear_answer(msg, AT_NOT_SUPPORTED);
  answer_t answer = {msg->req_type, msg->multi_line, msg->at_match_str};
  answer.rsp_len = msg->rsp_len;
  await_answer(msg, answer, start, false);
}

void witness::run_dialogue(at_msg_t* msg) {
  const std::string text = text_of(*msg);
  const size_t cr = std::string(text.c_str()).find('\r');
  const size_t mark = cr == text.npos ? cr : text.find("\x1a\0\0"s, cr + 1);
  if (mark == text.npos || cr > kLineMax || mark - cr > kLineMax) return;

  answer_t answer = {msg->req_type, msg->multi_line, msg->at_match_str, "", 0, 0};
  std::string delivery;
  const uint64_t start = ahead() == nullptr ? 0 : ahead()->at;
  bool sent = is_sent(text, cr);
  if (sent && is_delivered(*msg, &delivery)) {
    parse(delivery, &answer);
    msg->ret_val = answer.ret_val;
    if (answer.ret_val != AT_NONE) return;
  }
  sent = sent && is_sent(text.substr(cr + 1), mark - cr + 1);
  if (sent) return await_answer(msg, answer, start, true);
  set_text(msg, answer.text);
  msg->ret_val = AT_NOT_SUPPORTED;
  msg->rsp_len = answer.rsp_len;
}

/// Reads until there is an answer or the budget is spent.
/// @param anew  each read starts from what was there before the first
void witness::await_answer(at_msg_t* msg, const answer_t& before, uint64_t start, bool anew) {
  answer_t answer = before;
  for (;;) {
    std::string delivery;
    if (anew) answer = before;
    answer.text.clear();
    const bool delivered = is_delivered(*msg, &delivery);
    const uint64_t now = journal_[at_ - 1].at;
    if (delivered) parse(delivery, &answer);
    set_text(msg, answer.text);
    msg->ret_val = answer.ret_val;
    msg->rsp_len = answer.rsp_len;
    const std::string shown = msg->snd_rcv_msg.rmsg;
    const bool matched = !answer.match.empty() && shown.find(answer.match) != shown.npos;
    if (delivered && (matched || answer.ret_val != AT_NONE)) return;
    const auto seconds = static_cast<int64_t>((now - start + 999) / 1000);
    if (!delivered || seconds >= msg->timeout) break;
    msg->timeout -= static_cast<int32_t>(seconds);
    start = now;
  }
}

void witness::expect_reply(const at_msg_t& msg) {
  const auto got = take(kind::REPLY).as<at_msg_t>();
  if (std::memcmp(&got, &msg, sizeof(msg)) != 0)
    fail("expected " + shown(msg) + "; got " + shown(got));
  ++counts_.replies;
}

}  // namespace simulation
