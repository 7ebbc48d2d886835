// SPDX-License-Identifier: Apache-2.0

// The words for packets: one row for each event, message and call report, and one for each field of
// their payloads. A new report takes a row here and one in docs/wire-formats.md.
//
// No row holds a pointer, so a program that loads the library pays nothing for them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

/// The layouts of payloads.
enum payload_t : uint8_t {
  NOTHING,
  CONN,
  NET_CHANGE,
  FLOW_CMS,
  FLOW,
  HCSQ,
  FREQ,
  NETWORK_TIME,
  NORSTFACT,
  SMS_CONTENT,
  SMS_INDEX,
  SMS_SENT,
  SMS_NOT_SENT,
  SIM,
  SIM_WITH_ID,
  USSD,
  STK,
  RING,
  CALL,
  CALL_ALERTED,
  CALL_END,
  CALLER,
  CALL_STATE,
  EMERGENCY,
  SPEECH_CHANNEL,
};

enum unit_t : uint8_t { NO_UNIT, BYTES, BYTES_PER_S, SECONDS, QUARTER_HOURS };

struct field_row_t {
  payload_t payload;
  char name[14];
  uint16_t offset;
  uint16_t width;  ///< bytes
  uint8_t kind;    ///< mdx_field_kind_t
  unit_t unit;
};

struct packet_row_t {
  uint8_t kind;     ///< mdx_kind_t
  char to[7];       ///< service, empty for a notification
  int32_t number;   ///< module of a notification, type of a call report, else 0
  uint32_t type;    ///< event or message
  char name[26];    ///< of the event or message
  uint16_t length;  ///< of the payload; an event may come in several
  payload_t payload;
  char a[10];  ///< name of the first value, empty when it says nothing
  char b[12];  ///< of the second
};

/// All rows. No two have kind, destination, type and length in common.
std::span<const packet_row_t> packet_rows();

/// The fields of all payloads; those of one stand together, in the order of its bytes.
std::span<const field_row_t> field_rows();

/// What a unit is called, "" for NO_UNIT.
const char* unit_name(unit_t unit);
