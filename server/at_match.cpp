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

using report_literals = at_literals<kReportRows>;

constexpr bool every_row_can_be_hit_but_iring() {
  for (size_t row = 0; row + 1 < std::size(kReportRows); ++row) {
    const bool is_iring = std::string_view(kReportRows[row].literal) == "IRING";
    if (report_literals::is_hidden(row) != is_iring) return false;
  }
  return true;
}
static_assert(every_row_can_be_hit_but_iring(),
              "a report row is hidden behind an earlier, shorter literal");

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
    if (rcv_buf[0] != row->literal[0]) continue;
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
  const int32_t hit = report_literals::find(line);
  if (hit == -1) return sort_unknown_report(*msg, rcv_buf);
  const at_report_row_t& row = kReportRows[hit];
  *index = row.id;
  if (row.handler != nullptr) row.handler(rcv_buf, len);
  return 0;
}
