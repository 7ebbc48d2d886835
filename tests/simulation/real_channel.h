// SPDX-License-Identifier: Apache-2.0

// The platform's own modem channel, over a device, a clock and clients in memory.
//
// What it asks of the operating system ends here: the linker hands over its `poll` and its clock
// (--wrap).
#pragma once

#include <exception>
#include <functional>
#include <set>
#include <string>
#include <string_view>

#include "tests/fake_platform/fake_platform.h"

namespace simulation {

/// Thrown while the server waits, once it was to be killed.
struct server_killed {};

class real_channel : public fake::line {
 public:
  real_channel();
  ~real_channel() override;

  /// A number below the limit, at random.
  std::function<size_t(size_t)> below;
  bool has_begun_write = false;  ///< the next bytes for the modem are the rest
  /// Bytes for the modem.
  std::function<void(std::string_view)> on_write;
  /// The modem takes no more bytes, for a while.
  std::function<void()> on_stall;
  std::set<int32_t> dead;     ///< clients
  int32_t served = 0;         ///< the client whose request was taken last
  std::string said;           ///< by the modem, and not read yet
  bool kills_server = false;  ///< at its next wait
  bool is_dead = false;       ///< killed while it wrote: nothing that it does has an effect
  std::exception_ptr broken;  ///< a rule, to be told at the next wait

  bool is_stalled = false;
  void plug() { device = ++devices_; }
  /// What was not read is lost.
  void unplug();
  void stall();
  /// The process has died; another binds the channel. What the modem says meanwhile waits for it.
  void forget_process();

  int32_t bind(int32_t, mdx_receive_function_t, mdx_send_function_t*) override;
  void wait(uint64_t until) override;
  bool shows_requests() override;
  bool begins_request(int32_t client) override;
  bool has_client() override;
  bool may_answer() override;

  int device = 0;  ///< each has its number, 0 for none

 private:
  int devices_ = 0;
  uint32_t requests_ = 0;
};

}  // namespace simulation
