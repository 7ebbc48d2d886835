// SPDX-License-Identifier: Apache-2.0

// Watches the server from outside and says what it must do next.
//
// What crossed the platform's border is read entry by entry, in its order: a request or a delivery
// that was taken, and behind it what the rules owe for it, no more and no less. So each reply comes
// once and whole, each report runs its handler once, and no wait is longer than the budget.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "tests/fake_platform/fake_platform.h"
#include "tests/simulation/broken_rule.h"
#include "tests/simulation/line_rules.h"
#include "wire/at_msg.h"

namespace simulation {

struct counts_t {
  uint64_t requests = 0;
  uint64_t replies = 0;
  uint64_t deliveries = 0;
  uint64_t reports = 0;
  uint64_t line_replies = 0;  ///< by the world with the platform's own channel
};

class witness {
 public:
  explicit witness(counts_t* counts) : counts_(*counts) {}

  /// The modem has said something.
  void said(const std::string& delivery) { said_.push_back(delivery); }

  /// Reads what happened since the last call; the server is idle. Throws broken_rule.
  void read(const std::vector<fake::entry>& journal);

 private:
  const fake::entry* ahead() const;
  bool comes(fake::kind what) const;
  const fake::entry& take(fake::kind what);
  [[noreturn]] void fail(const std::string& problem) const;

  void set_up();
  void serve(const fake::entry& request);
  bool is_sent(const std::string& text, size_t length);
  bool is_delivered(const at_msg_t& msg, std::string* delivery);
  void parse(const std::string& delivery, answer_t* answer);
  void expect_packets(const std::vector<report_t>& reports);
  void run_normal(at_msg_t* msg);
  void run_dialogue(at_msg_t* msg);
  void await_answer(at_msg_t* msg, const answer_t& before, uint64_t start, bool anew);
  void expect_reply(const at_msg_t& msg);

  counts_t& counts_;
  line_rules rules_;
  answer_t nobody_;  // takes what the modem says by itself
  std::deque<std::string> said_;
  std::string rssi_ = "^RSSI: 0";
  std::vector<fake::entry> journal_;
  size_t at_ = 0;
  bool is_set_up_ = false;
};

}  // namespace simulation
