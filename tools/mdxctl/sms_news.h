// SPDX-License-Identifier: Apache-2.0

// New messages and delivery reports, as the modem tells of them.
#pragma once

#include <optional>
#include <string>

#include "client/mdxclient.h"
#include "tools/mdxctl/sms_store.h"

/// What the fifth of AT+CNMI's settings are about.
enum class sms_news_kind_t { MESSAGES = 1, REPORTS = 3 };

/// Sees to it that the modem tells of these.
/// @return the command that puts the settings back, empty when nothing was changed
std::string turn_on_news(sms_store_t& store, sms_news_kind_t kind);

/// A message that came.
struct sms_news_t {
  sms_entry_t entry;
  std::string memory;   ///< where it is kept; empty: nowhere
  std::string problem;  ///< why there is no message; else empty
};

/// Reads what a packet tells of, from the packet (+CMT, +CDS) or from the modem (+CMTI, +CDSI).
/// @return nothing for other packets
std::optional<sms_news_t> take_news(sms_store_t& store, const mdx_packet_t& packet);
