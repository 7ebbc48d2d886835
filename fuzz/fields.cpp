// A line to the field parser, with every prefix.

#include "fuzz/fuzz.h"
#include "platform/at_fields.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static constexpr const char* kPrefixes[] = {
      "^SYSINFO",   "^SRVST",  "^MODE",       "^SIMST",      "^SIMREFRESH", "^ANLEVEL",
      "^LTESIGLEV", "^HCSQ",   "^HFREQINFO",  "^NWTIME",     "^APROAMRPT",  "^REJINFO",
      "^DCONN",     "^DEND",   "^NDISSTAT",   "^NDISSTATEX", "^DSFLOWRPT",  "^TEMPPRT",
      "^WAKEUPIN",  "+CMT",    "+CDS",        "+CBM",        "+CMTI",       "+CDSI",
      "^HCMGSS",    "^HCMGSF", "^SMMEMFULL",  "+CUSD",       "^STIN",       "+CIREGU",
      "+CSSI",      "+CSSU",   "^APDIALUPRPT"};
  const std::string line(reinterpret_cast<const char*>(data), size);
  std::string text(line.c_str());
  text.shrink_to_fit();
  for (const char* prefix : kPrefixes) {
    at_field_t* chain = nullptr;
    const int result = at_cmd_parse(&chain, prefix, text.c_str(), 0, 3);
    fuzz::require(result == 0 || (result == -1 && chain == nullptr));
    size_t fields = 0;
    for (const at_field_t* field = chain; field != nullptr; field = field->next) {
      fuzz::require(std::strlen(field->AtFieldName) > 0);
      fuzz::require(text.find(field->AtFieldValue) != text.npos);
      fuzz::require(++fields <= 9);
    }
    free_at_cmd(chain);
  }
  return 0;
}
