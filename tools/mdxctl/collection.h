// How the response to a command is collected, where the user leaves that open.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "client/mdxclient.h"

struct collection_t {
  std::string match;
  bool multi_line = false;
  bool transparent = false;
  bool take_result_off = false;  ///< the text ends in the result line, which is shown by itself
};

/// The way that gives a person every line of the answer, each by itself.
/// @return nothing for a command that waits for a PDU, which no way of collecting gives it
std::optional<collection_t> collection_for(std::string_view command);

/// The response text of `result` as it is shown: without the result line where the collection kept
/// it, but for an error with a number, whose line then is the text.
std::string shown_text(const mdx_result_t& result, const collection_t& collection);
