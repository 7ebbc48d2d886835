// SPDX-License-Identifier: Apache-2.0

// Asking the modem how it stands: what each answer leads to, and that what was done once is not
// done again.
#include "server/status_query.h"

#include "tests/unit/server_test.h"

namespace unit {
namespace {

constexpr char kOk[] = "\r\nOK\r\n";
constexpr char kError[] = "\r\nERROR\r\n";
constexpr char kIdentity[] = "\r\n262021234567890\r\n\r\nOK\r\n";
constexpr char kSilence[] = "";
const std::string kQuery = "AT^SYSINFO\r", kCimi = "AT+CIMI\r", kCops = "AT+COPS=3,2,,\r";

std::string sysinfo(const std::string& parameters) {
  return "\r\n^SYSINFO:" + parameters + "\r\n\r\nOK\r\n";
}

class StatusQuery : public Server {
 protected:
  /// One handshake with a modem that answers the three commands like this.
  int32_t handshake(const std::string& query, const std::string& cimi, const std::string& cops) {
    fake::journal.clear();
    const std::pair<const char*, const std::string&> answers[] = {
        {"AT^SYSINFO", query}, {"AT+CIMI", cimi}, {"AT+COPS", cops}};
    fake::on_write = [&](const std::string& written) {
      for (const auto& [start, bytes] : answers) {
        if (written.starts_with(start) && !bytes.empty()) fake::deliver({{5, bytes}});
      }
    };
    return at_handshake(&retcode);
  }
  static std::string text_of(const at_answer_t& report) { return report.snd_rcv_msg.rmsg; }
  int retcode = 99;
};

TEST_F(StatusQuery, EveryStepMayFail) {
  const std::string good = sysinfo("2,3,0,5,1,,4");
  // clang-format off
  const struct { const char* what; std::string query, cimi, cops; strings sent, errors; } cases[] = {
      {"no answer",     kSilence, kIdentity, kOk,    {kQuery},               {"Error = 0 , cmd =***\n", "Error:mdx_query_sysinfo,ret =-1", "mdx_query_sysinfo error and the retcode =0"}},
      {"refused",       kError,   kIdentity, kOk,    {kQuery},               {"Error:mdx_query_sysinfo,ret_val =5", "mdx_query_sysinfo error and the retcode =0"}},
      {"nothing told",  kOk,      kIdentity, kOk,    {kQuery},               {"get_wm_sysinfo at_cmd_parse error ,and the return = -1", "mdx_parse_sysinfo error and the retcode =0"}},
      {"no identity",   good,     kError,    kOk,    {kQuery, kCimi},        {"check the cimi is failed and the retcode =0"}},
      {"format silent", good,     kIdentity, kSilence, {kQuery, kCimi, kCops}, {"Error = 0 , cmd =***\n", "AT+COPS=3,2 send cmd error!\n", "check the current operater name is failed and the retcode =0"}},
      {"format refused", good,    kIdentity, kError, {kQuery, kCimi, kCops}, {"AT+COPS=3,2 set cmd error!\n", "check the current operater name is failed and the retcode =0"}},
  };
  // clang-format on
  for (const auto& c : cases) {
    bring_up();
    strings errors = c.errors;
    errors.emplace_back("at_repetition_query error and the retcode =0");
    EXPECT_EQ(handshake(c.query, c.cimi, c.cops), -1) << c.what;
    EXPECT_EQ(fake::writes(), c.sent) << c.what;
    EXPECT_EQ(fake::traces(2), errors) << c.what;
  }
}

TEST_F(StatusQuery, PreparationGoesOnWhereItFailedAndIsDoneOnce) {
  const std::string good = sysinfo("2,3,0,5,1,,4");
  EXPECT_EQ(handshake(good, kError, kOk), -1);
  EXPECT_EQ(handshake(good, kIdentity, kError), -1);
  EXPECT_THAT(text_of(mdx_state.cimi_report), testing::HasSubstr("262021234567890"));
  EXPECT_EQ(handshake(good, kError, kOk), 0) << "the identity is not asked for again";
  EXPECT_THAT(fake::writes(), ElementsAre(kQuery, kCops));
  EXPECT_EQ(handshake(good, kError, kError), 0);
  EXPECT_THAT(fake::writes(), ElementsAre(kQuery));

  EXPECT_EQ(handshake(kError, kOk, kOk), -1);
  EXPECT_EQ(text_of(mdx_state.sysinfo_report), "^SYSINFO:2,3,0,5,1,,4") << "the last good one";
}

TEST_F(StatusQuery, RoamingIsNotedInFullServiceAndTheSimAloneOpensThePreparation) {
  // clang-format off
  const struct { const char* parameters; int32_t roaming; bool prepares; } cases[] = {
      {"2,1,1,5,1,,4",   1, true },
      {" 2,3,1,3,1,3",   1, true },
      {"2,3,1,5,240,,4", 1, false},
      {"2,3,0,5,1,,4",   0, true },
      {"1,3,1,5,1,,4",   0, true },
      {"2,3,1,0,1,,4",   0, true },
      {"2,3,1,5,1",      0, true },
      {"2,3,1,5,0,,4",   0, false},
      {"2,3,1,5,4,,0",   0, false},
  };
  // clang-format on
  for (const auto& c : cases) {
    bring_up();
    EXPECT_EQ(handshake(sysinfo(c.parameters), kIdentity, kOk), 0) << c.parameters;
    EXPECT_EQ(mdx_state.last_roam_status, c.roaming) << c.parameters;
    EXPECT_EQ(fake::writes().size(), c.prepares ? 3u : 1u) << c.parameters;
    const strings told = fake::traces(8);
    EXPECT_EQ(
        std::count(told.begin(), told.end(), "current roam status is 1,last roam status is 0"),
        c.roaming)
        << c.parameters;
  }
}

}  // namespace
}  // namespace unit
