// SPDX-License-Identifier: Apache-2.0

// Packets of the hub as people and programs read them.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "client/mdxclient.h"

/// Who is told of what: "NOTIFY_MODULE_19 EVT_AT_HCSQ"; numbers in the place of unknown names.
std::string packet_heading(const mdx_packet_t& packet);

/// One line, without time and line end: the heading, then each value by its name.
std::string packet_line(const mdx_packet_t& packet);

/// One object, without the time.
nlohmann::ordered_json packet_json(const mdx_packet_t& packet);
