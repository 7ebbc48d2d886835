// SPDX-License-Identifier: Apache-2.0

// Packets by the names that people give for them.
#pragma once

#include <string>
#include <vector>

#include "client/mdxclient.h"

/// A packet's name, or one of the words for states.
bool is_packet_name(const std::string& name);

/// All of them, each once, with the separator between them.
std::string packet_names(const std::string& separator);

/// Whether one of `names` stands for the packet; no names stand for all.
bool is_wanted(const mdx_packet_t& packet, const std::vector<std::string>& names);
