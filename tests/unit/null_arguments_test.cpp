// SPDX-License-Identifier: Apache-2.0

// A null argument is refused with a word, and nothing else happens.
#include "server/at_exchange.h"
#include "server/at_match.h"
#include "server/at_sms_exchange.h"
#include "server/client_request.h"
#include "server/modem_setup.h"
#include "server/nas_request.h"
#include "server/status_query.h"
#include "tests/unit/server_test.h"

namespace unit {
namespace {

class NullArguments : public Server {};

TEST_F(NullArguments, AreRefused) {
  at_msg_t msg = record({});
  char line[] = "+CMTI: \"SM\",1";
  int value = 99;
  read("abc", &msg);
  fake::journal.clear();
  // clang-format off
  const struct { int32_t result; int32_t expected; std::string trace; } cases[] = {
      {read_from_smd(nullptr, &value),                     -1, "error,msg  or retcodeis null!\n"},
      {read_from_smd(&msg, nullptr),                       -1, "error,msg  or retcodeis null!\n"},
      {at_sm_getchar(nullptr),                             -1, "at_sm_getchar : error ,ch is NULL!\n"},
      {at_sm_is_rcv_buf_empty(nullptr),                    -1, "at_sm_is_rcv_buf_empty : error ,p_strm is NULL!\n"},
      {at_sm_get_buf(nullptr, 1),                          -1, "at_sm_getchar : error ,msg_buf is NULL or buf_length == 0\n"},
      {process_nas_queue(nullptr),                         -1, "Error: retcode is null\n"},
      {at_handshake(nullptr),                              -1, "at_handshake: retcode is NULL!"},
      {at_repetition_query(nullptr),                       -1, "at_repetition_query: retcode is NULL!"},
      {mdx_query_sysinfo(nullptr),                         -1, "mdx_query_sysinfo: retcode is NULL!"},
      {mdx_check_cimi(nullptr),                            -1, "mdx_check_cimi: retcode is NULL!"},
      {mdx_set_cops_format(nullptr),                       -1, "mdx_set_cops_format: retcode is NULL!\n"},
      {parse_response(nullptr),                            -1, "parse_response : error,msg is null!\n"},
      {at_send_normal_cmd_msg(nullptr, &value),            -1, "at_send_normal_cmd_msg: the msg is null and return\n"},
      {at_send_normal_cmd_msg(&msg, nullptr),              -1, "at_send_normal_cmd_msg: the msg is null and return\n"},
      {at_send_or_save_msg(nullptr, &value),               -1, "at_send_or_save_msg: the msg is null and return\n"},
      {at_send_or_save_msg(&msg, nullptr),                 -1, "at_send_or_save_msg: the msg is null and return\n"},
      {at_cmd_is_smssw(nullptr),                           -1, "at_cmd_is_smssw : error,cmd_buf is null!\n"},
      {process_msg_queue(nullptr),                         -1, "retcode is NULL!\n"},
      {get_report(nullptr, &value),                        -1, "get_report:error, pmsg is null!\n"},
      {get_report(&msg, nullptr),                          -1, "get_report:error, pmsg is null!\n"},
      {mdx_cmee(nullptr),                                  -1, "retcode is NULL!\n"},
      {mdx_set_ate(nullptr),                               -1, "mdx_set_ate: retcode is NULL!\n"},
      {mdx_set_srvst_unsolicited_enable(nullptr),          -1, "mdx_set_srvst_unsolicited_enable: retcode is NULL!\n"},
      {mdx_set_creg_unsolicited_enable(nullptr),           -1, "mdx_set_creg_unsolicited_enable: retcode is NULL!\n"},
      {mdx_set_cgreg_unsolicited_enable(nullptr),          -1, "mdx_set_cgreg_unsolicited_enable: retcode is NULL!\n"},
      {mdx_set_mode_unsolicited_enable(nullptr),           -1, "mdx_set_mode_unsolicited_enable: retcode is NULL!\n"},
      {mdx_set_unsolicited_enable(nullptr),                -1, "retcode is NULL!\n"},
      {mdx_get_data_from_nas(6, nullptr, 4),                1, "mdx_get_data_from_nas: Error, mdx_cb data is NULL\n"},
      {mdx_send_data_to_nas(nullptr, 2),                    0, ""},
      {mdx_send_data_to_nas("AT", 0),                       0, ""},
  };
  // clang-format on
  strings expected;
  for (const auto& c : cases) {
    EXPECT_EQ(c.result, c.expected) << c.trace;
    if (!c.trace.empty()) expected.push_back(c.trace);
  }
  EXPECT_EQ(fake::traces(), expected);

  EXPECT_EQ(atcmd_match_result(nullptr, &value), -1);
  EXPECT_EQ(atcmd_match_result(line, nullptr), -1);
  EXPECT_EQ(Is_report_msg(nullptr, line, 4, &value, &value), -1);
  EXPECT_EQ(Is_report_msg(&msg, nullptr, 4, &value, &value), -1);
  EXPECT_EQ(Is_report_msg(&msg, line, 4, nullptr, &value), -1);
  EXPECT_EQ(Is_report_msg(&msg, line, 4, &value, nullptr), -1);
  EXPECT_EQ(mdx_instant_update(nullptr), -1);
  EXPECT_EQ(value, 99);
  EXPECT_EQ(at_sm_is_rcv_buf_empty(&mdx_state.stream), -1) << "what was read is still there";
  EXPECT_THAT(fake::writes(), IsEmpty());
  EXPECT_EQ(mdx_state.msg_seq_counter, 0u);
}

}  // namespace
}  // namespace unit
