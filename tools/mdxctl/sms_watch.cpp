// SPDX-License-Identifier: Apache-2.0

// mdxctl sms watch: each new message as it comes, until Ctrl-C.
//
// A part of a long message waits for the others; what does not come within five minutes is shown as
// missing. Nothing is asked of the modem unless it told of a message, or came back.

#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <iostream>

#include "tools/mdxctl/answer.h"
#include "tools/mdxctl/output.h"
#include "tools/mdxctl/sms_commands.h"
#include "tools/mdxctl/sms_news.h"
#include "tools/signals/polled_signals.h"
#include "wire/destinations.h"

namespace {

using clock_type = std::chrono::steady_clock;

constexpr int32_t kTimeoutS = 10;
constexpr std::chrono::minutes kPartsWait(5);

/// A part that was fetched, and where the modem keeps it.
struct waiting_part_t {
  sms_news_t news;
  clock_type::time_point came;
};

class sms_watcher_t {
 public:
  explicit sms_watcher_t(const sms_watch_arguments_t& arguments)
      : arguments_(arguments), store_(arguments.timeout_s.value_or(kTimeoutS)) {
    const int error = mdx_subscribe(&subscription_, MDX_EVERYTHING, 0);
    if (error != MDX_OK) throw sms_failure_t(exit_code_of_error(error), error_text(error));
    stop_fd_ = signals_to_poll({SIGINT, SIGTERM, SIGHUP, SIGQUIT});
    turn_on();
  }
  ~sms_watcher_t() {
    mdx_unsubscribe(subscription_);
    if (stop_fd_ >= 0) close(stop_fd_);
  }
  sms_watcher_t(const sms_watcher_t&) = delete;
  sms_watcher_t& operator=(const sms_watcher_t&) = delete;

  void run() {
    while (!done()) {
      pollfd fds[] = {{mdx_subscription_fd(subscription_), POLLIN, 0}, {stop_fd_, POLLIN, 0}};
      const int ready = poll(fds, std::size(fds), wait_ms());
      if (fds[1].revents != 0) break;
      if (ready == 0) show_late();
      if (fds[0].revents != 0) take_packet();
    }
    if (!done()) show_until(clock_type::time_point::max());
  }

 private:
  bool done() const { return arguments_.count && shown_ >= *arguments_.count; }

  void turn_on() {
    try {
      if (turn_on_news(store_, sms_news_kind_t::MESSAGES).empty()) return;
      tell("the modem told of no messages; it does now, see AT+CNMI?");
    } catch (const sms_failure_t& failure) {
      tell("the modem may tell of no messages: " + std::string(failure.what()));
    }
  }

  /// Until the oldest part has waited long enough; for good without any.
  int wait_ms() const {
    if (waiting_.empty()) return -1;
    const auto left = waiting_.front().came + kPartsWait - clock_type::now();
    return static_cast<int>(
        std::max<int64_t>(0, std::chrono::ceil<std::chrono::milliseconds>(left).count()));
  }

  void take_packet() {
    mdx_packet_t packet = MDX_PACKET_INIT;
    const int error = mdx_next_packet(subscription_, 0, &packet);
    if (error == MDX_ERR_TIMEOUT) return;
    if (error != MDX_OK) {
      throw sms_failure_t(exit_code_of_error(error),
                          error == MDX_ERR_SERVER_GONE ? "the server is gone" : error_text(error));
    }
    if (packet.lost > 0) {
      tell(std::to_string(packet.lost) +
           " reports were lost, perhaps of messages: see mdxctl sms list --unread");
    }
    // A modem that was away has forgotten its settings.
    if (packet.kind == MDX_KIND_SERVICE && std::string(packet.to) == "link" &&
        packet.type == MDX_LINK_UP) {
      turn_on();
    }
    if (const std::optional<sms_news_t> news = take_news(store_, packet)) take(*news);
  }

  void take(const sms_news_t& news) {
    if (!news.problem.empty()) {
      tell(news.problem);
      return;
    }
    waiting_.push_back({news, clock_type::now()});
    show_until(clock_type::time_point::min());
  }

  void show_late() { show_until(clock_type::now() - kPartsWait); }

  /// Shows what is complete, and what has been waiting since before `late`.
  void show_until(clock_type::time_point late) {
    std::vector<sms_entry_t> entries;
    for (const waiting_part_t& part : waiting_) entries.push_back(part.news.entry);
    for (const sms_joined_t& message : join_entries(entries)) {
      const bool overdue = came(message) <= late;
      if ((message.complete() || overdue) && !done()) show(message);
    }
  }

  static bool same(const waiting_part_t& part, const sms_entry_t& entry) {
    return part.news.entry.pdu == entry.pdu && part.news.entry.index == entry.index;
  }

  clock_type::time_point came(const sms_joined_t& message) const {
    auto first = clock_type::time_point::max();
    for (const waiting_part_t& part : waiting_) {
      for (const sms_entry_t& entry : message.entries) {
        if (same(part, entry)) first = std::min(first, part.came);
      }
    }
    return first;
  }

  void show(const sms_joined_t& message) {
    if (arguments_.json) {
      std::cout << sms_json(message).dump(-1, ' ', false,
                                          nlohmann::ordered_json::error_handler_t::replace)
                << std::endl;
    } else {
      std::cout << sms_lines(message) << std::flush;
    }
    ++shown_;
    if (!std::cout)
      throw sms_failure_t(EXIT_USAGE, "the output cannot be written; nothing was deleted");
    for (const sms_entry_t& entry : message.entries) finish(entry);
  }

  void finish(const sms_entry_t& entry) {
    const auto found = std::find_if(waiting_.begin(), waiting_.end(),
                                    [&](const auto& part) { return same(part, entry); });
    const std::string memory = found->news.memory;
    waiting_.erase(found);
    if (!arguments_.remove || memory.empty()) return;
    const std::string before = store_.memory();
    try {
      store_.use_memory(memory);
      store_.remove(entry.index);
    } catch (const sms_failure_t& failure) {
      tell("message " + std::to_string(entry.index) +
           " was not deleted: " + std::string(failure.what()));
    }
    store_.use_memory(before);
  }

  const sms_watch_arguments_t& arguments_;
  sms_store_t store_;
  mdx_subscription_t* subscription_ = nullptr;
  int stop_fd_ = -1;
  std::vector<waiting_part_t> waiting_;  ///< in the order they came
  uint32_t shown_ = 0;
};

}  // namespace

int run_sms_watch(const sms_watch_arguments_t& arguments) {
  try {
    sms_watcher_t(arguments).run();
  } catch (const sms_failure_t& failure) {
    tell(std::string(failure.what()));
    return failure.code();
  }
  return EXIT_OK;
}
