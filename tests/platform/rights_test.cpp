// SPDX-License-Identifier: Apache-2.0

// Modes are what was asked for, and threads get no signals.

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "platform/mdx_platform.h"
#include "tests/platform/other_process.h"

namespace {

TEST(Rights, AModeIsSetWhateverTheUmask) {
  const std::string path = testing::TempDir() + "flag";
  std::ofstream(path.c_str());
  const mode_t before = umask(0777);
  // clang-format off
  const struct { const char* mode; mode_t expected; } cases[] = {
      {"664", 0664}, {"0640", 0640}, {"3770", 03770}, {"000", 0}, {"664", 0664},
      {"", 0664}, {"9", 0664}, {"66x", 0664}, {"-1", 0664}, {"10000", 0664},
  };
  // clang-format on
  for (const auto& [mode, expected] : cases) {
    KRP_UTIL_RemoveAndroidWPerm(path.c_str(), mode);
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777u, expected) << mode;
  }
  umask(before);
  KRP_UTIL_RemoveAndroidWPerm("/nowhere/flag", "664");
  unlink(path.c_str());
}

TEST(Rights, ThreadsLeaveSignalsToTheProcess) {
  static sigset_t blocked;
  sigemptyset(&blocked);
  const pthread_t thread = MDX_pthread_create(
      0, 0, 0, [] { pthread_sigmask(SIG_SETMASK, nullptr, &blocked); }, 0);
  ASSERT_NE(thread, pthread_t{});
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  for (const int signal : {SIGTERM, SIGINT, SIGPIPE, SIGCHLD})
    EXPECT_EQ(sigismember(&blocked, signal), 1) << signal;
}

}  // namespace
