// SPDX-License-Identifier: Apache-2.0

// Packets of the hub as people and programs read them.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "client/mdxclient.h"

/// Who is told of what: "NOTIFY_MODULE_19 EVT_AT_HCSQ"; numbers in the place of unknown names.
std::string packet_heading(const mdx_packet_t& packet);

/// What is told: "EVT_AT_HCSQ"; kind and number of one that has no name.
std::string packet_name(const mdx_packet_t& packet);

/// Each value by its name, one blank in front of each; of the modem's link what it means.
std::string packet_values(const mdx_packet_t& packet);

/// One line, without time and line end: heading, values, what was lost right before, and how old it
/// is if it was told before.
std::string packet_line(const mdx_packet_t& packet);

/// One object, without the time; with "remembered" and "age_s" if it was told before.
nlohmann::ordered_json packet_json(const mdx_packet_t& packet);
