// SPDX-License-Identifier: Apache-2.0

// mdxctl top: the server at work, on the whole screen.
//
// Once a second the console is asked for figures and the server for the last signal report; other
// reports come by themselves. A server that goes away is shown as such until it is back. All
// signals are polled, so that none ends the program behind the screen's back.

#include <poll.h>

#include <chrono>
#include <iostream>
#include <memory>

#include "tools/mdxctl/answer.h"
#include "tools/mdxctl/client_session.h"
#include "tools/mdxctl/commands.h"
#include "tools/mdxctl/console_client.h"
#include "tools/mdxctl/exit_codes.h"
#include "tools/mdxctl/output.h"
#include "tools/mdxctl/top_model.h"
#include "tools/mdxctl/top_screen.h"
#include "tools/signals/polled_signals.h"

namespace {

constexpr double kLookEveryS = 1;
constexpr int32_t kReportWaitMs = 500;

double now_s() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// "AT_IDLE_S" out of what the console says about the state machine.
std::string state_in(const std::string& answer) {
  const size_t begin = answer.find('[');
  const size_t end = answer.find(']');
  if (begin == std::string::npos || end == std::string::npos || end < begin) return "";
  return answer.substr(begin + 1, end - begin - 1);
}

class top_t {
 public:
  explicit top_t(mdx_client_t* client)
      : client_(client),
        signal_fd_(signals_to_poll({SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGWINCH, SIGTSTP})) {}
  ~top_t() {
    mdx_unsubscribe(reports_);
    close(signal_fd_);
  }
  top_t(const top_t&) = delete;
  top_t& operator=(const top_t&) = delete;

  void run() {
    top_screen_t screen;
    for (double next_look = now_s(); !done_;) {
      if (now_s() >= next_look) {
        look();
        next_look = now_s() + kLookEveryS;
      }
      screen.draw(model_, now_s());
      wait(static_cast<int>((next_look - now_s()) * 1000) + 1);
      take_signals(screen);
      for (int key = screen.key(); key >= 0; key = screen.key()) {
        if (key == 'q' || key == 'Q') done_ = true;
      }
      take_reports();
    }
  }

 private:
  void look() {
    subscribe();
    take_reports();
    platform_stats_t stats;
    std::string state;
    int error = fetch_stats(&stats);
    if (error == MDX_OK) error = ask_console("display state", &state);
    if (error != MDX_OK) {
      model_.take_failure(console_error_text(error));
    } else {
      model_.take_stats(stats, state_in(state), now_s());
    }
    take_signal_report();
  }

  void subscribe() {
    if (reports_ != nullptr) return;
    mdx_subscribe_options_t options = MDX_SUBSCRIBE_OPTIONS_INIT;
    options.last = 1;
    mdx_subscribe_with(&reports_, &options);
  }

  /// A server in the middle of a long command does not answer: then the signal is not known.
  void take_signal_report() {
    mdx_options_t options = MDX_OPTIONS_INIT;
    options.deadline_ms = kReportWaitMs;
    mdx_result_t result = MDX_RESULT_INIT;
    const int error = mdx_get_report(client_, MDX_REPORT_RSSI, &options, &result);
    model_.take_signal(error == MDX_OK ? std::string(result.text, result.length) : "");
  }

  void wait(int wait_ms) const {
    pollfd fds[] = {{STDIN_FILENO, POLLIN, 0},
                    {signal_fd_, POLLIN, 0},
                    {mdx_subscription_fd(reports_), POLLIN, 0}};
    poll(fds, std::size(fds), std::max(wait_ms, 0));
  }

  void take_signals(top_screen_t& screen) {
    for (int signal = next_signal(signal_fd_); signal != 0; signal = next_signal(signal_fd_)) {
      if (signal == SIGWINCH) {
        screen.resize();
      } else if (signal == SIGTSTP) {
        screen.rest();
        raise(SIGSTOP);
        screen.resize();
      } else {
        done_ = true;
      }
    }
  }

  void take_reports() {
    mdx_packet_t packet = MDX_PACKET_INIT;
    int error = MDX_ERR_TIMEOUT;
    while (reports_ != nullptr && (error = mdx_next_packet(reports_, 0, &packet)) == MDX_OK) {
      model_.take_report(packet, now_s());
    }
    if (reports_ == nullptr || error == MDX_ERR_TIMEOUT) return;
    mdx_unsubscribe(reports_);
    reports_ = nullptr;
  }

  mdx_client_t* client_;
  int signal_fd_;
  mdx_subscription_t* reports_ = nullptr;
  top_model_t model_;
  bool done_ = false;
};

int fail(int error, const std::string& reason) {
  tell(reason);
  return exit_code_of_error(error);
}

}  // namespace

int run_top() {
  if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0) {
    tell("top needs a terminal; for a script use: mdxctl stats --json");
    return EXIT_USAGE;
  }
  if (!terminal_is_known()) {
    tell("this kind of terminal is not known here; try: TERM=xterm mdxctl top");
    return EXIT_USAGE;
  }
  const client_session_t session;
  if (session.error() != MDX_OK) return fail(session.error(), error_text(session.error()));
  std::string version;
  const int error = ask_console("platform version", &version);
  if (error != MDX_OK) return fail(error, console_error_text(error));
  try {
    top_t(session.client()).run();
  } catch (const std::exception& failure) {
    tell(std::string(failure.what()) + "; report this");
    return EXIT_REFUSED;
  }
  return EXIT_OK;
}
