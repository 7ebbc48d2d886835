// SPDX-License-Identifier: Apache-2.0

// Signals as something to poll, so that none of them cuts a line or a screen in two.
#pragma once

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <initializer_list>

/// Blocks the signals for good, but for those that this program was told to ignore, as by nohup.
/// @return a descriptor to read them from, or -1; the caller's
inline int signals_to_poll(std::initializer_list<int> numbers) {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : numbers) {
    struct sigaction action {};
    sigaction(number, nullptr, &action);
    if (action.sa_handler != SIG_IGN) sigaddset(&signals, number);
  }
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  return signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

/// For a program that serves until it is told to end: SIGINT, SIGTERM, SIGHUP, as above. A reader
/// that is gone then shows in what a write returns.
inline int signals_that_end() {
  signal(SIGPIPE, SIG_IGN);
  return signals_to_poll({SIGINT, SIGTERM, SIGHUP});
}

/// While one lives, signals that are polled do what they do in any program: for a call that waits
/// by itself.
class signals_let_through_t {
 public:
  explicit signals_let_through_t(std::initializer_list<int> numbers) {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : numbers) sigaddset(&signals, number);
    sigprocmask(SIG_UNBLOCK, &signals, &before_);
  }
  ~signals_let_through_t() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
  signals_let_through_t(const signals_let_through_t&) = delete;
  signals_let_through_t& operator=(const signals_let_through_t&) = delete;

 private:
  sigset_t before_;
};

/// Ends the program as the signal does when nobody takes it, so that whoever started it sees that.
[[noreturn]] inline void end_by_signal(int number) {
  signal(number, SIG_DFL);
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, number);
  sigprocmask(SIG_UNBLOCK, &signals, nullptr);
  raise(number);
  _exit(128 + number);
}

/// The next signal, 0 when there is none.
inline int next_signal(int fd) {
  signalfd_siginfo signal{};
  return read(fd, &signal, sizeof(signal)) == sizeof(signal) ? static_cast<int>(signal.ssi_signo)
                                                             : 0;
}
