// SPDX-License-Identifier: Apache-2.0

// The last packet of each kind that tells a state, for receivers that come later.
//
// So nobody has to ask the modem for what it has told. Nothing personal is kept: no texts, no
// numbers, no calls. No lock of its own: the hub's.
#pragma once

#include <cstddef>
#include <cstdint>

#include "wire/border.h"

constexpr size_t kHubStatesAtMost = 24;
/// Payloads of packets that tell a state have no more bytes.
constexpr size_t kHubStatePayload = 56;

/// A packet as it was sent, ready to be shown again.
struct hub_state_t {
  mdx_packet_header_t header;  ///< `kind` with kMdxPacketRemembered; `lost` is the age in seconds
  char payload[kHubStatePayload];
};

/// Before the first news the link counts as gone. To be called once.
void hub_states_begin();

/// Keeps the packet if it tells a state, in the place of an earlier one of its kind.
void hub_states_keep(const mdx_packet_header_t& header, const void* payload);

/// The packet kept for a kind.
/// @param kind  counted from 0
/// @return false when there is no such kind; a kind of which nothing is known yet has `header.type`
/// 0
bool hub_states_get(size_t kind, hub_state_t* state);
