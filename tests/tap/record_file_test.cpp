// SPDX-License-Identifier: Apache-2.0

// A recording on a disk that is full for a while.
#include "tools/mdxtap/record_file.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

void limit_files(rlim_t size) {
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
  limit.rlim_cur = size == RLIM_INFINITY ? limit.rlim_max : size;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
}

TEST(RecordFile, TheHeadComesWithWhatFits) {
  signal(SIGXFSZ, SIG_IGN);
  std::string directory = testing::TempDir() + "mdxtap" + std::string(6, 'X');
  ASSERT_NE(mkdtemp(directory.data()), nullptr);
  const std::string path = directory + "/record";
  const std::string head = "# plain: this must be said\n";
  {
    mdxtap::RecordFile file({path, head, 0, 4});
    ASSERT_EQ(file.open(), 0);
    std::filesystem::remove(path);
    limit_files(head.size() - 1);
    const int full = file.append("> AT\\r\n");
    limit_files(RLIM_INFINITY);
    EXPECT_EQ(full, EFBIG);
    EXPECT_EQ(file.append("> ATI\\r\n"), 0);
    EXPECT_EQ(file.gone(), 1);
    EXPECT_EQ(file.beside(), 0);
  }
  std::ifstream written(path);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(written), {}), head + "> ATI\\r\n");
  std::filesystem::remove_all(directory);
}

}  // namespace
