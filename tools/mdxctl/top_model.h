// SPDX-License-Identifier: Apache-2.0

// What `mdxctl top` knows: taken in as it comes, read off when the screen is drawn. No I/O.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "client/mdxclient.h"
#include "tools/mdxctl/platform_stats.h"

struct last_report_t {
  std::string name;  ///< destination and event
  std::string line;  ///< what came, in words
  double at;         ///< seconds on a clock of the caller's
  uint64_t count;    ///< 0 for one that was told before anybody looked
};

class top_model_t {
 public:
  /// A look at the server's figures.
  /// @param state  of its state machine
  void take_stats(const platform_stats_t& stats, const std::string& state, double now);
  /// There was nothing to look at.
  void take_failure(const std::string& reason);
  /// @param packet  also one that was told before
  void take_report(const mdx_packet_t& packet, double now);
  /// @param line  the last ^RSSI report as the modem sent it, empty when there is none
  void take_signal(const std::string& line);

  const platform_stats_t& stats() const { return stats_; }
  const std::string& state() const { return state_; }
  const std::string& failure() const { return failure_; }
  /// What grew by how much a second since the last look but one.
  double rate(const std::string& name) const;
  /// Milliseconds a command took: of those since the last look, of all, the slowest. 0 without any.
  double latency_now() const { return latency_now_; }
  double latency_mean() const;
  double latency_worst() const;

  /// Since when the modem has been gone, on the caller's clock; nothing while it is there.
  std::optional<double> gone_since() const { return gone_since_; }

  /// dBm, one for each look, the latest at the back; nothing where the signal was not known, or the
  /// modem was gone.
  const std::deque<std::optional<int>>& signal() const { return signal_; }
  /// What the modem last told, however long ago.
  std::optional<int> last_signal() const { return last_signal_; }
  /// The latest first.
  std::vector<last_report_t> reports() const;

 private:
  platform_stats_t stats_;
  platform_stats_t before_;
  double seconds_between_ = 0;
  double looked_at_ = 0;
  double latency_now_ = 0;
  std::string state_;
  std::string failure_;
  std::optional<double> gone_since_;
  std::deque<std::optional<int>> signal_;
  std::optional<int> last_signal_;
  std::vector<last_report_t> reports_;
};
