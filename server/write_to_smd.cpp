// SPDX-License-Identifier: Apache-2.0

// Clients end their commands as they like; the modem gets one CR, and never more than fits its
// line.

#include "server/write_to_smd.h"

#include <algorithm>
#include <cerrno>

#include "channel/mdx_register.h"
#include "platform/bounded.h"
#include "platform/mdx_platform.h"
#include "wire/at_msg.h"

namespace {

constexpr mdx_trace_source_t kSource = MDX_FROM_SERVER;
/// The last byte of the buffer stays NUL, the one before is the last that a CR may take.
constexpr uint32_t kTextMax = kCommandSize - 1;
constexpr int32_t kLastCrPosition = kCommandSize - 2;

bool is_line_end(char c) { return c == '\n' || c == '\r' || c == '\0'; }

}  // namespace

int32_t write_to_smd(const char* patcmd, int* retcode, uint32_t length) {
  char line[kCommandSize] = {};
  if (retcode == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "retcode NULL!\n");
    return -1;
  }
  if (patcmd == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "Error:patcmd is NULL!\n");
    *retcode = EINVAL;
    return -1;
  }
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "The at cmd string sent from USB is *** !\n");
  const uint32_t taken = std::min(length, kTextMax);
  memcpy_s(line, sizeof(line), patcmd, taken);

  int32_t last = static_cast<int32_t>(taken);
  while (last >= 0 && is_line_end(line[last])) line[last--] = '\0';
  const int32_t cr = std::min(last + 1, kLastCrPosition);
  line[cr] = '\r';

  if (mdx_send_data_to_nas(line, static_cast<uint16_t>(cr + 1)) == 1) return 0;
  MDX_TRACE(kSource, MDX_TRACE_ERROR, "Error: Send cmd to NAS failed\n");
  return -1;
}
