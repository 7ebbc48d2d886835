// SPDX-License-Identifier: Apache-2.0

// What the rest of the device is told, line by line: every row of the report table, then the lines
// that modems send when they leave things out or overdo them.

#include <gmock/gmock.h>

#include <set>

#include "platform/linux/hub_states.h"
#include "server/at_match.h"
#include "tests/fake_platform/fake_platform.h"
#include "tests/reports/packet_words.h"
#include "tests/reports/report_journal.h"
#include "wire/destinations.h"

using namespace std::string_literals;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

struct row_case_t {
  int id;
  std::string line;
  journal_t journal;
};

constexpr char kPdu[] = "07911326040000F0";

// Traces and packets in their order.
// clang-format off
const std::vector<row_case_t>& row_cases() {
  static const std::vector<row_case_t> cases = {
    { 0, R"(+CMTI: "SM",1)",        {trace(8, "[sms_index_report_callback] enter!\n"), notify(1, 1008, words({0}) + text("SM", 16) + words({1}))}},
    { 1, "+CMT: ,35",               {trace(8, "[sms_content_report_callback] enter!\n"), notify(1, 1008, words({1}) + halves({35}) + zeros(512))}},
    { 2, R"(+CDSI: "SM",3)",        {trace(8, "[sms_index_report_callback] enter!\n"), notify(1, 1008, words({2}) + text("SM", 16) + words({3}))}},
    { 3, "+CDS: 25",                {trace(8, "[sms_content_report_callback] enter!\n"), notify(1, 1008, words({3}) + halves({25}) + zeros(512))}},
    { 4, "+CBM: 88\r\n"s + kPdu, {trace(8, "[sms_content_report_callback] enter!\n"), notify(1, 1008, words({4}) + halves({88}) + text(kPdu, 512))}},
    { 5, R"(^SMMEMFULL: "SM")",     {trace(16, "[sms_mem_full_report_callback] enter... \n"), notify(1, 1001, 0, 0), trace(16, "[sms_mem_full_report_callback] end ! \n")}},
    { 6, "RING",                    {trace(8, "[cs_ring_report_callback] enter!\n"), voice(11, bytes({1, 0}))}},
    { 6, "IRING",                   {trace(8, "[cs_ring_report_callback] enter!\n"), voice(11, bytes({1, 0}))}},
    { 7, "CONNECT 9600",            {}},
    { 8, R"(+CLIP: "+123456789",145)", {trace(2, "enter cs_clip_report_callback .\n"), voice(10, text("+123456789", 32) + bytes({145, 0, 0, 0}))}},
    { 9, "^SRVST: 2",               {trace(8, "[redirect_noservice_report_callback] enter!\n"), dialup(166661, words({2})), trace(8, "[redirect_noservice_report_callback] send message to device!\n"), notify(9, 9040, 0, 0)}},
    {10, "^SIMST: 255,1",           {trace(8, "[simst_report_callback] enter!\n"), notify(27, 27003, words({10, 255, 1})), notify(19, 19007, 255, 1), notify(9, 9010, 255, 1), notify(6, 6001, words({255, 1})), notify(4, 4082, 255, 1)}},
    {11, "^MODE: 5,4",              {trace(2, "mode_report_callback .\n"), dialup(166661, words({5})), notify(19, 19005, 5, 4)}},
    {12, "^RSSI: 21",               {trace(8, "rssi buffer length: (9) ,is : ^RSSI: 21\n")}},
    {13, "^DSFLOWRPT:00000124,00000082,00000EA6,0000000000012325,000000000022771D,0000BB80,0001F400", {notify(18, 18002, words({0x124, 0x82, 0xea6, 0}) + longs({0x12325, 0x22771d}) + words({0xbb80, 0x1f400}))}},
    {14, "+CREG: 1",                {dialup(166661, ""), notify(19, 19008, 0, 0)}},
    {15, "^CEND:1,82,29",           {trace(8, "[cs_cend_report_callback] enter!\n"), voice(14, bytes({1, 0, 0, 0}) + words({82}) + halves({29, 0}))}},
    {16, "^CONN:1,0",               {trace(8, "[cs_conn_report_callback] enter!\n"), voice(13, bytes({1, 0, 0, 0}))}},
    {17, "^CONF:1",                 {trace(8, "[cs_conf_report_callback] enter!\n"), voice(12, bytes({1, 0, 0, 0}))}},
    {18, "^ORIG:1,0",               {trace(8, "[cs_orig_report_callback] enter!\n"), voice(9, bytes({1, 0, 0, 0}))}},
    {19, "^ECLSTAT:1,1",            {}},
    {20, "^EARST:1",                {}},
    {21, R"(+CCWA: "123456789",129,1,,0)", {trace(8, "enter cs_ccwa_report_callback .\n"), voice(19, text("123456789", 32) + bytes({129, 1, 0, 0}))}},
    {22, "+CSSI: 1",                {trace(8, "enter cssi_report_callback\n"), trace(8, "finish cssi_report_callback\n")}},
    {23, "+CSSU: 1",                {trace(8, "enter cssu_report_callback\n"), trace(8, "finish cssu_report_callback\n")}},
    {24, R"(+COLP: "123",129)",     {}},
    {25, R"(+CUSD: 0,"R 96.45 .",15)", {trace(8, "[cusd_report_callback] enter!\n"), notify(2, 2003, words({0}) + text("R 96.45 .", 512) + words({9, 15, 0}))}},
    {25, "+CUSD: 1,\"a\0b\",15"s,   {trace(8, "[cusd_report_callback] enter!\n"), trace(8, "cusd report string include zero char: +CUSD: 1,\"a\rb\",15\n"), notify(2, 2003, words({1}) + text("a\0b"s, 512) + words({3, 15, 0}))}},
    {26, R"(^DCONN:1,"IPV4")",      {trace(8, "[dconn_report_callback] enter!\n"), dialup(166657, words({1, -1}))}},
    {27, R"(^DEND: 1,5,"IPV4")",    {trace(8, "[dend_report_callback] enter!\n"), dialup(166658, words({1, -1}))}},
    {28, "^APDIALUPRPT:1",          {}},
    {29, "^APDHCP:1",               {}},
    {30, "^APDIALM:1",              {}},
    {31, "^APCURPROF:1",            {}},
    {32, "^APPROFRD:1",             {}},
    {33, "^APWIFIBS:1",             {}},
    {34, "^APWIFISEC:1",            {}},
    {35, "+CGREG: 1",               {dialup(166661, ""), notify(19, 19008, 0, 0)}},
    {36, "^TIME:1",                 {}},
    {37, "^NWTIME:18/12/13,06:20:04+28,00", {trace(8, "[net_time_report_callback] begin report time!\n"), trace(8, "at_dend_result is not null\n"), trace(8, "at_nwtime_info.time_val.tm_year = 20181213,06:20:04,28.\n"), trace(8, "send time to RUT_MDL_DEVICE!\n"), notify(9, 4047, words({4, 20, 6, 13, 12, 2018}) + zeros(20) + words({28, 0}))}},
    {38, "+CTZV: 8",                {}},
    {39, "^FACTORY:1",              {trace(8, "factory_report_callback called.\n"), notify(9, 9004, 1, 0)}},
    {40, "^APROAMRPT:1",            {trace(8, "aproaming_report_callback send notify to net and oled begin...\n"), notify(7, 7013, 0, 0), trace(8, "aproaming_report_callback send notify to net and oled end\n")}},
    {41, "^CARDLOCKNTY:1",          {}},
    {42, "^HCMGSS:31",              {trace(16, "[sms_hcmgss_report_callback] enter... \n"), notify(1, 1010, words({42, 31}) + zeros(510)), trace(16, "[sms_hcmgss_report_callback] end ! \n")}},
    {43, "^HCMGSF:15,2",            {trace(16, "[sms_hcmgsf_report_callback] enter... \n"), notify(1, 1010, words({43, 15})), trace(16, "[sms_hcmgsf_report_callback] end ! \n")}},
    {44, "^ANLEVEL:0,99,10,4,108,7", {notify(19, 19011, 4, 0)}},
    {45, "^NORSTFACT:1",            {notify(74, 9004, words({5}))}},
    {46, "^TEMPPRT:1,2",            {trace(8, "tempprt_report_callback at_cmd_parse \n"), trace(8, "send EVT_AT_MACHINE_TEMP  to RUT_MDL_DEVICE\n"), notify(9, 31000, 1, 2)}},
    {47, "^STIN: 7, 1, 0",          {trace(8, "[stin_report_callback] enter!\n"), notify(33, 33001, bytes({7, 1, 0, 0, 0, 0, 0, 0}))}},
    {50, R"(^HCSQ:"LTE",48,35,86,14)", {trace(2, "Enter hcsq_report_callback().\n"), trace(8, "hcsq_report_callback AtFieldName= sysmode.\n"), trace(8, "hcsq_report_callback AtFieldName= value1.\n"), trace(8, "hcsq_report_callback AtFieldName= value2.\n"), trace(8, "hcsq_report_callback AtFieldName= value3.\n"), trace(8, "hcsq_report_callback AtFieldName= value4.\n"), notify(19, 19016, words({2, 48, 35, 86, 14, 0})), trace(8, "Leave hcsq_report_callback() \n")}},
    {51, "^EONS:1",                 {notify(7, 7022, 0, 0), trace(8, "Leave net_eons_report_callback()!\n")}},
    {52, "^LTESIGLEV:3",            {trace(8, "LTESIGLEV ltesiglev_report_callback=[^LTESIGLEV:3]\n"), trace(8, "LTESIGLEV send to WiMAX level =[4]\n")}},
    {53, "^HFREQINFO:0,6,1,425,21525,15000,18425,19625,15001,1,2,3", {trace(2, "hfreqinfo_report_callback .\n"), notify(16, 16035, words({0, 6, 1, 425, 21525, 15000, 18425, 19625, 15001, 0}))}},
    {54, "^WAKEUPIN:7",             {trace(8, "[wakeupin_report_callback] enter!\n"), notify(55, 55013, 7, -1), trace(8, "[wakeupin_report_callback]send wakeupin value to M2MAPI =[7]\n")}},
    {55, R"(^NDISSTATEX:2,1,,,"IPV4")", {trace(8, "[ndisstatex_report_callback] enter!\n"), dialup(166657, words({2, -1}))}},
    {56, "^XLEMA:1,2,112,3,1,fff",  {trace(8, "enter cs_xlema_report_callback .\n"), voice(27, words({1, 2}) + text("112", 32) + words({3, 1}) + text("fff", 8))}},
    {77, R"(^NDISSTAT:0,50,,"IPV6")", {trace(8, "[ndisstat_report_callback] enter!\n"), dialup(166660, words({1, 50}))}},
    {59, R"(^REJINFO:46000,1,40,2,3,40,"FF")", {trace(2, "rejinfo_report_callback start.\n"), trace(2, "rejinfo_report_callback find report_buf flag.\n"), trace(2, "rejinfo_report_callback plmnid=46000.\n"), trace(16, "rejinfo_report_callback srvdomain = 1.\n"), trace(16, "rejinfo_report_callback rejectcause = 40.\n"), trace(16, "rejinfo_report_callback rattype = 2.\n"), trace(2, "rejinfo_report_callback end.\n")}},
    {78, "^MMIENTER:1",             {trace(2, "[mmi_enter_report_callback]: enter \n"), cms(34844, ""), trace(2, "[mmi_enter_report_callback]: leave \n")}},
    {79, "^CCALLSTATE: 1,0,1",      {trace(8, "enter cs_ccallstate_report_callback .\n"), voice(21, bytes({1, 0, 1, 0, 0}))}},
    {80, "^EXSIMST:1",              {trace(2, "[exsimst_report_callback]: enter \n"), trace(2, "[exsimst_report_callback]: leave \n")}},
    {88, R"(^CCWA:"123456789",129,1)", {trace(8, "enter cs_ccwa_report_callback .\n"), voice(19, text("123456789", 32) + bytes({129, 1, 0, 0}))}},
    {91, "^CSCHANNELINFO: 0,1",     {trace(8, "enter cs_cschannelinfo_report_callback .\n"), voice(28, bytes({0, 1, 0, 0}))}},
    {92, "^LCACELLURC: 1,3",        {trace(16, "[ltecacell_report_callback] begin! \n"), notify(19, 19005, 0, 0)}},
    {76, "^SIMREFRESH:3",           {trace(8, "[sim_refresh_report_callback] enter!\n"), trace(2, "sim_refresh_report_callback file_type = 3\n"), notify(7, 7043, 3, 0)}},
    {-1, "+CIREGU: 1,1",            {}},
  };
  return cases;
}

struct line_case_t {
  std::string line;
  journal_t packets;
};

const std::string kLong(600, 'A');
const std::string kHuge = "99999999999999999999999";

const line_case_t line_cases[] = {
    // Nothing behind the colon: zeros, unless that would be a lie.
    {"^MODE:",       {dialup(166661, words({0})), notify(19, 19005, 0, 0)}},
    {"^NWTIME:",     {notify(9, 4047, words({0, 0, 0, 0, 0, 2000}) + zeros(28))}},
    {"^APROAMRPT:",  {}},
    {"^DCONN:",      {dialup(166657, words({0, -1}))}},
    {"^DEND:",       {dialup(166658, words({0, -1}))}},
    {"^NDISSTAT:",   {dialup(166658, words({1, 0}))}},
    {"^NDISSTATEX:", {dialup(166658, words({0, 0}))}},
    {"^WAKEUPIN:",   {notify(55, 55013, 0, -1)}},
    {"^HCMGSF:",     {notify(1, 1010, words({43, 0}))}},
    {"^SMMEMFULL:",  {}},
    {"^SIMST:",      {}},
    {"^SIMREFRESH:", {}},
    {"^CONF:",       {}},
    // The prefix further on in the line.
    {"^XYZ:1 ^SIMREFRESH:4", {notify(7, 7043, 4, 0)}},
    // Up or down, IPv6 or not.
    {R"(^DCONN:3,"IPV6")",              {dialup(166659, words({3, -1}))}},
    {R"(^DCONN:1,"IPV6 and more")",     {dialup(166657, words({1, -1}))}},
    {R"(^NDISSTAT:1,33,,"IPV6")",       {dialup(166659, words({1, -1}))}},
    {R"(^NDISSTATEX:7,0,-9,,"IPV6")",   {dialup(166660, words({7, -9}))}},
    {R"(^NDISSTATEX:7,2,,,"IPV4")",     {}},
    {R"(^NDISSTAT:-1,,,"IPV4")",        {}},
    // Calls: numbers are the nearest that fit, texts are cut, a withheld number is an empty text.
    {"^ORIG : 2 , \"5\",9\r\n",           {voice(9, bytes({2, 5, 0, 0}))}},
    {"^ORIG:256,-1",                    {voice(9, bytes({255, 0, 0, 0}))}},
    {"^ORIG:,0",                        {}},
    {"^ORIG 1,0",                       {}},
    {"^CEND:1,0,104,31",                {voice(14, bytes({1, 0, 0, 0}) + words({0}) + halves({104, 31}))}},
    {"^CEND:,10,0",                     {voice(14, words({0, 10, 0}))}},
    {"^CEND:1," + kHuge + ",65536," + kHuge + ",7", {voice(14, bytes({1, 0, 0, 0}) + words({-1, -1}))}},
    {"^CEND:,10",                       {}},
    {R"(+CLIP:"",128,,,,1)",            {voice(10, text("", 32) + bytes({128, 0, 1, 0}))}},
    {R"(+CLIP: "1",129,"2",128,"a, b",2)", {voice(10, text("1", 32) + bytes({129, 0, 2, 0}))}},
    {"+CLIP: " + kLong + ",300",        {voice(10, text(kLong.substr(0, 31), 32) + bytes({255, 0, 0, 0}))}},
    {R"(+CLIP: "123)",                  {voice(10, text("123", 32) + bytes({0, 0, 0, 0}))}},
    {R"(+CLIP: "")",                    {}},
    {R"(+CCWA: "",128,4,"",1)",         {voice(19, text("", 32) + bytes({128, 4, 1, 0}))}},
    {R"(^CCWA:"123456789",129,1,,1)",   {voice(19, text("123456789", 32) + bytes({129, 1, 0, 0}))}},
    {R"(^XLEMA: 2,2,"911")",            {voice(27, words({2, 2}) + text("911", 48))}},
    {"^XLEMA:1,1," + kLong + ",4294967296,1,123456789", {voice(27, words({1, 1}) + text(kLong.substr(0, 31), 32) + words({-1, 1}) + text("1234567", 8))}},
    {"^XLEMA:1,2,,0,1,fff",             {}},
    {"^CCALLSTATE:1",                   {}},
    {"^CSCHANNELINFO: ,1",              {}},
    // Network and signal.
    {"^SRVST:99999999999999",           {dialup(166661, words({999999999}))}},
    {"^ANLEVEL:99999999999",            {notify(19, 19011, INT32_MAX, 0)}},
    {"^HCSQ:CDMA-EVDO,1,2,3,4,5,6",     {notify(19, 19016, words({6, 1, 2, 3, 4, 5}))}},
    {"^HCSQ:TD-SCDMA,99999999999",      {notify(19, 19016, words({5, INT32_MAX, 0, 0, 0, 0}))}},
    {"^HCSQ:LTE-A,-99999999999,x,-3",   {notify(19, 19016, words({0, INT32_MIN, 0, -3, 0, 0}))}},
    {"^HFREQINFO:,,-1",                 {notify(16, 16035, words({0, 0, -1}) + zeros(28))}},
    {"^NWTIME:24/5/1,1:2:3-12",         {notify(9, 4047, words({12, 0, 1, 0, 5, 2024}) + zeros(28))}},
    {"^NWTIME:99999999999," + kLong,    {notify(9, 4047, words({0, 0, 0, 99999, 99999999, INT32_MAX}) + zeros(28))}},
    {"^APROAMRPT:0",                    {notify(7, 7012, 0, 0)}},
    {"^LTESIGLEV:2147483647",           {}},
    {"^REJINFO:" + kLong,               {}},
    // SMS.
    {R"(+CMTI: "0123456789ABCDEF",-1)", {notify(1, 1008, words({0}) + text("0123456789ABCDE", 16) + words({-1}))}},
    {"+CMT: ,65571",                    {notify(1, 1008, words({1}) + halves({35}) + zeros(512))}},
    {"+CBM: 300\r\n" + kLong,           {notify(1, 1008, words({4}) + halves({300}) + text(kLong.substr(0, 511), 512))}},
    // SIM, USSD, SIM toolkit.
    {"^SIMST:1",                        {notify(27, 27003, words({10, 1, 0})), notify(19, 19007, 1, 0), notify(9, 9010, 1, 0), notify(6, 6001, words({1, 0})), notify(4, 4082, 1, 0)}},
    {"+CUSD: 0,\"a\0b\rc\0\",15"s,      {notify(2, 2003, words({0}) + text("a\0b\0c\0"s, 512) + words({6, 15, 0}))}},
    {"+CUSD: 0,\0a\0"s,                  {notify(2, 2003, words({0}) + text("\0a\0"s, 512) + words({3, 0, 0}))}},
    {"+CUSD: 0,\"\0"s + kLong + "\",15", {notify(2, 2003, words({0}) + text("\0"s + kLong.substr(0, 510), 512) + words({601, 15, 0}))}},
    {"^STIN: 7,300,-1",                 {notify(33, 33001, bytes({7, 44, 255, 0, 0, 0, 0, 0}))}},
    // Traffic: rates keep their low half, counters all of it.
    {"^DSFLOWRPT:1FFFFFFFF,180000001,-1,FFFFFFFFFFFFFFFF,100000000,xyz", {notify(18, 18002, words({-1, 0x80000001, 0, 0}) + longs({UINT64_MAX, 1ull << 32}) + zeros(8))}},
};

struct failure_case_t {
  std::string line;
  uint32_t level;
  std::string text;
};

const failure_case_t failure_cases[] = {
    {"^TEMPPRT",     8, "tempprt_report_callback at_cmd_parse  error,and the ret = -1\n"},
    {"^ANLEVEL",     8, "anelvel_report_callback, error,and the ret = -1"},
    {"^APDIALUPRPT", 8, "apdialup_report_callback, error,and the ret = -1"},
    {"^APROAMRPT",   8, "aproaming_report_callback, error,and the ret = -1"},
    {"^DCONN",       2, "dconn_report_callback at_cmd_parse  error,and the ret = -1\n"},
    {"^DEND",        8, "dend_report_callback at_cmd_parse  error,and the ret = -1\n"},
    {"^NDISSTATQRY:1", 2, "ndisstat_report_callback at_cmd_parse  error,and the ret = -1\n"},
    {"^NDISSTATEX",  2, "ndisstatex_report_callback at_cmd_parse  error,and the ret = -1\n"},
    {"^MODE",        2, "mode_report_callback at_cmd_parse  error,and the ret = -1"},
    {"^SRVST",       2, "redirect_noservice_report_callback at_cmd_parse  error,and the ret = -1"},
    {"^SIMST",       2, "simst_report_callback at_cmd_parse  error,and the ret = -1\n"},
    {"^SIMST:",      2, "simst_report_callback at_cmd_parse  error,and the ret = 0\n"},
    {"^SIMREFRESH",  2, "sim_refresh_report_callback at_cmd_parse  error,and the ret = -1\n"},
    {"^SIMREFRESH:", 2, "sim_refresh_report_callback at_cmd_parse  error,and the ret = 0\n"},
    {"^WAKEUPIN",    8, "wakeupin_report_callback at_cmd_parse error,and the ret = -1\n"},
    {"^HFREQINFO",   2, "hfreqinfo_report_callback at_cmd_parse err id = -1.\n"},
    {"^NWTIME",      8, "net_time_report_callback at_cmd_parse error,and the ret = -1\n"},
    {"^HCSQ",        2, "hcsq_report_callback  at_cmd_parse  error,and the ret = -1.\n"},
    {"^LTESIGLEV",   2, "ltesiglev_report_callback at_cmd_parse  error,and the ret = -1\n"},
    {"^REJINFO",     2, "rejinfo_report_callback at_cmd_parse error,and the ret = -1\n"},
    {"^DSFLOWRPT",   2, "dsflow_report_callback at_cmd_parse  error,and the ret = -1\n"},
    {"+CMT",         2, "sms_content_report_callback at_cmd_parse  error,and the ret = -1\n"},
    {"+CDSX +CDS",   2, "sms_content_report_callback at_cmd_parse  error,and the ret = -1\n"},
    {"+CBM",         2, "sms_content_report_callback at_cmd_parse  error,and the ret = -1\n"},
    {"+CMTI",        2, "sms_index_report_callback at_cmd_parse  error,and the ret = -1\n"},
    {"^HCMGSF",      2, "sms_hcmgf_callback at_cmd_parse  error,and the ret = -1\n"},
    {"^HCMGSS",      2, "sms_hcmgss_report_callback at_cmd_parse  error,and the ret = -1\n"},
    {"^SMMEMFULL",   2, "sms_mem_full_report_callback at_cmd_parse  error,and the ret = -1\n"},
    {"+CUSD",        2, "ussd_report_callback at_cmd_parse  error,and the ret = -1\n"},
    {"^STIN",        2, "[stk]stin_report_callback: at_cmd_parse return error ret = -1\n"},
    {"+CSSI",        2, "execute at_cmd_parse failed\n"},
    {"+CSSU",        2, "execute at_cmd_parse failed\n"},
    {"^CEND",        8, "[cs_cend_report_callback] enter!\n"},
};
// clang-format on

std::string literal_of(int id) {
  const at_report_row_t* row = at_report_table;
  while (row->literal != nullptr && row->id != id) ++row;
  return row->literal == nullptr ? "" : row->literal;
}

/// As the hub does with each packet.
void remember(const fake::entry& packet) {
  mdx_packet_header_t header{};
  header.type = packet.type;
  header.kind = packet.what == fake::kind::SERVICE        ? MDX_PACKET_SERVICE
                : packet.what == fake::kind::NOTIFICATION ? MDX_PACKET_NOTIFICATION
                                                          : MDX_PACKET_VOICE;
  packet.name.copy(header.to, sizeof(header.to) - 1);
  header.module = static_cast<uint32_t>(packet.module);
  header.a = packet.a;
  header.b = packet.b;
  header.length = static_cast<uint32_t>(packet.text.size());
  hub_states_keep(header, packet.text.data());
}

/// The bytes kept of each kind of state, without their age.
std::vector<std::string> remembered() {
  std::vector<std::string> kinds;
  hub_state_t state;
  for (size_t kind = 0; hub_states_get(kind, &state); ++kind) {
    state.header.lost = 0;
    const bool known = state.header.type != 0;
    kinds.push_back(known ? std::string(reinterpret_cast<const char*>(&state), sizeof(state)) : "");
  }
  return kinds;
}

bool is_personal(const fake::entry& packet) {
  return packet.what == fake::kind::VOICE ||
         (packet.what == fake::kind::NOTIFICATION &&
          (packet.module == NOTIFY_MODULE_1 || packet.module == NOTIFY_MODULE_2));
}

}  // namespace

TEST(ReportLines, EveryRowTellsItsReceivers) {
  restart_dsflow_count();
  std::set<int> seen;
  for (const row_case_t& c : row_cases()) {
    int id = -2;
    EXPECT_THAT(report(c.line, &id), ElementsAreArray(c.journal)) << c.line;
    EXPECT_EQ(id, c.id) << c.line;
    EXPECT_THAT(unexplained_packets(literal_of(id)), IsEmpty()) << c.line;
    seen.insert(id);
  }
  for (const at_report_row_t* row = at_report_table; row->literal != nullptr; ++row) {
    EXPECT_TRUE(seen.contains(row->id) || row->literal == "IRING"s) << row->literal;
  }
}

TEST(ReportLines, OddLinesTellWhatCanBeKnown) {
  restart_dsflow_count();
  for (const line_case_t& c : line_cases) {
    int id = -2;
    EXPECT_THAT(packets_of(report(c.line, &id)), ElementsAreArray(c.packets)) << c.line;
    EXPECT_THAT(unexplained_packets(literal_of(id)), IsEmpty()) << c.line;
  }
}

TEST(ReportLines, AnUnreadableLineIsTracedAndLost) {
  for (const failure_case_t& c : failure_cases) {
    const journal_t journal = report(c.line);
    ASSERT_FALSE(journal.empty()) << c.line;
    EXPECT_EQ(journal.back(), trace(c.level, c.text)) << c.line;
    EXPECT_THAT(packets_of(journal), IsEmpty()) << c.line;
  }
}

// Messages, USSD and calls leave no byte behind; of all else each kind of state is told by some
// line.
TEST(ReportLines, WhatIsPersonalIsNotRemembered) {
  std::vector<std::string> lines;
  for (const row_case_t& c : row_cases()) lines.push_back(c.line);
  for (const line_case_t& c : line_cases) lines.push_back(c.line);
  lines.insert(lines.end(), 10, "^DSFLOWRPT:1,2,3,4,5,6,7");  // one in ten reaches "cms"
  for (const std::string& line : lines) {
    report(line);
    for (const fake::entry& packet : fake::packets()) {
      const std::vector<std::string> before = remembered();
      remember(packet);
      if (is_personal(packet)) {
        EXPECT_EQ(remembered(), before) << line;
      }
    }
  }
  std::vector<std::string> known = remembered();
  known.pop_back();  // of the modem's link no line tells
  EXPECT_THAT(known, testing::Each(testing::Not(testing::IsEmpty())));
  for (const char* text : {"123456789", "911", kPdu, "R 96.45", "SM"})
    EXPECT_THAT(known, testing::Each(testing::Not(testing::HasSubstr(text)))) << text;
}
