// SPDX-License-Identifier: Apache-2.0

// Plain collection runs lines together, and gives a line whose prefix is also a report's to the
// report's receivers. A match string keeps such lines and sets them apart, but only them.
// Transparent collection sets all lines apart, but does not keep reports. So a query (AT+CREG?),
// whose answer may look like a report, is matched by its name, and everything else is transparent.

#include "tools/mdxctl/collection.h"

#include <algorithm>
#include <cctype>

namespace {

std::string in_capitals(std::string_view text) {
  std::string capitals(text);
  std::transform(capitals.begin(), capitals.end(), capitals.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return capitals;
}

bool is_name(std::string_view text) {
  const auto in_name = [](unsigned char c) { return std::isalnum(c) != 0 || c == '_'; };
  return !text.empty() && std::all_of(text.begin(), text.end(), in_name);
}

/// "+CREG" for AT+CREG?, empty for all that is no query of one extended command.
std::string queried_name(const std::string& capitals) {
  if (!capitals.starts_with("AT") || !capitals.ends_with("?") || capitals.size() < 5) return "";
  const std::string name = capitals.substr(2, capitals.size() - 3);
  const bool extended = name[0] == '+' || name[0] == '^' || name[0] == '$' || name[0] == '%';
  return extended && is_name(std::string_view(name).substr(1)) ? name : "";
}

/// The prefix that the lines of the answer begin with, empty where they are better not matched.
std::string answer_prefix(const std::string& capitals, bool timeout_given) {
  if (timeout_given && capitals == "AT+COPS=?") return "+COPS:";
  const std::string name = queried_name(capitals);
  for (const char* sms : {"+CMGS", "+CMGW", "^HCMGS", "^HCMGW"}) {
    if (name.starts_with(sms)) return "";  // the server would wait for a PDU
  }
  return name.empty() || name.size() >= MDX_MATCH_MAX ? "" : name + ":";
}

/// Without the result line, which ends a transparent text.
std::string without_result(const std::string& text, int32_t ret_val) {
  if (ret_val < MDX_RESULT_OK || !text.ends_with("\r\n")) return text;
  const size_t before = text.size() > 2 ? text.rfind("\r\n", text.size() - 3) : std::string::npos;
  const size_t result_line = before == std::string::npos ? 0 : before + 2;
  const bool numbered = ret_val == MDX_RESULT_CME_ERROR || ret_val == MDX_RESULT_CMS_ERROR;
  return numbered ? text.substr(result_line) : text.substr(0, result_line);
}

}  // namespace

collection_t collection_for(std::string_view command, bool timeout_given) {
  const std::string capitals = in_capitals(command);
  collection_t collection;
  collection.match = answer_prefix(capitals, timeout_given);
  collection.multi_line = !collection.match.empty();
  collection.transparent = collection.match.empty();
  collection.for_reading = true;
  return collection;
}

std::string shown_text(const mdx_result_t& result, const collection_t& collection) {
  std::string text(result.text, result.length);
  if (!collection.for_reading) return text;
  if (collection.transparent && result.refused == 0) text = without_result(text, result.ret_val);
  while (text.ends_with("\r\n")) text.resize(text.size() - 2);
  return text;
}
