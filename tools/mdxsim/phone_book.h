// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <map>
#include <string>

namespace mdxsim {

struct PhoneBookEntry {
  std::string number;
  std::string name;  ///< ASCII
};

/// The numbers on the card, by index from 1.
struct PhoneBook {
  static constexpr int kCapacity = 20;
  static constexpr int kLongestNumber = 20;
  static constexpr int kLongestName = 14;

  std::map<int, PhoneBookEntry> entries{{1, {"+15550111", "Alice"}}, {2, {"5550112", "Bob"}}};
};

}  // namespace mdxsim
