// SPDX-License-Identifier: Apache-2.0

// Packets of the hub in words: who is told, what happened, and each value by its name.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "client/mdxclient.h"

struct named_value_t {
  std::string name;
  nlohmann::ordered_json value;  ///< a number or a text
  std::string unit;              ///< empty where it has none, or only the modem knows it
};

struct packet_words_t {
  std::string destination;  ///< "dialup", "NOTIFY_MODULE_19", "voice"; a module's number if unknown
  std::string event;        ///< such as "EVT_AT_HCSQ"; empty when the packet is not known
  std::vector<named_value_t> values;
  std::string payload;  ///< what no layout is known for, in hexadecimal digits
};

packet_words_t packet_words(const mdx_packet_t& packet);

/// One line, without time and line end.
std::string packet_line(const mdx_packet_t& packet);

/// One object, without the time.
nlohmann::ordered_json packet_json(const mdx_packet_t& packet);
