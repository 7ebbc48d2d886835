// SPDX-License-Identifier: Apache-2.0

// What a modem's line is by its look.
#include "tools/line/result_line.h"

#include <algorithm>
#include <cctype>
#include <iterator>

namespace mdxline {
namespace {

constexpr std::string_view kSigns = "+^*$%#&!@_\\-/";
constexpr std::string_view kResults[] = {
    "OK",   "ERROR",     "NO CARRIER", "NO DIALTONE",         "NO DIAL TONE",
    "BUSY", "NO ANSWER", "ABORTED",    "COMMAND NOT SUPPORT", "TOO MANY PARAMETERS",
};
constexpr std::string_view kResultsWithMore[] = {"CONNECT", "+CME ERROR:", "+CMS ERROR:"};

bool is_blank(char c) { return c == ' ' || c == '\t'; }

}  // namespace

bool is_result(std::string_view line) {
  while (!line.empty() && is_blank(line.front())) line.remove_prefix(1);
  while (!line.empty() && is_blank(line.back())) line.remove_suffix(1);
  const auto begins = [line](std::string_view word) { return line.starts_with(word); };
  return std::find(std::begin(kResults), std::end(kResults), line) != std::end(kResults) ||
         std::any_of(std::begin(kResultsWithMore), std::end(kResultsWithMore), begins);
}

std::string_view report_name(std::string_view line) {
  if (line.size() < 3 || kSigns.find(line[0]) == kSigns.npos) return {};
  if (std::isupper(static_cast<unsigned char>(line[1])) == 0) return {};
  size_t end = 1;
  while (end < line.size() &&
         (std::isupper(static_cast<unsigned char>(line[end])) != 0 ||
          std::isdigit(static_cast<unsigned char>(line[end])) != 0 || line[end] == '_')) {
    ++end;
  }
  size_t colon = end;
  while (colon < line.size() && is_blank(line[colon])) ++colon;
  const bool named = end > 2 && colon < line.size() && line[colon] == ':';
  return named ? line.substr(0, end) : std::string_view();
}

}  // namespace mdxline
