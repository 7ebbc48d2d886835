// SPDX-License-Identifier: Apache-2.0

#include "platform/linux/device_news.h"

#include <utility>

bool device_news::gone(uint32_t now_ms) {
  told_ = false;
  ++goings_;
  return still_gone(now_ms);
}

bool device_news::still_gone(uint32_t now_ms) {
  uint32_t left_out = 0;
  if (told_ || !limit_.lets_through(now_ms, &left_out)) return false;
  told_ = true;
  untold_ = std::exchange(goings_, 0) - 1;
  return true;
}

bool device_news::back() { return std::exchange(told_, true); }
