// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxbridge/figures.h"

#include <sys/stat.h>

#include <charconv>
#include <ctime>
#include <fstream>

namespace mdxbridge {

namespace {

constexpr size_t kLargestFile = 65536;
constexpr time_t kOldestS = 600;

}  // namespace

void add_figures_of(std::string_view text, nlohmann::ordered_json* object) {
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    const size_t blank = line.rfind(' ');
    if (line.empty() || line.front() == '#' || blank == std::string_view::npos) continue;
    double value = 0;
    const char* last = line.data() + line.size();
    const auto [rest, error] = std::from_chars(line.data() + blank + 1, last, value);
    if (error != std::errc() || rest != last) continue;
    const std::string name(line.substr(0, blank));
    constexpr double kExact = 9007199254740992.0;
    const bool whole = value < kExact && value > -kExact &&
                       value == static_cast<double>(static_cast<int64_t>(value));
    if (whole) (*object)[name] = static_cast<int64_t>(value);
    if (!whole) (*object)[name] = value;
  }
}

void add_figures(const std::string& path, nlohmann::ordered_json* object) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || time(nullptr) - status.st_mtime > kOldestS) return;
  std::ifstream file(path);
  std::string text(kLargestFile, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<size_t>(file.gcount()));
  add_figures_of(text, object);
}

}  // namespace mdxbridge
