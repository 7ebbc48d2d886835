// SPDX-License-Identifier: Apache-2.0

// A record that the server drops without a reply would cost its sender the whole deadline, and one
// that it cuts would run another command than was meant. Both are refused here.

#include "client/request.h"

#include <strings.h>

#include <cctype>
#include <cstddef>
#include <cstring>

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

/// The server splits a text that holds one of these, in capitals, into command line and PDU.
constexpr const char* kSmsCommands[] = {"+CMGS", "+CMGW", "^HCMGS", "^HCMGW"};

const char* sms_command_in(const char* text) {
  for (const char* name : kSmsCommands) {
    if (std::strstr(text, name) != nullptr) return name;
  }
  return nullptr;
}

bool all_zero(const char* bytes, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    if (bytes[i] != 0) return false;
  }
  return true;
}

/// A caller built against a newer header may set fields that are unknown here: those must be zero.
int read_options(const mdx_options_t* given, mdx_options_t* options) {
  *options = MDX_OPTIONS_INIT;
  if (given == nullptr) return MDX_OK;
  if (given->size < kFirstOptionsSize || given->size > 4096) return MDX_ERR_ARGUMENT;
  const size_t known = given->size < sizeof(*options) ? given->size : sizeof(*options);
  if (!all_zero(reinterpret_cast<const char*>(given) + known, given->size - known)) {
    return MDX_ERR_ARGUMENT;
  }
  std::memcpy(options, given, known);
  if (options->timeout_s < 0 || options->deadline_ms < 0) return MDX_ERR_ARGUMENT;
  if (options->match != nullptr && std::strlen(options->match) > MDX_MATCH_MAX) {
    return MDX_ERR_ARGUMENT;
  }
  const bool flags = (options->multi_line | options->transparent | 1) == 1;
  return flags && options->multi_line + options->transparent < 2 ? MDX_OK : MDX_ERR_ARGUMENT;
}

void open_request(const mdx_options_t& options, int64_t default_ms, request_t* request) {
  *request = request_t{};
  request->deadline_ms = options.deadline_ms > 0 ? options.deadline_ms : default_ms;
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

bool starts_with_at(const char* command) { return strncasecmp(command, "AT", 2) == 0; }

/// An even number of hexadecimal digits, at least one pair.
bool is_pdu(const char* pdu) {
  size_t length = 0;
  for (; pdu[length] != '\0'; ++length) {
    if (std::isxdigit(static_cast<unsigned char>(pdu[length])) == 0) return false;
  }
  return length > 0 && length % 2 == 0;
}

/// What the server leaves in the text when it ends a PDU exchange at the head is the request
/// itself.
bool is_own_request(const at_msg_t& sent, const at_msg_t& answer) {
  if (sms_command_in(sent.snd_rcv_msg.smsg) == nullptr) return false;
  return std::memcmp(sent.snd_rcv_msg.smsg, answer.snd_rcv_msg.smsg, kCommandSize) == 0;
}

bool refused_by_server(const at_msg_t& sent, const at_msg_t& answer) {
  if (answer.ret_val != AT_NOT_SUPPORTED) return false;
  const bool two_steps =
      sent.req_type == NORMAL_CMD && sms_command_in(sent.snd_rcv_msg.smsg) != nullptr;
  if (two_steps) return answer.snd_rcv_msg.rmsg[0] == '\0';
  static constexpr char kCleared[kMatchSize] = {};
  return std::memcmp(answer.at_match_str, kCleared, kMatchSize) == 0;
}

}  // namespace

int request_command(const char* command, const mdx_options_t* given, request_t* request) {
  mdx_options_t options;
  if (command == nullptr || read_options(given, &options) != MDX_OK) return MDX_ERR_ARGUMENT;
  size_t length = std::strlen(command);
  while (length > 0 && (command[length - 1] == '\r' || command[length - 1] == '\n')) --length;
  if (length > MDX_COMMAND_MAX || !starts_with_at(command)) return MDX_ERR_ARGUMENT;
  if (options.transparent == 0 && sms_command_in(command) != nullptr) return MDX_ERR_ARGUMENT;

  open_request(options, wait_of(options, command), request);
  std::memcpy(request->record.snd_rcv_msg.smsg, command, length);
  return MDX_OK;
}

int request_pdu(const char* head, const char* pdu, const mdx_options_t* given, request_t* request) {
  mdx_options_t options;
  if (head == nullptr || pdu == nullptr || read_options(given, &options) != MDX_OK) {
    return MDX_ERR_ARGUMENT;
  }
  const char* name = sms_command_in(head);
  const bool one_line = std::strpbrk(head, "\r\n\x1a") == nullptr;
  if (options.transparent != 0 || name == nullptr || !one_line || !starts_with_at(head) ||
      !is_pdu(pdu)) {
    return MDX_ERR_ARGUMENT;
  }
  const size_t head_length = std::strlen(head);
  const size_t pdu_length = std::strlen(pdu);
  if (head_length > kCommandSize || pdu_length > kCommandSize ||
      head_length + 1 + pdu_length + kEndOfPduSize > kCommandSize) {
    return MDX_ERR_ARGUMENT;
  }

  if (options.match == nullptr) options.match = name;
  const int64_t one_wait = static_cast<int64_t>(options.timeout_s) * 1000;
  open_request(options, 2 * one_wait + kReplySlackMs, request);
  char* text = request->record.snd_rcv_msg.smsg;
  std::memcpy(text, head, head_length);
  text[head_length] = '\r';
  std::memcpy(text + head_length + 1, pdu, pdu_length);
  text[head_length + 1 + pdu_length] = kEndOfPdu;
  return MDX_OK;
}

int request_report(int32_t report, const mdx_options_t* given, request_t* request) {
  mdx_options_t options;
  if (read_options(given, &options) != MDX_OK) return MDX_ERR_ARGUMENT;
  open_request(options, static_cast<int64_t>(options.timeout_s) * 1000 + kReplySlackMs, request);
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
  filled.ret_val = answer.ret_val;
  filled.text = start;
  filled.length = static_cast<uint32_t>(std::strlen(start));
  filled.timeout_left_s = answer.timeout;
  filled.refused = refused_by_server(sent, answer) ? 1 : 0;
  std::memcpy(result, &filled, result->size < sizeof(filled) ? result->size : sizeof(filled));
}

bool result_usable(const mdx_result_t* result) {
  return result != nullptr && result->size >= kFirstResultSize;
}
