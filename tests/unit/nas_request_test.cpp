// What the modem says by itself, with nobody waiting.
#include "server/nas_request.h"

#include "tests/unit/server_test.h"

namespace unit {
namespace {

class NasRequest : public Server {
 protected:
  int retcode = 99;
  int work_off(const fake::script& deliveries) {
    fake::deliver(deliveries);
    return process_nas_queue(&retcode);
  }
};

TEST_F(NasRequest, WorksOffAllThatIsQueuedAndNeverWaits) {
  // clang-format off
  const struct { const char* what; fake::script deliveries; int result; std::string rssi; } cases[] = {
      {"nothing",     {},                                                                  -1, ""},
      {"one",         {{0, "^RSSI: 1\r\n"}},                                                0, "^RSSI: 1"},
      {"three",       {{0, "^RSSI: 1\r\n"}, {0, "^RSSI: 2\r\n"}, {0, "^RSSI: 3\r\n"}},      0, "^RSSI: 3"},
      {"two in one",  {{0, "^RSSI: 1\r\n^RSSI: 2\r\n"}},                                    0, "^RSSI: 2"},
      {"later",       {{0, "^RSSI: 1\r\n"}, {1, "^RSSI: 2\r\n"}},                           0, "^RSSI: 1"},
      {"empty",       {{0, ""}},                                                            0, ""},
      {"unknown",     {{0, "^WHAT: 1\r\n+EVER\r\n^RSSI: 4\r\n"}},                           0, "^RSSI: 4"},
  };
  // clang-format on
  for (const auto& c : cases) {
    bring_up();
    EXPECT_EQ(work_off(c.deliveries), c.result) << c.what;
    EXPECT_EQ(stored_rssi(), c.rssi) << c.what;
    EXPECT_EQ(fake::now(), 1000u) << c.what;
    EXPECT_EQ(fake::traces(4).back(), "No data from NAS!\n") << c.what;
    EXPECT_EQ(mdx_state.nas_response_legth, 0) << c.what << ": no text for the next client";
    EXPECT_THAT(fake::writes(), IsEmpty()) << c.what;
    EXPECT_THAT(fake::replies(), IsEmpty()) << c.what;
  }
  EXPECT_EQ(retcode, 99);
}

TEST_F(NasRequest, AStrayResultLeavesTheNextAnswerAlone) {
  EXPECT_EQ(work_off({{0, "stray\r\nOK\r\n"}}), 0);
  EXPECT_THAT(fake::replies(), IsEmpty());
  const at_msg_t msg = answered({.text = "AT+CSQ"}, {"+CSQ: 1\r\nOK\r\n"});
  EXPECT_EQ(text_of(msg), "+CSQ: 1");
}

}  // namespace
}  // namespace unit
