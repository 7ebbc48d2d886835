// The records of the voice border, byte by byte, and what is refused.

#include <gtest/gtest.h>

#include <string>

#include "platform/at_fields.h"
#include "tests/record_image.h"

namespace {

using parser_t = int (*)(const char* text, void* record);

/// The record's bytes, or "refused".
std::string record_of(parser_t parser, size_t size, const std::string& line) {
  const std::string untouched(size, '\x5a');
  // One byte off: the record may lie anywhere.
  std::string room = "<" + untouched + ">";
  const int result = parser(line.c_str(), room.data() + 1);
  EXPECT_EQ(room.front(), '<') << line;
  EXPECT_EQ(room.back(), '>') << line;
  const std::string record = room.substr(1, size);
  if (result == 0) return record;
  EXPECT_EQ(result, -1) << line;
  EXPECT_EQ(record, untouched) << "a refused line was written: " << line;
  return "refused";
}

std::string caller(const std::string& number, std::initializer_list<uint8_t> rest) {
  return text(number, 32) + bytes(rest);
}

std::string call_end(uint8_t id, uint32_t duration, uint16_t status, uint16_t cause) {
  return bytes({id, 0, 0, 0}) + words({duration}) + halves({status, cause});
}

std::string emergency(uint32_t index, uint32_t total, const std::string& number, uint32_t category,
                      uint32_t sim, const std::string& mcc) {
  return words({index, total}) + text(number, 32) + words({category, sim}) + text(mcc, 8);
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
    {MdxOrigParse, 4, "note ^ORIG : 2 , \"5\",9\r\n", bytes({2, 5, 0, 0})},
    {MdxOrigParse, 4, "^ORIG:256,-1",               bytes({255, 0, 0, 0})},
    {MdxOrigParse, 4, "^ORIG:-1,+2",                bytes({0, 2, 0, 0})},
    {MdxOrigParse, 4, "^ORIG:,0",                   "refused"},
    {MdxOrigParse, 4, "^ORIG 1,0",                  "refused"},
    {MdxConfParse, 4, "^CONF: ",                    "refused"},
    {MdxConnParse, 4, "^DCONN:1,\"IPV4\"",          "refused"},

    {MdxCendParse, 12, "^CEND:1,0,104,31",          call_end(1, 0, 104, 31)},
    {MdxCendParse, 12, "^CEND:1,82,29",             call_end(1, 82, 29, 0)},
    {MdxCendParse, 12, "^CEND:,10,0",               call_end(0, 10, 0, 0)},
    {MdxCendParse, 12, "^CEND:1,5,29,16,7",         call_end(1, 5, 29, 16)},
    {MdxCendParse, 12, "^CEND:1," + huge + ",65536," + huge, call_end(1, 0xffffffff, 0xffff, 0xffff)},
    {MdxCendParse, 12, "^CEND:,10",                 "refused"},

    {MdxClipParse, 36, "+CLIP:\"\",128,,,,1",       caller("", {128, 0, 1, 0})},
    {MdxClipParse, 36, "+CLIP: \"1\",129,\"2\",128,\"a, b\",2", caller("1", {129, 0, 2, 0})},
    {MdxClipParse, 36, "+CLIP: " + digits + ",300", caller(digits.substr(0, 31), {255, 0, 0, 0})},
    {MdxClipParse, 36, "+CLIP: \"123",              caller("123", {0, 0, 0, 0})},
    {MdxClipParse, 36, "+CLIP: \"\"",               "refused"},
    {MdxCcwaParse, 36, "+CCWA: \"\",128,4,\"\",1",  caller("", {128, 4, 1, 0})},
    {MdxCcwaParse, 36, "^CCWA:\"123456789\",129,1", "refused"},
    {MdxCcwaImsParse, 36, "^CCWA:\"123456789\",129,1,,1", caller("123456789", {129, 1, 0, 0})},

    {MdxXlemaParse, 56, "^XLEMA: 2,2,\"911\"",      emergency(2, 2, "911", 0, 0, "")},
    {MdxXlemaParse, 56, "^XLEMA:1,1," + digits + ",4294967296,1,123456789", emergency(1, 1, digits.substr(0, 31), 0xffffffff, 1, "1234567")},
    {MdxXlemaParse, 56, "^XLEMA:1,2,,0,1,fff",      "refused"},
    {MdxXlemaParse, 56, "XLEMA:1,2,112,0,1,fff",    "refused"},

    {MdxCallStateParse, 5, "^CCALLSTATE:1",         "refused"},
    {at_cschaninfo_parse, 4, "^CSCHANNELINFO: ,1",  "refused"},
};
// clang-format on

TEST(CallRecords, HoldWhatTheLineSays) {
  for (const auto& [parser, size, line, record] : cases) {
    EXPECT_EQ(record_of(parser, size, line), record) << line;
    char room[56];
    EXPECT_EQ(parser(nullptr, room), -1);
    EXPECT_EQ(parser(line.c_str(), nullptr), -1);
  }
}

}  // namespace
