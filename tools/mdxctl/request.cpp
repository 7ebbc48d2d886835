// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxctl/request.h"

#include <poll.h>

#include <cerrno>
#include <functional>
#include <iostream>
#include <utility>

#include "tools/mdxctl/output.h"
#include "tools/signals/polled_signals.h"

namespace {

/// While it lives, the signals that end programs wait in its descriptor; but for those that this
/// program was told to ignore, as by nohup.
class ending_signals_t {
 public:
  ending_signals_t() {
    sigset_t ending;
    sigemptyset(&ending);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
      struct sigaction action {};
      sigaction(number, nullptr, &action);
      if (action.sa_handler != SIG_IGN) sigaddset(&ending, number);
    }
    fd_ = signalfd(-1, &ending, SFD_CLOEXEC | SFD_NONBLOCK);
    sigprocmask(SIG_BLOCK, fd_ >= 0 ? &ending : nullptr, &before_);
  }
  ~ending_signals_t() {
    sigprocmask(SIG_SETMASK, &before_, nullptr);
    if (fd_ >= 0) close(fd_);
  }
  ending_signals_t(const ending_signals_t&) = delete;
  ending_signals_t& operator=(const ending_signals_t&) = delete;

  int fd() const { return fd_; }

 private:
  int fd_;
  sigset_t before_;
};

std::function<void()> before_end;

[[noreturn]] void give_up(mdx_client_t* client, int signal) {
  const bool never_run = mdx_cancel(client) == MDX_OK;
  mdx_close(client);
  if (before_end) before_end();
  tell(never_run ? "interrupted; the command was not run"
                 : "interrupted; the modem may still be at it");
  end_by_signal(signal);
}

int run(mdx_client_t* client, const std::function<int()>& begin, mdx_result_t* result,
        const std::function<void()>& tick = nullptr) {
  constexpr int kTickMs = 1000;
  const ending_signals_t signals;
  int error = begin();
  if (error != MDX_OK) return error;
  for (;;) {
    pollfd fds[] = {{mdx_client_fd(client), POLLIN, 0}, {signals.fd(), POLLIN, 0}};
    const bool failed =
        fds[0].fd < 0 || (poll(fds, std::size(fds), tick ? kTickMs : -1) < 0 && errno != EINTR);
    error = mdx_finish(client, result);
    if (error != MDX_ERR_PENDING) return error;
    if (failed) break;
    if (tick) tick();
    if (const int signal = next_signal(signals.fd()); signal != 0) give_up(client, signal);
  }
  mdx_cancel(client);
  return MDX_ERR_SYSTEM;
}

}  // namespace

void before_signal_ends(std::function<void()> act) { before_end = std::move(act); }

int send_command(mdx_client_t* client, const std::string& command, const mdx_options_t& options,
                 mdx_result_t* result, const std::function<void()>& tick) {
  return run(
      client, [&] { return mdx_begin(client, command.c_str(), &options); }, result, tick);
}

int send_message(mdx_client_t* client, const std::string& head, const std::string& pdu,
                 const mdx_options_t& options, mdx_result_t* result) {
  const auto begin = [&] { return mdx_begin_pdu(client, head.c_str(), pdu.c_str(), &options); };
  return run(client, begin, result);
}

int fetch_report(mdx_client_t* client, int32_t report, mdx_result_t* result) {
  return run(
      client, [&] { return mdx_begin_report(client, report, nullptr); }, result);
}
