// SPDX-License-Identifier: Apache-2.0

// A record that the server drops without a reply would cost its sender the whole deadline, and one
// that it cuts would run another command than was meant. Both are refused here.

#include "client/request.h"

#include <strings.h>

#include <cctype>
#include <cstddef>
#include <cstring>
#include <initializer_list>

#include "client/command_line.h"

namespace {

constexpr int64_t kReplySlackMs = 1000;
/// The server gives a transparent network search this time, whatever the record says.
constexpr int64_t kNetworkSearchMs = 240'000;
constexpr char kEndOfPdu = 0x1a;
/// Behind a PDU: its end mark and the two NULs that make it one.
constexpr size_t kEndOfPduSize = 3;

constexpr size_t kFirstOptionsSize =
    offsetof(mdx_options_t, transparent) + sizeof(mdx_options_t::transparent);
constexpr size_t kFirstResultSize = offsetof(mdx_result_t, refused) + sizeof(mdx_result_t::refused);

static_assert(MDX_MATCH_MAX == kMatchSize - 1 && MDX_COMMAND_MAX == kCommandSize - 2);
static_assert(int{MDX_RESULT_NONE} == AT_NONE && int{MDX_RESULT_OK} == AT_OK);
static_assert(int{MDX_RESULT_NOT_SUPPORTED} == AT_NOT_SUPPORTED);
static_assert(MDX_REPORT_RSSI == RSSI_REPORT);

bool all_zero(const char* bytes, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    if (bytes[i] != 0) return false;
  }
  return true;
}

/// A caller built against a newer header may set fields that are unknown here: those must be zero.
bool read_options(const mdx_options_t* given, mdx_options_t* options) {
  *options = MDX_OPTIONS_INIT;
  if (given == nullptr) return true;
  if (given->size < kFirstOptionsSize || given->size > 4096) return false;
  const size_t known = given->size < sizeof(*options) ? given->size : sizeof(*options);
  if (!all_zero(reinterpret_cast<const char*>(given) + known, given->size - known)) return false;
  std::memcpy(options, given, known);
  const bool flags = (options->multi_line | options->transparent | 1) == 1;
  return options->timeout_s >= 0 && options->deadline_ms >= 0 && options->wait_s >= 0 && flags &&
         options->multi_line + options->transparent < 2;
}

/// What of a request the checks look at, and what they find out.
struct checked_t {
  mdx_options_t options;
  command_line_t line;    ///< the command or head as the modem reads it
  size_t command_length;  ///< without line ends
  message_command_t message;
  size_t position;  ///< of the byte that is wrong
};

bool starts_with_at(const char* command) { return strncasecmp(command, "AT", 2) == 0; }

bool holds_control(const char* text, size_t length, checked_t* checked) {
  const size_t at = find_control(text, length);
  if (at != kNoControl) checked->position = at;
  return at != kNoControl;
}

mdx_mistake_t check_options(const mdx_options_t* given, checked_t* checked) {
  if (!read_options(given, &checked->options)) return MDX_MISTAKE_OPTIONS;
  const char* match = checked->options.match;
  if (match == nullptr) return MDX_MISTAKE_NONE;
  const size_t length = std::strlen(match);
  if (length > MDX_MATCH_MAX) return MDX_MISTAKE_MATCH_TOO_LONG;
  return holds_control(match, length, checked) ? MDX_MISTAKE_MATCH_CONTROL : MDX_MISTAKE_NONE;
}

/// What a command and the head of a message have in common.
mdx_mistake_t check_line(const char* command, size_t length, const mdx_options_t* given,
                         checked_t* checked) {
  const mdx_mistake_t mistake = check_options(given, checked);
  if (mistake != MDX_MISTAKE_NONE) return mistake;
  if (!starts_with_at(command)) return MDX_MISTAKE_NOT_AT;
  if (holds_control(command, length, checked)) return MDX_MISTAKE_CONTROL;
  if (length > MDX_COMMAND_MAX) return MDX_MISTAKE_TOO_LONG;
  checked->command_length = length;
  checked->line = read_command_line(command, length);
  checked->message = message_command_in(checked->line);
  return MDX_MISTAKE_NONE;
}

mdx_mistake_t check_command(const char* command, const mdx_options_t* given, checked_t* checked) {
  if (command == nullptr) return MDX_MISTAKE_NOT_AT;
  size_t length = std::strlen(command);
  while (length > 0 && (command[length - 1] == '\r' || command[length - 1] == '\n')) --length;
  const mdx_mistake_t mistake = check_line(command, length, given, checked);
  if (mistake != MDX_MISTAKE_NONE) return mistake;
  if (checked->message.kind == MESSAGE_KNOWN) return MDX_MISTAKE_NEEDS_PDU;
  if (checked->message.kind == MESSAGE_UNKNOWN) return MDX_MISTAKE_UNKNOWN_PROMPT;
  const bool two_steps = checked->options.transparent == 0 && two_step_name_in(command) != nullptr;
  return two_steps ? MDX_MISTAKE_NOT_TRANSPARENT : MDX_MISTAKE_NONE;
}

/// An even number of hexadecimal digits, at least one pair.
bool is_pdu(const char* pdu, checked_t* checked) {
  size_t& length = checked->position;
  for (length = 0; pdu[length] != '\0'; ++length) {
    if (std::isxdigit(static_cast<unsigned char>(pdu[length])) == 0) return false;
  }
  return length > 0 && length % 2 == 0;
}

mdx_mistake_t check_pdu(const char* head, const char* pdu, const mdx_options_t* given,
                        checked_t* checked) {
  if (head == nullptr) return MDX_MISTAKE_NOT_AT;
  const mdx_mistake_t mistake = check_line(head, std::strlen(head), given, checked);
  if (mistake != MDX_MISTAKE_NONE) return mistake;
  if (checked->options.transparent != 0) return MDX_MISTAKE_OPTIONS;
  if (checked->message.kind == MESSAGE_UNKNOWN) return MDX_MISTAKE_UNKNOWN_PROMPT;
  if (checked->message.kind == MESSAGE_NONE || !checked->message.last)
    return MDX_MISTAKE_NO_MESSAGE;
  if (pdu == nullptr || !is_pdu(pdu, checked)) return MDX_MISTAKE_PDU;
  const size_t size = checked->line.length + 1 + std::strlen(pdu) + kEndOfPduSize;
  checked->position = 0;
  return size > kCommandSize ? MDX_MISTAKE_TOO_LONG : MDX_MISTAKE_NONE;
}

void open_request(const mdx_options_t& options, int64_t default_ms, request_t* request) {
  *request = request_t{};
  request->wait_ms = static_cast<int64_t>(options.wait_s) * 1000;
  request->serve_ms = default_ms;
  const int64_t both_ms = request->wait_ms + request->serve_ms;
  request->deadline_ms = options.deadline_ms > 0 ? options.deadline_ms : both_ms;
  at_msg_t& record = request->record;
  record.req_type = options.transparent != 0 ? TRANSPARENT_CMD : NORMAL_CMD;
  record.multi_line = options.multi_line;
  record.timeout = options.timeout_s;
  // The field is never all zero, also without a match: behind a text's NUL nobody looks. A server
  // that refuses a request clears all of it, and that tells its refusal from the modem's.
  std::memset(record.at_match_str, '~', sizeof(record.at_match_str));
  const char* match = options.match != nullptr ? options.match : "";
  std::memcpy(record.at_match_str, match, std::strlen(match) + 1);
}

int64_t wait_of(const mdx_options_t& options, const char* command) {
  const bool search =
      std::strstr(command, "+COPS=?") != nullptr || std::strstr(command, "+cops=?") != nullptr;
  if (options.transparent != 0 && search) return kNetworkSearchMs + kReplySlackMs;
  return static_cast<int64_t>(options.timeout_s) * 1000 + kReplySlackMs;
}

bool is_two_steps(const at_msg_t& sent) {
  return sent.req_type == NORMAL_CMD && two_step_name_in(sent.snd_rcv_msg.smsg) != nullptr;
}

/// What the server leaves in the text when it ends a PDU exchange at the head is the request
/// itself.
bool is_own_request(const at_msg_t& sent, const at_msg_t& answer) {
  return is_two_steps(sent) &&
         std::memcmp(sent.snd_rcv_msg.smsg, answer.snd_rcv_msg.smsg, kCommandSize) == 0;
}

/// Whether `text` holds "+CMGS: 12", for the name "+CMGS".
bool holds_reference(const char* text, const char* name) {
  for (const char* at = text; (at = std::strstr(at, name)) != nullptr;) {
    at += std::strlen(name);
    at += std::strspn(at, " ");
    if (*at != ':') continue;
    at += 1 + std::strspn(at + 1, " ");
    if (*at >= '0' && *at <= '9') return true;
  }
  return false;
}

/// An OK to the head of a message, or one without the reference that 3GPP TS 27.005 wants in front
/// of it, belongs to something else. A match that drops the reference cannot be held to it.
bool is_unconfirmed(const at_msg_t& sent, const at_msg_t& answer, const char* text) {
  if (!is_two_steps(sent) || (answer.ret_val != AT_OK && answer.ret_val != MDX_RESULT_CONNECT)) {
    return false;
  }
  if (is_own_request(sent, answer)) return true;
  for (const char* name : {"+CMGS", "+CMGW"}) {
    if (std::strncmp(sent.at_match_str, name, std::strlen(name)) != 0) continue;
    return !holds_reference(text, name);
  }
  return false;
}

/// The server leaves the size of its room there, or the most that fits, when there was more text.
bool is_truncated(const at_msg_t& answer, size_t length) {
  if (answer.rsp_len == MAX_ATCMD_REPORT_SIZE) return true;
  return answer.rsp_len == MAX_ATCMD_REPORT_SIZE - 1 && length != MAX_ATCMD_REPORT_SIZE - 1;
}

bool refused_by_server(const at_msg_t& sent, const at_msg_t& answer) {
  if (answer.ret_val != AT_NOT_SUPPORTED) return false;
  if (is_two_steps(sent)) return answer.snd_rcv_msg.rmsg[0] == '\0';
  static constexpr char kCleared[kMatchSize] = {};
  return std::memcmp(answer.at_match_str, kCleared, kMatchSize) == 0;
}

}  // namespace

int mdx_check(const char* command, const char* pdu, const mdx_options_t* options,
              uint32_t* position) {
  checked_t checked{};
  const mdx_mistake_t mistake = pdu == nullptr ? check_command(command, options, &checked)
                                               : check_pdu(command, pdu, options, &checked);
  if (position != nullptr) *position = static_cast<uint32_t>(checked.position);
  return mistake;
}

int request_command(const char* command, const mdx_options_t* given, request_t* request) {
  checked_t checked{};
  if (check_command(command, given, &checked) != MDX_MISTAKE_NONE) return MDX_ERR_ARGUMENT;
  open_request(checked.options, wait_of(checked.options, command), request);
  std::memcpy(request->record.snd_rcv_msg.smsg, command, checked.command_length);
  return MDX_OK;
}

int request_pdu(const char* head, const char* pdu, const mdx_options_t* given, request_t* request) {
  checked_t checked{};
  if (check_pdu(head, pdu, given, &checked) != MDX_MISTAKE_NONE) return MDX_ERR_ARGUMENT;
  mdx_options_t& options = checked.options;
  if (options.match == nullptr) options.match = checked.message.name;
  const int64_t one_wait = static_cast<int64_t>(options.timeout_s) * 1000;
  open_request(options, 2 * one_wait + kReplySlackMs, request);

  // The server knows a message command by its capitals, without a blank in it.
  const command_line_t& line = checked.line;
  const size_t pdu_length = std::strlen(pdu);
  char* text = request->record.snd_rcv_msg.smsg;
  std::memcpy(text, line.text, line.length);
  text[line.length] = '\r';
  std::memcpy(text + line.length + 1, pdu, pdu_length);
  text[line.length + 1 + pdu_length] = kEndOfPdu;
  return MDX_OK;
}

int request_report(int32_t report, const mdx_options_t* given, request_t* request) {
  checked_t checked{};
  if (check_options(given, &checked) != MDX_MISTAKE_NONE) return MDX_ERR_ARGUMENT;
  const int64_t wait_ms = static_cast<int64_t>(checked.options.timeout_s) * 1000 + kReplySlackMs;
  open_request(checked.options, wait_ms, request);
  request->record.req_type = GET_REPORT;
  request->record.rep_type = report;
  return MDX_OK;
}

void read_answer(const at_msg_t& sent, const at_msg_t& answer,
                 char (&text)[MAX_ATCMD_REPORT_SIZE + 1], mdx_result_t* result) {
  std::memcpy(text, answer.snd_rcv_msg.rmsg, MAX_ATCMD_REPORT_SIZE);
  text[MAX_ATCMD_REPORT_SIZE] = '\0';
  if (is_own_request(sent, answer)) text[0] = '\0';

  // A transparent text that timed out can stand behind the place of an earlier, cleared delivery.
  const char* start = text;
  if (answer.ret_val == AT_NONE && sent.req_type == TRANSPARENT_CMD) {
    while (start < text + MAX_ATCMD_REPORT_SIZE && *start == '\0') ++start;
  }

  mdx_result_t filled = MDX_RESULT_INIT;
  filled.size = result->size;
  filled.ret_val =
      is_unconfirmed(sent, answer, start) ? int32_t{MDX_RESULT_NO_VERDICT} : answer.ret_val;
  filled.text = start;
  filled.length = static_cast<uint32_t>(std::strlen(start));
  filled.timeout_left_s = answer.timeout;
  filled.refused = refused_by_server(sent, answer) ? 1 : 0;
  filled.truncated = is_truncated(answer, filled.length) ? 1 : 0;
  std::memcpy(result, &filled, result->size < sizeof(filled) ? result->size : sizeof(filled));
}

bool result_usable(const mdx_result_t* result) {
  return result != nullptr && result->size >= kFirstResultSize;
}
