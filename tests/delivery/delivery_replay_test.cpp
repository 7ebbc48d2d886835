// Recorded and random talk of a modem, at all cuts: what must hold whatever it says.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/delivery/modem_line.h"

namespace {

using namespace std::string_literals;

/// A line of a session file, its control characters in place.
string unescaped(const string& text) {
  string bytes;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      bytes += text[i];
    } else if (text[++i] == 'x') {
      bytes += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      bytes += text[i] == 'r' ? '\r' : '\n';
    }
  }
  return bytes;
}

/// What a session's deliveries hold together, and how many of them an answer took at most.
struct replay_t {
  string content;
  size_t most_for_an_answer = 0;
};

replay_t replay(const script_t& session, const cut_t& cut) {
  modem_line line(cut);
  replay_t played;
  size_t since_send = 0;
  for (size_t at = 0; at < session.size(); ++at) {
    line.deliveries.clear();
    if (session[at][0] == '>') {
      since_send = 0;
      line.send(unescaped(session[at].substr(2)));
    } else {
      line.say(unescaped(session[at].substr(2)));
      line.wait(5);
    }
    for (const string& delivery : line.deliveries) {
      played.content += delivery;
      ++since_send;
      if (delivery.ends_with("OK\r\n") || delivery.ends_with("> ")) {
        played.most_for_an_answer = std::max(played.most_for_an_answer, since_send);
      }
    }
  }
  return played;
}

TEST(DeliverySessions, AnswersComeInOneAndWithoutEcho) {
  size_t sessions = 0;
  for (const auto& file : std::filesystem::directory_iterator(MDX_SESSIONS)) {
    if (file.path().extension() != ".txt") continue;
    SCOPED_TRACE(file.path().filename());
    script_t session;
    std::ifstream input(file.path());
    for (string line; std::getline(input, line);) {
      if (line.starts_with("> ") || line.starts_with("< ")) session.push_back(line);
    }
    const replay_t expected = replay(session, whole);
    EXPECT_EQ(expected.content.find("AT"), string::npos) << expected.content;
    EXPECT_EQ(expected.content.find("\r\r"), string::npos) << expected.content;
    const uint32_t seed = std::random_device{}();
    for (const cut_t& cut : {cut_t(byte_by_byte), at_random(seed)}) {
      const replay_t played = replay(session, cut);
      EXPECT_EQ(played.content, expected.content) << "seed " << seed;
      EXPECT_LE(played.most_for_an_answer, 1U) << "seed " << seed;
    }
    ++sessions;
  }
  EXPECT_GE(sessions, 4U);
}

/// Bytes that like to make up lines, echoes, headers, prompts and overflows.
string random_talk(std::mt19937& random) {
  static const script_t words = {
      "\r",           "\n",           "\r\n",       "\r\r\n", "> ",       "AT+X",
      "AT+X\r\r\n",   "OK",           "\r\nOK\r\n", "\x1a",   "\x1a\r\n", "+CMT: 1\r\n",
      "^HCMGR:1\r\n", "+CMGL: 1\r\n", "\0"s,        "\xff",   "0791",     string(700, 'y')};
  string talk;
  for (size_t count = 1 + random() % 8; count > 0; --count) talk += words[random() % words.size()];
  return talk;
}

/// What two texts have in common once all that may be left out is left out of both.
string without_line_ends(const string& bytes) {
  string rest;
  std::copy_if(bytes.begin(), bytes.end(), std::back_inserter(rest),
               [](char byte) { return byte != '\r' && byte != '\n'; });
  return rest;
}

bool only_blank_lines(const string& delivery) {
  size_t at = 0;
  while (delivery.compare(at, 2, "\r\n") == 0) at += 2;
  return at == delivery.size();
}

void talk_at_random(uint32_t seed) {
  constexpr size_t kEcho = 4;
  std::mt19937 random(seed);
  modem_line line(at_random(seed));
  string said;
  size_t sends = 0;
  for (int step = 0; step < 200; ++step) {
    if (random() % 4 == 0) {
      line.send("AT+X\r");
      ++sends;
    }
    const string talk = random_talk(random);
    said += talk;
    line.say(talk);
    if (random() % 3 == 0) line.wait(random() % 60);
  }
  line.wait(5000);
  string heard;
  for (const string& delivery : line.deliveries) {
    ASSERT_LE(delivery.size(), kDeliveryMaxBytes);
    ASSERT_FALSE(delivery.ends_with('\r')) << readable(delivery);
    ASSERT_FALSE(only_blank_lines(delivery)) << readable(delivery);
    heard += delivery;
  }
  const size_t lost = without_line_ends(said).size() - without_line_ends(heard).size();
  EXPECT_EQ(lost, kEcho * line.echoes_dropped());
  EXPECT_LE(line.echoes_dropped(), sends);
}

TEST(DeliveryRandom, LosesNothingAndEndsNowhereElse) {
  const uint32_t first_seed = std::random_device{}();
  for (uint32_t seed = first_seed; seed < first_seed + 100; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    talk_at_random(seed);
    if (testing::Test::HasFailure()) return;
  }
}

}  // namespace
