// SPDX-License-Identifier: Apache-2.0

// PDUs as networks and other phones make them, and what the modem puts around them.

#include <gmock/gmock.h>

#include <random>

#include "client/mdxsms.h"

namespace {

using namespace std::string_literals;

int decode(const std::string& pdu, mdx_sms_t* sms, uint32_t tpdu_length = 0) {
  *sms = MDX_SMS_INIT;
  return mdx_sms_decode(pdu.data(), static_cast<uint32_t>(pdu.size()), tpdu_length, sms);
}

std::string text_of(const mdx_sms_t& sms) { return {sms.text, sms.text_length}; }

std::string joined(const std::vector<mdx_sms_t>& messages) {
  std::vector<const mdx_sms_t*> parts;
  for (const mdx_sms_t& sms : messages) parts.push_back(&sms);
  const auto count = static_cast<uint32_t>(parts.size());
  std::string text(mdx_sms_join(parts.data(), count, nullptr, 0), '\0');
  EXPECT_EQ(mdx_sms_join(parts.data(), count, text.data(), text.size() + 1), text.size());
  return text;
}

constexpr char kTime[] = "52105231850180";  // 2025-01-25 13:58:10, two hours ahead

TEST(SmsDecode, ReadsSenderTimeAndText) {
  // clang-format off
  const struct { const char* pdu; const char* number; const char* text; int64_t time; int zone; } cases[] = {
    {"07911326040000F0040B911346610089F60000208062917314080CC8F71D14969741F977FD07",
     "+31641600986", "How are you?", 1030390661, 0},
    // Without the service centre; a number of the country, with * and #.
    {"000404811A2B" "0000" "52105231850180" "02" "C834", "*1#2", "Hi", 1737806290, 120},
    // A name: 5 septets in 9 half octets; west of Greenwich, in quarters of an hour.
    {"000409D04DB90B4405" "0000" "5210523185014A" "00", "Mr. T", "", 1737806290 + 7200 + 6 * 3600, -360},
    // UCS-2, a character in two words; a NUL; half a pair.
    {"00040281210008" "52105231850180" "04D83DDE00", "12", "\U0001F600", 1737806290, 120},
    {"00040281210008" "52105231850180" "02D83D",     "12", "\uFFFD",     1737806290, 120},
    // The extension table; an escape with nothing behind; one that no table has.
    {"00040281210000" "52105231850180" "029B32", "12", "€", 1737806290, 120},
    {"00040281210000" "52105231850180" "011B",   "12", " ", 1737806290, 120},
    {"00040281210000" "52105231850180" "029B30", "12", "a", 1737806290, 120},
    // Data for a program, and a text that was compressed, are no text.
    {"00040281210004" "52105231850180" "0200FF", "12", "", 1737806290, 120},
    {"00040281210020" "52105231850180" "0200FF", "12", "", 1737806290, 120},
    // A month that no calendar has.
    {"00040281210000" "52315231850180" "00", "12", "", 0, 0},
  };
  // clang-format on
  for (const auto& c : cases) {
    mdx_sms_t sms;
    ASSERT_EQ(decode(c.pdu, &sms), MDX_SMS_FINE) << c.pdu;
    EXPECT_EQ(sms.type, MDX_SMS_DELIVER);
    EXPECT_STREQ(sms.number, c.number) << c.pdu;
    EXPECT_EQ(text_of(sms), c.text) << c.pdu;
    EXPECT_EQ(sms.time_s, c.time) << c.pdu;
    EXPECT_EQ(sms.time_zone_min, c.zone) << c.pdu;
  }
}

/// The user data of a text in the 7-bit alphabet behind a header, both as digits.
std::string septets_behind(const std::string& header, const std::string& septets) {
  const size_t skipped = (header.size() / 2 * 8 + 6) / 7;
  std::string octets((skipped + septets.size()) * 7 / 8 + 1, '\0');
  for (size_t i = 0; i < septets.size(); ++i) {
    for (size_t bit = 0; bit < 7; ++bit) {
      const size_t at = (skipped + i) * 7 + bit;
      if (septets[i] >> bit & 1) octets[at / 8] = static_cast<char>(octets[at / 8] | 1 << at % 8);
    }
  }
  octets.resize(((skipped + septets.size()) * 7 + 7) / 8);
  char digits[3];
  std::snprintf(digits, sizeof(digits), "%02zX", skipped + septets.size());
  std::string data = digits + header;
  for (size_t i = header.size() / 2; i < octets.size(); ++i) {
    std::snprintf(digits, sizeof(digits), "%02X", static_cast<unsigned char>(octets[i]));
    data += digits;
  }
  return data;
}

TEST(SmsDecode, ReadsNationalAlphabets) {
  // One character for each of the tables, at a place where it differs from its neighbours.
  // clang-format off
  const struct { const char* header; std::string septets; const char* text; } cases[] = {
    {"03240101", "\x1bG\x1b" "e" "\x1b\x28", "Ğ€{"},
    {"03250101", "\x04\x40\x60",             "€İç"},
    {"03240102", "\x1b\x09\x1b" "U",         "çÚ" },
    {"03240103", "\x1b\x0b\x1b\x1f",         "ÔÊ" },
    {"03250103", "\x04\x5c\x7d",             "êÕ`"},
    {"03250104", "\x02\x60\x7f",             "\u0983\u09ce\u09f1"},
    {"03240104", "\x1b\x19\x1b\x34\x1b" "A", "\u09e6\u09faA"},
    {"03250105", "\x01\x0c\x7f",             "\u0a82\u0a8d\u0af1"},
    {"03240105", "\x1b\x1c\x1b\x25",         "\u0ae6\u0aef"},
    {"03250106", "\x01\x3c\x5f",             "\u0902\u0929\u094d"},
    {"03240106", "\x1b\x26\x1b\x3a",         "\u0951\u0971"},
    {"03250107", "\x01\x60",                 "\u0c82\u0cd5"},
    {"03240107", "\x1b\x26\x1b\x27\x1b\x2a", "\u0cde\u0cf1\u0cf2"},
    {"03250107", "\x23\x24\x25\x3d",       "\u0ca0\u0ca1\u0ca2\u0caa"},  // often misprinted
    {"03250108", "\x2c\x2d\x2e\x41",       ",\u0d27.\u0d2d"},
    {"03240109", "\x1b\x27\x1b\x2a\x1b\x2c", "\u0b5d\u0b5f\u0b71"},
    {"0324010A", "\x1b\x26\x1b\x2a\x1b\x2d", "\u0a59\u0a5b\u0a75"},
    {"0324010B", "\x1b\x29\x1b\x2f\x1b\x2e", "}\\\u0bfa"},
    {"0324010C", "\x1b\x1c\x1b\x32",       "\u0c66\u0c7f"},
    {"03240108", "\x1b\x2e\x1b\x34",         "\u0d7a\u0d7f"},
    {"03250109", "\x43\x7b",                 "\u0b2f\u0b57"},
    {"0325010A", "\x4a\x7f",                 "\u0a36\u0a74"},
    {"0325010B", "\x3c\x7f",                 "\u0ba9\u0bf9"},
    {"0325010C", "\x45\x50",                 "\u0c31\u0c3e"},
    {"0325010D", "\x01\x5f\x7f",             "\u0622\u0657\u0670"},
    {"0324010D", "\x1b\x19\x1b\x3f",         "\u0600\u06d4"},
    {"0625010324010D", "\x04\x1b\x3f",       "ê\u06d4"},
    {"032501FF", "\x04",                     "è"  },  // a language to come
  };
  // clang-format on
  for (const auto& c : cases) {
    mdx_sms_t sms;
    const std::string pdu = "0044028121"s + "0000" + kTime + septets_behind(c.header, c.septets);
    ASSERT_EQ(decode(pdu, &sms), MDX_SMS_FINE) << pdu;
    EXPECT_EQ(text_of(sms), c.text) << pdu;
  }
}

TEST(SmsDecode, ReadsHeadersAndReports) {
  mdx_sms_t sms;
  const std::string with_header = "0044028121"s + "0000" + kTime;
  ASSERT_EQ(decode(with_header + septets_behind("0500032A0302", "x"), &sms), MDX_SMS_FINE);
  EXPECT_EQ(sms.reference * 100 + sms.parts * 10 + sms.part, 4232u);
  ASSERT_EQ(decode(with_header + septets_behind("0608041234FF01", "x"), &sms), MDX_SMS_FINE);
  EXPECT_EQ(sms.reference, 0x1234u);
  EXPECT_EQ(sms.parts, 255u);
  ASSERT_EQ(decode(with_header + septets_behind("0B0504158A00000003"
                                                "070201",
                                                "x"),
                   &sms),
            MDX_SMS_FINE);
  EXPECT_EQ(sms.destination_port, 5514u);
  EXPECT_EQ(sms.parts, 2u);
  ASSERT_EQ(decode(with_header + septets_behind("050003070203", "x"), &sms), MDX_SMS_FINE);
  EXPECT_EQ(sms.parts, 0u) << "a third part of two";

  // The second digits of a status report are when it arrived.
  const std::string report = "000617028121"s + kTime + "52105241000080";
  ASSERT_EQ(decode(report + "00", &sms), MDX_SMS_FINE);
  EXPECT_EQ(sms.type, MDX_SMS_STATUS_REPORT);
  EXPECT_EQ(sms.message_reference, 23u);
  EXPECT_EQ(sms.discharged_s - sms.time_s, 110);
  EXPECT_EQ(mdx_sms_fate(&sms), MDX_SMS_DELIVERED);
  ASSERT_EQ(decode(report + "21", &sms), MDX_SMS_FINE);
  EXPECT_EQ(mdx_sms_fate(&sms), MDX_SMS_TRYING);
  ASSERT_EQ(decode(report + "46", &sms), MDX_SMS_FINE);
  EXPECT_EQ(mdx_sms_fate(&sms), MDX_SMS_FAILED);
  EXPECT_STREQ(mdx_sms_status_text(sms.status), "it was too old");
}

TEST(SmsDecode, RefusesWhatIsNoPdu) {
  const std::string whole =
      "07911326040000F0040B911346610089F60000208062917314080CC8F71D14969741F977FD07";
  const auto octets = static_cast<uint32_t>(whole.size() / 2);
  mdx_sms_t sms;
  for (size_t size = 2; size < whole.size(); size += 2) {
    EXPECT_NE(decode(whole.substr(0, size), &sms), MDX_SMS_FINE) << size;
  }
  EXPECT_EQ(decode(whole + "FFFF", &sms), MDX_SMS_FINE) << "padded, as a SIM stores it";
  EXPECT_EQ(decode(whole, &sms, octets - 8), MDX_SMS_FINE);
  EXPECT_EQ(decode(whole.substr(16), &sms, octets - 8), MDX_SMS_FINE) << "no service centre";
  EXPECT_STREQ(sms.number, "+31641600986");
  // clang-format off
  const struct { std::string pdu; uint32_t tpdu_length; int mistake; } cases[] = {
    {"",                        0,          MDX_SMS_MISTAKE_PDU_DIGITS },
    {"0",                       0,          MDX_SMS_MISTAKE_PDU_DIGITS },
    {"0g",                      0,          MDX_SMS_MISTAKE_PDU_DIGITS },
    {std::string(512, '0'),     0,          MDX_SMS_MISTAKE_PDU_LENGTH },
    {whole,                     octets - 7, MDX_SMS_MISTAKE_PDU_LENGTH },
    {"0003",                    0,          MDX_SMS_MISTAKE_PDU_TYPE   },
    {"0D91",                    0,          MDX_SMS_MISTAKE_PDU_ADDRESS},
    {"000417810000",            0,          MDX_SMS_MISTAKE_PDU_ADDRESS},
    {"0004028121" "0004"s + kTime + "8D", 0, MDX_SMS_MISTAKE_PDU_TEXT  },
    {"0044028121" "0004"s + kTime + "0103", 0, MDX_SMS_MISTAKE_PDU_TEXT},
    {"0044028121" "0004"s + kTime + "00", 0, MDX_SMS_MISTAKE_PDU_TEXT  },
  };
  // clang-format on
  for (const auto& c : cases) {
    EXPECT_EQ(decode(c.pdu, &sms, c.tpdu_length), c.mistake) << c.pdu;
    EXPECT_THAT(mdx_sms_mistake_text(c.mistake), testing::HasSubstr(" PDU"));
  }
}

TEST(SmsDecode, GivesBackWhatWasEncoded) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  const std::string characters[] = {"a", "0", " ", "@",          "\n",   "€",    "{",  "ß",
                                    "Ω", "~", "Ж", "\U0001F600", "\x1a", "\x1b", "\r", "\0"s};
  for (int round = 0; round < 500; ++round) {
    std::string text;
    const size_t kinds = round % 2 == 0 ? 10 : std::size(characters);
    for (size_t left = random() % 400; left > 0; --left) text += characters[random() % kinds];
    mdx_sms_options_t options = MDX_SMS_OPTIONS_INIT;
    options.reference = random() % 512;
    options.flash = round % 3 == 0;
    mdx_sms_part_t part = MDX_SMS_PART_INIT;
    part.parts = 1;
    std::vector<mdx_sms_t> messages;
    for (uint32_t i = 0; i < part.parts; ++i) {
      ASSERT_EQ(mdx_sms_encode("+1 2*3#", text.data(), static_cast<uint32_t>(text.size()), &options,
                               i, &part, nullptr),
                MDX_SMS_FINE);
      ASSERT_EQ(decode(part.pdu, &messages.emplace_back(), part.tpdu_length), MDX_SMS_FINE);
      EXPECT_EQ(messages.back().part, part.parts > 1 ? i + 1 : 0);
      EXPECT_EQ(messages.back().reference, part.parts > 1 ? options.reference : 0);
    }
    EXPECT_EQ(joined(messages), text);
    EXPECT_STREQ(messages[0].number, "+12*3#");
    EXPECT_EQ(messages[0].message_class, options.flash != 0 ? 0 : -1);
  }
}

TEST(SmsDecode, JoinsWhatWasTornBetweenParts) {
  const std::string begin = "0044028121"s + "00";
  std::vector<mdx_sms_t> pair(2);
  ASSERT_EQ(decode(begin + "08" + kTime +
                       "0A"
                       "050003070201"
                       "0041D83D",
                   &pair[0]),
            MDX_SMS_FINE);
  ASSERT_EQ(decode(begin + "08" + kTime +
                       "0A"
                       "050003070202"
                       "DE000042",
                   &pair[1]),
            MDX_SMS_FINE);
  EXPECT_EQ(text_of(pair[0]), "A\uFFFD");
  EXPECT_EQ(joined(pair), "A\U0001F600B");
  ASSERT_EQ(decode(begin + "00" + kTime + septets_behind("050003070201", "a\x1b"), &pair[0]),
            MDX_SMS_FINE);
  ASSERT_EQ(decode(begin + "00" + kTime + septets_behind("050003070202", "e"), &pair[1]),
            MDX_SMS_FINE);
  EXPECT_EQ(joined(pair), "a€");
  char text[4];
  const mdx_sms_t* parts[] = {&pair[0], &pair[1]};
  EXPECT_EQ(mdx_sms_join(parts, 2, text, sizeof(text)), 4u);
  EXPECT_STREQ(text, "a") << "no half character";
}

/// Index, state, length and PDU of each message in an answer.
std::string stored_in(const std::string& answer) {
  std::string all;
  mdx_sms_stored_t stored = MDX_SMS_STORED_INIT;
  const auto length = static_cast<uint32_t>(answer.size());
  for (uint32_t i = 0; mdx_sms_stored_at(answer.data(), length, i, &stored) == MDX_OK; ++i) {
    all += std::to_string(stored.index) + ' ' + std::to_string(stored.state) + ' ' +
           std::to_string(stored.tpdu_length) + ' ' + std::string(stored.pdu, stored.pdu_length) +
           ';';
  }
  return all;
}

TEST(SmsDecode, FindsMessagesInAnswers) {
  // clang-format off
  const struct { const char* answer; const char* stored; } cases[] = {
    {"+CMGR: 1,,26\r\n00AB\r\n\r\nOK\r\n",       "-1 1 26 00AB;"},
    {"+CMGR:0,\"A, B\",26\r\r\n00ab\r\nOK\r\n",   "-1 0 26 00ab;"},
    {"+CMGR: 1,26\r\n00AB\r\nOK\r\n",            "-1 1 26 00AB;"},
    {"+CMGR: 0,,0\r\n\r\nOK\r\n",                "-1 0 0 ;"     },
    {"+CMGL: 3,1,,2\r\n00AB\r\n+CMGL: 12,0,\"\",3\r\n00CD\r\nOK\r\n", "3 1 2 00AB;12 0 3 00CD;"},
    {"+CMGR: 2,,26\r\n+CMS ERROR: 321\r\n",        "-1 2 26 ;"    },
    {"+CMGR: 1,,26\r\n00+CREG: 1\r\nAB\r\nOK\r\n", "-1 1 26 ;"    },
    {"+CMGR: \"REC READ\",\"+49\",,\"25/01/25\"\r\n00AB\r\nOK\r\n", "-1 -1 0 ;"},
    {"+CMGR: -1,,26\r\n00AB\r\nOK\r\n",          "-1 -1 26 00AB;"},
    {"OK\r\n",                                    ""             },
  };
  // clang-format on
  for (const auto& c : cases) EXPECT_EQ(stored_in(c.answer), c.stored) << c.answer;

  const auto error_in = [](const std::string& answer) {
    return mdx_sms_error_number(answer.data(), static_cast<uint32_t>(answer.size()));
  };
  EXPECT_EQ(error_in("+CMS ERROR: 310\r\n"), 310);
  EXPECT_EQ(error_in("+CMS ERROR:42"), 42);
  EXPECT_EQ(error_in("+CMS ERROR: SIM busy\r\n"), -1);
  EXPECT_EQ(error_in("ERROR"), -1);
  const std::string sent = "+CMS ERROR: 5\r\n+CMGS: 255\r\nOK\r\n";
  EXPECT_EQ(mdx_sms_sent_reference(sent.data(), static_cast<uint32_t>(sent.size())), 255);
  EXPECT_EQ(mdx_sms_sent_reference("+CMS ERROR: 310", 15), -1);
}

}  // namespace
