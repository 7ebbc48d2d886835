// SPDX-License-Identifier: Apache-2.0

// A line to every handler of reports, whatever report it is, and through them to the parsers of
// fields and call records. Its memory ends with it.

#include <cstdio>
#include <vector>

#include "fuzz/fuzz.h"
#include "server/at_match.h"
#include "tests/fake_platform/fake_platform.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr size_t kLongestPayload = 528;
  [[maybe_unused]] static FILE* const nobody_reads = freopen("/dev/null", "w", stdout);
  fake::journal.clear();
  size = std::min<size_t>(size, MAX_ATCMD_REPORT_SIZE - 1);
  for (const at_report_row_t* row = at_report_table; row->literal != nullptr; ++row) {
    std::vector<char> line(data, data + size);
    line.push_back('\0');
    if (row->handler != nullptr) row->handler(line.data(), static_cast<int32_t>(size));
  }
  for (const fake::entry& packet : fake::packets())
    fuzz::require(packet.text.size() <= kLongestPayload);
  return 0;
}
