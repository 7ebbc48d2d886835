// Two tables, searched from the top, and the colon test, which tells the answer to the command in
// flight from a report that merely came during it.

#include "server/at_match.h"

#include <cstring>
#include <iterator>
#include <string_view>

#include "platform/at_fields.h"
#include "platform/bounded.h"
#include "reports/mdx_report_callback.h"
#include "server/at_literals.h"
#include "server/mdx_state.h"

namespace {

constexpr char kSource[] = "mdxgate";

}  // namespace

// Compared with the start of the line, first hit wins. "ATE0" is a command, not a result word, but
// its echo is the only sign that the echo was on: it ends an exchange all the same.
// clang-format off
constexpr at_result_row_t at_result_table[] = {
    { 2, "OK"                 },
    { 3, "+CME ERROR"         },
    { 4, "+CMS ERROR"         },
    { 5, "ERROR"              },
    { 6, "NO CARRIER"         },
    { 7, "NO ANSWER"          },
    { 8, "COMMAND NOT SUPPORT"},
    { 9, "TOO MANY PARAMETERS"},
    {10, "ATE0"               },
    {11, "CONNECT"            },
    {12, "NO DIALTONE"        },
    {13, "BUSY"               },
    {-1, nullptr              },
};

// Searched from the top, first hit wins, and a hit is a substring anywhere in the line. So the longer of
// two overlapping literals comes first: "+CMTI" behind "+CMT" would hand every stored-message report to
// the handler that expects a PDU. "IRING" is the known exception: it holds "RING" and is never reached,
// which does no harm. The ids are the modem's own numbering, gaps and disorder included.
constexpr at_report_row_t at_report_table[] = {
    { 0, "+CMTI",          nullptr             },
    { 1, "+CMT",           nullptr             },
    { 2, "+CDSI",          nullptr             },
    { 3, "+CDS",           nullptr             },
    { 4, "+CBM",           nullptr             },
    { 5, "^SMMEMFULL",     nullptr             },
    { 6, "RING",           nullptr             },
    { 7, "CONNECT",        nullptr             },
    { 8, "+CLIP",          nullptr             },
    { 9, "^SRVST",         nullptr             },
    {10, "^SIMST",         nullptr             },
    {11, "^MODE",          nullptr             },
    {12, "^RSSI",          rssi_report_callback},
    {13, "^DSFLOWRPT",     nullptr             },
    {14, "+CREG",          nullptr             },
    {15, "^CEND",          nullptr             },
    {16, "^CONN",          nullptr             },
    {17, "^CONF",          nullptr             },
    {18, "^ORIG",          nullptr             },
    {19, "^ECLSTAT",       nullptr             },
    {20, "^EARST",         nullptr             },
    {21, "+CCWA",          nullptr             },
    {22, "+CSSI",          nullptr             },
    {23, "+CSSU",          nullptr             },
    {24, "+COLP",          nullptr             },
    {25, "+CUSD",          nullptr             },
    {26, "^DCONN",         nullptr             },
    {27, "^DEND",          nullptr             },
    {28, "^APDIALUPRPT",   nullptr             },
    {29, "^APDHCP",        nullptr             },
    {30, "^APDIALM",       nullptr             },
    {31, "^APCURPROF",     nullptr             },
    {32, "^APPROFRD",      nullptr             },
    {33, "^APWIFIBS",      nullptr             },
    {34, "^APWIFISEC",     nullptr             },
    {35, "+CGREG",         nullptr             },
    {36, "^TIME",          nullptr             },
    {37, "^NWTIME",        nullptr             },
    {38, "+CTZV",          nullptr             },
    {39, "^FACTORY",       nullptr             },
    {40, "^APROAMRPT",     nullptr             },
    {41, "^CARDLOCKNTY",   nullptr             },
    {42, "^HCMGSS",        nullptr             },
    {43, "^HCMGSF",        nullptr             },
    {44, "^ANLEVEL",       nullptr             },
    {45, "^NORSTFACT",     nullptr             },
    {46, "^TEMPPRT",       nullptr             },
    {47, "^STIN",          nullptr             },
    {50, "^HCSQ",          nullptr             },
    {51, "^EONS",          nullptr             },
    {52, "^LTESIGLEV",     nullptr             },
    {53, "^HFREQINFO",     nullptr             },
    {54, "^WAKEUPIN",      nullptr             },
    {55, "^NDISSTATEX",    nullptr             },
    {56, "XLEMA",          nullptr             },
    {77, "^NDISSTAT",      nullptr             },
    {59, "^REJINFO",       nullptr             },
    {78, "^MMIENTER",      nullptr             },
    {79, "^CCALLSTATE",    nullptr             },
    {80, "^EXSIMST",       nullptr             },
    {87, "IRING",          nullptr             },
    {88, "^CCWA",          nullptr             },
    {91, "^CSCHANNELINFO", nullptr             },
    {92, "^LCACELLURC",    nullptr             },
    {76, "^SIMREFRESH",    nullptr             },
    {98, nullptr,          nullptr             },
};
// clang-format on

namespace {

/// True when each row can be hit: no earlier row's literal occurs in a later one's, but for
/// "IRING".
constexpr bool every_row_can_be_hit() {
  constexpr size_t kRows = std::size(at_report_table) - 1;
  for (size_t later = 0; later < kRows; ++later) {
    const std::string_view literal = at_report_table[later].literal;
    if (literal == "IRING") continue;
    for (size_t earlier = 0; earlier < later; ++earlier) {
      if (literal.find(at_report_table[earlier].literal) != std::string_view::npos) return false;
    }
  }
  return true;
}
static_assert(every_row_can_be_hit(), "a report row is hidden behind an earlier, shorter literal");

bool holds(const char* line, const char* literal) { return std::strstr(line, literal) != nullptr; }

struct entry_word_t {
  const char* literal;  // null in the last row
};
constexpr entry_word_t kEntryWords[] = {{"RING"}, {"CONNECT"}, {nullptr}};

/// The entry test: keeps ordinary response text out of the table search.
bool may_be_report(std::string_view line) {
  return line.starts_with('^') || line.starts_with('+') ||
         at_literals<kEntryWords>::find(line) != -1;
}

/// True when the line's text up to its first colon occurs in the command in flight.
bool answers_command_in_flight(const char* line) {
  const char* colon = std::strchr(line, ':');
  char prefix[kSentHeadSize] = {};
  if (strncat_s(prefix, sizeof(prefix), line, static_cast<size_t>(colon - line)) != 0) return false;
  return holds(mdx_state.sent_cmd_head, prefix);
}

/// What becomes of a line that looks like a report and that no row knows: 0 dropped, -1 text.
int32_t sort_unknown_report(const at_msg_t& msg, const char* line) {
  if (msg.req_type == TRANSPARENT_CMD) return -1;
  if (msg.req_type == ACTIVE_REPORT) {
    MDX_TRACE(kSource, MDX_TRACE_MISSING, "ACTIVE_REPORT == msg->req_type\n");
    return 0;
  }
  if (std::strchr(line, ':') == nullptr) return -1;
  if (!answers_command_in_flight(line)) return 0;
  MDX_TRACE(kSource, MDX_TRACE_MISSING, "the cmd string is not active report!\n");
  return -1;
}

}  // namespace

int32_t atcmd_match_result(const char* rcv_buf, int* err_code) {
  if (rcv_buf == nullptr || err_code == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR,
              "atcmd_match_result : error,rcv_buf or  err_code is null!\n");
    return -1;
  }
  for (const at_result_row_t* row = at_result_table; row->literal != nullptr; ++row) {
    if (std::strncmp(rcv_buf, row->literal, MDX_strlen_s(row->literal)) != 0) continue;
    *err_code = row->code;
    return 0;
  }
  return -1;
}

int32_t Is_report_msg(const at_msg_t* msg, char* rcv_buf, int32_t len, int* index, int* err_code) {
  if (msg == nullptr || rcv_buf == nullptr || index == nullptr || err_code == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR,
              "Is_report_msg : error,rcv_buf ,index or  err_code is null!\n");
    return -1;
  }
  *index = -1;
  if (rcv_buf[0] == '>') return 0;
  const std::string_view line = rcv_buf;
  if (!may_be_report(line)) {
    MDX_TRACE(kSource, MDX_TRACE_MISSING, "the cmd string is not active report!\n");
    return -1;
  }
  const int32_t hit = at_literals<at_report_table>::find(line);
  if (hit == -1) return sort_unknown_report(*msg, rcv_buf);
  const at_report_row_t& row = at_report_table[hit];
  *index = row.id;
  if (row.handler != nullptr) row.handler(rcv_buf, len);
  return 0;
}
