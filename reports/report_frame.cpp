// SPDX-License-Identifier: Apache-2.0

// The one walk over a report's fields, and the ways a value gets into a record.

#include "reports/report_frame.h"

#include <cstring>

#include "platform/bounded.h"

namespace {

walk_t take_value(const char* value, const report_field_t& row, void* target) {
  switch (row.value) {
    case report_value_t::NUMBER: {
      const int32_t number = safe_atoi(value);
      memcpy(target, &number, sizeof(number));
      break;
    }
    case report_value_t::HEX32: {
      const auto number = static_cast<uint32_t>(hex_str_to_uinteger(value) & UINT32_MAX);
      memcpy(target, &number, sizeof(number));
      break;
    }
    case report_value_t::HEX64: {
      const uint64_t number = hex_str_to_uinteger(value);
      memcpy(target, &number, sizeof(number));
      break;
    }
    case report_value_t::TEXT:
      memset_s(target, row.size, 0, row.size);  // a shorter text leaves nothing of the one before
      MDX_strncpy_s(static_cast<char*>(target), row.size, value, MDX_strlen_s(value));
      break;
    default:
      memset_s(target, row.size, 0, row.size);
      new_snprintf_s(__FILE__, __LINE__, static_cast<char*>(target), row.size, row.size, "%s",
                     value);
  }
  return row.value == report_value_t::FIRST_PRINTED ? walk_t::STOP : walk_t::ON;
}

walk_t take_field(const at_field_t& field, std::span<const report_field_t> fields, void* record,
                  report_take_t take) {
  for (const report_field_t& row : fields) {
    if (row.name[0] != '\0' && safe_strcmp(field.AtFieldName, row.name) != 0) continue;
    const walk_t walk =
        row.value == report_value_t::TAKEN
            ? take(field, record)
            : take_value(field.AtFieldValue, row, static_cast<char*>(record) + row.offset);
    if (walk == walk_t::STOP) return walk_t::STOP;
  }
  return walk_t::ON;
}

}  // namespace

int32_t read_fields(const report_parse_t& how, const char* line,
                    std::span<const report_field_t> fields, void* record, report_take_t take) {
  at_field_t* chain = nullptr;
  const int result = at_cmd_parse(&chain, how.prefix, line, 0, 3);
  if (result != 0 || (chain == nullptr && how.needs_fields)) {
    MDX_TRACE(kReportSource, how.level, kReportFailures[how.failure], how.who, result);
    return -1;
  }
  int32_t walked = 0;
  for (const at_field_t* field = chain; field != nullptr; field = field->next) {
    ++walked;
    if (take_field(*field, fields, record, take) == walk_t::STOP) break;
  }
  if (chain != nullptr) free_at_cmd(chain);
  return walked;
}
