// SPDX-License-Identifier: Apache-2.0

// What handlers promise beyond one line: the stored ^RSSI line, the count of traffic reports, and
// calls that no report table makes.

#include <gmock/gmock.h>

#include <cstring>
#include <memory>

#include "reports/mdx_report_callback.h"
#include "reports/stored_report.h"
#include "server/mdx_state.h"
#include "tests/fake_platform/fake_platform.h"
#include "tests/reports/report_journal.h"

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

constexpr char kFlow[] = "^DSFLOWRPT:0,5,6,100000007,8";

std::string stored_rssi() {
  const at_answer_t& stored = mdx_rssi_report;
  return {stored.snd_rcv_msg.rmsg, strnlen(stored.snd_rcv_msg.rmsg, MAX_ATCMD_REPORT_SIZE)};
}

void hand_to(void (*handler)(char*, int32_t), std::string line) {
  fake::reset();
  handler(line.data(), static_cast<int32_t>(line.size()));
}

}  // namespace

TEST(Rssi, KeepsTheLastLineWhole) {
  const std::string longest = "^RSSI:" + std::string(MAX_ATCMD_REPORT_SIZE - 6, '9');
  // clang-format off
  const struct { std::string line, stored, trace; } cases[] = {
      {"^RSSI: 31,longer", "^RSSI: 31,longer", trace(8, "rssi buffer length: (16) ,is : ^RSSI: 31,longer\n")},
      {"^RSSI: 7",         "^RSSI: 7",         trace(8, "rssi buffer length: (8) ,is : ^RSSI: 7\n")},
      {longest,            longest,            trace(8, "rssi buffer length: (1500) ,is : " + longest + "\n")},
      {longest + "9",      longest,            trace(4, "MAX_ATCMD_REPORT_SIZE < rssi_length\n")},
      {"^rssi: 9",         longest,            trace(4, "Buffer(^rssi: 9) do not have ^RSSI\n")},
      {"x ^RSSI: 8",       "x ^RSSI: 8",       trace(8, "rssi buffer length: (10) ,is : x ^RSSI: 8\n")},
  };
  // clang-format on
  for (const auto& c : cases) {
    std::memset(&mdx_rssi_report.rsp_len, 0xff, sizeof(int32_t));
    hand_to(rssi_report_callback, c.line);
    EXPECT_THAT(journal_now(), ElementsAre(c.trace));
    EXPECT_EQ(stored_rssi(), c.stored);
    EXPECT_EQ(mdx_rssi_report.ret_val, AT_OK);
    EXPECT_EQ(mdx_rssi_report.rsp_len, c.line == c.stored ? 0 : -1) << c.line;
  }
}

TEST(Dsflow, TheTenthReportTellsCmsAsWellOrTheTwentiethIfItIsUnreadable) {
  restart_dsflow_count();
  for (const int unreadable : {10, 0}) {
    for (int i = 1; i < (unreadable == 0 ? 10 : 20); ++i) {
      const size_t told = i == unreadable ? 0 : 1;
      EXPECT_EQ(packets_of(report(told == 0 ? "^DSFLOWRPT" : kFlow)).size(), told) << i;
    }
    EXPECT_THAT(
        packets_of(report(kFlow)),
        ElementsAre(notify(18, 18002, words({0, 5, 6, 0}) + longs({0x100000007, 8}) + zeros(8)),
                    cms(34843, words({5, 6}) + longs({0x100000007, 8}))));
  }
}

TEST(Norstfact, WritesToStandardOutput) {
  testing::internal::CaptureStdout();
  report("^NORSTFACT");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "mdx norstfact_report_callback enter\n");
}

TEST(Handlers, CiregIsCalledByNoRowAndTracesItsFields) {
  hand_to(ims_cireg_report_callback, "+CIREGU: 1,4");
  EXPECT_THAT(journal_now(),
              ElementsAre(trace(16, "[ims_cireg_report_callback] enter... \n"),
                          trace(16, "point1->AtFieldName =reg_info,point1->AtFieldValue =1"),
                          trace(16, "point1->AtFieldName =ext_info,point1->AtFieldValue =4"),
                          trace(16, "[ims_cireg_report_callback] end ! \n")));
  hand_to(ims_cireg_report_callback, "+CIREG: 1");
  EXPECT_EQ(journal_now().back(),
            trace(2, "ims_cireg_report_callback at_cmd_parse  error,and the ret = -1\n"));
}

TEST(Handlers, AUssdLengthBeyondTheLineBufferStaysInIt) {
  const auto buffer = std::make_unique<char[]>(sizeof(mdx_state.line_buf));
  std::string_view("+CUSD: 1,\"text\",15").copy(buffer.get(), 64);
  fake::reset();
  cusd_report_callback(buffer.get(), INT32_MAX);
  EXPECT_EQ(fake::packets().at(0).text.size(), 528u);
}

TEST(Handlers, ARefusedCallSendsNothing) {
  // clang-format off
  const struct { void (*handler)(char*, int32_t); journal_t journal; } cases[] = {
      {hcsq_report_callback,         {trace(2, "hcsq_report_callback invalid parameter, return!\n")}},
      {rssi_report_callback,         {trace(4, "rssi_buf is empty.\n")}},
      {ltesiglev_report_callback,    {trace(4, "ltesiglev is empty.\n")}},
      {rejinfo_report_callback,      {trace(2, "rejinfo_report_callback report_buf is null.\n")}},
      {sms_hcmgss_report_callback,   {trace(2, "sms_hcmgss_report_callback parameter  error, return. \n")}},
      {sms_hcmgsf_report_callback,   {trace(2, "sms_hcmgsf_report_callback parameter  error, return. \n")}},
      {sms_mem_full_report_callback, {trace(16, "[sms_mem_full_report_callback] enter... \n"), trace(2, "sms_mem_full_report_callback parameter  error, return. \n")}},
      {exsimst_report_callback,      {trace(2, "[exsimst_report_callback]: enter \n"), trace(2, "[exsimst_report_callback]: NULL == rptbuf \n")}},
      {cssi_report_callback,         {trace(8, "enter cssi_report_callback\n"), trace(2, "passing param is invalid\n")}},
      {cssu_report_callback,         {trace(8, "enter cssu_report_callback\n"), trace(2, "passing param is invalid\n")}},
      {ims_cireg_report_callback,    {trace(2, "ims_cireg_report_callback parameter  error, return. \n")}},
      {mmi_enter_report_callback,    {trace(2, "[mmi_enter_report_callback]: NULL == rptbuf \n")}},
  };
  // clang-format on
  for (const auto& c : cases) {
    fake::reset();
    c.handler(nullptr, 0);
    EXPECT_THAT(journal_now(), ElementsAreArray(c.journal));
  }

  for (const auto& silent :
       {mode_report_callback, redirect_noservice_report_callback, hfreqinfo_report_callback,
        sms_content_report_callback, sms_index_report_callback, simst_report_callback,
        sim_refresh_report_callback, cusd_report_callback, stin_report_callback}) {
    fake::reset();
    silent(nullptr, 0);
    EXPECT_THAT(journal_now(), IsEmpty());
  }
  for (const auto& handler : {sms_content_report_callback, sms_index_report_callback}) {
    hand_to(handler, "+CMGL: 1");
    EXPECT_THAT(packets_of(journal_now()), IsEmpty());
  }
  hand_to(rejinfo_report_callback, "^REJ:1");
  EXPECT_EQ(journal_now().back(),
            trace(2, "rejinfo_report_callback do not find report_buf flag.\n"));
}
