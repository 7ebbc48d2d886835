// SPDX-License-Identifier: Apache-2.0

// The other side of the process border: a forked process that does one thing, and what it said.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

class OtherProcess {
 public:
  /// Runs `body` in a forked process, with standard error in a pipe. The process ends with what
  /// `body` returns.
  explicit OtherProcess(const std::function<int()>& body);
  ~OtherProcess();
  OtherProcess(const OtherProcess&) = delete;
  OtherProcess& operator=(const OtherProcess&) = delete;

  pid_t pid() const { return pid_; }
  /// Waits until the process says that it is ready, with say_ready.
  bool wait_ready();
  void kill_now();
  /// Waits for its end. @return the exit code, or minus the signal
  int wait();
  /// What it wrote to standard error; after wait().
  std::string errors();

  /// To be called by `body`.
  static void say_ready();
  [[noreturn]] static void wait_for_kill();

 private:
  pid_t pid_ = -1;
  int errors_ = -1;
  int ready_ = -1;
};

/// Connects to a Unix socket. @return a descriptor, -1 when nobody listens
int connect_to(const char* path, int type);

/// Makes the test process the server: claims the machine.
void be_the_server();

/// Serves hub and console, from the first call on.
void serve_the_hub(void (*procedure)(const void* packet));
