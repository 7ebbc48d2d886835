// SPDX-License-Identifier: Apache-2.0

// What the log is told of a device that comes and goes: everything, unless it does so all the time.
//
// The last line in the log is true all the same, at the latest after the limit's pause. When it was
// not told that the device has gone, it is not told either that it is back; when it stays away,
// that is told later.
#pragma once

#include <cstdint>

#include "platform/linux/trace_limit.h"

class device_news {
 public:
  /// The device has gone.
  /// @return whether that is to be told
  bool gone(uint32_t now_ms);

  /// It could not be opened again.
  /// @return whether it is to be told now that it has gone
  bool still_gone(uint32_t now_ms);

  /// It is there again.
  /// @return whether that is to be told
  bool back();

  /// How often it went and came back without a word before it went the last time that is told.
  uint32_t untold() const { return untold_; }

 private:
  trace_limit limit_;
  bool told_ = true;     ///< the last going, if any
  uint32_t goings_ = 0;  ///< since one was told
  uint32_t untold_ = 0;
};
