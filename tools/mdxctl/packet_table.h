// SPDX-License-Identifier: Apache-2.0

// What each packet means and how its payload is laid out: one row for each event, message and call
// report.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

enum value_kind_t { VALUE_SIGNED, VALUE_UNSIGNED, VALUE_TEXT };

struct value_row_t {
  const char* name;
  size_t offset;
  size_t size;
  value_kind_t kind;
  const char* unit;
};

struct packet_row_t {
  uint32_t kind;                        ///< mdx_kind_t
  const char* to;                       ///< service, nullptr for a notification
  int32_t number;                       ///< module of a notification, type of a call report, else 0
  uint32_t type;                        ///< event or message
  const char* name;                     ///< of the event or message
  size_t length;                        ///< of the payload, for events that come in several sizes
  const char* a;                        ///< name of the first value, nullptr when it says nothing
  const char* b;                        ///< of the second
  std::span<const value_row_t> values;  ///< of the payload
};

/// All rows. No two have kind, destination, type and length in common.
std::span<const packet_row_t> packet_table();

/// A module's name, nullptr when it is unknown.
const char* module_name(uint32_t module);
