// SPDX-License-Identifier: Apache-2.0

// The words of these tests: a server whose queues and channel are up, what clients ask, what the
// modem says, and what came of it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "server/at_parser.h"
#include "server/at_stream.h"
#include "tests/fake_platform/server_on_fake.h"
#include "tests/record_image.h"

namespace unit {

using namespace std::string_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;
using strings = std::vector<std::string>;

/// What a client fills in; a test names what it cares about.
struct ask {
  std::string text = "AT";
  uint32_t req_type = NORMAL_CMD;
  int32_t multi_line = 0;
  std::string match = {};
  int32_t timeout = 3;
  int32_t cmd_len = 0;
};

inline at_msg_t record(const ask& a) {
  at_msg_t msg;
  std::memset(&msg, 0, sizeof msg);
  msg.msg_type = 77;
  msg.req_type = a.req_type;
  msg.multi_line = a.multi_line;
  msg.timeout = a.timeout;
  a.match.copy(msg.at_match_str, kMatchSize - 1);
  a.text.copy(msg.snd_rcv_msg.rmsg, MAX_ATCMD_REPORT_SIZE - 1);
  if (a.cmd_len != 0) msg.snd_rcv_msg.command.cmd_len = a.cmd_len;
  return msg;
}

inline std::string text_of(const char* text, size_t size) { return {text, strnlen(text, size)}; }
inline std::string text_of(const at_msg_t& msg) {
  return text_of(msg.snd_rcv_msg.rmsg, MAX_ATCMD_REPORT_SIZE);
}

/// The modem's last ^RSSI line, as clients get it: the report whose handler leaves a mark in the
/// server.
inline std::string stored_rssi() {
  return text_of(mdx_rssi_report.snd_rcv_msg.rmsg, MAX_ATCMD_REPORT_SIZE);
}

class Server : public testing::Test {
 protected:
  Server() { bring_up(); }

  static void bring_up(uint32_t clock = 1000) {
    fake::reset(clock);
    fake::bring_up_server();
  }

  /// One delivery, taken into the receive stream.
  static void read(const std::string& delivery, at_msg_t* msg) {
    int retcode = 0;
    ASSERT_EQ(mdx_get_data_from_nas(0, delivery.data(), static_cast<uint32_t>(delivery.size())), 0);
    ASSERT_EQ(read_from_smd(msg, &retcode), 0);
  }

  /// The record after these deliveries have been read and parsed, as an exchange does it.
  static at_msg_t answered(const ask& a, const strings& deliveries) {
    at_msg_t msg = record(a);
    msg.ret_val = AT_NONE;
    std::memset(mdx_state.sent_cmd_head, 0, kSentHeadSize);
    a.text.copy(mdx_state.sent_cmd_head, kSentHeadSize - 1);
    for (const std::string& delivery : deliveries) {
      read(delivery, &msg);
      EXPECT_EQ(parse_response(&msg), 0);
    }
    return msg;
  }
};

/// A server and one exchange with its modem.
class Exchanging : public Server {
 protected:
  at_msg_t msg = {};
  int retcode = 0;
  uint64_t took = 0;

  int run(int32_t (*exchange)(at_msg_t*, int*), const ask& asked) {
    msg = record(asked);
    retcode = 99;
    const uint64_t start = fake::now();
    const int result = exchange(&msg, &retcode);
    took = fake::now() - start;
    return result;
  }
};

}  // namespace unit
