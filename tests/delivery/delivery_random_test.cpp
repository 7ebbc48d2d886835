// SPDX-License-Identifier: Apache-2.0

// Random talk of a modem in an exchange, cut at random: what must hold whatever it says.

#include "tests/delivery/modem_line.h"

namespace {

using namespace std::string_literals;

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
string without_echoes(const string& bytes) {
  string rest;
  for (const char byte : bytes) {
    if (byte != '\r' && byte != '\n') rest += byte;
    if (rest.ends_with("AT+X")) rest.resize(rest.size() - 4);
  }
  return rest;
}

bool only_blank_lines(const string& delivery) {
  size_t at = 0;
  while (delivery.compare(at, 2, "\r\n") == 0) at += 2;
  return at == delivery.size();
}

void talk_at_random(uint32_t seed) {
  constexpr std::string_view kOwedForGood = "AT\rAT\rAT\rAT\rAT\rAT\rAT\rAT\rAT\r";
  std::mt19937 random(seed);
  modem_line line(at_random(seed));
  string said;
  size_t sends = 0;
  for (int step = 0; step < 200; ++step) {
    if (random() % 4 == 0) {
      line.send("AT+X\r");
      ++sends;
    }
    line.debt().sent(kOwedForGood);
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
  EXPECT_EQ(without_echoes(said), without_echoes(heard));
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
