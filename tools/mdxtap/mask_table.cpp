// SPDX-License-Identifier: Apache-2.0

// What is personal in which command, answer and report. Of those that are not here, what stands in
// quotes and long numbers are masked.
#include "tools/mdxtap/mask_table.h"

#include <algorithm>
#include <iterator>

namespace mdxtap {
namespace {

using Side = MaskRow::Side;
constexpr auto kCommand = Side::kCommand;
constexpr auto kAnswer = Side::kAnswer;
constexpr auto kBoth = Side::kBoth;

constexpr auto kWords = Holds::kWords;
constexpr auto kSecret = Holds::kSecret;
constexpr auto kIdentity = Holds::kIdentity;
constexpr auto kPosition = Holds::kPosition;
constexpr auto kAddress = Holds::kAddress;
constexpr auto kHeading = Holds::kHeading;

// Their values tell of networks, models and settings, never of a person.
constexpr std::string_view kKept[] = {
    "+CBST", "+CESQ",    "+CFUN",   "+CGACT",    "+CGATT",   "+CGMI",      "+CGMM",    "+CGMR",
    "+CIND", "+CLAC",    "+CMEE",   "+CMER",     "+CMGD",    "+CMGF",      "+CMGL",    "+CMGR",
    "+CMTI", "+CNMI",    "+COPN",   "+COPS",     "+CPMS",    "+CPOL",      "+CSCS",    "+CSDH",
    "+CSMP", "+CSMS",    "+CSPN",   "+CSQ",      "+CTZR",    "+CTZU",      "+GCAP",    "+GMI",
    "+GMM",  "+GMR",     "+ICF",    "+IFC",      "+IPR",     "+QCFG",      "+QCSQ",    "+QENG",
    "+QIND", "+QNWINFO", "+WS46",   "^CSNR",     "^CURC",    "^HCSQ",      "^HWVER",   "^MODE",
    "^RSSI", "^SETPORT", "^SYSCFG", "^SYSCFGEX", "^SYSINFO", "^SYSINFOEX", "^VERSION",
};

}  // namespace

bool is_kept(std::string_view name) {
  return std::find(std::begin(kKept), std::end(kKept), name) != std::end(kKept);
}

bool begins_known_name(std::string_view text) {
  const auto begins = [text](std::string_view name) { return name.starts_with(text); };
  return std::any_of(std::begin(kKept), std::end(kKept), begins) ||
         std::any_of(mask_rows().begin(), mask_rows().end(),
                     [&](const MaskRow& row) { return begins(row.name); });
}

const std::vector<MaskRow>& mask_rows() {
  // clang-format off
  static const std::vector<MaskRow> kRows = {
      // Identities
      {"+CIMI",     kAnswer,  {{1, kIdentity, true}}},
      {"+CGSN",     kAnswer,  {{1, kIdentity, true}}},
      {"+GSN",      kAnswer,  {{1, kIdentity, true}}},
      {"+CCID",     kAnswer,  {{1, kIdentity, true}}},
      {"+ICCID",    kAnswer,  {{1, kIdentity, true}}},
      {"+QCCID",    kAnswer,  {{1, kIdentity, true}}},
      {"^ICCID",    kAnswer,  {{1, kIdentity, true}}},
      {"+CRSM",     kCommand, {{6, Holds::kSimFile}}},
      {"+CRSM",     kAnswer,  {{3, Holds::kSimFile}}},
      {"+CSIM",     kBoth,    {{2, Holds::kApdu}}},
      // Secrets
      {"+CPIN",     kCommand, {{1, kSecret, true}}},
      {"^CPIN",     kCommand, {{1, kSecret, true}}},
      {"+CLCK",     kCommand, {{3, kSecret}}},
      {"+CPWD",     kCommand, {{2, kSecret, true}}},
      {"^CARDLOCK", kCommand, {{1, kSecret}}},
      {"+CGAUTH",   kBoth,    {{3, kSecret, true}}},
      {"^AUTHDATA", kBoth,    {{3, kSecret, true}}},
      {"+QICSGP",   kCommand, {{4, kSecret}, {5, kSecret}}},
      {"+QICSGP",   kAnswer,  {{3, kSecret}, {4, kSecret}}},
      {"$QCPDPP",   kBoth,    {{3, kSecret, true}}},
      {"#PDPAUTH",  kBoth,    {{3, kSecret, true}}},
      {"+UAUTHREQ", kBoth,    {{3, kSecret, true}}},
      {"+CSTT",     kBoth,    {{2, kSecret, true}}},
      {"+XGAUTH",   kBoth,    {{3, kSecret, true}}},
      {"+QMTCONN",  kCommand, {{2, kSecret, true}}},
      {"+SAPBR",    kCommand, {{4, kSecret, true}}},
      {"+CPBS",     kCommand, {{2, kSecret}}},
      {"+CACM",     kCommand, {{1, kSecret}}},
      {"+CAMM",     kCommand, {{2, kSecret}}},
      {"+CPUC",     kCommand, {{3, kSecret}}},
      {"+VTS",      kCommand, {{1, kSecret, true}}},
      // Calls and numbers
      {"D",         kCommand, {{1, kWords}}},
      {"+CNUM",     kAnswer,  {{1, kWords}, {2, kWords}}},
      {"+CLIP",     kAnswer,  {{1, kWords}, {3, kWords, true}}},
      {"+COLP",     kAnswer,  {{1, kWords}, {3, kWords, true}}},
      {"+CDIP",     kAnswer,  {{1, kWords}, {3, kWords, true}}},
      {"+CNAP",     kAnswer,  {{1, kWords}}},
      {"+CCWA",     kAnswer,  {{1, kWords}, {4, kWords, true}}},
      {"^CCWA",     kAnswer,  {{1, kWords}, {4, kWords, true}}},
      {"+CLCC",     kAnswer,  {{6, kWords}, {8, kWords}}},
      {"^CLCC",     kAnswer,  {{6, kWords}, {8, kWords}}},
      {"+CSSU",     kAnswer,  {{3, kWords}, {5, kWords, true}}},
      {"+CCFC",     kCommand, {{3, kWords}, {6, kWords}}},
      {"+CCFC",     kAnswer,  {{3, kWords}, {5, kWords}}},
      {"+CCFCU",    kBoth,    {{5, kWords, true}}},
      {"+CTFR",     kCommand, {{1, kWords}}},
      {"+CKPD",     kCommand, {{1, kWords}}},
      {"+CSVM",     kBoth,    {{2, kWords}}},
      {"+CLCCS",    kAnswer,  {{9, kWords, true}}},
      {"+CPBR",     kAnswer,  {{2, kWords}, {4, kWords, true}}},
      {"^CPBR",     kAnswer,  {{2, kWords}, {4, kWords, true}}},
      {"+CPBF",     kAnswer,  {{2, kWords}, {4, kWords, true}}},
      {"+CPBF",     kCommand, {{1, kWords}}},
      {"+CPBW",     kCommand, {{2, kWords}, {4, kWords, true}}},
      {"^CPBW",     kCommand, {{2, kWords}, {4, kWords, true}}},
      // Messages
      {"+CSCA",     kBoth,    {{1, kWords}}},
      {"+CMGS",     kCommand, {{1, Holds::kRecipient}},        Follows::kMessage},
      {"+CMGW",     kCommand, {{1, Holds::kRecipient}},        Follows::kMessage},
      {"+CMGC",     kCommand, {{1, Holds::kRecipient, true}},  Follows::kMessage},
      {"+CNMA",     kCommand, {{2, Holds::kRecipient}},        Follows::kMessage},
      {"^HCMGS",    kCommand, {{1, Holds::kRecipient}},        Follows::kMessage},
      {"^HCMGW",    kCommand, {{1, Holds::kRecipient}},        Follows::kMessage},
      {"+CMSS",     kCommand, {{2, kWords}}},
      {"+CMGR",     kAnswer,  {{1, kHeading, true}},           Follows::kMessage},
      {"+CMGL",     kAnswer,  {{1, kHeading, true}},           Follows::kMessage},
      {"+CMT",      kAnswer,  {{1, kHeading, true}},           Follows::kMessage},
      {"+CDS",      kAnswer,  {{1, kHeading, true}},           Follows::kMessage},
      {"+CBM",      kAnswer,  {{1, kHeading, true}},           Follows::kBroadcast},
      {"^HCMGR",    kAnswer,  {{1, kWords}, {2, kHeading, true}}, Follows::kMessage},
      {"^HCMGL",    kAnswer,  {{2, kWords}, {3, kHeading, true}}, Follows::kMessage},
      {"^HCMT",     kAnswer,  {{1, kWords}, {2, kHeading, true}}, Follows::kMessage},
      {"+CUSD",     kBoth,    {{2, kWords}}},
      // Where it is
      {"+CREG",     kAnswer,  {{1, Holds::kCell, true}}},
      {"+CGREG",    kAnswer,  {{1, Holds::kCell, true}}},
      {"+CEREG",    kAnswer,  {{1, Holds::kCell, true}}},
      {"+C5GREG",   kAnswer,  {{1, Holds::kCell, true}}},
      {"^REJINFO",  kAnswer,  {{5, Holds::kCell, true}}},
      {"^MONSC",    kAnswer,  {{1, Holds::kCellAmong, true}}},
      {"^MONNC",    kAnswer,  {{1, Holds::kCellAmong, true}}},
      {"+CENG",     kAnswer,  {{1, Holds::kCellAmong, true}}},
      {"+CPSI",     kAnswer,  {{1, Holds::kCellAmong, true}}},
      {"+QENG",     kAnswer,  {{1, Holds::kCellAmong, true}}},
      {"#MONI",     kAnswer,  {{1, Holds::kCellAmong, true}}},
      {"#SERVINFO", kAnswer,  {{1, Holds::kCellAmong, true}}},
      {"+CGPSINFO", kAnswer,  {{1, kPosition, true}}},
      {"+CGNSINF",  kAnswer,  {{1, kPosition, true}}},
      {"+UGNSINF",  kAnswer,  {{1, kPosition, true}}},
      {"+QGPSLOC",  kAnswer,  {{1, kPosition, true}}},
      {"+CLBS",     kAnswer,  {{1, kPosition, true}}},
      {"+CIPGSMLOC", kAnswer, {{1, kPosition, true}}},
      {"+QCELLLOC", kAnswer,  {{1, kPosition, true}}},
      {"$G",        kAnswer,  {{1, kPosition, true}}},
      // Addresses
      {"+CGDCONT",  kBoth,    {{4, kAddress}}},
      {"+CGPADDR",  kAnswer,  {{2, kAddress, true}}},
      {"+CGCONTRDP", kAnswer, {{4, kAddress, true}}},
      // Kept: long numbers that are nobody's
      {"+CCLK",     kBoth,    {}},
      {"+CTZV",     kAnswer,  {}},
      {"^NWTIME",   kAnswer,  {}},
      {"^DSFLOWRPT", kAnswer, {}},
      {"^DSFLOWQRY", kAnswer, {}},
  };
  // clang-format on
  return kRows;
}

const MaskRow* find_mask_row(std::string_view name, bool command) {
  const Side other = command ? kAnswer : kCommand;
  const auto& rows = mask_rows();
  const auto found = std::find_if(rows.begin(), rows.end(), [&](const MaskRow& row) {
    return row.name == name && row.side != other;
  });
  return found == rows.end() ? nullptr : &*found;
}

std::string_view name_of(Holds holds) {
  switch (holds) {
    case Holds::kWords:
      return "numbers and texts";
    case Holds::kRecipient:
      return "a number, unless a length";
    case Holds::kHeading:
      return "numbers and names";
    case Holds::kSecret:
      return "secrets";
    case Holds::kCell:
    case Holds::kCellAmong:
      return "cells";
    case Holds::kIdentity:
      return "identities";
    case Holds::kPosition:
      return "positions";
    case Holds::kAddress:
      return "IP addresses";
    case Holds::kSimFile:
    case Holds::kApdu:
      return "what is on the SIM";
    case Holds::kNothing:
      break;
  }
  return "nothing";
}

}  // namespace mdxtap
