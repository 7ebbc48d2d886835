// SPDX-License-Identifier: Apache-2.0

// Modes are what was asked for, and threads get no signals.

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "platform/linux/identity.h"
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

// Near misses of the names, a line longer than any buffer, what is no number, and no last line end.
TEST(Rights, UserAndGroupsStandInTheirFiles) {
  const std::string users_path = testing::TempDir() + "passwd";
  const std::string groups_path = testing::TempDir() + "group";
  const std::string many = "others:x:9:" + std::string(3000, 'a') + ",mdxgate," +
                           std::string(3000, 'b') + ",mdxgat,mdxgates\n";
  const std::string clients = "mdxgate:x:501:root\n";
  // clang-format off
  const struct {
    std::string users, groups;
    bool has_user; uid_t user; bool has_group; gid_t group; std::vector<gid_t> member;
  } cases[] = {
      {"mdxgate:x:500:7:a,b:/:/bin/false\n", clients,        true,  500, true,  501, {7}},
      {"mdxgat:x:1:1::/:\nmdxgates:x:2:2::/:\n\nmdxgate:x:500:7", many + clients + "last:x:8:mdxgate",
                                                             true,  500, true,  501, {7, 9, 8}},
      {"mdxgate:x,5:500:7::/:\n",           "mdxgat:x:1:\n", true,  500, true,  7,   {7}},
      {"mdxgate:x:five:7::/:\n",            clients,         false, 0,   true,  501, {}},
      {"mdxgate:x:500\n",                   "mdxgate:x\n",   false, 0,   false, 0,   {}},
      {"root:x:0:0:mdxgate:mdxgate:\n",     "",              false, 0,   false, 0,   {}},
  };
  // clang-format on
  for (const auto& known : cases) {
    std::ofstream(users_path.c_str()) << known.users;
    std::ofstream(groups_path.c_str()) << known.groups;
    const mdx_identity_t found = identity_in(users_path.c_str(), groups_path.c_str());
    EXPECT_EQ(found.has_user, known.has_user) << known.users;
    EXPECT_EQ(found.has_group, known.has_group) << known.groups;
    if (known.has_user) {
      EXPECT_EQ(found.user, known.user) << known.users;
    }
    if (known.has_group) {
      EXPECT_EQ(found.group, known.group) << known.groups;
    }
    EXPECT_EQ(std::vector<gid_t>(found.groups, found.groups + found.count), known.member)
        << known.groups;
  }
  EXPECT_FALSE(identity_in("/nowhere", "/nowhere").has_user);
  unlink(users_path.c_str());
  unlink(groups_path.c_str());
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
