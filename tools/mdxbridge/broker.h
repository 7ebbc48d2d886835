// SPDX-License-Identifier: Apache-2.0

// One connection to the broker, from the attempt to its loss; for the next one a new object is
// made, so nothing of an old one is left in the library.
//
// Nothing here waits. The library waits for the look-up of the broker's name, so it begins to
// connect in a thread, and what it needs for that is in the thread's hands alone until it is done.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "tools/mdxbridge/outbox.h"
#include "tools/mdxbridge/settings.h"

struct mosquitto;

namespace mdxbridge {

/// A message as it came. It is valid for the length of the call.
struct inbound_t {
  std::string topic;
  std::string_view payload;
  std::string response_topic;
  std::string correlation;
  std::string client;  ///< who sent it, where the broker tells
  bool retained = false;
};

class broker_t {
 public:
  static constexpr int kNotNow = -1;
  static constexpr int kNever = -2;

  /// Whether a thread still works at a connection: the library cannot be cleaned up then.
  static bool is_busy();

  struct events_t {
    std::function<void()> up;  ///< the broker took the connection
    std::function<void(const inbound_t&)> message;
    std::function<void(int mid, const std::string& refusal)> confirmed;
    std::function<void(const std::string& refusal)> subscribed;
  };

  /// Begins to connect.
  /// @param will         what the broker publishes when the connection is lost
  /// @param each_address try all that the name has, where each may take minutes to fail; else the
  ///                     first
  broker_t(const settings_t& settings, const message_t& will, bool each_address, events_t events);
  ~broker_t();
  broker_t(const broker_t&) = delete;
  broker_t& operator=(const broker_t&) = delete;

  /// Why there is no connection any more; empty while there is one, or may be one soon.
  const std::string& failure() const { return failure_; }
  /// The broker gave this client's place to another one with the same name.
  bool taken_over() const { return taken_over_; }
  bool is_up() const { return up_; }

  int fd() const;
  bool wants_write() const;
  /// When work is due without anything to read or write.
  std::chrono::steady_clock::time_point due() const { return due_; }
  /// Reads, writes, and does what is due.
  void work();

  /// @param retained  also what the broker has kept
  void subscribe(const std::string& topic, bool retained);
  /// @return the number under which it will be confirmed; kNotNow: the connection failed; kNever:
  ///         this broker takes no such message
  int publish(const message_t& message);
  void disconnect();

 private:
  struct callbacks_t;
  struct attempt_t;

  mosquitto* client() const;
  void begin(const settings_t& settings, bool each_address);
  void look_after_attempt();
  void take_over();
  void set_up(const settings_t& settings, const message_t& will);
  std::string set_up_tls(const settings_t& settings);
  void fail(const std::string& reason);
  void check(int error, const char* what);
  void sent_something();

  events_t events_;
  std::string failure_;
  bool up_ = false;
  bool taken_over_ = false;
  std::string host_;
  std::chrono::seconds keep_alive_;
  std::chrono::steady_clock::time_point due_;
  std::shared_ptr<attempt_t> attempt_;  ///< shared with the thread
  std::thread thread_;                  ///< joinable until it has begun to connect
};

}  // namespace mdxbridge
