// SPDX-License-Identifier: Apache-2.0

// Writes the result of a test for CI servers.
#include "tools/mdxsim/junit.h"

#include <algorithm>

namespace mdxsim {
namespace {

// What XML can't hold at all becomes a question mark.
std::string xml(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '&') {
      escaped += "&amp;";
    } else if (c == '<') {
      escaped += "&lt;";
    } else if (c == '>') {
      escaped += "&gt;";
    } else if (c == '"') {
      escaped += "&quot;";
    } else if (c == '\n') {
      escaped += "&#10;";
    } else {
      escaped += byte < ' ' || byte >= 0x7F ? '?' : c;
    }
  }
  return escaped;
}

std::string test_case(const std::string& suite, const Finding& finding) {
  const std::string head =
      "  <testcase classname=\"" + xml(suite) + "\" name=\"" + xml(finding.what) + "\"";
  if (!finding.fault) return head + "/>\n";
  return head + ">\n    <failure message=\"" + xml(*finding.fault) + "\"/>\n  </testcase>\n";
}

}  // namespace

std::string junit_report(const std::string& name, const std::vector<Finding>& findings,
                         const std::optional<std::string>& fault, double seconds) {
  std::vector<Finding> all = findings;
  all.push_back({"played to the end", fault});
  const auto failures =
      std::count_if(all.begin(), all.end(), [](const Finding& f) { return f.fault.has_value(); });
  std::string report = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuite name=\"" +
                       xml(name) + "\" tests=\"" + std::to_string(all.size()) + "\" failures=\"" +
                       std::to_string(failures) + "\" errors=\"0\" time=\"" +
                       std::to_string(seconds) + "\">\n";
  for (const Finding& finding : all) report += test_case(name, finding);
  return report + "</testsuite>\n";
}

}  // namespace mdxsim
