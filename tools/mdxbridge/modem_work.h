// SPDX-License-Identifier: Apache-2.0

// Requests at the server, one after the other, without waiting: a command is one exchange, a
// message is one for each of its parts, between two that set the modem's message mode and put it
// back.
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>

#include "client/mdxclient.h"
#include "client/mdxsms.h"
#include "tools/mdxbridge/request.h"
#include "tools/mdxbridge/settings.h"
#include "tools/words/collection.h"

namespace mdxbridge {

struct job_t {
  request_t request;
  std::string answer_topic;
  std::string correlation;
  std::string client;
  std::string key;  ///< for repeats_t; empty: none
};

class modem_work_t {
 public:
  /// Gets each job with its answer, and what to log of that.
  using done_t = std::function<void(const job_t& job, const nlohmann::ordered_json& answer,
                                    const std::string& outcome)>;

  modem_work_t(const settings_t& settings, done_t done)
      : settings_(settings), done_(std::move(done)) {}
  ~modem_work_t();
  modem_work_t(const modem_work_t&) = delete;
  modem_work_t& operator=(const modem_work_t&) = delete;

  /// Whether another job would have to wait too long for its turn.
  bool is_full() const;
  void add(job_t job);

  /// Polls readable when there is something to do; -1 when nothing is under way.
  int fd() const;
  void work();

  /// Takes back what was not run, and answers all that waits with why.
  void give_up(const std::string& reason);

 private:
  enum class step_t { kCommand, kAskMode, kSetMode, kSendPart, kRestoreMode };

  void begin_next();
  void begin_command();
  void begin_step(step_t step);
  int begin_part();
  void finished(int error, const mdx_result_t& result);
  void sms_finished(int error, const mdx_result_t& result);
  void sms_failed(const std::string& reason);
  void end_sms();
  void end(const nlohmann::ordered_json& answer, const std::string& outcome);
  void fail(int error);
  double seconds() const;

  const settings_t& settings_;
  done_t done_;
  mdx_client_t* client_ = nullptr;
  std::deque<job_t> jobs_;  ///< the first one is under way
  bool busy_ = false;
  std::chrono::steady_clock::time_point began_;
  step_t step_ = step_t::kCommand;
  collection_t collection_;

  // While a text message is sent.
  bool was_text_mode_ = false;
  uint32_t part_ = 0;
  uint32_t reference_ = 0;
  std::string sms_error_;
  nlohmann::ordered_json references_;
};

}  // namespace mdxbridge
