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

#include "platform/at_fields.h"
#include "platform/mdx_platform.h"

/// The source that all traces of the report handlers name.
inline constexpr mdx_trace_source_t kReportSource = MDX_FROM_REPORTS;

/// Room for a value that is kept as text and converted late: nine characters, what is longer is
/// cut.
constexpr size_t kNumberTextSize = 10;

/// A trace text for one number. That it holds exactly one %d and no other value is checked while
/// compiling, since no call with a literal format is left to check.
class result_text_t {
 public:
  consteval result_text_t(const char* text) : text_(text) {
    int values = 0;
    for (const char* c = text; *c != '\0'; ++c) {
      if (*c != '%') continue;
      values += c[1] == 'd' ? 1 : 2;
    }
    if (values != 1) needs_exactly_one_number();
  }
  const char* text() const { return text_; }

 private:
  static void needs_exactly_one_number() {}  // not constexpr: reaching it ends the compilation
  const char* text_;
};

/// How a handler parses its line, and what it says when that fails.
struct report_parse_t {
  const char* prefix;         ///< for at_cmd_parse
  uint32_t level;             ///< of the trace on failure
  result_text_t failure;      ///< gets the parser's result
  bool needs_fields = false;  ///< kNeedsFields: a line without any is a failure, with result 0
};
constexpr bool kNeedsFields = true;

enum class walk_t { ON, STOP };

/// Takes one field of a line into `target`, which has room for `size` bytes; says whether the walk
/// goes on behind it.
using report_take_t = walk_t (*)(const at_field_t& field, void* target, size_t size);

/// One field that a handler wants. Made by the functions below.
struct report_field_t {
  const char* name;  ///< null for every field
  report_take_t take;
  void* target;
  size_t size;  ///< bytes at `target`; 0 where `take` knows
};

/// A decimal number, through safe_atoi.
report_field_t number_field(const char* name, int32_t* target);
/// A hexadecimal number; of the 32-bit one the low half is kept.
report_field_t hex_field(const char* name, uint32_t* target);
report_field_t hex_field(const char* name, uint64_t* target);
/// A text, copied with MDX_strncpy_s.
report_field_t text_field(const char* name, std::span<char> target);
/// A text, copied with new_snprintf_s.
report_field_t printed_field(const char* name, std::span<char> target);
/// The same, and the walk ends there.
report_field_t first_printed_field(const char* name, std::span<char> target);

/// A value that the handler takes in its own way.
report_field_t taken_field(const char* name, report_take_t take, void* target);
/// Every field, whatever its name.
report_field_t every_field(report_take_t take, void* target);

/// Parses a report line and hands each of its fields to the rows that want it, in the order of the
/// rows. The chain is released before this returns.
///
/// A failure is traced as `how` says. Of two fields of one name the last one wins. The target of a
/// field that the line does not have keeps its value.
/// @param line  the report line; null fails
/// @return number of fields walked, 0 when the line holds none; -1 on failure
int32_t read_fields(const report_parse_t& how, const char* line,
                    std::span<const report_field_t> fields);
