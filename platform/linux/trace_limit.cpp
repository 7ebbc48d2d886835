// SPDX-License-Identifier: Apache-2.0

#include "platform/linux/trace_limit.h"

#include <algorithm>

bool trace_limit::lets_through(uint32_t now_ms, uint32_t* left_out) {
  uint32_t spent = spent_;
  const uint32_t earned = spent == 0 ? 0 : std::min((now_ms - since_) / kPauseMs, spent);
  if (spent == 0) since_ = now_ms;
  since_ += earned * kPauseMs;
  spent -= earned;
  const bool through = spent < kBurst;
  spent_ = through ? spent + 1 : spent;
  if (through) {
    *left_out = left_out_.exchange(0);
  } else {
    ++left_out_;
  }
  return through;
}
