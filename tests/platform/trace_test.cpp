// SPDX-License-Identifier: Apache-2.0

// Where a trace goes, what it looks like there, and that it holds nobody up.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/linux/counters.h"
#include "platform/mdx_platform.h"
#include "tests/platform/other_process.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

std::string take(int fd) {
  char buffer[4096];
  const ssize_t size = recv(fd, buffer, sizeof(buffer), MSG_DONTWAIT);
  return std::string(buffer, size > 0 ? static_cast<size_t>(size) : 0);
}

class SystemLog {
 public:
  SystemLog() : fd_(socket(AF_UNIX, SOCK_DGRAM, 0)) {
    unlink("/dev/log");
    const sockaddr_un address = {AF_UNIX, "/dev/log"};
    EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  }
  ~SystemLog() {
    close(fd_);
    unlink("/dev/log");
  }
  SystemLog(const SystemLog&) = delete;
  SystemLog& operator=(const SystemLog&) = delete;
  std::string next() const { return take(fd_); }

 private:
  int fd_;
};

// These stand first: a forked process decides for itself only if this one has not traced yet.

/// A process that traces much more than `standard_error` holds, which nobody reads meanwhile.
void trace_without_reader(int standard_error) {
  OtherProcess server([standard_error] {
    dup2(standard_error, STDERR_FILENO);
    for (int i = 0; i < 10000; ++i) KRP_TRACE_PrintInfo("mdxgate", 1, 0, "mdxgate", 4, "%d\n", i);
    return counter_value(COUNT_TRACES_LOST) > 0 ? 0 : 1;
  });
  EXPECT_EQ(server.wait(), 0);
}

TEST(Trace, AJournalGetsItsLevelAndHoldsNobodyUp) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
  trace_without_reader(ends[1]);
  EXPECT_THAT(take(ends[0]), StartsWith("<7>mdxgate mdxgate:1: 0\n<7>mdxgate mdxgate:1: 1\n"));
}

TEST(Trace, ATerminalHoldsNobodyUp) {
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_TRUE(terminal >= 0 && grantpt(terminal) == 0 && unlockpt(terminal) == 0);
  trace_without_reader(open(ptsname(terminal), O_RDWR | O_NOCTTY));
  char text[100] = "";
  EXPECT_GT(read(terminal, text, sizeof(text) - 1), 0);
  EXPECT_THAT(text, StartsWith("mdxgate mdxgate:1: 0\r"));
  close(terminal);
}

TEST(Trace, OtherFilesGetNothing) {
  OtherProcess server([] {
    KRP_TRACE_PrintInfo("mdxgate", 1, 0, "mdxgate", 2, "text\n");
    return 0;
  });
  EXPECT_EQ(server.wait(), 0);
  EXPECT_EQ(server.errors(), "");
}

TEST(Trace, ALevelThatIsOffEvaluatesNothing) {
  const SystemLog log;
  int evaluated = 0;
  MDX_TRACE(MDX_FROM_LINE, MDX_TRACE_FLOW, "%d\n", ++evaluated);
  EXPECT_EQ(evaluated, 0);
  EXPECT_EQ(log.next(), "");
  mdx_trace_mask = 8;
  MDX_TRACE(MDX_FROM_LINE, MDX_TRACE_FLOW, "%d\n", ++evaluated);
  EXPECT_EQ(evaluated, 1);
  EXPECT_THAT(log.next(), EndsWith(": 1"));
  mdx_trace_mask = 6;
}

TEST(Trace, TheLogGetsLevelsAndHarmlessText) {
  const SystemLog log;
  // clang-format off
  const struct { uint32_t level; const char* priority; } cases[] = {
      {2, "<27>"}, {4, "<28>"}, {8, "<30>"}, {16, "<31>"},
  };
  // clang-format on
  for (const auto& [level, priority] : cases) {
    errno = 4711;
    KRP_TRACE_PrintInfo("mdx_register", 12, 0, "mdxgate", level, "%s %d\n", "a\x1b[2J\nb", 3);
    EXPECT_EQ(errno, 4711);
    const std::string line = log.next();
    EXPECT_THAT(line, StartsWith(priority));
    EXPECT_THAT(line, MatchesRegex(".*mdxgate.[0-9]+.: mdxgate mdx_register:12: a .2J b 3"));
  }
  mlog_print("mdxgate", 2, "pid file");
  EXPECT_THAT(log.next(), EndsWith("mdxgate start-up: pid file"));
  const std::string text(5000, 'x');
  KRP_TRACE_PrintInfo("mdxgate", 1, 0, "mdxgate", 2, "%s", text.c_str());
  EXPECT_THAT(log.next(), EndsWith("xxx (cut)"));
}

TEST(Trace, WhatComesWithEachLineIsTheLeastOfTheLog) {
  const SystemLog log;
  // clang-format off
  const struct { const char* source; uint32_t level; const char* priority; } cases[] = {
      {"mdx_report_callback", 2, "<31>"}, {"mdxgate", 4, "<31>"},
      {"mdxgate", 2, "<27>"}, {"modem_channel", 4, "<28>"}, {"platform", 4, "<28>"},
  };
  // clang-format on
  for (const auto& [source, level, priority] : cases) {
    KRP_TRACE_PrintInfo(source, 1, 0, "mdxgate", level, "text");
    EXPECT_THAT(log.next(), StartsWith(priority)) << source;
  }
}

TEST(Trace, ALogThatIsStartedAnewIsFoundAgain) {
  const auto trace = [] { KRP_TRACE_PrintInfo("mdxgate", 1, 0, "mdxgate", 2, "text"); };
  {
    const SystemLog first;
    trace();
    EXPECT_THAT(first.next(), EndsWith(": text"));
  }
  const SystemLog second;
  trace();
  EXPECT_THAT(second.next(), EndsWith(": text")) << "the first trace to it is not lost";
}

TEST(Trace, ALogThatIsMissingIsFoundOnceItIsThereAndWhatItMissedIsCounted) {
  const auto trace = [] { KRP_TRACE_PrintInfo("mdxgate", 1, 0, "mdxgate", 2, "text"); };
  const uint64_t lost = counter_value(COUNT_TRACES_LOST);
  trace();
  const SystemLog late;
  std::string line;
  uint64_t missed = 0;
  for (; line.empty(); line = late.next(), ++missed) {
    usleep(10000);
    trace();
  }
  EXPECT_THAT(line, EndsWith(": text"));
  EXPECT_EQ(counter_value(COUNT_TRACES_LOST) - lost, missed);
}

TEST(Trace, ALogThatDoesNotKeepUpHoldsNobodyUp) {
  const SystemLog log;
  const uint64_t lost = counter_value(COUNT_TRACES_LOST);
  for (int i = 0; i < 10000; ++i) KRP_TRACE_PrintInfo("mdxgate", 1, 0, "mdxgate", 2, "%d", i);
  EXPECT_GT(counter_value(COUNT_TRACES_LOST), lost);
  EXPECT_THAT(log.next(), EndsWith(": 0"));
}

}  // namespace
