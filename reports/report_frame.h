// SPDX-License-Identifier: Apache-2.0

// What the report handlers share: parse the line, tell of a failure, walk the fields, release them.
//
// A handler says how its line is parsed and where each field goes, as two tables that stand in it,
// and calls read_fields once. The field chain is gone when that returns, so nothing is ever sent
// while it lives. All else that a handler does stands in the handler.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "platform/at_fields.h"
#include "platform/mdx_platform.h"

/// The source that all traces of the report handlers name.
inline constexpr mdx_trace_source_t kReportSource = MDX_FROM_REPORTS;

/// Room for a value that is kept as text and converted late: nine characters, what is longer is
/// cut.
constexpr size_t kNumberTextSize = 10;

/// What handlers say of a line that cannot be parsed: who says it, and the parser's result.
// clang-format off
inline constexpr char kReportFailures[][60] = {
    "%s_report_callback at_cmd_parse  error,and the ret = %d\n",
    "%s_report_callback at_cmd_parse  error,and the ret = %d",
    "%s_report_callback at_cmd_parse error,and the ret = %d\n",
    "%s_report_callback  at_cmd_parse  error,and the ret = %d.\n",
    "%s_report_callback at_cmd_parse err id = %d.\n",
    "%s_report_callback: at_cmd_parse return error ret = %d\n",
    "%s_report_callback, error,and the ret = %d",
    "%s_callback at_cmd_parse  error,and the ret = %d\n",
};
// clang-format on

inline void does_not_fit_the_row() {}  // not constexpr: reaching it ends the compilation

template <size_t size>
consteval void put_in_row(char (&target)[size], std::string_view text) {
  if (text.size() >= size) does_not_fit_the_row();
  for (size_t i = 0; i < text.size(); ++i) target[i] = text[i];
}

/// How a handler parses its line, and what it says when that fails. Where it is static it is part
/// of the program's file: it holds no pointer.
struct report_parse_t {
  char prefix[13] = {};  ///< for at_cmd_parse
  char who[19] = {};
  uint8_t failure = 0;  ///< which of kReportFailures
  uint8_t level;        ///< of the trace on failure
  bool needs_fields;    ///< kNeedsFields: a line without any is a failure, with result 0

  /// @param said  the trace on failure; behind the handler's name it is one of kReportFailures
  consteval report_parse_t(std::string_view line_prefix, uint32_t trace_level,
                           std::string_view said, bool needs = false)
      : level(static_cast<uint8_t>(trace_level)), needs_fields(needs) {
    put_in_row(prefix, line_prefix);
    while (!said.ends_with(kReportFailures[failure] + sizeof("%s") - 1)) ++failure;
    said.remove_suffix(std::string_view(kReportFailures[failure]).size() - (sizeof("%s") - 1));
    put_in_row(who, said);
  }
};
constexpr bool kNeedsFields = true;

enum class walk_t { ON, STOP };

/// Takes one field of a line into the handler's record; says whether the walk goes on behind it.
using report_take_t = walk_t (*)(const at_field_t& field, void* record);

/// What becomes of a field's value.
enum class report_value_t : uint8_t {
  NUMBER,         ///< decimal, through safe_atoi
  HEX32,          ///< hexadecimal, of which the low half is kept
  HEX64,          ///< hexadecimal
  TEXT,           ///< copied with MDX_strncpy_s
  PRINTED,        ///< copied with new_snprintf_s
  FIRST_PRINTED,  ///< the same, and the walk ends there
  TAKEN,          ///< by the handler's own function
};

/// One field that a handler wants. It holds no pointer, so a table of them needs neither code that
/// fills it nor the loader.
struct report_field_t {
  char name[19];  ///< empty for every field
  report_value_t value;
  uint16_t offset;  ///< of the target in the handler's record
  uint16_t size;    ///< of the target
};

/// A row. That a number has its target's size is checked while compiling.
consteval report_field_t report_row(std::string_view name, report_value_t value, size_t offset,
                                    size_t size) {
  const bool is_32 = value == report_value_t::NUMBER || value == report_value_t::HEX32;
  const bool is_64 = value == report_value_t::HEX64;
  report_field_t row{{}, value, static_cast<uint16_t>(offset), static_cast<uint16_t>(size)};
  if ((is_32 && size != 4) || (is_64 && size != 8)) does_not_fit_the_row();
  put_in_row(row.name, name);
  return row;
}

/// A row for a member of the variable `record`.
#define MDX_REPORT_FIELD(name, value, record, member)                           \
  report_row((name), report_value_t::value, offsetof(decltype(record), member), \
             sizeof((record).member))
/// A row for values that the handler takes in its own way; every field where no name is given.
#define MDX_REPORT_TAKEN(name) report_row((name), report_value_t::TAKEN, 0, 0)

/// Parses a report line and hands each of its fields to the rows that want it, in the order of the
/// rows. The chain is released before this returns.
///
/// A failure is traced as `how` says. Of two fields of one name the last one wins. The target of a
/// field that the line does not have keeps its value.
/// @param line    the report line; null fails
/// @param record  what the rows' offsets count from
/// @param take    for rows whose values are taken by the handler
/// @return number of fields walked, 0 when the line holds none; -1 on failure
int32_t read_fields(const report_parse_t& how, const char* line,
                    std::span<const report_field_t> fields, void* record,
                    report_take_t take = nullptr);
