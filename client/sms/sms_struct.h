// SPDX-License-Identifier: Apache-2.0

// Structs of the public header, which programs built against older or newer headers hand over.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "client/mdxsms.h"

constexpr size_t kLargestStruct = 4096;

/// Size of a struct in the first version of the header, up to the end of its last field then.
template <typename Struct>
inline constexpr size_t kFirstSize = 0;
template <>
inline constexpr size_t kFirstSize<mdx_sms_options_t> = offsetof(mdx_sms_options_t, report) + 4;
template <>
inline constexpr size_t kFirstSize<mdx_sms_part_t> = offsetof(mdx_sms_part_t, pdu) +
                                                     sizeof(mdx_sms_part_t::pdu);
template <>
inline constexpr size_t kFirstSize<mdx_sms_t> = offsetof(mdx_sms_t, discharged_known) + 4;
template <>
inline constexpr size_t kFirstSize<mdx_sms_stored_t> = offsetof(mdx_sms_stored_t, pdu_length) + 4;
template <>
inline constexpr size_t kFirstSize<mdx_sms_sent_parts_t> = offsetof(mdx_sms_sent_parts_t,
                                                                    reference) +
                                                           4;

/// Whether it can be read and filled.
template <typename Struct>
bool struct_usable(const Struct* given) {
  return given != nullptr && given->size >= kFirstSize<Struct> && given->size <= kLargestStruct;
}

/// Copies what a caller set over the defaults that stand in `taken`; NULL leaves them. What a newer
/// caller may have set beyond what is known here has to be zero.
/// @return false when it cannot be used
template <typename Struct>
bool take_struct(const Struct* given, Struct* taken) {
  if (given == nullptr) return true;
  if (!struct_usable(given)) return false;
  const char* bytes = reinterpret_cast<const char*>(given);
  for (size_t i = sizeof(Struct); i < given->size; ++i) {
    if (bytes[i] != 0) return false;
  }
  std::memcpy(taken, given, std::min(sizeof(Struct), size_t{given->size}));
  return true;
}

/// Fills it; its size, and what lies behind what either side knows, stays.
template <typename Struct>
void give_struct(const Struct& filled, Struct* given) {
  const uint32_t size = given->size;
  std::memcpy(given, &filled, std::min(sizeof(Struct), size_t{size}));
  given->size = size;
}
