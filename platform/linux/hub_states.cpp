// SPDX-License-Identifier: Apache-2.0

// One row a kind. The modem's link is the last one, and always known: who reads it has seen all.

#include "platform/linux/hub_states.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

#include "platform/linux/monotonic.h"
#include "wire/destinations.h"
#include "wire/report_records.h"

namespace {

struct kind_row_t {
  uint32_t first;   ///< types from here
  char service[8];  ///< empty for a notification
  uint8_t kind;     ///< mdx_packet_kind_t
  uint8_t module;
  uint8_t more;    ///< so many types behind the first tell the same state
  uint8_t length;  ///< of the payload; packets with another are about something else
};

constexpr kind_row_t service(std::string_view name, uint32_t first, uint32_t last, uint8_t length) {
  kind_row_t row{first, {}, MDX_PACKET_SERVICE, 0, static_cast<uint8_t>(last - first), length};
  std::copy(name.begin(), name.end(), row.service);
  return row;
}

constexpr kind_row_t notification(uint8_t module, uint32_t first, uint32_t last, uint8_t length) {
  return {first, {}, MDX_PACKET_NOTIFICATION, module, static_cast<uint8_t>(last - first), length};
}

// clang-format off
constexpr kind_row_t kKinds[] = {
    service(kServiceDialup, DIALUP_MSG_V4_UP, DIALUP_MSG_V4_DOWN, sizeof(dialup_conn_msg)),
    service(kServiceDialup, DIALUP_MSG_V6_UP, DIALUP_MSG_V6_DOWN, sizeof(dialup_conn_msg)),
    service(kServiceDialup, DIALUP_MSG_NET_CHANGE, DIALUP_MSG_NET_CHANGE, sizeof(dialup_net_change_msg)),
    service(kServiceCms, CMS_MSG_FLOW_REPORT, CMS_MSG_FLOW_REPORT, sizeof(at_dsflow_cms_info)),
    notification(NOTIFY_MODULE_4, EVT_AT_SIM_STATE_4, EVT_AT_SIM_STATE_4, 0),
    notification(NOTIFY_MODULE_6, EVT_AT_SIM_STATE_6, EVT_AT_SIM_STATE_6, sizeof(at_sim_values)),
    notification(RUT_MDL_DEVICE, EVT_AT_SIM_STATE_9, EVT_AT_SIM_STATE_9, 0),
    notification(NOTIFY_MODULE_19, EVT_AT_SIM_STATE_19, EVT_AT_SIM_STATE_19, 0),
    notification(NOTIFY_MODULE_27, EVT_AT_SIM_STATE_27, EVT_AT_SIM_STATE_27, sizeof(at_sim_state_info)),
    notification(NOTIFY_MODULE_7, EVT_AT_ROAMING_STATUS_0, EVT_AT_ROAMING_STATUS_1, 0),
    notification(RUT_MDL_DEVICE, EVT_AT_NETWORK_TIME, EVT_AT_NETWORK_TIME, sizeof(at_nwtime_info)),
    notification(RUT_MDL_DEVICE, EVT_AT_MACHINE_TEMP, EVT_AT_MACHINE_TEMP, 0),
    notification(NOTIFY_MODULE_16, EVT_AT_FREQ_INFO, EVT_AT_FREQ_INFO, sizeof(at_hfreqinfo_info)),
    notification(NOTIFY_MODULE_18, EVT_AT_FLOW_REPORT, EVT_AT_FLOW_REPORT, sizeof(at_dsflow_info)),
    notification(NOTIFY_MODULE_19, EVT_AT_SYS_MODE, EVT_AT_SYS_MODE, 0),
    notification(NOTIFY_MODULE_19, EVT_AT_REG_CHANGE, EVT_AT_REG_CHANGE, 0),
    notification(NOTIFY_MODULE_19, EVT_AT_SIGNAL_LEVEL, EVT_AT_SIGNAL_LEVEL, 0),
    notification(NOTIFY_MODULE_19, EVT_AT_HCSQ, EVT_AT_HCSQ, sizeof(at_hcsq_info)),
    service(kServiceLink, LINK_MSG_UP, LINK_MSG_GONE, 0),
};
// clang-format on

constexpr size_t kCount = std::size(kKinds);
constexpr bool payloads_fit() {
  for (const kind_row_t& row : kKinds)
    if (row.length > kHubStatePayload) return false;
  return true;
}
static_assert(kCount <= kHubStatesAtMost && payloads_fit());

struct kept_t {
  hub_state_t state;
  uint64_t at;  ///< monotonic_ms
};
constinit kept_t kept[kCount] = {};

bool is_of_kind(const mdx_packet_header_t& header, const kind_row_t& row) {
  if (header.kind != row.kind || header.length != row.length) return false;
  if (header.type < row.first || header.type - row.first > row.more) return false;
  return row.service[0] != '\0' ? strcmp(row.service, header.to) == 0 : header.module == row.module;
}

void keep(kept_t* place, const mdx_packet_header_t& header, const void* payload) {
  place->state.header = header;
  if (header.length != 0) memcpy(place->state.payload, payload, header.length);
  place->at = monotonic_ms();
}

}  // namespace

void hub_states_begin() {
  mdx_packet_header_t header{};
  header.type = LINK_MSG_GONE;
  header.kind = MDX_PACKET_SERVICE;
  memcpy(header.to, kServiceLink, sizeof(kServiceLink));
  hub_states_keep(header, nullptr);
}

void hub_states_keep(const mdx_packet_header_t& header, const void* payload) {
  for (size_t i = 0; i < kCount; ++i)
    if (is_of_kind(header, kKinds[i])) return keep(&kept[i], header, payload);
}

bool hub_states_get(size_t kind, hub_state_t* state) {
  if (kind >= kCount) return false;
  *state = kept[kind].state;
  state->header.kind |= kMdxPacketRemembered;
  state->header.lost = static_cast<uint32_t>((monotonic_ms() - kept[kind].at) / 1000);
  return true;
}
