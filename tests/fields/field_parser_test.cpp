// SPDX-License-Identifier: Apache-2.0

// What the handlers may rely on: which line yields which fields, and that no line does harm.

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "platform/at_fields.h"

namespace {

int allocations = 0;
bool memory_is_short = false;

/// The fields as "name=value|name=value", "-1" for a refused line, "" for an empty chain.
std::string fields_of(const char* prefix, const std::string& line, int group = 0, int kind = 3) {
  // The exact size on the heap lets the sanitizer see a read behind the NUL.
  std::unique_ptr<char[]> text(new char[line.size() + 1]);
  std::memcpy(text.get(), line.c_str(), line.size() + 1);

  at_field_t* chain = nullptr;
  allocations = 0;
  const int result = at_cmd_parse(&chain, prefix, text.get(), group, kind);
  EXPECT_LE(allocations, 1) << line;
  if (result != 0) {
    EXPECT_EQ(result, -1) << line;
    EXPECT_EQ(chain, nullptr) << line;
    return "-1";
  }
  text.reset();
  std::string fields;
  for (const at_field_t* field = chain; field != nullptr; field = field->next) {
    EXPECT_EQ(field->reserved, 0U) << line;
    if (field != chain) fields += '|';
    fields.append(field->AtFieldName).append(1, '=').append(field->AtFieldValue);
  }
  free_at_cmd(chain);
  return fields;
}

struct field_case_t {
  const char* prefix;
  const char* line;
  const char* fields;
};

// clang-format off
const field_case_t cases[] = {
    // As live modems send them.
    {"^SYSINFO",     "^SYSINFO:2,1,0,5,1,,4",      "srv_status=2|srv_domain=1|roam_status=0|sys_mode=5|sim_state=1|lock_state=|sys_submode=4"},
    {"^SYSINFO",     "^SYSINFO: 2,3,0,3,1,3",      "srv_status=2|srv_domain=3|roam_status=0|sys_mode=3|sim_state=1|sys_submode=3"},
    {"^SYSINFO",     "AT^SYSINFO^SYSINFO:2,3,0,5,1\r\n^RSSI:20,1", "srv_status=2|srv_domain=3|roam_status=0|sys_mode=5|sim_state=1"},
    {"^ANLEVEL",     "^ANLEVEL:3",                 "level=3"},
    {"^ANLEVEL",     "^ANLEVEL:0,99,10,4,108,7",   "rscp=0|ecio=99|rssi=10|level=4|rsrp=108|rsrq=7"},
    {"^HCSQ",        "^HCSQ: \"WCDMA\", 26, 24, 43", "sysmode=WCDMA|value1=26|value2=24|value3=43"},
    {"^HFREQINFO",   "^HFREQINFO:0,6,1,2,3,4,5,6,7,3,1300,18200", "switch=0|sysmode=6|band_class=1|dl_fcn1=2|dl_freq1=3|dl_bw1=4|ul_fcn1=5|ul_freq1=6|ul_bw1=7"},
    {"^NWTIME",      "^NWTIME: \"18/03/09,12:36:21-4\"", "date=18/03/09|time=12:36:21-4"},
    {"^REJINFO",     "^REJINFO:46000,1,40,2,3,40,\"0026F8\",\"FF\",\"0A444202\"", "plmnid=46000|srvdomain=1|rejectcause=40|rattype=2"},
    {"^NDISSTAT",    "^NDISSTAT:1,,,\"IPV4\"",     "stat=1|err_code=|wx_state=|PDP_type=IPV4"},
    {"^NDISSTAT",    "^NDISSTAT: 1,,,\"IPV4\",0,,,\"IPV6\"", "stat=1|err_code=|wx_state=|PDP_type=IPV4"},
    {"^NDISSTAT",    "^NDISSTAT: 1,1,,,\"IPV4\"",  "stat=1|err_code=|wx_state=|PDP_type=IPV4"},
    {"^NDISSTATEX",  "^NDISSTATEX:1,1,,,\"IPV4\"", "cid=1|stat=1|err_code=|wx_state=|PDP_type=IPV4"},
    {"^APDIALUPRPT", "^APDIALUPRPT:1,2",           ""},
    {"+CMT",         "+CMT: ,35\r\n0791AB\r\n",    "alpha=|length=35|pdu=0791AB"},
    {"+CMT",         "+CMT: \"\",22",              "alpha=|length=22"},
    {"+CMT",         "+CMT: 35\r\n0791AB",         "length=35|pdu=0791AB"},
    {"+CBM",         "+CBM: 88\r\n0011,22",        "length=88|pdu=0011,22"},
    {"+CMTI",        "+CMTI: SM,70000",            "mem=SM|index=70000"},
    {"+CUSD",        "+CUSD: 1,\"tariff \"Mega\". More\",15", "rspType=1|cusdStr=tariff \"Mega\". More|codeType=15"},
    {"+CUSD",        "+CUSD: 0, 49B41C74ACD3",     "rspType=0|cusdStr=49B41C74ACD3"},
    {"^STIN",        "^STIN:0,0,0",                "cmdTpye=0|cmdIndex=0|isTimeOut=0"},
    {"+CSSU",        "+CSSU: 2,7",                 "code=2|index=7"},
    // Empty, missing, surplus.
    {"^SIMST",    "^SIMST:",                     ""},
    {"^SIMST",    "^SIMST: \r\n1,2",             ""},
    {"^SIMST",    "^SIMST:1,,",                  "sim_state=1|lock_state="},
    {"^SIMST",    "^SIMST:,1",                   "sim_state=|lock_state=1"},
    {"^SIMST",    "^SIMST:1,2,3,,\"x\",5",       "sim_state=1|lock_state=2"},
    {"^ANLEVEL",  "^ANLEVEL:3,4",                "rscp=3|ecio=4"},
    {"+CMT",      "+CMT: \"a, b\",22\r\n07",     "alpha=a, b|length=22|pdu=07"},
    {"+CBM",      "+CBM: 88\r\n 0011 \r\nOK",    "length=88|pdu=0011"},
    {"^NDISSTAT", "^NDISSTAT: 2,0,33,,ipv4v6",   "stat=0|err_code=33|wx_state=|PDP_type=ipv4v6"},
    // Blanks, zeros, signs, size.
    {"^MODE",     "^MODE \t: \t 5 ,\t 4 \r\n",   "sys_mode=5|sys_submode=4"},
    {"^MODE",     "^MODE:  007,-99999999999",    "sys_mode=007|sys_submode=-99999999999"},
    // Quotes.
    {"^MODE",     "^MODE:\"5\" , \" 4\"",        "sys_mode=5|sys_submode= 4"},
    {"^DCONN",    "^DCONN:\"\",\"\"",            "cid=|pdp_type="},
    {"^DCONN",    "^DCONN:\",\",\"IP,V4\"",      "cid=,|pdp_type=IP,V4"},
    {"^DCONN",    "^DCONN:1,\"IPV4",             "cid=1|pdp_type=IPV4"},
    {"^DCONN",    "^DCONN:1,\"",                 "cid=1|pdp_type="},
    // Where the name ends, and where the line starts.
    {"^NDISSTAT", "^NDISSTATEX:1,1,,,\"IPV4\"",  "-1"},
    {"^NDISSTAT", "^NDISSTATQRY:0 ^NDISSTAT:1",  "stat=1"},
    {"^SRVST",    "AT+CPMS note ^SRVST, ^SRVST:0", "srv_status=0"},
    {"^SRVST",    "^SRVST",                      "-1"},
    {"^SRVST",    "^SRVST=1:",                   "-1"},
    {"^SRVST",    "^SRVST\r\n:1",                "-1"},
    {"^SRVST",    "",                            "-1"},
    // USSD texts.
    {"+CUSD", "+CUSD: 0,\"a, \"b\",15 c\",72",   "rspType=0|cusdStr=a, \"b\",15 c|codeType=72"},
    {"+CUSD", "+CUSD: 0,\"say \"x\",15, or\",72", "rspType=0|cusdStr=say \"x\",15, or|codeType=72"},
    {"+CUSD", "+CUSD: 0,\"a\nb\rc\r\nd\xe9\",15\r\n", "rspType=0|cusdStr=a\nb\rc\r\nd\xe9|codeType=15"},
    {"+CUSD", "+CUSD: 0,\"a\",15\r\nOK\r\n",     "rspType=0|cusdStr=a|codeType=15"},
    {"+CUSD", "+CUSD: 0,\"a\"",                  "rspType=0|cusdStr=a"},
    {"+CUSD", "+CUSD: 0,\"cut \"off, 3",         "rspType=0|cusdStr=cut \"off, 3"},
    {"+CUSD", "+CUSD: 0,\"",                     "rspType=0|cusdStr="},
    {"+CUSD", "+CUSD: 0,Hello, you ,15",         "rspType=0|cusdStr=Hello, you|codeType=15"},
    {"+CUSD", "+CUSD: 1,",                       "rspType=1"},
    {"+CUSD", "+CUSD: \r\n",                     ""},
    {"+CUSD", "+CUSD: 0,49\r\r\n",               "rspType=0|cusdStr=49\r"},
    {"+CUSD", "+CUSD: 0,\"a\"\r",                "rspType=0|cusdStr=a"},
};
// clang-format on

TEST(FieldParser, ReadsTheParametersBehindThePrefix) {
  for (const auto& [prefix, line, fields] : cases) {
    EXPECT_EQ(fields_of(prefix, line), fields) << line;
    EXPECT_EQ(fields_of(prefix, std::string("note: ") + line, 15, 0), fields)
        << "an answer, behind other text: " << line;
  }
}

TEST(FieldParser, RefusesNullAndShortMemory) {
  at_field_t* chain = nullptr;
  EXPECT_EQ(at_cmd_parse(nullptr, "^MODE", "^MODE:5", 0, 3), -1);
  EXPECT_EQ(at_cmd_parse(&chain, nullptr, "^MODE:5", 0, 3), -1);
  EXPECT_EQ(at_cmd_parse(&chain, "^MODE", nullptr, 0, 3), -1);
  free_at_cmd(nullptr);

  memory_is_short = true;
  EXPECT_EQ(fields_of("^MODE", "^MODE:5"), "-1");
  memory_is_short = false;
}

// A reader that looked back and forth would take hours.
TEST(FieldParser, TakesTimeInProportionToTheLine) {
  for (const char* piece : {"\"", "\"x,", ",", "x,1 ", "\"x", "+CUSD", "+CUSD \t", " "}) {
    std::string rest;
    while (rest.size() < 1'000'000) rest += piece;
    EXPECT_NE(fields_of("+CUSD", "+CUSD: 0," + rest), "-1") << piece;
    EXPECT_NE(fields_of("+CUSD", "+CUSD: 0,\"" + rest), "-1") << piece;
    EXPECT_NE(fields_of("+CMT", "+CMT: 35\r\n" + rest), "-1") << piece;
    EXPECT_EQ(fields_of("+CUSD", rest), "-1") << piece;
  }
}

}  // namespace

extern "C" {
void* __real_malloc(size_t size);
void* __wrap_malloc(size_t size);

void* __wrap_malloc(size_t size) {
  ++allocations;
  return memory_is_short ? nullptr : __real_malloc(size);
}
}
