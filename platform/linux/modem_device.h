// SPDX-License-Identifier: Apache-2.0

// The device behind a modem channel: a terminal device, a link to one, or a Unix stream socket.
//
// Nothing here keeps state or traces, and all calls return at once.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

struct modem_device_t {
  int fd = -1;  ///< non-blocking; -1 when closed
  bool is_socket = false;
  uint32_t mark = 0;  ///< another one for each device, also for one that comes in its place
};

/// Opens a device for this process alone, and sets a terminal raw; its speed stays as it is.
/// @return with `fd` -1 and errno on failure: EBUSY when somebody else has it, ENOTTY when the path
///         is neither terminal nor socket, or is the side of a pseudo terminal that makes new ones
modem_device_t modem_device_open(const char* path);

/// Closes the device and lets others have it. What it has not taken yet is discarded.
void modem_device_close(const modem_device_t& device);

/// Reads what is there.
/// @return bytes read, 0 when there is nothing now, -1 when the device is gone
ssize_t modem_device_read(const modem_device_t& device, char* buffer, size_t size);

/// Writes what the device takes now. SIGPIPE is ignored by this process.
/// @return bytes taken, 0 when there is no room now, -1 with errno when the device is gone
ssize_t modem_device_write(const modem_device_t& device, const char* data, size_t size);

/// Discards what was written and has not left yet, if the device can do that.
void modem_device_discard_output(const modem_device_t& device);
