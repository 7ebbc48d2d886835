// A line to every parser of call records; what is refused leaves the record untouched.

#include "fuzz/fuzz.h"
#include "platform/at_fields.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  struct parser_t {
    int (*parse)(const char* text, void* record);
    size_t size;
  };
  static constexpr parser_t kParsers[] = {
      {MdxOrigParse, 4},      {MdxConfParse, 4},       {MdxConnParse, 4},     {MdxCendParse, 12},
      {MdxClipParse, 36},     {MdxCcwaParse, 36},      {MdxCcwaImsParse, 36}, {MdxXlemaParse, 56},
      {MdxCallStateParse, 5}, {at_cschaninfo_parse, 4}};
  const std::string line(reinterpret_cast<const char*>(data), size);
  for (const parser_t& parser : kParsers) {
    std::string record(parser.size, '\x5a');
    std::string untouched = record;
    record.shrink_to_fit();
    const int result = parser.parse(line.c_str(), record.data());
    fuzz::require(result == 0 || (result == -1 && record == untouched));
  }
  return 0;
}
