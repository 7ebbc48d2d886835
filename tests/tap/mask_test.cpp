// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "tools/line/escape.h"
#include "tools/line/octets.h"
#include "tools/mdxtap/mask_table.h"
#include "tools/mdxtap/masker.h"

namespace mdxtap {
namespace {

using mdxline::escape;
using mdxline::unescape;
using testing::HasSubstr;
using testing::Not;

const StandIn::Key kKey{0x0123456789ABCDEFU, 0xFEDCBA9876543210U};

/// A conversation, "> " what the host sends and "< " what the modem does, escaped as in a session.
struct Case {
  const char* row;  ///< of the table that it is about; empty for what is known without one
  std::vector<std::string> steps;
  std::vector<std::string> originals;  ///< nowhere in the recording
  std::vector<std::string> kept;       ///< somewhere in it
};

const std::string kDeliver = "07913366003051F5040B913366634081F900005180719120348004D4F29C0E";
const std::string kSubmit = "0011000C919471325476980000A70BC472580E6AA6D9ECB21C";
const std::string kDamaged = "0001000B914497381100000000A054747A0E4ACF41";
const std::string kUcs2Deliver =
    "0791947106004034040C919471325476980008625011413223400A00480061006C006C00F6";
const std::string kNameDeliver = "0791947106004034040BD0CD349B5D960300006250114132234005C8329BFD06";
const std::string kStatusReport =
    "0791947106004034061F0C91947132547698625011413223406250114132234000";
const std::string kHeaderDeliver =
    "0791947106004034440C919471325476980000625011413223401205000301020188E5B01CD44CB3D96539";
const std::string kCommand = "00021F0000050C9194713254769800";

// clang-format off
const std::vector<Case> kCases = {
    // Identities
    {"+CIMI",     {"> AT+CIMI\\r", "< AT+CIMI\\r\\r\\n262011234567890\\r\\n\\r\\nOK\\r\\n"},             {"1234567890"}, {"26201", "OK"}},
    {"+CIMI",     {"> AT+CIMI\\r", "< \\r\\n+CIMI: 262011234567890\\r\\n\\r\\nOK\\r\\n"},                {"1234567890"}, {"+CIMI: 26201"}},
    {"+CGSN",     {"> AT+CGSN=1\\r", "< \\r\\n+CGSN: \"490154203237518\"\\r\\n\\r\\nOK\\r\\n"},          {"3237518"}, {"49015420"}},
    {"+GSN",      {"> AT+GSN\\r", "< \\r\\n490154203237518\\r\\n\\r\\nOK\\r\\n"},                        {"3237518"}, {"49015420"}},
    {"",          {"> ATI\\r", "< \\r\\nModel: E1\\r\\nIMEI: 490154203237518\\r\\n\\r\\nOK\\r\\n"},      {"3237518"}, {"Model: E1", "49015420"}},
    {"+CCID",     {"> AT+CCID\\r", "< \\r\\n+CCID: 89490200001234567890\\r\\n\\r\\nOK\\r\\n"},           {"1234567890"}, {"8949"}},
    {"+ICCID",    {"> AT+ICCID\\r", "< \\r\\n+ICCID: 8949020000123456783F\\r\\n\\r\\nOK\\r\\n"},         {"123456783"}, {"8949", "F\\r"}},
    {"+QCCID",    {"> AT+QCCID\\r", "< \\r\\n+QCCID: 89490200001234567890\\r\\n\\r\\nOK\\r\\n"},         {"1234567890"}, {}},
    {"^ICCID",    {"> AT^ICCID?\\r", "< \\r\\n^ICCID: 89490200001234567890\\r\\n\\r\\nOK\\r\\n"},        {"1234567890"}, {}},
    {"+CRSM",     {"> AT+CRSM=214,28589,0,0,3,\"A1B2C3D4\"\\r", "< \\r\\n+CRSM: 144,0,\"\"\\r\\n\\r\\nOK\\r\\n"}, {"A1B2C3D4"}, {"214,28589", "144,0"}},
    {"+CRSM",     {"> AT+CRSM=176,12258,0,0,10\\r", "< \\r\\n+CRSM: 144,0,\"98942000002143658709\"\\r\\n\\r\\nOK\\r\\n"}, {"2143658709"}, {"\"9894"}},
    {"+CRSM",     {"> AT+CRSM=176,28423,0,0,9\\r", "< \\r\\n+CRSM: 144,0,\"082926102143658709\"\\r\\n\\r\\nOK\\r\\n"}, {"2143658709"}, {"\"082926"}},
    {"+CSIM",     {"> AT+CSIM=26,\"0020000108313233FFFFFFFFFF\"\\r", "< \\r\\n+CSIM: 12,\"ABCD12349000\"\\r\\n\\r\\nOK\\r\\n"}, {"313233", "ABCD1234"}, {"0020000108", "9000"}},
    // Secrets
    {"+CPIN",     {"> AT+CPIN=\"2718\"\\r", "< AT+CPIN=\"2718\"\\r\\r\\nOK\\r\\n"},                      {"2718"}, {"AT+CPIN=\"", "\\r\\nOK"}},
    {"+CPIN",     {"> at + cpin = 87654321 , 2718\\r", "< \\r\\n+CPIN: SIM PUK\\r\\n\\r\\nOK\\r\\n"},    {"2718", "8765"}, {"SIM PUK"}},
    {"^CPIN",     {"> AT^CPIN=\"2718\"\\r"},                                                             {"2718"}, {}},
    {"+CLCK",     {"> AT+CLCK=\"SC\",1,\"2718\"\\r"},                                                    {"2718"}, {"\"SC\",1,"}},
    {"+CPWD",     {"> AT+CPWD=\"SC\",\"2718\",\"3141\"\\r"},                                             {"2718", "3141"}, {"\"SC\""}},
    {"^CARDLOCK", {"> AT^CARDLOCK=\"27182818\"\\r"},                                                     {"2718"}, {}},
    {"+CGAUTH",   {"> AT+CGAUTH=1,2,\"fred\",\"pass;w0rd!\"\\r", "< \\r\\nOK\\r\\n", "> AT+CGAUTH?\\r",
                   "< \\r\\n+CGAUTH: 1,2,\"fred\",\"pass;w0rd!\"\\r\\n\\r\\nOK\\r\\n"},                  {"fred", "w0rd", "pass"}, {"=1,2,\""}},
    {"^AUTHDATA", {"> AT^AUTHDATA=1,2,\"\",\"w0rd\",\"fred\"\\r"},                                       {"fred", "w0rd"}, {"=1,2,\"\""}},
    {"+QICSGP",   {"> AT+QICSGP=1,1,\"internet\",\"fred\",\"w0rd\",1\\r", "< \\r\\nOK\\r\\n", "> AT+QICSGP=1\\r",
                   "< \\r\\n+QICSGP: 1,\"internet\",\"fred\",\"w0rd\",1\\r\\n\\r\\nOK\\r\\n"},           {"fred", "w0rd"}, {"internet"}},
    {"",          {"> ATE1+CPIN=\"2718\";+CSQ\\r", "< \\r\\n+CSQ: 20,99\\r\\n\\r\\nOK\\r\\n"},           {"2718"}, {"ATE1+CPIN", ";+CSQ", "20,99"}},
    {"",          {"< \\r\\n> ", "> 2718\\r"},                                                           {"2718"}, {}},
    {"$QCPDPP",   {"> AT$QCPDPP=1,1,\"w0rd\",\"fred\"\\r", "< \\r\\n$QCPDPP: 1,1,\"w0rd\",\"fred\"\\r\\n"},     {"fred", "w0rd"}, {"=1,1,\"", ": 1,1,\""}},
    {"#PDPAUTH",  {"> AT#PDPAUTH=1,2,\"fred\",\"w0rd\"\\r", "< \\r\\n#PDPAUTH: 1,2,\"fred\",\"w0rd\"\\r\\n"},   {"fred", "w0rd"}, {"=1,2,\"", ": 1,2,\""}},
    {"+UAUTHREQ", {"> AT+UAUTHREQ=1,2,\"fred\",\"w0rd\"\\r"},                                         {"fred", "w0rd"}, {"=1,2,\""}},
    {"+CSTT",     {"> AT+CSTT=\"internet\",\"fred\",\"w0rd\"\\r", "< \\r\\n+CSTT: \"internet\",\"fred\",\"w0rd\"\\r\\n"}, {"fred", "w0rd"}, {"=\"internet\"", ": \"internet\""}},
    {"+XGAUTH",   {"> AT+XGAUTH=1,1,\"fred\",\"w0rd\"\\r"},                                         {"fred", "w0rd"}, {"=1,1,"}},
    {"+QMTCONN",  {"> AT+QMTCONN=0,\"client\",\"fred\",\"w0rd\"\\r"},                               {"fred", "w0rd"}, {"=0,"}},
    {"+SAPBR",    {"> AT+SAPBR=3,1,\"PWD\",\"w0rd\"\\r"},                                           {"w0rd"}, {"3,1,\"PWD\""}},
    {"+CPBS",     {"> AT+CPBS=\"FD\",\"2718\"\\r"},                                                 {"2718"}, {"\"FD\""}},
    {"+CACM",     {"> AT+CACM=\"2718\"\\r"},                                                        {"2718"}, {}},
    {"+CAMM",     {"> AT+CAMM=\"000100\",\"2718\"\\r"},                                             {"2718"}, {"000100"}},
    {"+CPUC",     {"> AT+CPUC=\"EUR\",\"0.10\",\"2718\"\\r"},                                       {"2718"}, {"EUR"}},
    {"+VTS",      {"> AT+VTS=\"2718#\"\\r"},                                                        {"2718"}, {}},
    {"+QICSGP",   {"> AT+QICSGP=1,\"internet\",\"fred\",\"w0rd\"\\r"},                              {"fred", "w0rd"}, {"internet"}},
    {"",          {"> AT+CPIN \"2718\"\\r", "> AT+CPIN2718\\r", "> AT+CPIN?=\"2718\"\\r", "> AT+CMEE=1+CPIN=\"2718\"\\r",
                   "> AT+CPIM\\x08N=\"2718\"\\r", "> AAT+CPIN=\"2718\"\\r", "> At Miller 2718\\r"}, {"2718", "Miller"}, {"AT+CMEE=1"}},
    {"",          {"> AT+MINE=3,\"w0rd\",2718\\r", "< \\r\\n*MINE: 3,\"w0rd\",27182\\r\\n"},         {"w0rd", "2718"}, {"AT+MINE=3", "*MINE: 3"}},
    {"",          {"> AT+CPMS=\"SM\"\\r", "< \\r\\n+COPS: 0,0,\"Telekom\",7\\r\\n\\r\\nOK\\r\\n"},  {}, {"\"SM\"", "\"Telekom\",7"}},
    {"",          {"> ATI\\r", "< \\r\\nIMEI: 49-015420-323751-8\\r\\nMEID: A1000031D9B5E3\\r\\nE1750\\r\\n\\r\\nOK\\r\\n"}, {"323751", "31D9B5E3"}, {"E1750"}},
    {"",          {"> ATD*99#\\r", "< \\r\\nCONNECT\\r\\n", "> at name=Kate&pin=2718\\r\\n", "< X-TOKEN: s3cr3t\\r\\n", "< \\r\\nNO CARRIER\\r\\n", "> AT+CSQ\\r"},
                  {"Kate", "2718", "s3cr3t"}, {"ATD*99#", "CONNECT", "NO CARRIER", "AT+CSQ"}},
    {"",          {"> AT+CUSD=1\\r", "< \\r\\n+CME ERROR: Miller\\r\\n", "< +CME ERROR: SIM PIN required\\r\\n"}, {"Miller"}, {"SIM PIN required"}},
    // Calls and numbers
    {"D",         {"> ATD+4930123456;\\r", "< ATD+4930123456;\\r\\r\\nNO CARRIER\\r\\n"},                {"30123456"}, {"ATD+", ";\\r", "NO CARRIER"}},
    {"D",         {"> ATD*03*330*2718*3141*3141#;\\r"},                                                  {"2718", "3141"}, {"ATD*", "#;"}},
    {"D",         {"> ATD*99***1#\\r", "< \\r\\nCONNECT 3600000\\r\\n"},                                 {}, {"ATD*99***1#", "CONNECT 3600000"}},
    {"D",         {"> ATDT*99***1#\\r", "< ATDT*99***1#\\r\\r\\nCONNECT\\r\\n"},                         {}, {"> ATDT*99***1#", "< ATDT*99***1#"}},
    {"D",         {"> ATDT030123456;\\r"},                                                               {"30123456"}, {"ATDT"}},
    {"D",         {"> ATD>\"Miller\";\\r"},                                                              {"Miller"}, {}},
    {"D",         {"> AT+4930123456;\\r", "> AT**04*2718*3141*3141#\\r", "> ATD*99*27182818#\\r", "> ATD>Miller;\\r"}, {"30123456", "2718", "3141", "Miller"}, {"AT+", "#\\r"}},
    {"+CCFCU",    {"> AT+CCFCU=0,3,2,129,\"030123456\"\\r"},                                         {"30123456"}, {"=0,3,2,129"}},
    {"+CKPD",     {"> AT+CKPD=\"030123456s\"\\r"},                                                  {"30123456"}, {}},
    {"+CSVM",     {"> AT+CSVM=1,\"030123456\",129\\r", "< \\r\\n+CSVM: 1,\"030123456\",129\\r\\n"},   {"30123456"}, {"=1,", ": 1,"}},
    {"+CLCCS",    {"< \\r\\n+CLCCS: 1,0,0,1,0,0,0,1,\"030123456\"\\r\\n"},                          {"30123456"}, {"1,0,0,1,0,0,0,1"}},
    {"+CNUM",     {"> at+cnum\\r", "< \\r\\n+cnum: \"Miller\",\"030123456\",129\\r\\n"},            {"Miller", "30123456"}, {"+cnum: "}},
    {"+CNUM",     {"> AT+CNUM\\r", "< \\r\\n+CNUM: \"Miller\",\"+4930123456\",145\\r\\n\\r\\nOK\\r\\n"}, {"Miller", "30123456"}, {",145"}},
    {"+CLIP",     {"< \\r\\nRING\\r\\n\\r\\n+CLIP: \"+4930123456\",145,,,\"Miller\",0\\r\\n"},           {"Miller", "30123456"}, {"RING", ",145,,,"}},
    {"+COLP",     {"< \\r\\n+COLP: \"030123456\",129\\r\\n"},                                            {"30123456"}, {"\"0", ",129"}},
    {"+CDIP",     {"< \\r\\n+CDIP: \"030123456\",129\\r\\n"},                                            {"30123456"}, {}},
    {"+CNAP",     {"< \\r\\n+CNAP: \"Miller\",0\\r\\n"},                                                 {"Miller"}, {}},
    {"+CCWA",     {"< \\r\\n+CCWA: \"030123456\",129,1,\"Miller\",0\\r\\n"},                             {"Miller", "30123456"}, {",129,1,"}},
    {"^CCWA",     {"< \\r\\n^CCWA:\"030123456\",129,1\\r\\n"},                                           {"30123456"}, {",129,1"}},
    {"+CLCC",     {"> AT+CLCC\\r", "< \\r\\n+CLCC: 1,1,4,0,0,\"030123456\",129,\"Miller\"\\r\\n\\r\\nOK\\r\\n"}, {"Miller", "30123456"}, {"1,1,4,0,0,"}},
    {"^CLCC",     {"< \\r\\n^CLCC: 1,1,4,0,0,\"030123456\",129\\r\\n"},                                  {"30123456"}, {"1,1,4,0,0,"}},
    {"+CSSU",     {"< \\r\\n+CSSU: 0,,\"030123456\",129\\r\\n"},                                         {"30123456"}, {}},
    {"+CCFC",     {"> AT+CCFC=0,3,\"+4930123456\",145\\r", "< \\r\\n+CCFC: 1,1,\"+4930123456\",145\\r\\n\\r\\nOK\\r\\n"}, {"30123456"}, {"=0,3,", ": 1,1,"}},
    {"+CTFR",     {"> AT+CTFR=+4930123456\\r"},                                                          {"30123456"}, {}},
    {"+CPBR",     {"> AT+CPBR=1,2\\r", "< \\r\\n+CPBR: 1,\"030123456\",129,\"Miller\"\\r\\n+CPBR: 2,\"+4930777777\",145,\"004D006100750073\"\\r\\n\\r\\nOK\\r\\n"},
                  {"Miller", "30123456", "30777777", "006100750073"}, {"=1,2", "+CPBR: 1,", "+CPBR: 2,"}},
    {"^CPBR",     {"> AT^CPBR=1\\r", "< \\r\\n^CPBR: 1,\"030123456\",129,\"Miller\",0\\r\\n\\r\\nOK\\r\\n"}, {"Miller", "30123456"}, {}},
    {"+CPBF",     {"> AT+CPBF=\"Mill\"\\r", "< \\r\\n+CPBF: 1,\"030123456\",129,\"Miller\"\\r\\n\\r\\nOK\\r\\n"}, {"Mill", "30123456"}, {}},
    {"+CPBW",     {"> AT+CPBW=1,\"030123456\",129,\"Miller\"\\r"},                                       {"Miller", "30123456"}, {"=1,"}},
    {"^CPBW",     {"> AT^CPBW=1,\"030123456\",129,\"Miller\",0\\r"},                                     {"Miller", "30123456"}, {}},
    // Messages
    {"+CSCA",     {"> AT+CSCA=\"+491722270333\"\\r", "< \\r\\nOK\\r\\n", "> AT+CSCA?\\r", "< \\r\\n+CSCA: \"+491722270333\",145\\r\\n\\r\\nOK\\r\\n"}, {"22270333"}, {",145"}},
    {"+CMGS",     {"> AT+CMGS=24\\r", "< AT+CMGS=24\\r\\r\\n> ", "> " + kSubmit + "\\x1a", "< " + kSubmit + "\\x1a\\r\\n+CMGS: 31\\r\\n\\r\\nOK\\r\\n"},
                  {"947132547698", "C472580E6AA6"}, {"AT+CMGS=24", "> ", "0011000C91", "0000A70B", "+CMGS: 31"}},
    {"+CMGS",     {"> AT+CMGF=1;+CMGS=\"+4930123456\"\\r", "< \\r\\n> ", "> Dear Miller\\r", "< Dear Miller\\r\\n> ", "> code 2718\\x1a", "< code 2718\\x1a\\r\\n+CMGS: 31\\r\\n\\r\\nOK\\r\\n"},
                  {"30123456", "Dear", "Miller", "code", "2718"}, {"AT+CMGF=1;+CMGS=", "+CMGS: 31"}},
    {"+CMGS",     {"> AT+CMGS=\"002B00340039003300300031\"\\r", "< \\r\\n> ", "> 00480061006C006C00F6\\x1a", "< \\r\\nOK\\r\\n"}, {"0340039003300300031", "00480061006C006C"}, {}},
    {"+CMGS",     {"> AT+CMGS=20\\r" + kSubmit + "\\x1a\\r", "< \\r\\n> \\r\\n+CMGS: 31\\r\\n\\r\\nOK\\r\\n"}, {"947132547698", "C472580E6AA6"}, {"+CMGS: 31"}},
    {"+CMGS",     {"> AT+CMGS=20\\r", "< \\r\\n+CMS ERROR: 500\\r\\n", "> AT+CSQ\\r", "< \\r\\n+CSQ: 20,99\\r\\n\\r\\nOK\\r\\n"}, {}, {"rAT+CSQ", "+CMS ERROR: 500", "+CSQ: 20,99"}},
    {"+CMGW",     {"> AT+CMGW\\r", "< \\r\\n> ", "> Dear Miller\\x1b", "< \\r\\nOK\\r\\n", "> AT+CSQ\\r"}, {"Dear", "Miller"}, {"AT+CSQ"}},
    {"+CMGC",     {"> AT+CMGC=14\\r", "< \\r\\n> ", "> " + kCommand + "\\x1a", "< \\r\\n+CMGC: 5\\r\\n\\r\\nOK\\r\\n"}, {"947132547698"}, {"AT+CMGC=14", "00021F0000050C91"}},
    {"+CNMA",     {"> AT+CNMA=1,20\\r", "< \\r\\n> ", "> " + kDamaged + "\\x1a", "< \\r\\nOK\\r\\n"},     {"4497381100", "54747A0E"}, {"=1,20"}},
    {"^HCMGS",    {"> AT^HCMGS=\"030123456\"\\r", "< \\r\\n> ", "> Dear Miller\\x1a", "< \\r\\nOK\\r\\n"}, {"30123456", "Miller"}, {}},
    {"^HCMGW",    {"> AT^HCMGW=\"030123456\"\\r", "< \\r\\n> ", "> Dear Miller\\x1a", "< \\r\\nOK\\r\\n"}, {"30123456", "Miller"}, {}},
    {"+CMSS",     {"> AT+CMSS=3,\"030123456\"\\r"},                                                      {"30123456"}, {"=3,"}},
    {"+CMGR",     {"> AT+CMGR=1\\r", "< \\r\\n+CMGR: 1,,23\\r\\n" + kDeliver + "\\r\\n\\r\\nOK\\r\\n"},   {"3366003051F5", "3366634081F9", "D4F29C0E"}, {"+CMGR: 1,,23", "0791", "040B91", "51807191203480"}},
    {"+CMGR",     {"> AT+CMGR=1\\r", "< \\r\\n+CMGR: \"REC READ\",\"+4930123456\",\"Miller\",\"18/12/13,06:20:04+28\",145,4,0,0,\"+491722270333\",145,5\\r\\nDear\\r\\nfred\\r\\n\\r\\nOK\\r\\n"},
                  {"30123456", "Miller", "22270333", "Dear", "fred"}, {"REC READ", "18/12/13,06:20:04+28", ",145,4,0,0,"}},
    {"+CMGL",     {"> AT+CMGL=4\\r", "< AT+CMGL=4\\r\\r\\n+CMGL: 0,0,,31\\r\\n" + kUcs2Deliver + "\\r\\n+CMGL: 1,0,,27\\r\\n" + kNameDeliver + "\\r\\n\\r\\nOK\\r\\n"},
                  {"947132547698", "00480061006C", "CD349B5D96", "C8329BFD06"}, {"+CMGL: 0,0,,31", "62501141322340", "+CMGL: 1,0,,27"}},
    {"+CMGL",     {"> AT+CMGL=4\\r", "< \\r\\n+CMGL: 0,0,,31\\r\\n0791336600\\r\\n^RSSI:20\\r\\n3051F5040B913366634081F9000051807191203480\\r\\n\\r\\nOK\\r\\n"},
                  {"336600", "3366634081F9"}, {"^RSSI:20"}},
    {"+CMGL",     {"> AT+CMGL=\"ALL\"\\r", "< \\r\\n+CMGL: 1,\"REC UNREAD\",\"+4930123456\",,\"18/12/13,06:20:04+28\"\\r\\nDear AT+CSQ\\r\\n+CMGL: 2,\"STO SENT\",\"030777777\",\"\"\\r\\nRING: fred\\r\\n\\r\\nOK\\r\\n"},
                  {"30123456", "Dear", "CSQ", "30777777", "fred"}, {"\"ALL\"", "REC UNREAD", "STO SENT"}},
    {"+CMT",      {"< \\r\\n+CMT: \"Miller\",26\\r\\n" + kStatusReport + "\\r\\n"},                      {"Miller", "947132547698"}, {",26", "62501141322340"}},
    {"+CMT",      {"< \\r\\n+CMT: ,35\\r\\n" + kHeaderDeliver + "\\r\\n", "< \\r\\n^RSSI:20\\r\\n"},     {"947132547698", "88E5B01CD44CB3"}, {"^RSSI:20", "050003010201"}},
    {"+CMT",      {"< \\r\\n+CMT: \"+4930123456\",,\"18/12/13,06:20:04+28\"\\r\\nDear Miller\\r\\nOK\\r\\ncode 2718\\r\\n", "> AT+CSQ\\r", "< \\r\\n+CSQ: 20,99\\r\\n\\r\\nOK\\r\\n"},
                  {"30123456", "Dear", "Miller", "code", "2718"}, {"18/12/13", "+CSQ: 20,99"}},
    {"+CDS",      {"< \\r\\n+CDS: 26\\r\\n" + kStatusReport + "\\r\\n"},                                 {"947132547698"}, {"+CDS: 26"}},
    {"+CDS",      {"< \\r\\n+CDS: 6,31,\"+4930123456\",145,\"18/12/13,06:20:04+28\",\"18/12/13,06:20:09+28\",0\\r\\n"}, {"30123456"}, {"6,31,", "06:20:09"}},
    {"+CDS",      {"< \\r\\n+CDS: 6,31,\"+4930123456\",145,\"18/12/13,06:20:04+28\",\"18/12/13,06:20:09+28\",0\\r\\n", "> AT+CSQ\\r", "< AT+CSQ\\r\\r\\n+CSQ: 20,99\\r\\n"}, {"30123456"}, {"< \\r\\n+CDS", "AT+CSQ\\r\\r", "+CSQ: 20,99"}},
    {"+CMT",      {"< \\r\\n+CMT: \"+4930123456\",,\"18/12/13,06:20:04+28\"\\r\\nDear\\r\\n", "> AT+CSQ\\r", "< AT+CSQ\\r\\r\\n+CSQ: 20,99\\r\\n"}, {"Dear"}, {"AT+CSQ\\r\\r", "+CSQ: 20,99"}},
    {"+CMGS",     {"> AT+CMGS=\"+4930123456\"\\r", "< \\r\\n>", "> At Miller 2718\\r", "> OK\\r", "< At Miller 2718\\r\\n> OK\\r\\n> ", "> code 2718\\x1a", "< code 2718\\r\\n+CMGS: 1\\r\\n\\r\\nOK\\r\\n"},
                  {"Miller", "2718", "code"}, {"+CMGS: 1", "nOK"}},
    {"+CBM",      {"< \\r\\n+CBM: 88\\r\\n001000320111C834888E2ECBCB2E97CB284FCB41\\r\\n"},              {"C834888E2ECBCB"}, {"+CBM: 88", "001000320111"}},
    {"^HCMGR",    {"> AT^HCMGR=1\\r", "< \\r\\n^HCMGR:030123456,2018,12,13,6,20,4,0,1,9,0,0,0,0\\r\\nDear Miller\\r\\n\\r\\nOK\\r\\n"}, {"30123456", "Dear"}, {"2018,12,13"}},
    {"^HCMGL",    {"> AT^HCMGL=4\\r", "< \\r\\n^HCMGL:1,030123456,0\\r\\nDear\\r\\n\\r\\nOK\\r\\n"},      {"30123456", "Dear"}, {}},
    {"^HCMT",     {"< \\r\\n^HCMT:030123456,2018,12\\r\\nDear\\r\\n"},                                   {"30123456", "Dear"}, {"2018,12"}},
    {"+CUSD",     {"> AT+CUSD=1,\"*2718#\",15\\r", "< \\r\\nOK\\r\\n", "< \\r\\n+CUSD: 1,\"Dear \"Miller\", you have 27.18\\nfred\",15\\r\\n", "< \\r\\n^RSSI:20\\r\\n"},
                  {"2718", "Dear", "Miller", "have", "27.18", "fred"}, {"AT+CUSD=1,\"*", "+CUSD: 1,\"", "\",15", "^RSSI:20"}},
    {"+CUSD",     {"> AT+CUSD=1,AA510C3602,15\\r", "< \\r\\n+CUSD: 0, C8329BFD0691C3\\r\\n"},            {"AA510C3602", "C8329BFD"}, {}},
    // Where it is
    {"+CREG",     {"> AT+CREG?\\r", "< \\r\\n+CREG: 2,1,\"1A2B\",\"01A2B3C4\",7\\r\\n\\r\\nOK\\r\\n", "< \\r\\n+CREG: 1, E006B, ABE0016\\r\\n"}, {"1A2B", "A2B3C4", "E006B", "BE0016"}, {"+CREG: 2,1,\"", ",7"}},
    {"+CGREG",    {"< \\r\\n+CGREG: 5,\"792D\",\"04947221\",2,\"A7\"\\r\\n"},                            {"792D", "4947221", "\"A7\""}, {"+CGREG: 5,", ",2,"}},
    {"+CEREG",    {"< \\r\\n+CEREG: 5,\"792D\",\"04947221\",7,0,13\\r\\n"},                              {"792D", "4947221"}, {",7,0,13"}},
    {"+C5GREG",   {"< \\r\\n+C5GREG: 1,\"792D11\",\"049472210\",11\\r\\n"},                              {"792D11", "49472210"}, {",11"}},
    {"^REJINFO",  {"< \\r\\n^REJINFO:46000,1,40,2,3,40,\"0026F8\",\"FF\",\"0A444202\"\\r\\n"},           {"0026F8", "0A444202"}, {"46000,1,40,2,3,40"}},
    {"^MONSC",    {"> AT^MONSC\\r", "< \\r\\n^MONSC: LTE,262,01,1650,0x8AA2C33,174,0xA51D,-99,-6,-70\\r\\n\\r\\nOK\\r\\n"}, {"8AA2C33", "A51D"}, {"LTE,262,01", "-99,-6,-70"}},
    {"^MONNC",    {"> AT^MONNC\\r", "< \\r\\n^MONNC: GSM,75,32,A51D,5D1F,17\\r\\n\\r\\nOK\\r\\n"},       {"A51D", "5D1F"}, {"GSM,75,32"}},
    {"+CENG",     {"> AT+CENG?\\r", "< \\r\\n+CENG: 0,\"460,00,A51D,5D1F,42\"\\r\\n+CENG: 1,A51D,5D1F\\r\\n\\r\\nOK\\r\\n"}, {"A51D", "5D1F"}, {"0,\"460,00,"}},
    {"+CPSI",     {"> AT+CPSI?\\r", "< \\r\\n+CPSI: LTE,Online,460-11,0x5A1E,187214780,257\\r\\n\\r\\nOK\\r\\n"}, {"5A1E", "187214780"}, {"LTE,Online,460-11"}},
    {"+QENG",     {"> AT+QENG=\"servingcell\"\\r", "< \\r\\n+QENG: \"servingcell\",\"NOCONN\",\"LTE\",\"FDD\",262,01,5F1EA15,12,1300,3,5,5,A51D,-99\\r\\n\\r\\nOK\\r\\n"}, {"5F1EA15", "A51D"}, {"\"FDD\",262,01", "-99"}},
    {"#MONI",     {"< \\r\\n#MONI: 26201,A51D,5D1F\\r\\n"},                                              {"A51D", "5D1F"}, {}},
    {"#SERVINFO", {"< \\r\\n#SERVINFO: 75,-89,\"T\",\"26201\",31,A51D\\r\\n"},                           {"A51D"}, {"75,-89"}},
    {"+CGPSINFO", {"> AT+CGPSINFO\\r", "< \\r\\n+CGPSINFO: 3113.343286,N,12121.234064,E,250311,072809.3,44.1,0.0\\r\\n\\r\\nOK\\r\\n"}, {"13.343286", "21.234064"}, {",N,", "250311,072809.3,44.1"}},
    {"+CGNSINF",  {"> AT+CGNSINF\\r", "< \\r\\n+CGNSINF: 1,1,20150327014838.000,31.221783,121.354528,114.600\\r\\n\\r\\nOK\\r\\n"}, {"221783", "354528"}, {"20150327014838.000"}},
    {"+UGNSINF",  {"< \\r\\n+UGNSINF: 1,1,20150327014838.000,31.221783,121.354528\\r\\n"},              {"221783", "354528"}, {}},
    {"+QGPSLOC",  {"> AT+QGPSLOC=0\\r", "< \\r\\n+QGPSLOC: 061951.0,3150.7223N,11711.9293E,0.7,62.2,2,0.0\\r\\n\\r\\nOK\\r\\n"}, {"50.7223", "11.9293"}, {"061951.0", "N,", "0.7,62.2"}},
    {"+CLBS",     {"< \\r\\n+CLBS: 0,121.354848,31.221402,550\\r\\n"},                                   {"354848", "221402"}, {",550"}},
    {"+CIPGSMLOC", {"< \\r\\n+CIPGSMLOC: 0,121.354848,31.221402,2014/01/09,13:02:53\\r\\n"},             {"354848", "221402"}, {"2014/01/09,13:02:53"}},
    {"+QCELLLOC", {"< \\r\\n+QCELLLOC: 117.1992,31.8456\\r\\n"},                                         {"1992", "8456"}, {}},
    {"$G",        {"< $GPRMC,061951.00,A,3150.7223,N,11711.9293,E,0.0,,090114,,,A*5C\\r\\n"},            {"50.7223", "11.9293"}, {"$GPRMC,061951.00,A,", "090114"}},
    {"",          {"< \\r\\n^WHERE: 52.516275,13.377704\\r\\n"},                                         {"516275", "377704"}, {}},
    // Addresses
    {"+CGDCONT",  {"> AT+CGDCONT=1,\"IP\",\"internet\",\"10.27.18.28\"\\r", "< \\r\\nOK\\r\\n", "> AT+CGDCONT?\\r", "< \\r\\n+CGDCONT: 1,\"IP\",\"internet\",\"10.27.18.28\",0,0\\r\\n\\r\\nOK\\r\\n"}, {"10.27.18.28"}, {"internet"}},
    {"+CGPADDR",  {"> AT+CGPADDR=1\\r", "< \\r\\n+CGPADDR: 1,\"10.27.18.28\",\"2001:DB8::CAFE\"\\r\\n\\r\\nOK\\r\\n"}, {"27.18", "CAFE"}, {}},
    {"+CGCONTRDP", {"> AT+CGCONTRDP\\r", "< \\r\\n+CGCONTRDP: 1,5,\"internet\",\"10.27.18.28.255.255.255.0\"\\r\\n\\r\\nOK\\r\\n"}, {"27.18"}, {"1,5,\"internet\"", "255.255.255.0"}},
    // Kept
    {"+CCLK",     {"> AT+CCLK?\\r", "< \\r\\n+CCLK: \"18/12/13,06:20:04+28\"\\r\\n\\r\\nOK\\r\\n"},      {}, {"18/12/13,06:20:04+28"}},
    {"+CTZV",     {"< \\r\\n+CTZV: +28,\"18/12/13,06:20:04\"\\r\\n"},                                    {}, {"+28,\"18/12/13,06:20:04"}},
    {"^NWTIME",   {"< \\r\\n^NWTIME:18/12/13,06:20:04+28,00\\r\\n"},                                     {}, {"18/12/13,06:20:04+28,00"}},
    {"^DSFLOWRPT", {"< \\r\\n^DSFLOWRPT:00000124,00000082,00000EA6,0000000000012325,000000000022771D,0000BB80,0001F400\\r\\n"}, {}, {"0000000000012325,000000000022771D"}},
    {"^DSFLOWQRY", {"> AT^DSFLOWQRY\\r", "< \\r\\n^DSFLOWQRY:00000124,0000000000012325\\r\\n\\r\\nOK\\r\\n"}, {}, {"0000000000012325"}},
    // What no row speaks of
    {"",          {"< \\r\\nDear Miller\\r\\n", "> hello 2718\\r", "< \\r\\n+XYZ: \"+4930123456\"\\r\\n"}, {"Dear", "2718", "30123456"}, {}},
    {"",          {"< ~\\xff}#\\xc0!}!secret\\x00~"},                                                    {"secret"}, {}},
};
// clang-format on

/// What a recording of the case would hold, by side: host, modem.
struct Recorded {
  std::string host;
  std::string modem;
};

/// @param cut      each step comes in two pieces, the first so long
/// @param release  what is held is let go in between, as from a modem that pauses
Recorded recorded(const Case& test, size_t cut, bool release) {
  Masker masker{StandIn(kKey)};
  Recorded out;
  for (const std::string& step : test.steps) {
    const std::string bytes = unescape(std::string_view(step).substr(2));
    const bool host = step.front() == '>';
    std::string& side = host ? out.host : out.modem;
    for (const std::string& piece :
         {bytes.substr(0, cut), bytes.substr(std::min(cut, bytes.size()))}) {
      side += host ? masker.from_host(piece) : masker.from_modem(piece);
      if (release) side += host ? masker.release_host() : masker.release_modem();
    }
  }
  out.host += masker.release_host();
  out.modem += masker.release_modem();
  return out;
}

size_t longest_step(const Case& test) {
  size_t longest = 0;
  for (const std::string& step : test.steps) longest = std::max(longest, step.size());
  return longest;
}

void expect_same_shape(std::string_view plain, std::string_view shown) {
  ASSERT_EQ(shown.size(), plain.size()) << escape(shown);
  for (size_t i = 0; i < plain.size(); ++i) {
    if (static_cast<unsigned char>(plain[i]) > ' ') continue;
    ASSERT_EQ(shown[i], plain[i]) << "byte " << i << " of " << escape(shown);
  }
}

TEST(Mask, NothingOfTheTableIsRecordedWhereverItIsCut) {
  for (const Case& test : kCases) {
    const Recorded whole = recorded(test, std::string::npos, false);
    for (const bool release : {false, true}) {
      for (size_t cut = 0; cut < longest_step(test); ++cut) {
        const Recorded out = recorded(test, cut, release);
        const std::string file = "> " + escape(out.host) + "\n< " + escape(out.modem);
        for (const std::string& original : test.originals) {
          EXPECT_THAT(file, Not(HasSubstr(original)))
              << test.row << " cut at " << cut << ' ' << release;
        }
        if (release) continue;
        ASSERT_EQ(out.host + out.modem, whole.host + whole.modem) << test.row << " cut at " << cut;
        for (const std::string& kept : test.kept) EXPECT_THAT(file, HasSubstr(kept)) << test.row;
      }
    }
    Recorded plain;
    for (const std::string& step : test.steps) {
      (step.front() == '>' ? plain.host : plain.modem) +=
          unescape(std::string_view(step).substr(2));
    }
    expect_same_shape(plain.host, whole.host);
    expect_same_shape(plain.modem, whole.modem);
  }
}

TEST(Mask, EveryRowIsTried) {
  std::set<std::string_view> tried;
  for (const Case& test : kCases) tried.insert(test.row);
  for (const MaskRow& row : mask_rows()) EXPECT_TRUE(tried.contains(row.name)) << row.name;
}

Recorded recorded(const std::vector<std::string>& steps) {
  return recorded(Case{"", steps, {}, {}}, std::string::npos, false);
}

// Each echo of a secret as a line may hurt it.
TEST(Mask, ADamagedEchoShowsNoMore) {
  const std::string secret = "27182818";
  for (const char* front : {"+CPIN=\"", "+MINE=\"", "+CLCK=\"SC\",1,\"", "+CPWD=\"SC\",\""}) {
    const std::string command = "AT" + std::string(front) + secret + "\"";
    std::vector<std::string> echoes = {"~" + command, "A" + command, "\\x1b" + command,
                                       command.substr(1), command.substr(2)};
    for (size_t cut = 1; cut < command.size(); ++cut) {
      for (const char* report : {"^RSSI:20", "RING", "+CREG: 1"}) {
        echoes.push_back(command.substr(0, cut) + "\\r\\n" + report + "\\r\\n" +
                         command.substr(cut));
      }
    }
    for (const std::string& echo : echoes) {
      const Recorded out = recorded({"> " + command + "\\r", "< " + echo + "\\r\\r\\nOK\\r\\n"});
      for (const char* part : {"2718", "818"}) {
        EXPECT_THAT(out.host + out.modem, Not(HasSubstr(part))) << echo;
      }
      EXPECT_THAT(out.modem, testing::EndsWith("\nOK\r\n"));
    }
  }
}

// A line of a text may look like anything that a modem says.
TEST(Mask, NoLineOfATextShowsThoseBehindIt) {
  std::vector<std::string> lines = {
      "OK",   "ERROR", "CONNECT", "CONNECTION", "NO CARRIER", "BUSY", "5",  "+CME ERROR: 10",
      "RING", "at",    "2718",    "^RSSI:20",   "> ",         "$GP",  "\"", "+CSQ: 20,99"};
  for (const MaskRow& row : mask_rows()) lines.push_back(std::string(row.name) + ": 1");
  const std::string time = "\"18/12/13,06:20:04+28\"";
  const std::vector<std::vector<std::string>> dialogues = {
      {"< \\r\\n+CMT: \"+4930123456\",," + time + "\\r\\n"},
      {"> AT+CMGR=1\\r", "< \\r\\n+CMGR: \"REC READ\",\"+4930123456\",," + time + "\\r\\n"},
      {"> AT+CMGL=\"ALL\"\\r", "< \\r\\n+CMGL: 1,\"REC READ\",\"+4930123456\",," + time + "\\r\\n"},
      {"< \\r\\n+CUSD: 1,\"Dear\\r\\n"},
  };
  for (const auto& dialogue : dialogues) {
    for (const std::string& line : lines) {
      for (const char* front :
           {"", "+CCLK: ", "+CREG: ", "^NWTIME: ", "CONNECT ", "+XYZ: ", "at "}) {
        std::vector<std::string> steps = dialogue;
        steps.push_back("< Dear\\r\\n" + line + "\\r\\n" + front + "Miller code 31415\\r\\n");
        // A quote at the end of a line is the end of a USSD text.
        if (line == "\"" && dialogue.size() == 1) continue;
        if (dialogue.back().find("CUSD") != std::string::npos) steps.push_back("< fred\",15\\r\\n");
        const Recorded out = recorded(steps);
        for (const char* secret : {"Miller", "code", "31415", "fred"}) {
          EXPECT_THAT(out.modem, Not(HasSubstr(secret))) << dialogue.back() << line << front;
        }
      }
    }
  }
}

// Between the first `from` and the next `to` behind it.
std::string between(const std::string& text, const std::string& from, const std::string& to) {
  const size_t begin = text.find(from) + from.size();
  return text.substr(begin, text.find(to, begin) - begin);
}

TEST(Mask, WhatIsReplayedStillParses) {
  const auto answer = [](const std::string& command, const std::string& text) {
    return recorded({"> " + command + "\\r", "< \\r\\n" + text + "\\r\\n"}).modem;
  };
  EXPECT_TRUE(has_check_digit(between(answer("AT+CGSN", "490154203237518"), "\n", "\r")));
  EXPECT_TRUE(
      has_check_digit(between(answer("AT+CCID", "+CCID: 8949020000123456788"), ": ", "\r")));

  const std::string stored = answer("AT+CMGR=1", "+CMGR: 1,,34\\r\\n" + kHeaderDeliver);
  const auto octets = mdxline::from_hex(between(stored, "34\r\n", "\r"));
  ASSERT_TRUE(octets);
  const mdxline::Octets text(octets->begin() + 27, octets->end());
  EXPECT_THAT(mdxline::unpack_septets(text, 18).substr(7),
              testing::MatchesRegex("[A-Z][a-z]{3} [A-Z][a-z]{5}"));

  const std::string where = answer("AT", "$GPRMC,3150.7223,N*11");
  int sum = 0;
  for (const char c : between(where, "$", "*")) sum ^= c;
  EXPECT_EQ(between(where, "*", "\r"), mdxline::to_hex({static_cast<uint8_t>(sum)}));
}

TEST(Mask, TheSameIsTheSameWhereverItStands) {
  const std::string number = between(recorded({"> ATD+491723456789;\\r"}).host, "+", ";");
  const Recorded sent =
      recorded({"> AT+CMGS=24\\r", "< > ", "> " + kSubmit + "\\x1a", "< " + kSubmit + "\\x1a\\r"});
  std::string swapped = number;
  for (size_t i = 0; i + 1 < swapped.size(); i += 2) std::swap(swapped[i], swapped[i + 1]);
  EXPECT_THAT(sent.host, HasSubstr("0C91" + swapped));
  EXPECT_EQ(between(sent.host, "\r", "\x1a"), between(sent.modem, "> ", "\x1a"))
      << "an echo is what was sent";
  const Recorded text = recorded(
      {"> AT+CMGS=\"+491723456789\"\\r", "< > ", "> Hello Fred\\x1a", "< Hello Fred\\x1a\\r\\n"});
  EXPECT_THAT(text.host, HasSubstr("+" + number));
  EXPECT_EQ(between(text.host, "\r", "\x1a"), between(text.modem, "> ", "\x1a"));
  EXPECT_THAT(
      recorded({"< +CLIP: \"002B003400390031003700320033003400350036003700380039\",145\\r"}).modem,
      HasSubstr("\"002B003" + number.substr(0, 1) + "003" + number.substr(1, 1)));
}

TEST(Mask, AnyBytesKeepTheirNumberAndTheirControlCharacters) {
  std::string words;
  for (const Case& test : kCases) {
    for (const std::string& step : test.steps) words += unescape(std::string_view(step).substr(2));
  }
  for (unsigned seed = 0; seed < 100; ++seed) {
    std::mt19937 random(seed);
    Masker masker{StandIn(kKey)};
    std::string fed[2];
    std::string got[2];
    for (int step = 0; step < 60; ++step) {
      const size_t side = random() % 2;
      std::string piece = words.substr(random() % words.size(), random() % 40);
      for (char& c : piece) {
        if (random() % 32 == 0) c = static_cast<char>(random() % 256);
      }
      if (random() % 400 == 0) piece = std::string(20000, 'A');
      fed[side] += piece;
      got[side] += side == 0 ? masker.from_host(piece) : masker.from_modem(piece);
      if (random() % 8 == 0) got[0] += masker.release_host();
      if (random() % 8 == 0) got[1] += masker.release_modem();
    }
    got[0] += masker.release_host();
    got[1] += masker.release_modem();
    SCOPED_TRACE(seed);
    expect_same_shape(fed[0], got[0]);
    expect_same_shape(fed[1], got[1]);
    if (HasFatalFailure()) return;
  }
}

}  // namespace
}  // namespace mdxtap
