// SPDX-License-Identifier: Apache-2.0

// How the response to a command is collected, where the user leaves that open.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "client/mdxclient.h"

struct collection_t {
  std::string match;
  bool multi_line = false;
  bool transparent = false;
  bool for_reading = false;  ///< the text is shown without the result line and the last line end
  bool should_have_text = false;      ///< nothing but a result is less than was asked for
  bool mixed = false;                 ///< lines of several reports: no match string fits them all
  std::vector<std::string> prefixes;  ///< that lines of the answer begin with, such as "+CSQ:"
};

/// Whether the server takes a line that begins with a sign and holds `line` for a report.
bool may_be_report(std::string_view line);

/// The way that gives a person every line of the answer, each by itself.
/// @param timeout_given  the user's time-out binds the server too, which gives a transparent
///                       network search one of its own
collection_t collection_for(std::string_view command, bool timeout_given);

/// The response text of `result` as it is shown. For reading the result line is off it, but for an
/// error with a number, whose line then is the text.
std::string shown_text(const mdx_result_t& result, const collection_t& collection);
