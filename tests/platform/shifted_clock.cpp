// SPDX-License-Identifier: Apache-2.0

// Stands in the place of the platform's clock.

#include "tests/platform/shifted_clock.h"

#include <atomic>
#include <chrono>
#include <thread>

#include "platform/mdx_platform.h"

namespace {
std::atomic<uint32_t> shift{0};
std::atomic<bool> held{false};
std::atomic<uint32_t> held_at{0};

uint32_t real_clock() {
  using namespace std::chrono;
  const auto now = steady_clock::now().time_since_epoch();
  return static_cast<uint32_t>(duration_cast<milliseconds>(now).count());
}
}  // namespace

void shift_clock(uint32_t milliseconds) { shift += milliseconds; }

void hold_clock(bool hold) {
  held_at = real_clock();
  held = hold;
}

uint32_t MDX_elapse() { return (held ? held_at.load() : real_clock()) + shift; }

void MDX_sleep(uint32_t milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}
