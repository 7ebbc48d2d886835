// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What stands on the line is told by tools/line.
namespace mdxline {}

namespace mdxsim {

using namespace mdxline;

/// Milliseconds since the simulator began. Modems never read a clock; they are told the time.
using Time = std::chrono::milliseconds;

/// How a modem ends the program.
struct Ending {
  bool as_expected;
  std::string message;
  bool to_be_read = false;  ///< all that was transmitted, or it is not as expected
};

/// What a modem expected of its host, and what was wrong with it.
struct Finding {
  std::string what;
  std::optional<std::string> fault;
};

/// What sits behind the terminal: bytes from the host in, deliveries to the host out, each at its
/// time.
///
/// A modem does no input or output and never waits. The caller passes a `now` that never goes back,
/// asks `next_due` when to come again, and calls `transmit` only while the host has the device open
/// and has read what was transmitted before. So the answers pile up here, and a modem must bound
/// them.
class Modem {
 public:
  virtual ~Modem() = default;

  /// The host opened the device.
  virtual void attached(Time now) = 0;

  /// The host closed the device; what was not transmitted yet will never be asked for.
  virtual void detached(Time now) = 0;

  /// Takes bytes as they came, torn anywhere. They are copied.
  virtual void receive(std::string_view bytes, Time now) = 0;

  /// Does what has become due by itself: reports, expired deadlines.
  virtual void advance(Time now) = 0;

  /// The next delivery that is due, one that the host is to see as one read; empty when none is.
  virtual std::string transmit(Time now) = 0;

  /// When `advance` and `transmit` are worth a call again; nullopt until the host does something.
  [[nodiscard]] virtual std::optional<Time> next_due() const = 0;

  /// False asks the caller to leave the host's bytes in the terminal: its flow control holds them.
  [[nodiscard]] virtual bool accepts_input() const = 0;

  /// False while the modem is unplugged: the caller takes the device away, and brings another one
  /// when it turns true.
  [[nodiscard]] virtual bool plugged() const { return true; }

  /// Set once the modem has nothing more to do; if it ends as expected, what it transmitted is
  /// still to be read by the host.
  [[nodiscard]] virtual std::optional<Ending> ending() const = 0;

  /// All that was expected, up to now; nothing where nothing is.
  [[nodiscard]] virtual std::vector<Finding> findings() const { return {}; }

  /// What to say when a signal ends the program: nullopt if that is a good end.
  [[nodiscard]] virtual std::optional<std::string> unfinished() const = 0;
};

}  // namespace mdxsim
