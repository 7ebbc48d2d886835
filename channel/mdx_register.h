// SPDX-License-Identifier: Apache-2.0

// The one channel to the modem: binding, sending, receiving, and the literal notifications.
//
// The platform lends the channel. Deliveries come while the main thread waits in the platform, in
// the middle of whatever it is at: they are queued and nothing else happens to them here.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr int32_t kModemChannel = 6;
/// The longest delivery that is taken; one zero byte always stays behind it in the element.
constexpr uint32_t kDeliveryMax = 1499;

/// The NAS queue's element. No terminator is relied on.
struct nas_element_t {
  char data[1500];  ///< the delivered bytes, the rest zero
  uint16_t length;  ///< number of delivered bytes
};
static_assert(sizeof(nas_element_t) == 1502);
static_assert(offsetof(nas_element_t, data) == 0 && offsetof(nas_element_t, length) == 1500);

struct literal_notify_entry {
  int32_t id;
  const char* text;  ///< null in the last row
  void (*handler)(int32_t id);
};

/// The notifications are recognised so that they are neither a report nor response text; nobody on
/// the device waits for them.
inline void mdx_notify_nobody(int32_t) {}

// clang-format off
inline constexpr literal_notify_entry literal_notify_table[] = {
    {1, "^CPINNTY:READY",          mdx_notify_nobody},
    {2, "^CPINNTY:SIM PUK",        mdx_notify_nobody},
    {3, "^CARDLOCKNTY:SIM LOCKED", mdx_notify_nobody},
    {6, nullptr,                   nullptr          },
};
// clang-format on

/// Tries to bind the channel; harmless to repeat.
/// @return 1 when the channel can be written to, else 0
int32_t mdx_register_nas_channel();

/// Sends bytes to the modem.
/// @param data    NUL-terminated behind `length`, since the trace of a failed send shows it as text
/// @return 1 when the platform took the bytes, else 0
int32_t mdx_send_data_to_nas(const char* data, uint16_t length);

/// The receive callback: queues a delivery and wakes the main thread. Called from within the
/// platform, on any thread.
/// @return 0 when the delivery is on the queue, else 1
int32_t mdx_get_data_from_nas(int32_t, const char* data, uint32_t length);

/// Puts a delivery on the NAS queue, then raises event bit 2 at the main task.
/// @return 1 on success, 0 when nothing was queued: null data, more than 1499 bytes, no memory, a
///         queue that stayed full
int32_t mdx_nas_data_enqueue(const char* data, uint32_t length);

/// Tells whether a line holds one of the modem's literal notifications, and runs its handler.
/// @return 0 when it does, else -1
int32_t mdx_instant_update(const char* line);
