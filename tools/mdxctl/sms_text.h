// SPDX-License-Identifier: Apache-2.0

// Messages as people and programs read them. No I/O.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "client/mdxsms.h"

/// One PDU, and where it came from.
struct sms_entry_t {
  int index = -1;                  ///< its number in the modem's memory; -1: it is not kept
  int state = MDX_SMS_STATE_NONE;  ///< mdx_sms_state_t
  std::string pdu;                 ///< hexadecimal digits
  int mistake = MDX_SMS_FINE;      ///< mdx_sms_mistake_t: it could not be read
  mdx_sms_t sms = MDX_SMS_INIT;
};

/// Takes a PDU apart.
/// @param tpdu_length  as mdx_sms_decode
sms_entry_t read_entry(const std::string& pdu, uint32_t tpdu_length);

/// A message, joined of its parts.
struct sms_joined_t {
  std::vector<sms_entry_t> entries;  ///< by their part numbers, at least one
  const sms_entry_t& first() const { return entries.front(); }
  bool complete() const;
};

/// Joins parts: those of one sender with one reference. Each message stands where its first part
/// did.
std::vector<sms_joined_t> join_entries(const std::vector<sms_entry_t>& entries);

/// "2025-01-25 13:58:10 +02:00", as it was in the zone.
std::string sms_time_text(int64_t time_s, int32_t zone_min);

/// Whose, when, and the text, in lines; nothing in them that a terminal acts on.
std::string sms_lines(const sms_joined_t& message);

nlohmann::ordered_json sms_json(const sms_joined_t& message);
