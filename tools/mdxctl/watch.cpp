// SPDX-License-Identifier: Apache-2.0

// mdxctl watch: what the device is told, one line a packet, until Ctrl-C.

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <iostream>

#include "client/mdxclient.h"
#include "tools/mdxctl/answer.h"
#include "tools/mdxctl/commands.h"
#include "tools/mdxctl/exit_codes.h"
#include "tools/mdxctl/output.h"
#include "tools/mdxctl/packet_names.h"
#include "tools/mdxctl/run_program.h"
#include "tools/signals/polled_signals.h"
#include "tools/words/packet_text.h"
#include "tools/words/time_text.h"

namespace {

constexpr int kLookForServerMs = 200;
constexpr int kLookForPlaceMs = 1000;

class watcher_t {
 public:
  explicit watcher_t(const watch_arguments_t& arguments)
      : arguments_(arguments),
        left_(arguments.count.value_or(0)),
        stop_fd_(signals_to_poll({SIGINT, SIGTERM})) {}
  ~watcher_t() {
    mdx_unsubscribe(subscription_);
    close(stop_fd_);
  }
  watcher_t(const watcher_t&) = delete;
  watcher_t& operator=(const watcher_t&) = delete;

  int run() {
    for (;;) {
      int error = subscribe();
      while (error == MDX_OK) error = show_next();
      if (done_) return failed_to_start_ ? EXIT_USAGE : EXIT_OK;
      if (!may_come_back(error) || !arguments_.follow) return fail(error);
      announce(error);
      if (stopped_within(is_refusal(error) ? kLookForPlaceMs : kLookForServerMs)) return EXIT_OK;
    }
  }

 private:
  int subscribe() {
    mdx_unsubscribe(subscription_);
    mdx_subscribe_options_t options = MDX_SUBSCRIBE_OPTIONS_INIT;
    if (!arguments_.service.empty()) options.service = arguments_.service.c_str();
    if (arguments_.module) options.service = MDX_BY_MODULE;
    options.module = arguments_.module.value_or(0);
    options.last = arguments_.last ? 1 : 0;
    const signals_let_through_t ended_by_signals({SIGINT, SIGTERM});
    const int error = mdx_subscribe_with(&subscription_, &options);
    if (error == MDX_OK && announced_ != MDX_OK && !is_refusal(announced_)) {
      tell("the server is there");
    }
    if (error == MDX_OK) announced_ = MDX_OK;
    return error;
  }

  static bool is_refusal(int error) { return error == MDX_ERR_REFUSED; }

  static bool may_come_back(int error) {
    return error == MDX_ERR_NO_SERVER || error == MDX_ERR_SERVER_GONE || error == MDX_ERR_BUSY ||
           is_refusal(error);
  }

  /// Says once for what it waits.
  void announce(int error) {
    const bool said = announced_ != MDX_OK && is_refusal(announced_) == is_refusal(error);
    announced_ = error;
    if (said) return;
    tell(is_refusal(error) ? error_text(error) : "waiting for the server");
  }

  /// Waits for a packet and shows it. @return MDX_OK to go on
  int show_next() {
    pollfd fds[] = {{mdx_subscription_fd(subscription_), POLLIN, 0}, {stop_fd_, POLLIN, 0}};
    if (poll(fds, 2, -1) < 0) return MDX_ERR_SYSTEM;
    if (fds[1].revents != 0) return finish();
    mdx_packet_t packet = MDX_PACKET_INIT;
    const int error = mdx_next_packet(subscription_, 0, &packet);
    if (error == MDX_ERR_TIMEOUT) return MDX_OK;
    if (error != MDX_OK) return error;
    if (!is_wanted(packet, arguments_.only)) return MDX_OK;
    if (!arguments_.program.empty()) {
      if (!run_for(packet)) return finish();
    } else {
      show(packet);
      if (!output_written()) return finish();
    }
    return arguments_.count && --left_ == 0 ? finish() : MDX_OK;
  }

  static std::string json_line(const mdx_packet_t& packet) {
    nlohmann::ordered_json object = {{"time", time_text(true)}};
    object.update(packet_json(packet));
    return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + '\n';
  }

  void show(const mdx_packet_t& packet) const {
    if (arguments_.json) {
      std::cout << json_line(packet) << std::flush;
    } else {
      std::cout << time_text(false) << ' ' << packet_line(packet) << std::endl;
    }
  }

  /// @return false when a signal ended the wait for the program, or there is none
  bool run_for(const mdx_packet_t& packet) {
    const char* name = mdx_packet_name(&packet);
    const program_end_t end =
        run_program(arguments_.program, name != nullptr ? name : "", json_line(packet), stop_fd_);
    if (!end.error.empty()) tell(end.error);
    failed_to_start_ = !end.started;
    return end.started && !end.interrupted;
  }

  bool stopped_within(int wait_ms) const {
    pollfd stop = {stop_fd_, POLLIN, 0};
    return poll(&stop, 1, wait_ms) > 0;
  }

  int finish() {
    done_ = true;
    return MDX_ERR_TIMEOUT;
  }

  static int fail(int error) {
    tell(error == MDX_ERR_SERVER_GONE ? "the server is gone; --follow waits for it"
         : error == MDX_ERR_BUSY ? "the server took no subscription within 10 s; see mdxctl status"
                                 : error_text(error));
    return exit_code_of_error(error);
  }

  const watch_arguments_t& arguments_;
  uint32_t left_;
  int stop_fd_;
  mdx_subscription_t* subscription_ = nullptr;
  bool done_ = false;
  bool failed_to_start_ = false;
  int announced_ = MDX_OK;  ///< for what it waits, as last said
};

}  // namespace

int run_watch(const watch_arguments_t& arguments) { return watcher_t(arguments).run(); }
