// SPDX-License-Identifier: Apache-2.0

#include "tools/words/time_text.h"

#include <cstdio>
#include <ctime>

std::string time_text(bool for_programs) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm parts{};
  for_programs ? gmtime_r(&now.tv_sec, &parts) : localtime_r(&now.tv_sec, &parts);
  char text[40];
  const char* format = for_programs ? "%Y-%m-%dT%H:%M:%S" : "%H:%M:%S";
  const size_t size = strftime(text, sizeof(text), format, &parts);
  snprintf(text + size, sizeof(text) - size, ".%03ld%s", now.tv_nsec / 1000000,
           for_programs ? "Z" : "");
  return text;
}

std::string past_time_text(uint32_t age_s) {
  constexpr uint32_t kDayS = 86400;
  const time_t then = time(nullptr) - static_cast<time_t>(age_s);
  tm parts{};
  localtime_r(&then, &parts);
  char text[40];
  strftime(text, sizeof(text), age_s < kDayS ? "%H:%M:%S" : "%Y-%m-%d %H:%M:%S", &parts);
  return text;
}
