// SPDX-License-Identifier: Apache-2.0

// Texts and the PDUs that carry them.

#include "tools/mdxctl/sms_pdu.h"

#include <gmock/gmock.h>

namespace {

using testing::HasSubstr;

sms_message_t encode(std::string_view number, std::string_view text, uint32_t reference) {
  mdx_sms_options_t options = MDX_SMS_OPTIONS_INIT;
  options.reference = reference;
  return encode_sms(number, text, options);
}

std::string repeated(std::string_view text, size_t count) {
  std::string all;
  for (size_t i = 0; i < count; ++i) all += text;
  return all;
}

TEST(SmsPdu, CarriesNumberAndText) {
  // clang-format off
  const struct { const char* number; const char* text; const char* head; const char* pdu; } cases[] = {
    // Length, type and swapped digits of the number; alphabet; septets, from the lowest bit up.
    {"+447911123456",    "hellohello",   "AT+CMGS=22", "0001000C9144971121436500000AE8329BFD4697D9EC37"},
    {"12345",            "How are you?", "AT+CMGS=21", "00010005812143F500000CC8F71D14969741F977FD07"},
    {"1-2 3.4/5",        "How are you?", "AT+CMGS=21", "00010005812143F500000CC8F71D14969741F977FD07"},
    {"*100#",            "1234567",      "AT+CMGS=17", "0001000581" "1A00FB" "000007" "31D98C56B3DD00"},
    {"12345678901234567890", "",         "AT+CMGS=17", "0001001481" "21436587092143658709" "000000"},
    // The extension table takes two septets a character.
    {"12",               "€",            "AT+CMGS=10", "0001000281" "21" "000002" "9B32"},
    {"12",               "@[~]",         "AT+CMGS=15", "0001000281" "21" "000007" "80" "0D6FD3DBF800"},
    // UCS-2, in octets; a character past U+FFFF takes two words.
    {"12",               "Жü",           "AT+CMGS=12", "0001000281" "21" "000804" "041600FC"},
    {"12",               "\U0001F600",   "AT+CMGS=12", "0001000281" "21" "000804" "D83DDE00"},
  };
  // clang-format on
  for (const auto& c : cases) {
    const sms_message_t message = encode(c.number, c.text, 7);
    ASSERT_EQ(message.parts.size(), 1u) << c.text << message.error;
    EXPECT_EQ(message.parts[0].head, c.head) << c.text;
    EXPECT_EQ(message.parts[0].pdu, c.pdu) << c.text;
  }
}

TEST(SmsPdu, CutsLongTexts) {
  const std::string rare = repeated("Ж", 66) + "\U0001F600";
  // clang-format off
  const struct { std::string text; std::vector<const char*> user_data_begins; } cases[] = {
    {repeated("x", 160),              {"A0"}},
    {repeated("x", 153) + "12345678", {"A0050003070201", "0F050003070202" "62B219AD66BBE100"}},
    {repeated("x", 152) + "€aaaaaaa", {"9F050003070201", "10050003070202"}},  // the escape's part is whole
    {repeated("Ж", 70),               {"8C"}},
    {rare + "ЖЖЖ",                    {"8A050003070201", "10050003070202"}},  // so is the pair's
  };
  // clang-format on
  for (const auto& c : cases) {
    const sms_message_t message = encode("12", c.text, 7);
    ASSERT_EQ(message.parts.size(), c.user_data_begins.size()) << c.text << message.error;
    for (size_t i = 0; i < message.parts.size(); ++i) {
      EXPECT_EQ(message.parts[i].pdu.substr(2, 2), message.parts.size() > 1 ? "41" : "01");
      EXPECT_THAT(message.parts[i].pdu.substr(16), testing::StartsWith(c.user_data_begins[i]))
          << c.text;
    }
  }
}

TEST(SmsPdu, RefusesWhatCannotBeSent) {
  // clang-format off
  const struct { std::string number; std::string text; const char* reason; } cases[] = {
    {"",                      "a",                      "no digits"  },
    {"+49 (0)151",            "a",                      "leave out '('"},
    {"49+151",                "a",                      "leave out '+'"},
    {"123456789012345678901", "a",                      "21 digits"  },
    {"1",                     "\xff",                   "UTF-8"      },
    {"1",                     "\xc0\x80",               "UTF-8"      },
    {"1",                     "\xed\xa0\x80",           "UTF-8"      },
    {"1",                     repeated("x", 255 * 153 + 1), "256 parts"},
  };
  // clang-format on
  for (const auto& c : cases) {
    const sms_message_t message = encode(c.number, c.text, 0);
    EXPECT_THAT(message.error, HasSubstr(c.reason)) << c.number;
    EXPECT_TRUE(message.parts.empty()) << c.number;
  }
  EXPECT_EQ(encode("1", repeated("x", 255 * 153), 0).parts.size(), 255u);
}

}  // namespace
