// SPDX-License-Identifier: Apache-2.0

// What a person at the console sees, at any moment of the server's life.
#include <atomic>
#include <thread>

#include "tests/unit/server_test.h"

namespace unit {
namespace {

const std::string kRule = std::string(62, '-') + "\r\n";

std::string state_text(const std::string& name) {
  return kRule + "MdxGate state machine state is [" + name + "].\r\n" + kRule;
}
std::string dialog_text(const std::string& sent, const std::string& received) {
  return kRule + "MdxGate last sent data is: [" + sent + "].\r\n" +
         "MdxGate last received data is: [" + received + "].\r\n" + kRule;
}

TEST(Console, ShowsTheStateByItsName) {
  // clang-format off
  const std::pair<int32_t, std::string> cases[] = {
      {0, "AT_INIT_S"}, {1, "AT_IDLE_S"}, {2, "AT_PROCESS_CLIENT_S"}, {3, "AT_PROCESS_NAS_S"},
      {4, ""}, {-1, ""}};
  // clang-format on
  for (const auto& [state, name] : cases) {
    fake::forget_server();
    mdx_state.at_state = state;
    EXPECT_EQ(fake::console("display", "state"), state_text(name)) << state;
  }
  EXPECT_EQ(fake::console("display", "help"),
            kRule + "This cms module is used for display mdxgate status \r\n" + kRule);
}

TEST(Console, ShowsWhatPassedUnmasked) {
  fake::forget_server();
  at_msg_t msg = record({.text = "AT+CPIN=1234"});
  mdx_state.last_client_msg.store(msg);
  for (const std::string& line : {"+CME ERROR: 16"s, "OK"s, std::string(1500, 'x')}) {
    mdx_state.last_nas_msg.store(msg, line);
    EXPECT_EQ(fake::console("display", "dialog"), dialog_text("AT+CPIN=1234", line));
  }
  std::memset(&msg.snd_rcv_msg, 'y', sizeof(msg.snd_rcv_msg));
  mdx_state.last_client_msg.store(msg);
  EXPECT_EQ(fake::console("display", "dialog"),
            dialog_text(std::string(kCommandSize, 'y'), std::string(1500, 'x')))
      << "a text without end ends with its room";
}

constexpr int kReads = 50'000;

TEST(Console, ShowsWholeTextsWhileTheyChange) {
  // As many records as displays, each at a moment of its own: the writer starts when a display
  // does.
  fake::forget_server();
  std::atomic<int> displays = 0;
  std::thread server([&] {
    for (int turn = 0; turn < kReads; ++turn) {
      const char letter = static_cast<char>('a' + turn % 26);
      const std::string text(static_cast<size_t>(turn * 97 % 639), letter);
      const at_msg_t msg = record({.text = text});
      while (displays.load() <= turn) std::this_thread::yield();
      mdx_state.last_client_msg.store(msg);
      mdx_state.last_nas_msg.store(msg, text);
    }
  });
  int torn = 0;
  while (displays < kReads) {
    ++displays;
    const std::string shown = fake::console("display", "dialog");
    for (const std::string opening : {"sent data is: [", "received data is: ["}) {
      const size_t start = shown.find(opening) + opening.size();
      const std::string text = shown.substr(start, shown.find(']', start) - start);
      if (text.find_first_not_of(text[0]) != std::string::npos) ++torn;
    }
  }
  server.join();
  EXPECT_EQ(torn, 0);
}

}  // namespace
}  // namespace unit
