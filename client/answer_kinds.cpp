// SPDX-License-Identifier: Apache-2.0

// Which answers the server would take for reports. A test holds the first table against the
// server's.

#include <cstring>

#include "client/mdxclient.h"

namespace {

// clang-format off
/// What the server takes for a report when a line holds it.
constexpr const char* kReportNames[] = {
  "+CBM", "+CCWA", "+CDS", "+CDSI", "+CGREG", "+CLIP", "+CMT", "+CMTI", "+COLP", "+CREG", "+CSSI", "+CSSU",
  "+CTZV", "+CUSD", "CONNECT", "IRING", "RING", "XLEMA", "^ANLEVEL", "^APCURPROF", "^APDHCP", "^APDIALM",
  "^APDIALUPRPT", "^APPROFRD", "^APROAMRPT", "^APWIFIBS", "^APWIFISEC", "^CARDLOCKNTY", "^CCALLSTATE", "^CCWA",
  "^CEND", "^CONF", "^CONN", "^CSCHANNELINFO", "^DCONN", "^DEND", "^DSFLOWRPT", "^EARST", "^ECLSTAT", "^EONS",
  "^EXSIMST", "^FACTORY", "^HCMGSF", "^HCMGSS", "^HCSQ", "^HFREQINFO", "^LCACELLURC", "^LTESIGLEV", "^MMIENTER",
  "^MODE", "^NDISSTAT", "^NDISSTATEX", "^NORSTFACT", "^NWTIME", "^ORIG", "^REJINFO", "^RSSI", "^SIMREFRESH",
  "^SIMST", "^SMMEMFULL", "^SRVST", "^STIN", "^TEMPPRT", "^TIME", "^WAKEUPIN",
};
/// Their answers hold names that people gave; each line begins with the command's own.
constexpr const char* kFreeWords[] = {
  "+CEER", "+CGDCONT", "+CNUM", "+COPN", "+COPS", "+CPBF", "+CPBR", "+CPOL",
};
// clang-format on

}  // namespace

int mdx_answer_kind(const char* name) {
  if (name == nullptr) return MDX_ANSWER_PLAIN;
  for (const char* free_words : kFreeWords)
    if (std::strcmp(name, free_words) == 0) return MDX_ANSWER_FREE_WORDS;
  for (const char* report : kReportNames)
    if (std::strstr(name, report) != nullptr) return MDX_ANSWER_LIKE_REPORT;
  return MDX_ANSWER_PLAIN;
}
