// SPDX-License-Identifier: Apache-2.0

// Turns a call report into the fixed record that the voice service reads.
//
// A report counts when the one value is there that gives it its sense: without it the voice service
// would be told about no call. Everything else may be missing.

#include "wire/call_records.h"

#include <cstring>
#include <limits>
#include <string_view>

#include "platform/at_fields.h"
#include "platform/fields/parameters.h"

namespace {

/// False when a pointer is null or the line lacks the prefix.
bool read_report(const char* text, const char* prefix, const void* record, parameter_list_t& list) {
  if (text == nullptr || record == nullptr) return false;
  const char* parameters = find_parameters(text, prefix);
  if (parameters == nullptr) return false;
  read_parameters(parameters, list);
  return true;
}

bool is_digit(char c) { return c >= '0' && c <= '9'; }

bool is_number(std::string_view value) {
  if (!value.empty() && (value.front() == '-' || value.front() == '+')) value.remove_prefix(1);
  return !value.empty() && is_digit(value.front());
}

/// The number at the start of `value`, held to what `Number` can hold; 0 without one.
template <typename Number>
Number number_of(std::string_view value) {
  constexpr uint64_t kMax = std::numeric_limits<Number>::max();
  if (!value.empty() && value.front() == '+') value.remove_prefix(1);
  uint64_t number = 0;
  for (const char c : value) {
    if (!is_digit(c)) break;
    number = number * 10 + static_cast<uint64_t>(c - '0');
    if (number > kMax) return static_cast<Number>(kMax);
  }
  return static_cast<Number>(number);
}

template <size_t size>
void copy_text(char (&destination)[size], std::string_view value) {
  std::memcpy(destination, value.data(), value.size() < size ? value.size() : size - 1);
}

template <typename Record>
int hand_over(const Record& filled, void* record) {
  std::memcpy(record, &filled, sizeof filled);
  return 0;
}

int parse_call(const char* text, const char* prefix, void* record) {
  parameter_list_t list;
  if (!read_report(text, prefix, record, list) || !is_number(list.at(0))) return -1;
  mdx_call_record_t call = {};
  call.call_id = number_of<uint8_t>(list.at(0));
  call.call_type = number_of<uint8_t>(list.at(1));
  return hand_over(call, record);
}

/// Where a report about a caller has what; past the last parameter for what it has not.
struct caller_positions_t {
  size_t service_class;
  size_t cli_validity;
};
constexpr size_t kNowhere = parameter_list_t::kMost;

// A withheld number is an empty text, told apart from a line cut short by the type that follows it.
int parse_caller(const char* text, const char* prefix, caller_positions_t at, void* record) {
  parameter_list_t list;
  if (!read_report(text, prefix, record, list)) return -1;
  if (list.at(0).empty() && !is_number(list.at(1))) return -1;
  mdx_caller_record_t caller = {};
  copy_text(caller.number, list.at(0));
  caller.type = number_of<uint8_t>(list.at(1));
  caller.service_class = number_of<uint8_t>(list.at(at.service_class));
  caller.cli_validity = number_of<uint8_t>(list.at(at.cli_validity));
  return hand_over(caller, record);
}

}  // namespace

// ^ORIG:1,0
int MdxOrigParse(const char* text, void* record) { return parse_call(text, "^ORIG", record); }

// ^CONN:1,0
int MdxConnParse(const char* text, void* record) { return parse_call(text, "^CONN", record); }

// ^CONF:1
int MdxConfParse(const char* text, void* record) {
  parameter_list_t list;
  if (!read_report(text, "^CONF", record, list) || !is_number(list.at(0))) return -1;
  mdx_call_alerted_record_t alerted = {};
  alerted.call_id = number_of<uint8_t>(list.at(0));
  return hand_over(alerted, record);
}

// ^CEND:1,82,29 or ^CEND:1,0,104,31 or ^CEND:,10,0
//
// That a call has ended is worth telling as soon as either is known: which one, or why.
int MdxCendParse(const char* text, void* record) {
  parameter_list_t list;
  if (!read_report(text, "^CEND", record, list)) return -1;
  if (!is_number(list.at(0)) && !is_number(list.at(2))) return -1;
  mdx_call_end_record_t end = {};
  end.call_id = number_of<uint8_t>(list.at(0));
  end.duration = number_of<uint32_t>(list.at(1));
  end.end_status = number_of<uint16_t>(list.at(2));
  end.cause = number_of<uint16_t>(list.at(3));
  return hand_over(end, record);
}

// +CLIP: "+123456789",145 with subaddress, its type, alpha and validity behind it
int MdxClipParse(const char* text, void* record) {
  return parse_caller(text, "+CLIP", {.service_class = kNowhere, .cli_validity = 5}, record);
}

// +CCWA: "123456789",129,1,,0 with alpha in front of the validity
int MdxCcwaParse(const char* text, void* record) {
  return parse_caller(text, "+CCWA", {.service_class = 2, .cli_validity = 4}, record);
}

// ^CCWA:"123456789",129,1
int MdxCcwaImsParse(const char* text, void* record) {
  return parse_caller(text, "^CCWA", {.service_class = 2, .cli_validity = kNowhere}, record);
}

// ^XLEMA:1,2,112,0,1,fff
int MdxXlemaParse(const char* text, void* record) {
  parameter_list_t list;
  if (!read_report(text, "^XLEMA", record, list) || list.at(2).empty()) return -1;
  mdx_emergency_number_record_t entry = {};
  entry.index = number_of<uint32_t>(list.at(0));
  entry.total = number_of<uint32_t>(list.at(1));
  copy_text(entry.number, list.at(2));
  entry.category = number_of<uint32_t>(list.at(3));
  entry.sim_present = number_of<uint32_t>(list.at(4));
  copy_text(entry.mcc, list.at(5));
  return hand_over(entry, record);
}

// ^CCALLSTATE: 1,0,1
int MdxCallStateParse(const char* text, void* record) {
  parameter_list_t list;
  if (!read_report(text, "^CCALLSTATE", record, list) || !is_number(list.at(1))) return -1;
  mdx_call_state_record_t state = {};
  state.call_id = number_of<uint8_t>(list.at(0));
  state.state = number_of<uint8_t>(list.at(1));
  state.voice_domain = number_of<uint8_t>(list.at(2));
  return hand_over(state, record);
}

// ^CSCHANNELINFO: 0,1
int at_cschaninfo_parse(const char* text, void* record) {
  parameter_list_t list;
  if (!read_report(text, "^CSCHANNELINFO", record, list) || !is_number(list.at(0))) return -1;
  mdx_speech_channel_record_t channel = {};
  channel.status = number_of<uint8_t>(list.at(0));
  channel.voice_domain = number_of<uint8_t>(list.at(1));
  return hand_over(channel, record);
}
