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

bool waits_for_pdu(const std::string& capitals) {
  for (const char* name : {"+CMGS=", "+CMGW=", "^HCMGS=", "^HCMGW="}) {
    const size_t at = capitals.find(name);
    if (at != std::string::npos && !capitals.ends_with("=?")) return true;
  }
  return false;
}

}  // namespace

std::optional<collection_t> collection_for(std::string_view command) {
  const std::string capitals = in_capitals(command);
  if (waits_for_pdu(capitals)) return std::nullopt;
  collection_t collection;
  const std::string name = queried_name(capitals);
  const bool matched = !name.empty() && name.size() < MDX_MATCH_MAX && name != "+CMGW" &&
                       name != "+CMGS" && name != "^HCMGS" && name != "^HCMGW";
  if (matched) collection.match = name + ":";
  collection.multi_line = matched;
  collection.transparent = !matched;
  collection.take_result_off = !matched;
  return collection;
}

std::string shown_text(const mdx_result_t& result, const collection_t& collection) {
  std::string text(result.text, result.length);
  if (!collection.take_result_off || result.refused != 0 || result.ret_val < MDX_RESULT_OK) {
    return text;
  }
  if (!text.ends_with("\r\n")) return text;
  const size_t before = text.size() > 2 ? text.rfind("\r\n", text.size() - 3) : std::string::npos;
  const size_t result_line = before == std::string::npos ? 0 : before + 2;
  const bool numbered =
      result.ret_val == MDX_RESULT_CME_ERROR || result.ret_val == MDX_RESULT_CMS_ERROR;
  return numbered ? text.substr(result_line) : text.substr(0, result_line);
}
