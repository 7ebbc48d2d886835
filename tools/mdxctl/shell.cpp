// SPDX-License-Identifier: Apache-2.0

// mdxctl shell: commands typed by a person, their answers, and reports as they come.
//
// Keys, reports, answers and signals are waited for in one place. While a command is with the modem
// the prompt is away, and Ctrl-C gives the command up. A server that dies is announced, and looked
// for once a second.

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <iostream>

#include "tools/mdxctl/answer.h"
#include "tools/mdxctl/client_session.h"
#include "tools/mdxctl/commands.h"
#include "tools/mdxctl/exit_codes.h"
#include "tools/mdxctl/output.h"
#include "tools/mdxctl/shell_line.h"
#include "tools/mdxctl/shell_prompt.h"
#include "tools/signals/polled_signals.h"
#include "tools/words/packet_text.h"
#include "tools/words/time_text.h"

namespace {

constexpr std::chrono::milliseconds kLookForServer{1000};

class shell_t {
 public:
  explicit shell_t(mdx_client_t* client)
      : client_(client),
        signal_fd_(signals_to_poll({SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGWINCH, SIGTSTP})),
        prompt_({[this](const std::string& line) { run_line(line); }, [this] { done_ = true; },
                 [this](int timeout_ms) { return wait_for_key(timeout_ms); }}) {}
  ~shell_t() {
    mdx_unsubscribe(reports_);
    close(signal_fd_);
  }
  shell_t(const shell_t&) = delete;
  shell_t& operator=(const shell_t&) = delete;

  /// @return the signal that ended it, or 0
  int run() {
    subscribe();
    while (!done_) {
      if (waiting_.empty()) prompt_.show();
      switch (next_arrival(milliseconds::max())) {
        case ARRIVED_SIGNAL:
          take_signal(next_signal(signal_fd_));
          break;
        case ARRIVED_KEY:
          prompt_.read_key();
          break;
        case ARRIVED_NOTHING:
          break;
      }
    }
    return ended_by_;
  }

 private:
  using milliseconds = std::chrono::milliseconds;
  enum arrival_t { ARRIVED_NOTHING, ARRIVED_SIGNAL, ARRIVED_KEY };

  /// Takes answers and reports. Keys and signals are left to the caller.
  arrival_t next_arrival(milliseconds time) {
    if (reports_wanted_ && reports_ == nullptr) time = std::min(time, kLookForServer);
    pollfd fds[] = {{prompt_.shown() ? 0 : -1, POLLIN, 0},
                    {signal_fd_, POLLIN, 0},
                    {mdx_client_fd(client_), POLLIN, 0},
                    {mdx_subscription_fd(reports_), POLLIN, 0}};
    const int wait_ms = time == milliseconds::max() ? -1 : static_cast<int>(time.count());
    const int ready = poll(fds, std::size(fds), wait_ms);
    if (ready == 0) subscribe();
    if (ready <= 0) return ARRIVED_NOTHING;
    // Nothing else is looked at then: what a signal gives up is no longer to be asked for.
    if (fds[1].revents != 0) return ARRIVED_SIGNAL;
    if (fds[2].revents != 0) take_answer();
    if (fds[3].revents != 0) take_report();
    return fds[0].revents != 0 ? ARRIVED_KEY : ARRIVED_NOTHING;
  }

  /// For the prompt, within a key. A signal is not taken: it ends the key first.
  bool wait_for_key(int timeout_ms) {
    using std::chrono::steady_clock;
    const auto deadline = steady_clock::now() + milliseconds(timeout_ms);
    while (true) {
      const auto left =
          std::max(ceil<milliseconds>(deadline - steady_clock::now()), milliseconds(0));
      const milliseconds time = timeout_ms < 0 ? milliseconds::max() : left;
      const arrival_t arrival = next_arrival(time);
      if (arrival != ARRIVED_NOTHING) return arrival == ARRIVED_KEY;
      if (time == milliseconds(0)) return false;
    }
  }

  void take_signal(int signal) {
    switch (signal) {
      case SIGINT:
        return waiting_.empty() ? prompt_.clear_line() : give_up();
      case SIGWINCH:
        return prompt_.resize();
      case SIGTSTP:
        prompt_.hide();
        raise(SIGSTOP);
        return;
      case SIGTERM:
      case SIGHUP:
      case SIGQUIT:
        if (!waiting_.empty()) give_up();
        done_ = true;
        ended_by_ = signal;
        return;
      default:
        return;
    }
  }

  void run_line(const std::string& typed) {
    const auto now = std::chrono::system_clock::now().time_since_epoch() / std::chrono::seconds(1);
    const shell_line_t line = parse_shell_line(typed, static_cast<uint8_t>(now));
    switch (line.action) {
      case SHELL_SEND:
        waiting_.assign(line.requests.begin(), line.requests.end());
        return send_next();
      case SHELL_REPORTS_ON:
        reports_wanted_ = true;
        return subscribe();
      case SHELL_REPORTS_OFF:
        reports_wanted_ = false;
        return unsubscribe();
      case SHELL_HELP:
        return prompt_.print(shell_help());
      case SHELL_MISTAKE:
        return prompt_.print(line.error + '\n');
      case SHELL_QUIT:
        done_ = true;
        return;
      case SHELL_NOTHING:
        return;
    }
  }

  // Commands

  void send_next() {
    const int error = begin(waiting_.front());
    if (error != MDX_OK) fail(error);
  }

  int begin(const shell_request_t& request) {
    mdx_options_t options = MDX_OPTIONS_INIT;
    options.timeout_s = request.timeout_s;
    if (request.command.empty()) return mdx_begin_report(client_, MDX_REPORT_RSSI, &options);
    if (!request.pdu.empty()) {
      return mdx_begin_pdu(client_, request.command.c_str(), request.pdu.c_str(), &options);
    }
    options.match = request.collection.match.c_str();
    options.multi_line = request.collection.multi_line ? 1 : 0;
    options.transparent = request.collection.transparent ? 1 : 0;
    return mdx_begin(client_, request.command.c_str(), &options);
  }

  void take_answer() {
    mdx_result_t result = MDX_RESULT_INIT;
    const int error = mdx_finish(client_, &result);
    if (error == MDX_ERR_PENDING) return;
    if (error != MDX_OK) return fail(error);
    const shell_request_t& request = waiting_.front();
    prompt_.print(harmless_lines(shown_text(result, request.collection)));
    if (result.truncated != 0) prompt_.print(std::string(kTruncated) + '\n');
    prompt_.print(result_line(request, result));
    waiting_.pop_front();
    if (exit_code_of_result(result) != EXIT_OK) waiting_.clear();
    if (!waiting_.empty()) send_next();
  }

  static std::string result_line(const shell_request_t& request, const mdx_result_t& result) {
    switch (exit_code_of_result(result)) {
      case EXIT_REFUSED:
        return std::string(kModemAway) + '\n';
      case EXIT_NO_ANSWER:
        return no_answer_text(request);
      default:
        return std::string(mdx_result_name(result.ret_val)) + '\n';
    }
  }

  static std::string no_answer_text(const shell_request_t& request) {
    if (!request.pdu.empty()) return std::string(kUnconfirmed) + '\n';
    const std::string time = std::to_string(request.timeout_s);
    return "no answer: the modem had " + time +
           " s for it; more, such as a minute, has it with: " + "mdxctl at --timeout 60 COMMAND\n";
  }

  void give_up() {
    const bool never_run = mdx_cancel(client_) == MDX_OK;
    waiting_.clear();
    prompt_.print(never_run ? "\nnot run\n" : "\ngiven up; the modem may still be at it\n");
  }

  void fail(int error) {
    const std::string text =
        error == MDX_ERR_TIMEOUT ? no_answer_text(waiting_.front()) : error_text(error) + '\n';
    waiting_.clear();
    prompt_.print(text);
  }

  // Reports

  void subscribe() {
    if (reports_ != nullptr || !reports_wanted_) return;
    const int error = mdx_subscribe(&reports_, MDX_EVERYTHING, 0);
    if (error == MDX_ERR_REFUSED) return do_without_reports();
    if (error == MDX_OK && server_lost_) prompt_.print("the server is back\n");
    server_lost_ = error != MDX_OK;
  }

  void unsubscribe() {
    mdx_unsubscribe(reports_);
    reports_ = nullptr;
  }

  void do_without_reports() {
    unsubscribe();
    reports_wanted_ = false;
    prompt_.print("no reports: " + error_text(MDX_ERR_REFUSED) + "; \"reports on\" tries again\n");
  }

  void take_report() {
    mdx_packet_t packet = MDX_PACKET_INIT;
    const int error = mdx_next_packet(reports_, 0, &packet);
    if (error == MDX_ERR_TIMEOUT) return;
    if (error == MDX_OK) return prompt_.print(time_text(false) + ' ' + packet_line(packet) + '\n');
    if (error == MDX_ERR_REFUSED) return do_without_reports();
    unsubscribe();
    server_lost_ = true;
    prompt_.print("the server is gone; start it again with \"systemctl start mdxgate\"\n");
  }

  mdx_client_t* client_;
  int signal_fd_;
  mdx_subscription_t* reports_ = nullptr;
  bool reports_wanted_ = true;
  bool server_lost_ = false;
  bool done_ = false;
  int ended_by_ = 0;
  std::deque<shell_request_t> waiting_;  ///< the first is with the server
  shell_prompt_t prompt_;
};

}  // namespace

int run_shell() {
  if (isatty(0) == 0 || isatty(1) == 0) {
    tell("the shell needs a terminal; for a script use: mdxctl at -");
    return EXIT_USAGE;
  }
  int ended_by = 0;
  {
    const client_session_t session;
    if (session.error() != MDX_OK) {
      tell(error_text(session.error()));
      return exit_code_of_error(session.error());
    }
    std::cout << "AT commands go to the modem; help shows what else there is." << std::endl;
    ended_by = shell_t(session.client()).run();
  }
  if (ended_by != 0) end_by_signal(ended_by);
  return EXIT_OK;
}
