// SPDX-License-Identifier: Apache-2.0

// From the start of the process to its main loop: the order of things, what may fail, what is
// served when.
#include "server/mdxgate.h"

#include <unistd.h>

#include <array>

#include "tests/unit/server_test.h"

int mdxgate_main();

namespace unit {
namespace {

using fake::kind;

class Mdxgate : public testing::Test {
 protected:
  Mdxgate() {
    fake::reset();
    fake::forget_server();
  }

  /// Runs the process until nothing is left to happen.
  /// @return what main returned, 0 when it was still serving
  static int run() {
    try {
      return mdxgate_main();
    } catch (const fake::end_of_world&) {
      return 0;
    }
  }
  static void modem_answers() { fake::answer("AT+CMEE=1\r", {{5, "\r\nOK\r\n"}}); }
  static size_t count(const std::string& trace) {
    const strings all = fake::traces();
    return static_cast<size_t>(std::count(all.begin(), all.end(), trace));
  }
};

TEST_F(Mdxgate, StartsInThisOrder) {
  modem_answers();
  run();
  // clang-format off
  const strings order = {
      "mkdir /var/run/pidfile/ 750", "KRP_UTIL_RemoveAndroidWPerm /var/run/pidfile/ 750",
      "open /var/run/pidfile/mdxgate.pid",
      "KRP_UTIL_RemoveAndroidWPerm /var/run/pidfile/mdxgate.pid 640",
      "MDX_event_init 7",
      "MDX_get_msgQ_id 2", "MDX_msgQex_create 2 10 1600",
      "MDX_get_msgQ_id 1", "MDX_msgQex_create 1 10 1600",
      "MDX_get_msgQ_id 3", "MDX_msgQ_create 3 10 1516",
      "KRP_MSG_Init mdxgate", "MDX_pthread_create", "KRP_NOTIFYCLT_Init 31",
      "KRP_UTIL_DropAndroidRootPrivileges",
      "Q7_APP_RegCallBack 6", "write AT+CMEE=1\r", "cms 34820 ",
      "open /var/mdx_ready.flg", "KRP_UTIL_RemoveAndroidWPerm /var/mdx_ready.flg 664"};
  // clang-format on
  EXPECT_EQ(fake::lines({kind::CALL, kind::WRITE, kind::SERVICE, kind::SLEEP}), order);
  EXPECT_EQ(fake::file_content("/var/run/pidfile/mdxgate.pid"), std::to_string(getpid()));
  EXPECT_TRUE(fake::file_exists("/var/mdx_ready.flg"));
  EXPECT_EQ(fake::traces(2), strings{});
}

TEST_F(Mdxgate, OnlyWithoutNotificationsDoesTheProcessEnd) {
  // clang-format off
  const struct { fake::faults faults; const char* line; int result; } cases[] = {
      {{.files = "/var/run/pidfile/"},            "trace 2 mdxgate: pidfile folder create failed.\n",         0},
      {{.files = "/var/run/pidfile/"},            "mlog_print mdxgate mdx pidfile folder create failed.",     0},
      {{.files = "/var/run/pidfile/mdxgate.pid"}, "trace 16 mdxgate: open pid file failed.\n",                0},
      {{.files = "/var/run/pidfile/mdxgate.pid"}, "mlog_print mdxgate mdx open pid file failed.",             0},
      {{.queue_create = 2},                       "trace 2 mdxgate: Error: create msg queue failed\n",        0},
      {{.queue_create = 1},                       "trace 2 mdxgate: Error: create msg queue failed\n",        0},
      {{.queue_create = 3},                       "trace 2 mdxgate: Error: create msg queue failed\n",        0},
      {{.msg_init = true},                        "trace 2 mdxgate: KRP_MSG_Init failed!\n",                  0},
      {{.write = 1},                              "trace 2 mdxgate: Error:mdx_cmee failed, ret=-1\n",         0},
      {{.event_recv = 2},                         "trace 2 mdxgate: Error: Receive the event failed!\n",      0},
      {{.notify_init = true},                     "trace 2 mdxgate: KRP_NOTIFYCLT_Init failed!\n",           -1},
  };
  // clang-format on
  for (const auto& c : cases) {
    fake::reset();
    fake::forget_server();
    fake::fail = c.faults;
    modem_answers();
    EXPECT_EQ(run(), c.result) << c.line;
    EXPECT_THAT(fake::lines({kind::CALL, kind::TRACE}), Contains(c.line));
    EXPECT_EQ(fake::packets().size(), c.result == 0 ? 1u : 0u) << c.line << ": news to cms";
    EXPECT_EQ(fake::file_exists("/var/mdx_ready.flg"), c.result == 0) << c.line;
  }
}

TEST_F(Mdxgate, WhatCouldNotBeMadeHasNoId) {
  fake::forget_server();
  fake::fail.queue_create = 2;
  run();
  EXPECT_THAT((std::array{mdx_state.req_queue_id, mdx_state.rsp_queue_id, mdx_state.nas_queue_id}),
              testing::Each(-1));
}

TEST_F(Mdxgate, AReadyFlagThatCannotBeMadeGetsItsRightsAllTheSame) {
  fake::fail.files = "/var/mdx_ready.flg";
  testing::internal::CaptureStdout();
  run();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "mdx create ready flag file failed.\n");
  EXPECT_EQ(fake::lines({kind::CALL}).back(), "KRP_UTIL_RemoveAndroidWPerm /var/mdx_ready.flg 664");
}

TEST_F(Mdxgate, WhatAnEarlierRunLeftIsReplaced) {
  fake::make_directory("/var/run/pidfile");
  fake::make_file("/var/run/pidfile/mdxgate.pid", "1234567890123");
  fake::fail.queues_left = "213";
  run();
  EXPECT_EQ(fake::file_content("/var/run/pidfile/mdxgate.pid"), std::to_string(getpid()));
  const strings calls = fake::lines({kind::CALL});
  EXPECT_THAT(calls, Not(Contains("KRP_UTIL_RemoveAndroidWPerm /var/run/pidfile/ 750")))
      << "the folder keeps its rights";
  EXPECT_THAT(calls,
              IsSupersetOf({"MDX_msgQex_delete 2", "MDX_msgQex_delete 1", "MDX_msgQ_delete 3"}));
}

TEST_F(Mdxgate, WaitsForTheModemWhileRequestsPileUp) {
  fake::fail.bind_attempts = 3;
  modem_answers();
  for (uint32_t i = 1; i <= 12; ++i) {
    at_msg_t get = record({.req_type = GET_REPORT});
    get.rep_type = RSSI_REPORT;
    get.seq = i;
    fake::request(get, i);
  }
  fake::at(2500, [] { EXPECT_EQ(mdx_state.at_state, AT_INIT_S); });
  run();
  EXPECT_EQ(fake::lines({kind::SLEEP}), strings(3, "sleep 1000"));
  EXPECT_EQ(fake::replies().size(), 10u);
  EXPECT_THAT(fake::lines({kind::CALL}), Contains("refused 12"));
}

TEST_F(Mdxgate, AModemThatDoesNotAnswerDelaysTheStartThreeSeconds) {
  run();
  ASSERT_EQ(fake::packets().size(), 1u);
  EXPECT_EQ(fake::packets()[0].at, 4000u);
}

TEST_F(Mdxgate, AClientGoesBeforeReportsThatCameWithIt) {
  modem_answers();
  at_msg_t get = record({.req_type = GET_REPORT});
  get.rep_type = RSSI_REPORT;
  fake::deliver({{100, "^RSSI: 9\r\n"}});
  fake::at(100, [get] { fake::request(get); });
  run();
  ASSERT_EQ(fake::replies().size(), 1u);
  EXPECT_EQ(text_of(fake::replies()[0]), "^RSSI: 0") << "as it was before the report";
  EXPECT_EQ(stored_rssi(), "^RSSI: 9");
}

TEST_F(Mdxgate, AWakeUpWithoutWorkIsHarmless) {
  modem_answers();
  // A delivery that an exchange has read leaves its bit behind; so may a client.
  fake::at(100, [] { MDX_event_send(fake::kMainTask, 7); });
  fake::at(200, [] { MDX_event_send(fake::kMainTask, 4); });
  run();
  EXPECT_EQ(count("AT_PROCESS_CLIENT_S ----->AT_IDLE_S\n"), 1u);
  EXPECT_EQ(count("AT_PROCESS_NAS_S -->AT_IDLE_S\n"), 2u) << "one of them left by the set-up";
  EXPECT_EQ(count("No data from NAS!\n"), 0u) << "an empty queue is not even looked into";
  EXPECT_EQ(mdx_state.ring_head, mdx_state.ring_tail);
  EXPECT_EQ(mdx_state_pass(17), AT_IDLE_S) << "nor does a state that there is not";
}

TEST_F(Mdxgate, TheRingKeepsOneOfEachInOrder) {
  mdx_ring_push(2);
  EXPECT_EQ(mdx_state.ring_head, -1) << "not set up";
  for (int32_t start = 0; start < kStateRingSize; ++start) {
    mdx_state.ring_head = mdx_state.ring_tail = start;
    for (const int32_t value : {3, 2, 3, 4, 2}) mdx_ring_push(value);
    for (const int32_t value : {3, 2, 4}) EXPECT_EQ(mdx_ring_pop(), value);
    EXPECT_EQ(mdx_state.ring_head, mdx_state.ring_tail);

    for (int32_t value = 0; value < 40; ++value) mdx_ring_push(value);
    for (int32_t value = 0; value < 31; ++value) EXPECT_EQ(mdx_ring_pop(), value);
    EXPECT_EQ(mdx_state.ring_head, mdx_state.ring_tail) << "31 entries fit";
  }
}

TEST_F(Mdxgate, TheOrderlyStopTakesDownQueuesThenThread) {
  run();
  fake::journal.clear();
  mdx_exit();
  EXPECT_THAT(fake::lines({kind::CALL, kind::TRACE}),
              ElementsAre("MDX_msgQex_delete 2", "MDX_msgQex_delete 1", "MDX_msgQ_delete 3",
                          "trace 8 mdxgate: MdxGate message queue destoried!\n", "pthread_join",
                          "trace 8 mdxgate: MdxGate exit!\n"));
  EXPECT_EQ(mdx_state.msgproc_thread, pthread_t{});
}

}  // namespace
}  // namespace unit
