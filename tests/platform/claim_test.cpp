// SPDX-License-Identifier: Apache-2.0

// One server per machine, in a directory that can be trusted.

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "platform/mdx_platform.h"
#include "tests/platform/other_process.h"
#include "wire/border.h"
#include "wire/event_fifo.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

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
  EXPECT_EQ(status.st_mode & 07777u, 03770u);
  ASSERT_EQ(stat(kMdxConsolePath, &status), 0);
  EXPECT_EQ(status.st_mode & 07777u, 0600u);
}

TEST_F(Claim, RefusesWhatCanBeAPlant) {
  const fs::path lock = kDirectory / "lock";
  const fs::path elsewhere = testing::TempDir() + "elsewhere";
  // clang-format off
  const struct { const char* what; std::function<void()> plant; } cases[] = {
      {"a link for the directory", [&] { fs::create_directory_symlink(elsewhere, kDirectory); }},
      {"a file for the directory", [&] { std::ofstream(kDirectory.c_str()); }},
      {"a link for the lock",      [&] { fs::create_directory(kDirectory);
                                         fs::create_symlink(elsewhere / "file", lock); }},
      {"another name of a file",   [&] { fs::create_directory(kDirectory);
                                         std::ofstream(lock.c_str());
                                         fs::create_hard_link(lock, kDirectory / "other"); }},
      {"a directory for the lock", [&] { fs::create_directories(lock); }},
  };
  // clang-format on
  for (const auto& [what, plant] : cases) {
    fs::remove_all(kDirectory);
    fs::create_directories(elsewhere);
    plant();
    OtherProcess server(claim_only);
    EXPECT_EQ(server.wait(), 1) << what;
    EXPECT_THAT(server.errors(), HasSubstr("/var/run/mdxgate")) << what;
    EXPECT_TRUE(fs::is_empty(elsewhere)) << what;
    fs::remove_all(elsewhere);
  }
}

TEST_F(Claim, RemovesWhatAnEarlierServerLeftAndOthersPlanted) {
  const auto path = [](const std::string& name) { return (kDirectory / name).string(); };
  fs::create_directory(kDirectory);
  const int client = event_fifo_create(path("event.100").c_str());
  close(event_fifo_create(path("event.101").c_str()));
  const fs::path victim = testing::TempDir() + "victim";
  std::ofstream(victim.c_str());
  fs::create_symlink(victim, path("event.102"));
  fs::create_symlink(victim, path("queue.2"));
  fs::create_symlink(victim, path("hub"));
  fs::create_directories(path("console/in-the-way"));
  std::ofstream(path("client's own"));
  OtherProcess server([&path] {
    const std::string fifo = path("event." + std::to_string(getpid()));
    fs::create_directory(fifo);
    be_the_server();
    MDX_event_init(7);
    if (MDX_msgQex_create(kMdxRequestQueue, 10, kMdxRecordSize) < 0) return 1;
    if (KRP_MSG_Init("mdxgate") != 0 || !fs::is_socket(path("console"))) return 2;
    return fs::read_symlink(path("queue.2")) == fifo && fs::is_fifo(fifo) ? 0 : 3;
  });
  EXPECT_EQ(server.wait(), 0) << server.errors();
  for (const char* gone : {"event.101", "event.102"})
    EXPECT_FALSE(fs::exists(fs::symlink_status(path(gone)))) << gone;
  for (const char* kept : {"event.100", "client's own", "refused.console/in-the-way"})
    EXPECT_TRUE(fs::exists(path(kept))) << kept;
  EXPECT_TRUE(fs::is_socket(fs::symlink_status(path("hub"))));
  EXPECT_TRUE(fs::is_empty(victim));
  close(client);
}

}  // namespace
