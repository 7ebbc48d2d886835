// SPDX-License-Identifier: Apache-2.0

// The words of the report tests: a line goes in, and what it left behind comes out as text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tests/record_image.h"

/// What a line did: one element per trace of the report handlers and per packet, in their order.
using journal_t = std::vector<std::string>;

// Elements, as journal_now writes them.
std::string trace(uint32_t level, const std::string& text);
std::string notify(int32_t module, int32_t event, int32_t a, int32_t b);
std::string notify(int32_t module, int32_t event, const std::string& payload);
std::string dialup(uint32_t message, const std::string& payload);
std::string cms(uint32_t message, const std::string& payload);
std::string voice(int32_t type, const std::string& payload);

/// All that happened since the last line.
journal_t journal_now();
/// The packets of a journal.
journal_t packets_of(const journal_t& journal);
/// Hands a line to the report table in a buffer as large as the parser's, nothing else around it.
/// @param index  the row's id
journal_t report(std::string_view line, int* index = nullptr);
/// Sends good ^DSFLOWRPT lines until "cms" is told: the count starts anew with the next one.
void restart_dsflow_count();
