// SPDX-License-Identifier: Apache-2.0

// What fails is tried again and again, and told once.
#pragma once

#include <utility>

class complaint {
 public:
  /// @param error  an errno value, 0 when it has succeeded
  /// @return whether this is a failure, and another one than the last time
  bool is_news(int error) { return std::exchange(told_, error) != error && error != 0; }

 private:
  int told_ = 0;
};
