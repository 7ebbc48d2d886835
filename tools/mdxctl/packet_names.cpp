// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxctl/packet_names.h"

#include <algorithm>
#include <set>

#include "tools/words/state_words.h"

bool is_packet_name(const std::string& name) {
  if (is_state_name(name)) return true;
  const char* known = nullptr;
  for (uint32_t i = 0; (known = mdx_known_packet(i)) != nullptr; ++i) {
    if (name == known) return true;
  }
  return false;
}

std::string packet_names(const std::string& separator) {
  std::set<std::string> names;
  const char* known = nullptr;
  for (uint32_t i = 0; (known = mdx_known_packet(i)) != nullptr; ++i) names.insert(known);
  std::string all = state_words(separator);
  for (const std::string& name : names) all += separator + name;
  return all;
}

bool is_wanted(const mdx_packet_t& packet, const std::vector<std::string>& names) {
  const char* known = mdx_packet_name(&packet);
  const std::string name = known != nullptr ? known : "";
  return names.empty() || std::any_of(names.begin(), names.end(), [&](const std::string& wanted) {
           return wanted == name || (!name.empty() && wanted == state_word(name));
         });
}
