// SPDX-License-Identifier: Apache-2.0

// One line in, text out, whatever the client is like.

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "platform/linux/counters.h"
#include "tests/platform/other_process.h"
#include "wire/border.h"

namespace {

using namespace std::string_literals;
using testing::AllOf;
using testing::HasSubstr;

std::string read_all(int fd) {
  std::string text;
  char buffer[4096];
  for (ssize_t size = 0; (size = read(fd, buffer, sizeof(buffer))) > 0;)
    text.append(buffer, static_cast<size_t>(size));
  close(fd);
  return text;
}

std::string ask(const std::string& line) {
  const int fd = connect_to(kMdxConsolePath, SOCK_STREAM);
  EXPECT_EQ(send(fd, line.data(), line.size(), MSG_NOSIGNAL), static_cast<ssize_t>(line.size()));
  shutdown(fd, SHUT_WR);
  return read_all(fd);
}

class Console : public testing::Test {
 protected:
  Console() {
    be_the_server();
    serve_the_hub([](const void*) {});
  }
};

TEST_F(Console, AnswersEachLine) {
  const std::string usage = "usage: <module> <command>";
  // clang-format off
  const struct { std::string line; std::string answer; } cases[] = {
      {"test hello\n",              "hello 7\n"},
      {"test hello",                "hello 7\n"},
      {"test hello again\nrubbish", "hello 7\n"},
      {"test\n",                    usage},
      {"test hello2\n",             usage},
      {"\n",                        usage},
      {"\0\xff\x1b[2J\n"s,          usage},
      {"platform stats\n",          "packets_lost 0\n"},
      {"platform trace 30\n",       "trace 30\n"},
      {"platform trace\n",          "trace 30\n"},
      {"platform trace 0x6x\n",     "a mask is"},
      {"platform trace 4294967296\n", "a mask is"},
      {"platform trace 0x6\n",      "trace 6\n"},
  };
  // clang-format on
  for (const auto& [line, answer] : cases) EXPECT_THAT(ask(line), HasSubstr(answer)) << line;
  EXPECT_EQ(mdx_trace_mask, 6u);
  EXPECT_THAT(ask("help\n"), AllOf(HasSubstr("platform stats"), HasSubstr("test hello")));
}

TEST_F(Console, OutlivesClientsThatMisbehave) {
  const uint64_t dropped = counter_value(COUNT_CONSOLE_DROPPED);
  close(connect_to(kMdxConsolePath, SOCK_STREAM));
  const int silent = connect_to(kMdxConsolePath, SOCK_STREAM);
  const int endless = connect_to(kMdxConsolePath, SOCK_STREAM);
  send(endless, std::string(100000, 'x').data(), 100000, MSG_NOSIGNAL);
  const int impatient = connect_to(kMdxConsolePath, SOCK_STREAM);
  send(impatient, "platform stats\n", 15, MSG_NOSIGNAL);
  close(impatient);
  EXPECT_EQ(ask("test hello\n"), "hello 7\n");
  EXPECT_GE(counter_value(COUNT_CONSOLE_DROPPED), dropped + 3);
  close(silent);
  close(endless);
}

TEST_F(Console, HoldsUpNobodyOfTheHub) {
  const int silent = connect_to(kMdxConsolePath, SOCK_STREAM);
  send(silent, "platform", 8, MSG_NOSIGNAL);
  mdx_packet_header_t subscription{};
  subscription.kind = MDX_PACKET_SUBSCRIPTION;
  subscription.to[0] = '*';
  subscription.a = kMdxSubscribeWithStates;
  const int receiver = connect_to(kMdxHubPath, SOCK_SEQPACKET);
  send(receiver, &subscription, sizeof(subscription), MSG_NOSIGNAL);
  char packet[sizeof(mdx_packet_header_t) + kMdxPayloadMax];
  EXPECT_GT(recv(receiver, packet, sizeof(packet), 0), 0);
  EXPECT_EQ(recv(silent, packet, sizeof(packet), MSG_DONTWAIT), -1) << "its time is not up yet";
  close(receiver);
  send(silent, " trace\n", 7, MSG_NOSIGNAL);
  EXPECT_THAT(read_all(silent), HasSubstr("trace"));
}

}  // namespace
