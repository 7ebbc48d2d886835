// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxctl/time_text.h"

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
