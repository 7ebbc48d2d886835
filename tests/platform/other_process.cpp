// SPDX-License-Identifier: Apache-2.0

#include "tests/platform/other_process.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

#include "platform/mdx_platform.h"

namespace {
int ready_end = -1;
}

OtherProcess::OtherProcess(const std::function<int()>& body) {
  int errors[2] = {-1, -1};
  int ready[2] = {-1, -1};
  if (pipe(errors) != 0 || pipe(ready) != 0) return;
  pid_ = fork();
  if (pid_ == 0) {
    dup2(errors[1], STDERR_FILENO);
    close(errors[0]);
    close(ready[0]);
    ready_end = ready[1];
    _exit(body());
  }
  close(errors[1]);
  close(ready[1]);
  errors_ = errors[0];
  ready_ = ready[0];
}

OtherProcess::~OtherProcess() {
  kill_now();
  wait();
  close(errors_);
  close(ready_);
}

bool OtherProcess::wait_ready() {
  char byte = 0;
  return read(ready_, &byte, 1) == 1;
}

void OtherProcess::kill_now() {
  if (pid_ > 0) kill(pid_, SIGKILL);
}

int OtherProcess::wait() {
  int status = 0;
  if (pid_ <= 0 || waitpid(pid_, &status, 0) != pid_) return -1;
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::string OtherProcess::errors() {
  std::string text;
  char buffer[4096];
  for (ssize_t size = 0; (size = read(errors_, buffer, sizeof(buffer))) > 0;)
    text.append(buffer, static_cast<size_t>(size));
  return text;
}

void OtherProcess::say_ready() {
  if (write(ready_end, "r", 1) != 1) _exit(99);
}

void OtherProcess::wait_for_kill() {
  for (;;) pause();
}

int connect_to(const char* path, int type) {
  const int fd = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  strncpy(address.sun_path, path, sizeof(address.sun_path) - 1);
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) return fd;
  close(fd);
  return -1;
}

void be_the_server() {
  static const mdx_debug_command_t commands[] = {{"hello", [] {
                                                    KRP_Debug_Print("hello %d\n", 7);
                                                    return int32_t{0};
                                                  }}};
  static bool done = false;
  if (!done) KRP_Debug_RegModCmds("test", commands, 1);
  done = true;
}

void serve_the_hub(void (*procedure)(const void* packet)) {
  static bool started = false;
  if (started) return;
  started = true;
  EXPECT_EQ(KRP_MSG_SendSimpleMsg("cms", 1, 0), -1) << "before there is a hub";
  EXPECT_EQ(KRP_MSG_Init("mdxgate"), 0);
  EXPECT_EQ(KRP_MSG_SendSimpleMsg("cms", 1, 0), 0) << "before anybody serves it";
  KRP_MSG_RegisterMsgProc(procedure);
  MDX_pthread_create(
      0, 0, 0, [] { KRP_UTIL_SockBaseStart(0); }, 0);
  EXPECT_EQ(KRP_NOTIFYCLT_Init(31), 0);
}
