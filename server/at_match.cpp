// SPDX-License-Identifier: Apache-2.0

// Two tables, searched from the top, and the colon test, which tells the answer to the command in
// flight from a report that merely came during it.

#include "server/at_match.h"

#include <array>
#include <cstring>
#include <string_view>

#include "channel/mdx_register.h"
#include "platform/bounded.h"
#include "reports/mdx_report_callback.h"
#include "server/at_framing.h"
#include "server/at_literals.h"
#include "server/mdx_state.h"

namespace {

constexpr mdx_trace_source_t kSource = MDX_FROM_LINE;

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
constexpr at_report_row_t kReportRows[] = {
    { 0, "+CMTI",          sms_index_report_callback         },
    { 1, "+CMT",           sms_content_report_callback       },
    { 2, "+CDSI",          sms_index_report_callback         },
    { 3, "+CDS",           sms_content_report_callback       },
    { 4, "+CBM",           sms_content_report_callback       },
    { 5, "^SMMEMFULL",     sms_mem_full_report_callback      },
    { 6, "RING",           cs_ring_report_callback           },
    { 7, "CONNECT",        nullptr                           },
    { 8, "+CLIP",          cs_clip_report_callback           },
    { 9, "^SRVST",         redirect_noservice_report_callback},
    {10, "^SIMST",         simst_report_callback             },
    {11, "^MODE",          mode_report_callback              },
    {12, "^RSSI",          rssi_report_callback              },
    {13, "^DSFLOWRPT",     dsflow_report_callback            },
    {14, "+CREG",          creg_report_callback              },
    {15, "^CEND",          cs_cend_report_callback           },
    {16, "^CONN",          cs_conn_report_callback           },
    {17, "^CONF",          cs_conf_report_callback           },
    {18, "^ORIG",          cs_orig_report_callback           },
    {19, "^ECLSTAT",       nullptr                           },
    {20, "^EARST",         nullptr                           },
    {21, "+CCWA",          cs_ccwa_report_callback           },
    {22, "+CSSI",          cssi_report_callback              },
    {23, "+CSSU",          cssu_report_callback              },
    {24, "+COLP",          nullptr                           },
    {25, "+CUSD",          cusd_report_callback              },
    {26, "^DCONN",         dconn_report_callback             },
    {27, "^DEND",          dend_report_callback              },
    {28, "^APDIALUPRPT",   apdialup_report_callback          },
    {29, "^APDHCP",        nullptr                           },
    {30, "^APDIALM",       nullptr                           },
    {31, "^APCURPROF",     nullptr                           },
    {32, "^APPROFRD",      nullptr                           },
    {33, "^APWIFIBS",      nullptr                           },
    {34, "^APWIFISEC",     nullptr                           },
    {35, "+CGREG",         creg_report_callback              },
    {36, "^TIME",          nullptr                           },
    {37, "^NWTIME",        net_time_report_callback          },
    {38, "+CTZV",          nullptr                           },
    {39, "^FACTORY",       factory_report_callback           },
    {40, "^APROAMRPT",     aproaming_report_callback         },
    {41, "^CARDLOCKNTY",   nullptr                           },
    {42, "^HCMGSS",        sms_hcmgss_report_callback        },
    {43, "^HCMGSF",        sms_hcmgsf_report_callback        },
    {44, "^ANLEVEL",       anelvel_report_callback           },
    {45, "^NORSTFACT",     norstfact_report_callback         },
    {46, "^TEMPPRT",       tempprt_report_callback           },
    {47, "^STIN",          stin_report_callback              },
    {50, "^HCSQ",          hcsq_report_callback              },
    {51, "^EONS",          net_eons_report_callback          },
    {52, "^LTESIGLEV",     ltesiglev_report_callback         },
    {53, "^HFREQINFO",     hfreqinfo_report_callback         },
    {54, "^WAKEUPIN",      wakeupin_report_callback          },
    {55, "^NDISSTATEX",    ndisstatex_report_callback        },
    {56, "XLEMA",          cs_xlema_report_callback          },
    {77, "^NDISSTAT",      ndisstat_report_callback          },
    {59, "^REJINFO",       rejinfo_report_callback           },
    {78, "^MMIENTER",      mmi_enter_report_callback         },
    {79, "^CCALLSTATE",    cs_ccallstate_report_callback     },
    {80, "^EXSIMST",       exsimst_report_callback           },
    {87, "IRING",          cs_ring_report_callback           },
    {88, "^CCWA",          cs_ccwa_ims_report_callback       },
    {91, "^CSCHANNELINFO", cs_cschannelinfo_report_callback  },
    {92, "^LCACELLURC",    ltecacell_report_callback         },
    {76, "^SIMREFRESH",    sim_refresh_report_callback       },
    {98, nullptr,          nullptr                           },
};
// clang-format on

const at_report_row_t* const at_report_table = kReportRows;

namespace {

// What is needed of a row once it is found; the table itself serves the compiler alone.
constexpr size_t kRows = std::size(kReportRows) - 1;
constexpr auto row_ids = [] {
  std::array<uint8_t, kRows> ids = {};
  for (size_t row = 0; row < kRows; ++row) ids[row] = static_cast<uint8_t>(kReportRows[row].id);
  return ids;
}();
constexpr auto row_handlers = [] {
  std::array<at_report_handler_t, kRows> handlers = {};
  for (size_t row = 0; row < kRows; ++row) handlers[row] = kReportRows[row].handler;
  return handlers;
}();

using line_literals = at_literals<at_sms_headers, literal_notify_table, kReportRows>;

constexpr bool every_row_can_be_hit_but_iring() {
  for (size_t row = 0; kReportRows[row].literal != nullptr; ++row) {
    const bool is_iring = std::string_view(kReportRows[row].literal) == "IRING";
    if (line_literals::is_hidden(kReportRows, row) != is_iring) return false;
  }
  return true;
}
static_assert(every_row_can_be_hit_but_iring(),
              "a report row is hidden behind an earlier, shorter literal");

bool holds(const char* line, const char* literal) { return std::strstr(line, literal) != nullptr; }

/// The entry test: keeps ordinary response text out of the table. Both words have rows, so a line
/// that holds no row holds neither.
bool may_be_report(const char* line, int32_t row) {
  if (line[0] == '^' || line[0] == '+') return true;
  return row != -1 && (holds(line, "RING") || holds(line, "CONNECT"));
}

/// True when the line's text up to its first colon occurs in the command in flight.
bool answers_command_in_flight(const char* line) {
  const char* colon = std::strchr(line, ':');
  char prefix[kSentHeadSize] = {};
  if (strncat_s(prefix, sizeof(prefix), line, static_cast<size_t>(colon - line)) != 0) return false;
  return holds(mdx_state.sent_cmd_head, prefix);
}

/// The bytes that results start with, by their low bits: most lines start otherwise.
constexpr uint32_t kResultStarts = [] {
  uint32_t starts = 0;
  for (const at_result_row_t& row : at_result_table) {
    if (row.literal != nullptr) starts |= 1u << row.literal[0] % 32;
  }
  return starts;
}();

bool starts_with(const char* line, const char* literal) {
  while (*literal != '\0' && *literal == *line) ++literal, ++line;
  return *literal == '\0';
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

at_findings_t at_look_through(const char* line) {
  const auto [sms_header, notification, report] = line_literals::find(line);
  return {sms_header, notification, report};
}

int32_t atcmd_match_result(const char* rcv_buf, int* err_code) {
  if (rcv_buf == nullptr || err_code == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR,
              "atcmd_match_result : error,rcv_buf or  err_code is null!\n");
    return -1;
  }
  if ((kResultStarts >> static_cast<uint8_t>(rcv_buf[0]) % 32 & 1) == 0) return -1;
  for (const at_result_row_t* row = at_result_table; row->literal != nullptr; ++row) {
    if (!starts_with(rcv_buf, row->literal)) continue;
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
  return at_take_report(*msg, rcv_buf, len, at_look_through(rcv_buf).report, index);
}

int32_t at_take_report(const at_msg_t& msg, char* line, int32_t len, int32_t row, int* index) {
  *index = -1;
  if (line[0] == '>') return 0;
  if (!may_be_report(line, row)) {
    MDX_TRACE(kSource, MDX_TRACE_MISSING, "the cmd string is not active report!\n");
    return -1;
  }
  if (row == -1) return sort_unknown_report(msg, line);
  *index = row_ids[static_cast<size_t>(row)];
  const at_report_handler_t handler = row_handlers[static_cast<size_t>(row)];
  if (handler != nullptr) handler(line, len);
  return 0;
}
