// SPDX-License-Identifier: Apache-2.0

// The server's own commands: what they send, and that only "OK" counts.
#include "server/modem_setup.h"

#include "tests/unit/server_test.h"

namespace unit {
namespace {

struct operation {
  int32_t (*run)(int*);
  std::string sent;
  std::string match;
};

class ModemSetup : public Server {
 protected:
  const operation operations[6] = {
      {mdx_cmee, "AT+CMEE=1\r", "+CMEE:"},
      {mdx_set_ate, "ATE0\r", "ATE0"},
      {mdx_set_srvst_unsolicited_enable, "AT^SRVST=1\r", "^SRVST"},
      {mdx_set_creg_unsolicited_enable, "AT+CREG=2\r", "+CREG"},
      {mdx_set_cgreg_unsolicited_enable, "AT+CGREG=2\r", "+CGREG"},
      {mdx_set_mode_unsolicited_enable, "AT^MODE=1\r", ""},
  };
  int retcode = 99;
};

TEST_F(ModemSetup, OnlyOkIsSuccess) {
  for (const operation& op : operations) {
    const std::string own_report = op.match + ": 1\r\n";
    const std::pair<fake::script, int32_t> cases[] = {
        {{{10, own_report + "^RSSI: 8\r\nOK\r\n"}}, 0},
        {{{10, own_report + "^RSSI: 8\r\nERROR\r\n"}}, -1},
        {{{10, "^RSSI: 8\r\n"}, {3001, "OK\r\n"}}, -1}};
    for (const auto& [modem, result] : cases) {
      bring_up();
      fake::answer("", modem);
      EXPECT_EQ(op.run(&retcode), result) << op.sent;
      EXPECT_EQ(retcode, 0) << op.sent;
      EXPECT_THAT(fake::writes(), ElementsAre(op.sent));
      EXPECT_THAT(fake::packets(), IsEmpty()) << op.sent << "no handler for its own report";
      EXPECT_EQ(stored_rssi(), "^RSSI: 8") << op.sent << "but for others";
      const strings told = fake::traces(8);
      EXPECT_EQ(std::count(told.begin(), told.end(), "at_send_normal_cmd_msg = 0\n"),
                op.run == mdx_cmee ? 0 : 1);
    }
  }
}

TEST_F(ModemSetup, EachTakesTheNextNumberEvenInVain) {
  mdx_state.msg_seq_counter = 255;
  for (const uint32_t seq : {256u, 0u, 1u}) {
    fake::fail.write = seq == 0 ? 1 : 0;
    fake::answer("", {{10, "OK\r\n"}});
    EXPECT_EQ(mdx_cmee(&retcode), seq == 0 ? -1 : 0);
    if (seq == 0) continue;
    const at_msg_t seen = mdx_state.last_nas_msg.load();
    EXPECT_EQ(seen.seq, seq);
    EXPECT_EQ(seen.msg_type, 5);
    EXPECT_EQ(seen.timeout, 3);
  }
}

TEST_F(ModemSetup, TheFourSwitchesAreTriedWhateverTheOthersDo) {
  const strings all = {"AT^SRVST=1\r", "AT+CREG=2\r", "AT+CGREG=2\r", "AT^MODE=1\r"};
  fake::answer("AT^MODE", {{10, "OK\r\n"}});
  EXPECT_EQ(mdx_set_unsolicited_enable(&retcode), 0) << "the last decides";
  EXPECT_EQ(fake::writes(), all);
  EXPECT_EQ(fake::now(), 10010u);

  bring_up();
  EXPECT_EQ(mdx_set_unsolicited_enable(&retcode), -1);
  EXPECT_EQ(fake::writes(), all);
  EXPECT_THAT(fake::traces(2), IsSupersetOf({"mdx_set_srvst_unsolicited_enable failed. \n",
                                             "mdx_set_creg_unsolicited_enable failed. \n",
                                             "mdx_set_cgreg_unsolicited_enable failed. \n",
                                             "mdx_set_mode_unsolicited_enable failed. \n"}));
}

}  // namespace
}  // namespace unit
