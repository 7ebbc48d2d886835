// The records of the voice border, byte by byte, and what is refused.

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <memory>
#include <random>
#include <string>

#include "platform/at_fields.h"

namespace {

using parser_t = int (*)(const char* text, void* record);

constexpr char kUntouched = '\x5a';
constexpr size_t kGuard = 16;

/// The record's bytes, or "refused". Fails when a byte outside the record was written.
std::string record_of(parser_t parser, size_t size, const std::string& line) {
  std::unique_ptr<char[]> text(new char[line.size() + 1]);
  std::memcpy(text.get(), line.c_str(), line.size() + 1);
  std::string room(size + 2 * kGuard + 1, kUntouched);
  // One byte off: the record may lie anywhere.
  const int result = parser(text.get(), room.data() + kGuard + 1);
  const std::string record = room.substr(kGuard + 1, size);
  EXPECT_EQ(room.substr(0, kGuard + 1), std::string(kGuard + 1, kUntouched)) << line;
  EXPECT_EQ(room.substr(kGuard + 1 + size), std::string(kGuard, kUntouched)) << line;
  if (result == 0) return record;
  EXPECT_EQ(result, -1) << line;
  EXPECT_EQ(record, std::string(size, kUntouched)) << "a refused line was written: " << line;
  return "refused";
}

/// Text in a field of `size` bytes.
std::string field(std::string text, size_t size) {
  text.resize(size);
  return text;
}

std::string word(uint32_t number, size_t size = 4) {
  return std::string(reinterpret_cast<const char*>(&number), size);
}

std::string bytes(std::initializer_list<int> values) {
  std::string text;
  for (const int value : values) text += static_cast<char>(value);
  return text;
}

std::string caller(const std::string& number, std::initializer_list<int> rest) {
  return field(number, 32) + bytes(rest);
}

std::string call_end(int id, uint32_t duration, uint32_t status, uint32_t cause) {
  return bytes({id, 0, 0, 0}) + word(duration) + word(status, 2) + word(cause, 2);
}

std::string emergency(uint32_t index, uint32_t total, const std::string& number, uint32_t category,
                      uint32_t sim, const std::string& mcc) {
  return word(index) + word(total) + field(number, 32) + word(category) + word(sim) + field(mcc, 8);
}

const std::string digits = "1234567890123456789012345678901234567890";
const std::string huge = "99999999999999999999999";

struct record_case_t {
  parser_t parser;
  size_t size;
  std::string line;
  std::string record;
};

// clang-format off
const record_case_t cases[] = {
    {MdxOrigParse, 4, "^ORIG:1,0",                  bytes({1, 0, 0, 0})},
    {MdxOrigParse, 4, "note ^ORIG : 2 , \"5\",9\r\n", bytes({2, 5, 0, 0})},
    {MdxOrigParse, 4, "^ORIG:256,-1",               bytes({255, 0, 0, 0})},
    {MdxOrigParse, 4, "^ORIG:-1,+2",                bytes({0, 2, 0, 0})},
    {MdxOrigParse, 4, "^ORIG:3",                    bytes({3, 0, 0, 0})},
    {MdxOrigParse, 4, "^ORIG:,0",                   "refused"},
    {MdxOrigParse, 4, "^ORIG:x,0",                  "refused"},
    {MdxOrigParse, 4, "^ORIG:",                     "refused"},
    {MdxOrigParse, 4, "^ORIGX:1,0",                 "refused"},
    {MdxOrigParse, 4, "^ORIG 1,0",                  "refused"},
    {MdxConfParse, 4, "^CONF:1",                    bytes({1, 0, 0, 0})},
    {MdxConfParse, 4, "^CONF: ",                    "refused"},
    {MdxConnParse, 4, "^CONN:1,0",                  bytes({1, 0, 0, 0})},
    {MdxConnParse, 4, "^DCONN:1,\"IPV4\"",          "refused"},

    {MdxCendParse, 12, "^CEND:1,0,104,31",          call_end(1, 0, 104, 31)},
    {MdxCendParse, 12, "^CEND:1,82,29",             call_end(1, 82, 29, 0)},
    {MdxCendParse, 12, "^CEND: 1,0, 67, 21",        call_end(1, 0, 67, 21)},
    {MdxCendParse, 12, "^CEND:,10,0",               call_end(0, 10, 0, 0)},
    {MdxCendParse, 12, "^CEND:1,5,29,16,7",         call_end(1, 5, 29, 16)},
    {MdxCendParse, 12, "^CEND:2",                   call_end(2, 0, 0, 0)},
    {MdxCendParse, 12, "^CEND:1," + huge + ",65536," + huge, call_end(1, 0xffffffff, 0xffff, 0xffff)},
    {MdxCendParse, 12, "^CEND:,10",                 "refused"},
    {MdxCendParse, 12, "^CEND:",                    "refused"},

    {MdxClipParse, 36, "+CLIP: \"+123456789\",145", caller("+123456789", {145, 0, 0, 0})},
    {MdxClipParse, 36, "+CLIP: \"123456789\",129,,,,0", caller("123456789", {129, 0, 0, 0})},
    {MdxClipParse, 36, "+CLIP:\"\",128,,,,1",       caller("", {128, 0, 1, 0})},
    {MdxClipParse, 36, "+CLIP: \"1\",129,\"2\",128,\"a, b\",2", caller("1", {129, 0, 2, 0})},
    {MdxClipParse, 36, "+CLIP: " + digits.substr(0, 31) + ",129", caller(digits.substr(0, 31), {129, 0, 0, 0})},
    {MdxClipParse, 36, "+CLIP: " + digits + ",300", caller(digits.substr(0, 31), {255, 0, 0, 0})},
    {MdxClipParse, 36, "+CLIP: \"123",              caller("123", {0, 0, 0, 0})},
    {MdxClipParse, 36, "+CLIP: \"\"",               "refused"},
    {MdxClipParse, 36, "+CLIP:",                    "refused"},
    {MdxCcwaParse, 36, "+CCWA: \"123456789\",129,1,,0", caller("123456789", {129, 1, 0, 0})},
    {MdxCcwaParse, 36, "+CCWA: \"\",128,4,\"\",1",  caller("", {128, 4, 1, 0})},
    {MdxCcwaParse, 36, "^CCWA:\"123456789\",129,1", "refused"},
    {MdxCcwaImsParse, 36, "^CCWA:\"123456789\",129,1,,1", caller("123456789", {129, 1, 0, 0})},
    {MdxCcwaImsParse, 36, "+CCWA: \"123456789\",129,1", "refused"},

    {MdxXlemaParse, 56, "^XLEMA:1,2,112,0,1,fff",   emergency(1, 2, "112", 0, 1, "fff")},
    {MdxXlemaParse, 56, "^XLEMA: 2,2,\"911\"",      emergency(2, 2, "911", 0, 0, "")},
    {MdxXlemaParse, 56, "^XLEMA:1,1," + digits + ",4294967296,1,123456789", emergency(1, 1, digits.substr(0, 31), 0xffffffff, 1, "1234567")},
    {MdxXlemaParse, 56, "^XLEMA:1,2,,0,1,fff",      "refused"},
    {MdxXlemaParse, 56, "XLEMA:1,2,112,0,1,fff",    "refused"},

    {MdxCallStateParse, 5, "^CCALLSTATE: 1,0,1",    bytes({1, 0, 1, 0, 0})},
    {MdxCallStateParse, 5, "^CCALLSTATE:1",         "refused"},
    {at_cschaninfo_parse, 4, "^CSCHANNELINFO: 0,1", bytes({0, 1, 0, 0})},
    {at_cschaninfo_parse, 4, "^CSCHANNELINFO: ,1",  "refused"},
};
// clang-format on

TEST(CallRecords, HoldWhatTheLineSays) {
  for (const auto& [parser, size, line, record] : cases) {
    EXPECT_EQ(record_of(parser, size, line), record) << line;
  }
}

TEST(CallRecords, RefuseNull) {
  char record[56];
  for (const auto& [parser, size, line, expected] : cases) {
    EXPECT_EQ(parser(nullptr, record), -1);
    EXPECT_EQ(parser(line.c_str(), nullptr), -1);
  }
}

TEST(CallRecords, StayInTheirLengthWhateverTheBytes) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  constexpr std::string_view kFrequent = "\",,: 019\r\n";
  for (const auto& [parser, size, line, expected] : cases) {
    for (int round = 0; round < 200; ++round) {
      std::string text = line;
      for (size_t left = random() % 80; left > 0; --left) {
        const bool frequent = random() % 3 != 0;
        text.insert(random() % (text.size() + 1), 1,
                    frequent ? kFrequent[random() % kFrequent.size()]
                             : static_cast<char>(1 + random() % 255));
      }
      record_of(parser, size, text);
    }
  }
}

}  // namespace
