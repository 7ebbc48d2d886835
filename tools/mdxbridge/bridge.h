// SPDX-License-Identifier: Apache-2.0

// The bridge at work: one thread that waits for the hub, the broker, the server's answers and
// signals, and for nothing else.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>

#include "client/mdxclient.h"
#include "tools/mdxbridge/broker.h"
#include "tools/mdxbridge/limits.h"
#include "tools/mdxbridge/modem_work.h"
#include "tools/mdxbridge/outbox.h"
#include "tools/mdxbridge/place.h"
#include "tools/mdxbridge/settings.h"

namespace mdxbridge {

class bridge_t {
 public:
  /// @param once  send the state and what is known of the modem, and end
  bridge_t(const settings_t& settings, bool once);
  ~bridge_t();
  bridge_t(const bridge_t&) = delete;
  bridge_t& operator=(const bridge_t&) = delete;

  /// @param stop_fd  readable when the program shall end
  /// @return false when `once` was not done in time
  bool run(int stop_fd, const place_t& place);

 private:
  using time_point = clock_type::time_point;

  /// What is known of the server or of the modem.
  struct presence_t {
    bool up = false;
    std::string since;
  };

  struct figures_t {
    uint64_t reports = 0;
    uint64_t reports_lost = 0;
    uint64_t commands = 0;
    uint64_t commands_refused = 0;
    uint64_t connections = 0;
    uint64_t displaced = 0;
  };

  // The broker.
  void look_after_broker();
  void connect();
  void connection_up();
  void connection_failed();
  void confirmed(int mid, const std::string& refusal);
  void send_what_waits();
  bool sends_from(lane_t* lane);

  // The hub.
  void look_after_hub();
  void subscribe_hub();
  void hub_lost(int error);
  void take_packet(const mdx_packet_t& packet);
  void publish_packet(const mdx_packet_t& packet, const std::string& name);

  // What comes from the broker.
  void take_message(const inbound_t& inbound);
  void take_state(const inbound_t& inbound);
  std::string address(const inbound_t& inbound, job_t* job) const;
  void take_command(const inbound_t& inbound);
  bool is_repeat(const job_t& job);
  std::string refusal_now(const request_t& request) const;
  void refuse(const job_t& job, const std::string& reason);
  void answer(const job_t& job, const nlohmann::ordered_json& object);
  void log_command(const job_t& job, const std::string& outcome);
  void log_end_of_flood();
  void refuse_flood(const job_t& job);

  void publish_state(bool online);
  void publish_stats();
  void wait(int stop_fd);
  time_point next_due() const;
  bool is_done() const;
  void stop();

  const settings_t& settings_;
  const bool once_;
  const std::string instance_;  ///< another one with each start
  const std::string machine_;   ///< tells this device from another one with the same ID
  std::string began_;

  std::unique_ptr<broker_t> broker_;
  time_point connect_at_;
  time_point connected_at_;
  std::chrono::seconds pause_{0};
  bool each_address_ = false;  ///< the next attempt tries them; the one before failed at the first
  std::string last_failures_[2];  ///< of the first address, and of each
  bool contested_ = false;  ///< another machine's state stood at the broker when this one came
  std::minstd_rand random_;
  lane_t own_;  ///< state, figures, and what is known of the modem
  lane_t answers_;
  lane_t reports_;
  std::map<std::string, std::string> known_;  ///< the last report of each state, by its topic
  uint64_t number_ = 0;                       ///< of the last report
  std::string refused_publish_;               ///< what was said last about that

  mdx_subscription_t* hub_ = nullptr;
  time_point subscribe_at_;
  int hub_error_ = MDX_OK;
  presence_t server_;
  std::optional<presence_t> modem_;
  bool told_all_ = false;  ///< the hub has told what it remembers

  modem_work_t work_;
  rate_limit_t rate_;
  repeats_t repeats_;
  uint64_t flood_ = 0;  ///< refused since that was last said

  figures_t figures_;
  time_point stats_at_;
  bool stopping_ = false;
};

}  // namespace mdxbridge
