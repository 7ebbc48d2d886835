// One server per machine, in a directory that can be trusted.

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "platform/linux/border.h"
#include "platform/linux/event_fifo.h"
#include "tests/platform/other_process.h"

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

TEST_F(Claim, RemovesWhatAnEarlierServerLeft) {
  fs::create_directory(kDirectory);
  const auto path = [](const char* name) { return (kDirectory / name).string(); };
  const int client = event_fifo_create(path("event.100").c_str());
  close(event_fifo_create(path("event.101").c_str()));
  fs::create_symlink("/etc/passwd", path("event.102"));
  fs::create_symlink(path("event.101"), path("queue.2"));
  std::ofstream(path("hub"));
  std::ofstream(path("client's own"));
  OtherProcess server(claim_only);
  EXPECT_EQ(server.wait(), 0) << server.errors();
  for (const char* gone : {"event.101", "event.102", "queue.2", "hub"})
    EXPECT_FALSE(fs::exists(fs::symlink_status(path(gone)))) << gone;
  for (const char* kept : {"event.100", "client's own", "console"})
    EXPECT_TRUE(fs::exists(path(kept))) << kept;
  close(client);
}

}  // namespace
