// SPDX-License-Identifier: Apache-2.0

// mdxctl watch: packets in words.

#include <gmock/gmock.h>

#include "tools/words/packet_text.h"
#include "wire/call_records.h"
#include "wire/destinations.h"
#include "wire/report_records.h"

namespace {

using ::testing::HasSubstr;

mdx_packet_t packet_of(uint32_t kind, uint32_t type, uint32_t module, const char* to = "") {
  mdx_packet_t packet = MDX_PACKET_INIT;
  packet.kind = kind;
  packet.type = type;
  packet.module = module;
  snprintf(packet.to, sizeof(packet.to), "%s", to);
  return packet;
}

template <typename T>
mdx_packet_t with_record(mdx_packet_t packet, const T& record) {
  packet.payload = &record;
  packet.length = sizeof(record);
  return packet;
}

TEST(PacketText, NumbersKeepSignAndWidth) {
  const at_hcsq_info hcsq = {-1, 51, 52, INT32_MIN, INT32_MAX, 0};
  EXPECT_EQ(packet_line(with_record(packet_of(2, EVT_AT_HCSQ, 19), hcsq)),
            "NOTIFY_MODULE_19 EVT_AT_HCSQ sysmode=-1 value1=51 value2=52 value3=-2147483648 "
            "value4=2147483647 value5=0");
  at_dsflow_info flow{};
  flow.tx_rate = UINT32_MAX;
  flow.curr_rx_flow = UINT64_MAX;
  const std::string line = packet_line(with_record(packet_of(2, EVT_AT_FLOW_REPORT, 18), flow));
  EXPECT_THAT(line, HasSubstr(" tx_rate=4294967295 B/s "));
  EXPECT_THAT(line, HasSubstr(" curr_rx_flow=18446744073709551615 B "));
}

TEST(PacketText, SignalIsToldInDbmWhereTheCodesCanBe) {
  // clang-format off
  const struct { at_hcsq_info info; const char* signal; } cases[] = {
    {{2, 40, 52, 121, 28, 0},     R"({"technology":"LTE","rssi_dbm":-81.0,"rscp_dbm":null,"ecio_db":null,"rsrp_dbm":-89.0,"rsrq_db":-6.0,"sinr_db":4.0})"},
    {{1, 42, 97, INT32_MIN, 1, 1}, R"({"technology":"WCDMA","rssi_dbm":-79.0,"rscp_dbm":null,"ecio_db":null,"rsrp_dbm":null,"rsrq_db":null,"sinr_db":null})"},
    {{-1, 42, 42, 42, 42, 0},     R"({"technology":null,"rssi_dbm":null,"rscp_dbm":null,"ecio_db":null,"rsrp_dbm":null,"rsrq_db":null,"sinr_db":null})"},
  };
  // clang-format on
  for (const auto& c : cases) {
    EXPECT_EQ(packet_json(with_record(packet_of(2, EVT_AT_HCSQ, 19), c.info))["signal"].dump(),
              c.signal);
  }
}

TEST(PacketText, TextsAreShownWholeAndHarmless) {
  at_ussd_info ussd{};
  std::memcpy(ussd.cusdStr, "a\0\x1b[\"\xe9", 7);
  ussd.cusdStrLen = 6;
  const mdx_packet_t packet = with_record(packet_of(2, EVT_AT_USSD, 2), ussd);
  EXPECT_THAT(packet_line(packet), HasSubstr(R"(cusdStr="a\x00\x1b[\x22\xe9" cusdStrLen=6 B)"));
  EXPECT_EQ(packet_json(packet)["fields"]["cusdStr"], std::string("a\0\x1b[\"\xe9", 6));

  mdx_caller_record_t full{};
  std::memset(full.number, '9', sizeof(full.number));
  mdx_packet_t voice = with_record(packet_of(3, VOICE_MSG, 0, "voice"), full);
  voice.a = VOICE_CLIP;
  EXPECT_EQ(packet_json(voice)["fields"]["number"], std::string(32, '9')) << "no NUL, no overrun";
}

TEST(PacketText, ModuleAndLengthTellEventsApart) {
  mdx_packet_t factory = packet_of(2, 9004, 9);
  factory.a = 1;
  EXPECT_EQ(packet_line(factory), "RUT_MDL_DEVICE EVT_AT_FACTORY value=1");
  const at_norstfact_info info{5};
  EXPECT_EQ(packet_line(with_record(packet_of(2, 9004, 74), info)),
            "NOTIFY_MODULE_74 EVT_AT_NORSTFACT value=5");
  const at_sms_index_info index{0, "SM", 3};
  EXPECT_EQ(packet_json(with_record(packet_of(2, EVT_AT_SMS_NEW, 1), index))["fields"].dump(),
            R"({"id":0,"mem":"SM","index":3})");
}

TEST(PacketText, FieldsAreForCallersOfAnyVersion) {
  const at_norstfact_info info{5};
  mdx_packet_t packet = with_record(packet_of(2, 9004, 74), info);
  struct {
    mdx_field_t known = MDX_FIELD_INIT;
    int64_t added = 7;
  } newer;
  newer.known.size = sizeof(newer);
  EXPECT_EQ(mdx_packet_field(&packet, 0, &newer.known), MDX_OK);
  EXPECT_EQ(newer.known.number, 5);
  EXPECT_EQ(newer.added, 7) << "not the library's";
  EXPECT_EQ(mdx_packet_field(&packet, 1, &newer.known), MDX_ERR_ARGUMENT) << "there is one";
  newer.known.size = offsetof(mdx_field_t, length);
  EXPECT_EQ(mdx_packet_field(&packet, 0, &newer.known), MDX_ERR_ARGUMENT);
  packet.payload = nullptr;
  EXPECT_EQ(mdx_packet_name(&packet), nullptr) << "a length without a payload";
  EXPECT_EQ(mdx_packet_field(&packet, 0, &newer.known), MDX_ERR_ARGUMENT);
}

TEST(PacketText, UnknownsKeepTheirBytes) {
  const unsigned char bytes[] = {0, 0xff, 0x1a};
  mdx_packet_t longer = with_record(packet_of(1, DIALUP_MSG_V4_UP, 0, "dialup"), bytes);
  EXPECT_EQ(packet_line(longer), "dialup DIALUP_MSG_V4_UP a=0 b=0 payload=00ff1a");
  mdx_packet_t strange = with_record(packet_of(2, 12345, 99), bytes);
  strange.a = -1;
  strange.lost = 2;
  EXPECT_EQ(packet_line(strange),
            "module 99 notification 12345 a=-1 b=0 payload=00ff1a (behind 2 lost)");
  EXPECT_EQ(packet_json(strange)["event"], nullptr);
  EXPECT_EQ(packet_line(packet_of(1, DIALUP_MSG_V4_UP, 0, "cms")), "cms service 166657 a=0 b=0");
  EXPECT_EQ(packet_line(packet_of(9, 1, 0, "x")), "x unknown 1 a=0 b=0");
}

}  // namespace
