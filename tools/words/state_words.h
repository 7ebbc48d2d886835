// SPDX-License-Identifier: Apache-2.0

// Short words for the states that the server remembers, for those who ask for one.
#pragma once

#include <string>
#include <string_view>

/// The word for a packet that tells a state, such as "signal" for "EVT_AT_HCSQ"; "other" for one
/// that has none.
std::string_view state_word(std::string_view packet_name);

/// Whether it is such a word, or the name of such a packet.
bool is_state_name(std::string_view name);

/// All words, with the separator between them.
std::string state_words(std::string_view separator);

/// A line for each word: the packets behind it.
std::string states_help();
