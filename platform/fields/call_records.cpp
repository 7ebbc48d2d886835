// SPDX-License-Identifier: Apache-2.0

// Turns a call report into the fixed record that the voice service reads.
//
// A report counts when the one value is there that gives it its sense: without it the voice service
// would be told about no call. Everything else may be missing.

#include "wire/call_records.h"

#include <bit>
#include <cstring>
#include <span>
#include <string_view>
#include <type_traits>

#include "platform/at_fields.h"
#include "platform/fields/parameters.h"

namespace {

/// Which parameter of a line fills which member of a record.
struct value_row_t {
  uint8_t position;  ///< of the parameter in the line
  uint8_t offset;    ///< of the member in the record
  uint8_t size;      ///< of the member
  bool is_text;
  bool gives_sense;  ///< the report counts when one such value is there
};

#define MDX_ROW(position, record, member, gives_sense)            \
  value_row_t {                                                   \
    (position), offsetof(record, member), sizeof(record::member), \
        std::is_array_v<decltype(record::member)>, (gives_sense)  \
  }
#define MDX_SENSE(position, record, member) MDX_ROW(position, record, member, true)
#define MDX_VALUE(position, record, member) MDX_ROW(position, record, member, false)

bool is_digit(char c) { return c >= '0' && c <= '9'; }

bool is_number(std::string_view value) {
  if (!value.empty() && (value.front() == '-' || value.front() == '+')) value.remove_prefix(1);
  return !value.empty() && is_digit(value.front());
}

/// The number at the start of `value`, `max` at most; 0 without one.
uint64_t number_of(std::string_view value, uint64_t max) {
  if (!value.empty() && value.front() == '+') value.remove_prefix(1);
  uint64_t number = 0;
  for (const char c : value) {
    if (!is_digit(c)) break;
    number = number * 10 + static_cast<uint64_t>(c - '0');
    if (number > max) return max;
  }
  return number;
}

void put_number(char* target, size_t size, std::string_view value) {
  const uint64_t number = number_of(value, UINT64_MAX >> (64 - 8 * size));
  const auto* bytes = reinterpret_cast<const char*>(&number);
  if constexpr (std::endian::native == std::endian::big) bytes += sizeof(number) - size;
  std::memcpy(target, bytes, size);
}

/// The text is cut to its room; behind it the target is zero already.
void put_text(char* target, size_t size, std::string_view value) {
  std::memcpy(target, value.data(), value.size() < size ? value.size() : size - 1);
}

// A withheld number is an empty text, told apart from a line cut short by the type that follows it.
bool makes_sense(const parameter_list_t& list, std::span<const value_row_t> rows) {
  for (const value_row_t& row : rows) {
    const std::string_view value = list.at(row.position);
    if (row.gives_sense && (row.is_text ? !value.empty() : is_number(value))) return true;
  }
  return false;
}

/// -1 when a pointer is null, the line lacks the prefix or all that would give it sense.
int parse(const char* text, const char* prefix, std::span<const value_row_t> rows, void* record,
          size_t size) {
  if (text == nullptr || record == nullptr) return -1;
  const char* parameters = find_parameters(text, prefix);
  if (parameters == nullptr) return -1;
  parameter_list_t list;
  read_parameters(parameters, list);
  if (!makes_sense(list, rows)) return -1;

  std::memset(record, 0, size);
  for (const value_row_t& row : rows) {
    const auto put = row.is_text ? put_text : put_number;
    put(static_cast<char*>(record) + row.offset, row.size, list.at(row.position));
  }
  return 0;
}

using call = mdx_call_record_t;
using caller = mdx_caller_record_t;

int parse_call(const char* text, const char* prefix, void* record) {
  static constexpr value_row_t rows[] = {
      MDX_SENSE(0, call, call_id),
      MDX_VALUE(1, call, call_type),
  };
  return parse(text, prefix, rows, record, sizeof(call));
}

}  // namespace

// ^ORIG:1,0
int MdxOrigParse(const char* text, void* record) { return parse_call(text, "^ORIG", record); }

// ^CONN:1,0
int MdxConnParse(const char* text, void* record) { return parse_call(text, "^CONN", record); }

// ^CONF:1
int MdxConfParse(const char* text, void* record) {
  using alerted = mdx_call_alerted_record_t;
  static constexpr value_row_t rows[] = {MDX_SENSE(0, alerted, call_id)};
  return parse(text, "^CONF", rows, record, sizeof(alerted));
}

// ^CEND:1,82,29 or ^CEND:1,0,104,31 or ^CEND:,10,0
//
// That a call has ended is worth telling as soon as either is known: which one, or why.
int MdxCendParse(const char* text, void* record) {
  using end = mdx_call_end_record_t;
  static constexpr value_row_t rows[] = {
      MDX_SENSE(0, end, call_id),
      MDX_VALUE(1, end, duration),
      MDX_SENSE(2, end, end_status),
      MDX_VALUE(3, end, cause),
  };
  return parse(text, "^CEND", rows, record, sizeof(end));
}

// +CLIP: "+123456789",145 with subaddress, its type, alpha and validity behind it
int MdxClipParse(const char* text, void* record) {
  static constexpr value_row_t rows[] = {
      MDX_SENSE(0, caller, number),
      MDX_SENSE(1, caller, type),
      MDX_VALUE(5, caller, cli_validity),
  };
  return parse(text, "+CLIP", rows, record, sizeof(caller));
}

// +CCWA: "123456789",129,1,,0 with alpha in front of the validity, which the second report lacks
constexpr value_row_t kWaitingCaller[] = {
    MDX_SENSE(0, caller, number),
    MDX_SENSE(1, caller, type),
    MDX_VALUE(2, caller, service_class),
    MDX_VALUE(4, caller, cli_validity),
};

int MdxCcwaParse(const char* text, void* record) {
  return parse(text, "+CCWA", kWaitingCaller, record, sizeof(caller));
}

// ^CCWA:"123456789",129,1
int MdxCcwaImsParse(const char* text, void* record) {
  return parse(text, "^CCWA", std::span(kWaitingCaller).first(3), record, sizeof(caller));
}

// ^XLEMA:1,2,112,0,1,fff
int MdxXlemaParse(const char* text, void* record) {
  using entry = mdx_emergency_number_record_t;
  static constexpr value_row_t rows[] = {
      MDX_VALUE(0, entry, index),    MDX_VALUE(1, entry, total),       MDX_SENSE(2, entry, number),
      MDX_VALUE(3, entry, category), MDX_VALUE(4, entry, sim_present), MDX_VALUE(5, entry, mcc),
  };
  return parse(text, "^XLEMA", rows, record, sizeof(entry));
}

// ^CCALLSTATE: 1,0,1
int MdxCallStateParse(const char* text, void* record) {
  using state = mdx_call_state_record_t;
  static constexpr value_row_t rows[] = {
      MDX_VALUE(0, state, call_id),
      MDX_SENSE(1, state, state),
      MDX_VALUE(2, state, voice_domain),
  };
  return parse(text, "^CCALLSTATE", rows, record, sizeof(state));
}

// ^CSCHANNELINFO: 0,1
int at_cschaninfo_parse(const char* text, void* record) {
  using channel = mdx_speech_channel_record_t;
  static constexpr value_row_t rows[] = {
      MDX_SENSE(0, channel, status),
      MDX_VALUE(1, channel, voice_domain),
  };
  return parse(text, "^CSCHANNELINFO", rows, record, sizeof(channel));
}
