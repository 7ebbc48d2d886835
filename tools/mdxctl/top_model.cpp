// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxctl/top_model.h"

#include <algorithm>
#include <cstdlib>

#include "tools/words/packet_text.h"

namespace {

constexpr size_t kSignalsKept = 1000;

/// 3GPP TS 27.007: 0 to 31 in steps of 2 dB from -113 dBm on; 99 is unknown.
std::optional<int> dbm_of(const std::string& line) {
  const size_t colon = line.find(':');
  if (colon == std::string::npos) return std::nullopt;
  const int level = std::atoi(line.c_str() + colon + 1);
  if (level < 0 || level > 31) return std::nullopt;
  return level * 2 - 113;
}

double milliseconds(uint64_t microseconds, uint64_t commands) {
  return commands == 0 ? 0
                       : static_cast<double>(microseconds) / 1000 / static_cast<double>(commands);
}

/// 0 after a restart, which begins to count anew.
uint64_t growth(uint64_t before, uint64_t now) { return now > before ? now - before : 0; }

}  // namespace

void top_model_t::take_stats(const platform_stats_t& stats, const std::string& state, double now) {
  const bool same_server = failure_.empty() && looked_at_ > 0 &&
                           stats.value("uptime_seconds") >= stats_.value("uptime_seconds");
  before_ = same_server ? stats_ : platform_stats_t{};
  seconds_between_ = same_server ? now - looked_at_ : 0;
  looked_at_ = now;
  stats_ = stats;
  state_ = state;
  failure_.clear();
  const uint64_t commands = growth(before_.value("commands"), stats.value("commands"));
  if (!same_server) latency_now_ = 0;
  if (same_server && commands > 0) {
    latency_now_ = milliseconds(
        growth(before_.value("command_microseconds"), stats.value("command_microseconds")),
        commands);
  }
}

void top_model_t::take_failure(const std::string& reason) {
  failure_ = reason;
  state_.clear();
  gone_since_.reset();
}

void top_model_t::take_report(const mdx_packet_t& packet, double now) {
  const double at = now - packet.age_s;
  if (packet.kind == MDX_KIND_SERVICE && std::string_view(packet.to) == MDX_SERVICE_LINK) {
    gone_since_ = packet.type == MDX_LINK_GONE ? std::optional(at) : std::nullopt;
  }
  const std::string name = packet_heading(packet);
  const auto known = std::find_if(reports_.begin(), reports_.end(),
                                  [&](const last_report_t& report) { return report.name == name; });
  const uint64_t count = known == reports_.end() ? 0 : known->count;
  const last_report_t report = {name, packet_values(packet), at,
                                packet.remembered != 0 ? count : count + 1};
  if (known == reports_.end()) {
    reports_.push_back(report);
  } else {
    *known = report;
  }
}

void top_model_t::take_signal(const std::string& line) {
  const std::optional<int> dbm = dbm_of(line);
  if (dbm) last_signal_ = dbm;
  signal_.push_back(gone_since_ ? std::nullopt : dbm);
  if (signal_.size() > kSignalsKept) signal_.pop_front();
}

double top_model_t::rate(const std::string& name) const {
  if (seconds_between_ <= 0) return 0;
  return static_cast<double>(growth(before_.value(name), stats_.value(name))) / seconds_between_;
}

double top_model_t::latency_mean() const {
  return milliseconds(stats_.value("command_microseconds"), stats_.value("commands"));
}

double top_model_t::latency_worst() const {
  return milliseconds(stats_.value("command_microseconds_max"), 1);
}

std::vector<last_report_t> top_model_t::reports() const {
  std::vector<last_report_t> latest = reports_;
  std::stable_sort(latest.begin(), latest.end(),
                   [](const last_report_t& a, const last_report_t& b) { return a.at > b.at; });
  return latest;
}
