// SPDX-License-Identifier: Apache-2.0

// The one walk over a report's fields, and the ways a value gets into a record.

#include "reports/report_frame.h"

#include "platform/bounded.h"

namespace {

walk_t take_number(const at_field_t& field, void* target, size_t) {
  *static_cast<int32_t*>(target) = safe_atoi(field.AtFieldValue);
  return walk_t::ON;
}

walk_t take_hex32(const at_field_t& field, void* target, size_t) {
  *static_cast<uint32_t*>(target) =
      static_cast<uint32_t>(hex_str_to_uinteger(field.AtFieldValue) & UINT32_MAX);
  return walk_t::ON;
}

walk_t take_hex64(const at_field_t& field, void* target, size_t) {
  *static_cast<uint64_t*>(target) = hex_str_to_uinteger(field.AtFieldValue);
  return walk_t::ON;
}

walk_t take_text(const at_field_t& field, void* target, size_t size) {
  const char* value = field.AtFieldValue;
  memset_s(target, size, 0, size);  // a shorter text leaves nothing of the one before
  MDX_strncpy_s(static_cast<char*>(target), size, value, MDX_strlen_s(value));
  return walk_t::ON;
}

walk_t take_printed(const at_field_t& field, void* target, size_t size) {
  memset_s(target, size, 0, size);
  new_snprintf_s(__FILE__, __LINE__, static_cast<char*>(target), size, size, "%s",
                 field.AtFieldValue);
  return walk_t::ON;
}

walk_t take_first_printed(const at_field_t& field, void* target, size_t size) {
  take_printed(field, target, size);
  return walk_t::STOP;
}

walk_t take_field(const at_field_t& field, std::span<const report_field_t> fields) {
  for (const report_field_t& row : fields) {
    if (row.name != nullptr && safe_strcmp(field.AtFieldName, row.name) != 0) continue;
    if (row.take(field, row.target, row.size) == walk_t::STOP) return walk_t::STOP;
  }
  return walk_t::ON;
}

}  // namespace

report_field_t number_field(const char* name, int32_t* target) {
  return {name, take_number, target, sizeof(*target)};
}

report_field_t hex_field(const char* name, uint32_t* target) {
  return {name, take_hex32, target, sizeof(*target)};
}

report_field_t hex_field(const char* name, uint64_t* target) {
  return {name, take_hex64, target, sizeof(*target)};
}

report_field_t text_field(const char* name, std::span<char> target) {
  return {name, take_text, target.data(), target.size()};
}

report_field_t printed_field(const char* name, std::span<char> target) {
  return {name, take_printed, target.data(), target.size()};
}

report_field_t first_printed_field(const char* name, std::span<char> target) {
  return {name, take_first_printed, target.data(), target.size()};
}

report_field_t taken_field(const char* name, report_take_t take, void* target) {
  return {name, take, target, 0};
}

report_field_t every_field(report_take_t take, void* target) { return {nullptr, take, target, 0}; }

int32_t read_fields(const report_parse_t& how, const char* line,
                    std::span<const report_field_t> fields) {
  at_field_t* chain = nullptr;
  const int result = at_cmd_parse(&chain, how.prefix, line, 0, 3);
  if (result != 0 || (chain == nullptr && how.needs_fields)) {
    MDX_TRACE(kReportSource, how.level, how.failure.text(), result);
    return -1;
  }
  int32_t walked = 0;
  for (const at_field_t* field = chain; field != nullptr; field = field->next) {
    ++walked;
    if (take_field(*field, fields) == walk_t::STOP) break;
  }
  if (chain != nullptr) free_at_cmd(chain);
  return walked;
}
