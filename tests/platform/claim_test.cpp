// SPDX-License-Identifier: Apache-2.0

// One server per machine, in a directory that can be trusted.

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "platform/mdx_platform.h"
#include "tests/platform/other_process.h"
#include "wire/border.h"
#include "wire/event_fifo.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::StartsWith;
using testing::UnorderedElementsAre;

const fs::path kDirectory = kMdxDirectory;

int claim_only() {
  be_the_server();
  return 0;
}

class Claim : public testing::Test {
 protected:
  Claim() { fs::remove_all(kDirectory); }
  ~Claim() override { fs::remove_all(kDirectory); }
};

TEST_F(Claim, TheDirectoryGetsItsModeWhateverTheUmask) {
  OtherProcess server([] {
    umask(0777);
    return claim_only();
  });
  EXPECT_EQ(server.wait(), 0) << server.errors();
  struct stat status {};
  ASSERT_EQ(stat(kMdxDirectory, &status), 0);
  EXPECT_EQ(status.st_mode & 07777u, 0755u);
  ASSERT_EQ(stat(kMdxTaskDirectory, &status), 0);
  EXPECT_EQ(status.st_mode & 07777u, 03770u);
  ASSERT_EQ(stat(kMdxConsolePath, &status), 0);
  EXPECT_EQ(status.st_mode & 07777u, 0600u);
}

TEST_F(Claim, RefusesADirectoryThatIsNone) {
  const fs::path elsewhere = testing::TempDir() + "elsewhere";
  fs::create_directories(elsewhere);
  const std::function<void()> plants[] = {
      [&] { fs::create_directory_symlink(elsewhere, kDirectory); },
      [&] { std::ofstream(kDirectory.c_str()); },
  };
  for (const auto& plant : plants) {
    fs::remove_all(kDirectory);
    plant();
    OtherProcess server(claim_only);
    EXPECT_EQ(server.wait(), 1);
    EXPECT_THAT(server.errors(), HasSubstr("/var/run/mdxgate"));
    EXPECT_TRUE(fs::is_empty(elsewhere));
  }
}

TEST_F(Claim, ReplacesWhatIsNoLockAndHeedsWhatIsOne) {
  const fs::path lock = kDirectory / "lock";
  const fs::path victim = "/var/run/precious";
  // clang-format off
  const struct { const char* what; std::function<void()> plant; } cases[] = {
      {"a link",                 [&] { fs::create_symlink(victim, lock); }},
      {"another name of a file", [&] { fs::create_hard_link(victim, lock); }},
      {"a full directory",       [&] { fs::create_directories(lock / "in" / "the way"); }},
      {"a FIFO",                 [&] { mkfifo(lock.c_str(), 0666); }},
  };
  // clang-format on
  for (const auto& [what, plant] : cases) {
    fs::remove_all(kDirectory);
    fs::create_directory(kDirectory);
    std::ofstream(victim) << "text";
    plant();
    OtherProcess server([] {
      be_the_server();
      OtherProcess::say_ready();
      OtherProcess::wait_for_kill();
      return 0;
    });
    ASSERT_TRUE(server.wait_ready()) << what << server.errors();
    EXPECT_EQ(fs::file_size(victim), 4u) << what;
    OtherProcess second(claim_only);
    EXPECT_EQ(second.wait(), 1) << what;
    EXPECT_THAT(second.errors(), HasSubstr("another server")) << what;
  }
}

TEST_F(Claim, RemovesWhatAnEarlierServerLeftAndOthersPlanted) {
  const auto path = [](const std::string& name) { return (kDirectory / name).string(); };
  fs::create_directories(path("tasks"));
  const int client = event_fifo_create(path("tasks/100").c_str());
  const fs::path victim = testing::TempDir() + "victim";
  fs::create_directories(victim / "precious");
  fs::create_symlink(victim, path("tasks/101"));
  fs::create_directories(path("tasks/102/in/the/way"));
  fs::create_symlink(victim, path("queue.2"));
  fs::create_symlink(victim, path("hub"));
  fs::create_directories(path("console/in/the/way"));
  fs::create_symlink(victim, path("console/in/link"));
  std::ofstream(path("client's own"));
  OtherProcess server([&path] {
    const std::string fifo = path("event." + std::to_string(getpid()));
    fs::create_directories(fifo + "/in the way");
    be_the_server();
    MDX_event_init(7);
    if (MDX_msgQex_create(kMdxRequestQueue, 10, kMdxRecordSize) < 0) return 1;
    if (KRP_MSG_Init("mdxgate") != 0 || !fs::is_socket(path("console"))) return 2;
    return fs::read_symlink(path("queue.2")) == fifo && fs::is_fifo(fifo) ? 0 : 3;
  });
  EXPECT_EQ(server.wait(), 0) << server.errors();
  std::vector<std::string> left;
  for (const auto& entry : fs::recursive_directory_iterator(kDirectory))
    left.push_back(entry.path().lexically_relative(kDirectory));
  EXPECT_THAT(left, UnorderedElementsAre("lock", "hub", "console", "queue.2", "pid_namespace",
                                         "tasks", "tasks/100", StartsWith("event.")));
  EXPECT_TRUE(fs::exists(victim / "precious"));
  close(client);
}

}  // namespace
