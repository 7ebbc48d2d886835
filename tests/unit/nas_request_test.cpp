// What the modem says by itself, with nobody waiting.
#include "server/nas_request.h"

#include "tests/unit/server_test.h"

namespace unit {
namespace {

class NasRequest : public Server {};

TEST_F(NasRequest, WorksOffAllThatIsQueuedAndNeverWaits) {
  // clang-format off
  const struct { const char* what; fake::script deliveries; int result; std::string rssi; } cases[] = {
      {"nothing",     {},                                                                  -1, ""},
      {"three",       {{0, "^RSSI: 1\r\n"}, {0, "^RSSI: 2\r\n"}, {0, "^RSSI: 3\r\n"}},      0, "^RSSI: 3"},
      {"two in one",  {{0, "^RSSI: 1\r\n^RSSI: 2\r\n"}},                                    0, "^RSSI: 2"},
      {"later",       {{0, "^RSSI: 1\r\n"}, {1, "^RSSI: 2\r\n"}},                           0, "^RSSI: 1"},
      {"unknown",     {{0, "^WHAT: 1\r\n+EVER\r\n^RSSI: 4\r\n"}},                           0, "^RSSI: 4"},
  };
  // clang-format on
  for (const auto& c : cases) {
    bring_up();
    fake::deliver(c.deliveries);
    int retcode = 99;
    EXPECT_EQ(process_nas_queue(&retcode), c.result) << c.what;
    EXPECT_EQ(stored_rssi(), c.rssi) << c.what;
    EXPECT_EQ(fake::now(), 1000u) << c.what;
    EXPECT_EQ(fake::traces(4).back(), "No data from NAS!\n") << c.what;
    EXPECT_EQ(mdx_state.nas_response_legth, 0) << c.what << ": no text for the next client";
    EXPECT_THAT(fake::writes(), IsEmpty()) << c.what;
    EXPECT_THAT(fake::replies(), IsEmpty()) << c.what;
  }
}

}  // namespace
}  // namespace unit
