// SPDX-License-Identifier: Apache-2.0

// What reaches the modem of a text, and what the message procedure makes of the bus.
#include "server/write_to_smd.h"

#include "server/mdx_msgproc.h"
#include "tests/unit/server_test.h"

namespace unit {
namespace {

class WriteToSmd : public Server {};

TEST_F(WriteToSmd, TrimsAndEndsInOneCr) {
  const std::string x638(638, 'x');
  // clang-format off
  const struct { std::string text; size_t length; std::string sent; } cases[] = {
      {"AT\r\n\0"s,       5,   "AT\r"},
      {"ATD1;",           3,   "ATD\r"},           // the length stops short
      {"AT\0\0\0"s,       5,   "AT\r"},            // the length runs past the NUL
      {"AT\0I"s,          4,   "AT\0I\r"s},
      {"\r\n\0"s,         3,   "\r"},
      {"",                0,   "\r"},
      {"A\rB\nC\r",       6,   "A\rB\nC\r"},       // inside it stays
      {"AT ",             3,   "AT \r"},
      {x638 + "y",                     639, x638 + "\r"},
      {x638 + "\n",                    639, x638 + "\r"},
      {std::string(600, 'x') + std::string(100, '\n'), 700, std::string(600, 'x') + "\r"},
  };
  // clang-format on
  for (const auto& c : cases) {
    fake::journal.clear();
    int retcode = 99;
    EXPECT_EQ(write_to_smd(c.text.c_str(), &retcode, static_cast<uint32_t>(c.length)), 0);
    EXPECT_THAT(fake::writes(), ElementsAre(c.sent)) << testing::PrintToString(c.text);
    EXPECT_EQ(retcode, 99) << "a success leaves it alone";
  }
}

TEST_F(WriteToSmd, SaysWhyNothingWasSent) {
  int retcode = 99;
  EXPECT_EQ(write_to_smd("AT", nullptr, 2), -1);
  EXPECT_EQ(write_to_smd(nullptr, &retcode, 2), -1);
  EXPECT_EQ(retcode, 22);
  EXPECT_THAT(fake::traces(2), ElementsAre("retcode NULL!\n", "Error:patcmd is NULL!\n"));

  fake::journal.clear();
  retcode = 99;
  fake::fail.write = 1;
  EXPECT_EQ(write_to_smd("AT", &retcode, 2), -1);
  mdx_state.g_mdx_send_data_to_nas = nullptr;
  EXPECT_EQ(write_to_smd("AT", &retcode, 2), -1);
  EXPECT_EQ(retcode, 99) << "a failed send leaves it alone";
  EXPECT_THAT(fake::traces(2), ElementsAre("mdxgate: Send at command AT\r error!\n",
                                           "Error: Send cmd to NAS failed\n",
                                           "mdxgate: Send g_mdx_send_data_to_nas is NULL!\n",
                                           "Error: Send cmd to NAS failed\n"));
  EXPECT_THAT(fake::writes(), IsEmpty());
}

class MsgProc : public Server {};

TEST_F(MsgProc, UninstallEndsTheBindingEachTimeAndNothingElseDoes) {
  EXPECT_THROW(mdx_msgproc_thread(), fake::thread_ended);
  fake::bus_message(0x8805, 4);
  fake::bus_message(0x8805, 0);
  fake::bus_message(0x8804, 0);
  mdx_msgproc(nullptr);
  EXPECT_THAT(fake::lines({fake::kind::CALL}),
              ElementsAre("KRP_MSG_RegisterMsgProc", "KRP_UTIL_SockBaseStart 0", "pthread_exit",
                          "Q7_App_Ungister", "Q7_App_Ungister", "KRP_MSG_DefaultMsgProc"));
  EXPECT_THAT(fake::traces(), IsSupersetOf({"mdx_msgproc(): msg length=4.\n"s,
                                            "mdx_msgproc(): unexpected message type 8804\n"s,
                                            "mdx_msgproc(): NULL==packet\n"s}));
  int retcode = 0;
  EXPECT_EQ(write_to_smd("AT", &retcode, 2), -1) << "nothing can be sent any more";
}

}  // namespace
}  // namespace unit
