// SPDX-License-Identifier: Apache-2.0

// The modem's bytes come in where the parser must not be touched, and go out through a function
// that the platform lends. Both ends are thin: one element per delivery, one call per command.

#include "channel/mdx_register.h"

#include <cstdlib>
#include <cstring>

#include "platform/bounded.h"
#include "platform/mdx_platform.h"
#include "server/mdx_state.h"

namespace {

constexpr mdx_trace_source_t kSource = MDX_FROM_REGISTER;
constexpr uint32_t kEventNasData = 2;

}  // namespace

int32_t mdx_register_nas_channel() {
  Q7_APP_RegCallBack(kModemChannel, mdx_get_data_from_nas, &mdx_state.g_mdx_send_data_to_nas);
  return mdx_state.g_mdx_send_data_to_nas != nullptr ? 1 : 0;
}

int32_t mdx_send_data_to_nas(const char* data, uint16_t length) {
  if (data == nullptr || length == 0) return 0;
  if (mdx_state.g_mdx_send_data_to_nas == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "mdxgate: Send g_mdx_send_data_to_nas is NULL!\n");
    return 0;
  }
  if (mdx_state.g_mdx_send_data_to_nas(kModemChannel, data, length) != 0) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "mdxgate: Send at command %s error!\n", data);
    return 0;
  }
  return 1;
}

int32_t mdx_get_data_from_nas(int32_t, const char* data, uint32_t length) {
  if (data == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "mdx_get_data_from_nas: Error, mdx_cb data is NULL\n");
    return 1;
  }
  return mdx_nas_data_enqueue(data, length) == 1 ? 0 : 1;
}

int32_t mdx_nas_data_enqueue(const char* data, uint32_t length) {
  if (data == nullptr || length > kDeliveryMax) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "Error: NAS Response length is too big!\n");
    return 0;
  }
  auto* element = static_cast<nas_element_t*>(std::malloc(sizeof(nas_element_t)));
  if (element == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "Error: NAS Response malloc fail!\n");
    return 0;
  }
  const size_t room = sizeof(element->data);
  memcpy_s(element->data, room, data, length);
  memset_s(element->data + length, room - length, 0, room - length);
  element->length = static_cast<uint16_t>(length);

  const int32_t sent = MDX_msgQ_send(mdx_state.nas_queue_id, element, sizeof(*element), 0);
  std::free(element);
  if (sent == 0) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "QueueSend Error\n");
    return 0;
  }
  // The element first, the event second: whoever sees the bit finds the element.
  MDX_event_send(mdx_state.main_task_id, kEventNasData);
  return sent;
}

int32_t mdx_instant_update(const char* line) {
  if (line == nullptr) return -1;
  for (const literal_notify_entry& row : literal_notify_table) {
    if (row.text == nullptr) break;
    if (std::strstr(line, row.text) == nullptr) continue;
    if (row.handler != nullptr) row.handler(row.id);
    return 0;
  }
  return -1;
}
