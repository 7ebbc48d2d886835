// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxsim/living_modem.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "tools/line/escape.h"

namespace mdxsim {
namespace {

using namespace std::string_literals;
using testing::HasSubstr;
using testing::Not;

constexpr std::string_view kPdu = "0001000B914497381100000000A054747A0E4ACF41";
const std::string kOk = "\r\nOK\r\n";

LivingOptions quiet() {
  LivingOptions options;
  options.report_interval = Time{0};
  return options;
}

// A host that has the device open, with echo off.
class Host {
 public:
  explicit Host(LivingOptions options = quiet()) : modem(options) {
    modem.attached(now);
    modem.state.echo = false;
  }

  // What the modem says to these bytes without time going by.
  std::string say(std::string_view bytes) {
    modem.receive(bytes, now);
    return hear(Time{0});
  }

  // What it says within that time.
  std::string hear(Time duration) {
    std::string heard;
    for (const Time end = now + duration; true; now += Time{1}) {
      modem.advance(now);
      heard += modem.transmit(now);
      if (now == end) return heard;
    }
  }

  Time now{0};
  LivingModem modem;
};

std::string lines(std::string_view text) { return "\r\n" + std::string(text) + "\r\n" + kOk; }

TEST(LivingModem, CommandLines) {
  // clang-format off
  const struct { std::string_view sent; std::string answer; } cases[] = {
      {"\r",                            ""                                         },
      {"hello\r",                       ""                                         },
      {"AT\r",                          kOk                                        },
      {"at+csq\r",                      lines("+CSQ: 20,99")                       },
      {" AT + CSQ \r\n",                lines("+CSQ: 20,99")                       },
      {"AX\bT+CSQ\r",                   lines("+CSQ: 20,99")                       },
      {"AT+CSQX\r",                     "\r\nERROR\r\n"                            },
      {"AT&&;=\r",                      "\r\nERROR\r\n"                            },
      {"ATZ E0 V1 +CMEE=1\r",           kOk                                        },
      {"AT+COPS=3,2,,;+COPS?\r",        lines("+COPS: 0,2,\"00101\",2")            },
      {"AT+CIMI;+NOSUCH;+CSQ\r",        "\r\n001010123456789\r\n\r\nERROR\r\n"     },
      {"AT+CREG=2;+CREG?\r",            lines("+CREG: 2,1,\"007C\",\"00B19502\"")  },
      {"ATV0\r",                        "0\r"                                      },
      {"AT+CMEE=1;+NOSUCH\r",           "\r\n+CME ERROR: 4\r\n"                     },
      {"AT+CMEE=2;+NOSUCH\r",           "\r\n+CME ERROR: operation not supported\r\n"},
      {"AT+CMEE=1;+CREG=9\r",           "\r\n+CME ERROR: 50\r\n"                    },
      {"AT+CMGR=7\r",                   "\r\n+CMS ERROR: 321\r\n"                   },
      {"ATD*99***1#\r",                 "\r\nCONNECT 7200000\r\n"                  },
      {"ATD;\r",                        "\r\nERROR\r\n"                            },
  };
  // clang-format on
  for (const auto& [sent, answer] : cases) {
    EXPECT_EQ(escape(Host().say(sent)), escape(answer)) << escape(sent);
  }
}

TEST(LivingModem, TheSimGivesNothingUnlessItIsThereAndOpen) {
  LivingOptions locked = quiet();
  locked.pin = "1234";
  EXPECT_EQ(Host(locked).say("AT+CMEE=1;+CIMI\r"), "\r\n+CME ERROR: 11\r\n");
  EXPECT_EQ(Host(locked).say("AT+CMEE=1;+CPIN=\"0000\"\r"), "\r\n+CME ERROR: 16\r\n");
  EXPECT_EQ(Host(locked).say("AT+CPIN=\"1234\";+CPIN?\r"), lines("+CPIN: READY"));
  Host wrong(locked);
  wrong.say("AT+CMEE=1;+CPIN=\"1\"\rAT+CPIN=\"2\"\r");
  EXPECT_EQ(wrong.say("AT+CFUN=1,1;E0;+CPINR=\"SIM PIN\"\r"), lines("+CPINR: SIM PIN,1,3"));
  EXPECT_EQ(wrong.say("AT+CMEE=1;+CPIN=\"3\"\r"), "\r\n+CME ERROR: 16\r\n");
  EXPECT_EQ(wrong.say("AT+CPIN=\"1234\"\rAT+CIMI\rAT+CMGR=1\r"),
            "\r\n+CME ERROR: 16\r\n\r\n+CME ERROR: 12\r\n\r\n+CMS ERROR: 316\r\n");
  EXPECT_EQ(wrong.say("AT+CPIN?;+CPINR\r"),
            "\r\n+CPIN: SIM PUK\r\n\r\n+CPINR: SIM PIN,0,3\r\n\r\n+CPINR: SIM PUK,9,10\r\n" + kOk);
  EXPECT_EQ(wrong.say("AT+CPIN=\"12345678\",\"77\";+CFUN=1,1;E0;+CPIN=\"77\";+CPINR=\"SIM*\"\r"),
            "\r\n+CPINR: SIM PIN,3,3\r\n\r\n+CPINR: SIM PUK,10,10\r\n" + kOk);
  LivingOptions empty = quiet();
  empty.sim_inserted = false;
  EXPECT_EQ(Host(empty).say("AT+CMEE=1;+CPIN?\r"), "\r\n+CME ERROR: 10\r\n");
}

TEST(LivingModem, EchoesUntilE0) {
  Host host;
  EXPECT_EQ(host.say("ATE1\r"), kOk);
  EXPECT_EQ(host.say("AT+CMGS=20\r"), "AT+CMGS=20\r\r\n> ");
  EXPECT_EQ(host.say("0001\x1b\r"), "0001\x1b" + kOk);
  EXPECT_EQ(host.say("ATE0\r"), "ATE0\r" + kOk);
  EXPECT_EQ(host.say("AT\r"), kOk);
}

TEST(LivingModem, MessageDialogue) {
  const std::string pdu(kPdu);
  const std::string sent = lines("+CMGS: 31");
  const std::string invalid = "\r\n+CMS ERROR: 304\r\n";
  // clang-format off
  const struct { std::string_view head; std::string body; std::string answer; } cases[] = {
      {"AT+CMGS=21\r", pdu + "\x1a\r",                   invalid          },
      {"AT+CMGS=20\r", pdu.substr(1) + "\x1a\r",         invalid          },
      {"AT+CMGS=20\r", "G" + pdu.substr(1) + "\x1a",     invalid          },
      {"AT+CMGS=20\r", std::string(100000, '0') + "\x1a", invalid         },
      {"AT+CMGS=20\r", pdu + "\x1b\r",                   kOk              },
      {"AT+CMGS=20\r", pdu + "\x1a\r",                   sent             },
      {"AT+CMGS=20\r", pdu + "\x1a" "AT\r",              sent + kOk       },
      {"AT+CMGF=1;+CMGS=\"+4912\"\r", "hi\rthere\x1a\r", "\r\n> " + sent  },
  };
  // clang-format on
  for (const auto& [head, body, answer] : cases) {
    Host host;
    EXPECT_EQ(host.say(head), "\r\n> ") << head;
    EXPECT_EQ(escape(host.say(body)), escape(answer)) << head << escape(body.substr(0, 80));
  }
  for (const auto* head : {"AT+CMGS=\r", "AT+CMGS=0\r", "AT+CMGS=165\r", "AT+CMGS=\"+49\"\r"}) {
    EXPECT_EQ(Host().say(head), invalid) << head;
  }
}

TEST(LivingModem, AFullStoreRefusesMessages) {
  Host host;
  const std::string store = "AT+CMGW=20\r" + std::string(kPdu) + "\x1a";
  for (int index = 2; index <= MessageStore::kCapacity; ++index)  // one is there from the start
    ASSERT_EQ(host.say(store), "\r\n> " + lines("+CMGW: " + std::to_string(index)));
  EXPECT_EQ(host.say(store), "\r\n> \r\n+CMS ERROR: 322\r\n");
  EXPECT_EQ(host.say("AT+CMGD=7\r"), kOk);
  EXPECT_EQ(host.say(store), "\r\n> " + lines("+CMGW: 7"));
}

TEST(LivingModem, SlowAnswersHoldUpAnswersButNotReports) {
  LivingOptions options = quiet();
  options.scan_time = Time{2000};
  options.answer_delay = Time{100};
  Host host(options);
  host.hear(Time{5000});
  EXPECT_EQ(host.say("AT+CUSD=1,\"*100#\"\rAT+COPS=?\rAT+CSQ\r"), "");
  EXPECT_EQ(host.hear(Time{99}), "");
  EXPECT_EQ(host.hear(Time{1}), kOk);
  EXPECT_THAT(host.hear(Time{2000}), testing::StartsWith("\r\n+CUSD: 0,\"Your balance"));
  EXPECT_THAT(host.hear(Time{100}), HasSubstr("+COPS: (2,\"Example Mobile\""));
  EXPECT_EQ(host.hear(Time{100}), lines("+CSQ: 20,99"));
}

TEST(LivingModem, ThePhoneBookIsReadAndWritten) {
  Host host;
  EXPECT_EQ(host.say("AT+CPBW=,\"4930123\",145,\"Carol\"\rAT+CPBR=2,20\r"),
            kOk + lines("+CPBR: 2,\"5550112\",129,\"Bob\"\r\n+CPBR: 3,\"+4930123\",145,\"Carol\""));
  EXPECT_EQ(host.say("AT+CSCS=\"UCS2\";+CPBF=\"00430061\"\r"),
            lines("+CPBF: 3,\"+4930123\",145,\"004300610072006F006C\""));
  EXPECT_EQ(host.say("AT+CPBW=3;+CPBS?\r"), lines("+CPBS: \"SM\",2,20"));
}

TEST(LivingModem, MessagesComeInAsTheHostWantsThem) {
  const std::string to_itself = "AT+CMGF=1;+CMGS=\"+15550100\"\r";
  Host host;
  host.say(to_itself);
  host.say("Hello\x1a");
  EXPECT_EQ(host.hear(Time{1500}), "") << "not told of unless asked for";
  EXPECT_EQ(host.say("AT+CNMI=2,1,2,1,0;+CNMI=,,,2;+CNMI?\r"), lines("+CNMI: 2,1,2,2,0"));
  host.say(to_itself);
  host.say("Hello\x1a");
  EXPECT_EQ(host.hear(Time{1500}), "\r\n+CMTI: \"SM\",3\r\n");
  EXPECT_EQ(host.say("AT+CMGR=3\r"),
            lines("+CMGR: \"REC UNREAD\",\"+15550100\",,\"24/01/01,01:00:01+04\"\r\nHello"));
  host.say("AT+CNMI=2,2\r" + to_itself);
  host.say("Hello\x1a");
  EXPECT_EQ(host.hear(Time{1500}),
            "\r\n+CMT: \"+15550100\",,\"24/01/01,01:00:03+04\"\r\nHello\r\n");
  host.say("AT+CNMI=2,1\r" + to_itself);
  host.say("\x1a");
  EXPECT_EQ(host.hear(Time{1500}), "\r\n+CMTI: \"SM\",4\r\n") << "an empty one, too";
}

TEST(LivingModem, ADeliveryIsReportedToWhoAskedForIt) {
  const std::string reported = "0021" + std::string(kPdu.substr(4)) + "\x1a";
  Host host;
  const auto send = [&](const std::string& settings) {
    host.say("AT+CNMI=2,0,0," + settings + ";+CMGS=20\r");
    const std::string answer = host.say(reported);
    return answer + host.hear(Time{1500});
  };
  EXPECT_EQ(send("0"), lines("+CMGS: 31"));
  const std::string told = send("1");
  EXPECT_THAT(told, HasSubstr("\r\n+CDS: 25\r\n0006200B914497381100F0"));
  EXPECT_TRUE(told.ends_with("00\r\n")) << told;
  EXPECT_EQ(host.say("AT+CNMA\r"), "\r\n+CMS ERROR: 340\r\n") << "not in phase 2";
  EXPECT_THAT(send("2"), HasSubstr("\r\n+CDSI: \"SM\",2\r\n"));
  host.say("AT+CSMS=1\r");
  send("1");
  EXPECT_EQ(host.say("AT+CNMA\r"), kOk);
  EXPECT_EQ(host.say("AT+CNMA\r"), "\r\n+CMS ERROR: 340\r\n");
}

TEST(LivingModem, TheNetworkFollowsSimAndRadio) {
  Host host;
  EXPECT_EQ(host.say("AT+CREG=1;+CFUN=4;+CREG?;+CGATT?\r"),
            "\r\n+CREG: 1,0\r\n\r\n+CGATT: 0\r\n" + kOk);
  EXPECT_EQ(host.say("AT+CSQ\rATD*99#\r"), lines("+CSQ: 99,99") + "\r\nNO CARRIER\r\n");
  EXPECT_THAT(host.hear(Time{5}), HasSubstr("^SRVST:2\r\n\r\n^MODE:0,0\r\n\r\n+CREG: 0\r\n"));
  EXPECT_EQ(host.say("ATD1;\rAT+CMGS=20\r"), "\r\nNO CARRIER\r\n\r\n+CMS ERROR: 331\r\n");
  EXPECT_EQ(host.say("AT+CFUN=1;+CREG?\r"), lines("+CREG: 1,2"));
  EXPECT_THAT(host.hear(Time{1000}), HasSubstr("^SRVST:1\r\n\r\n^MODE:5,4\r\n\r\n+CREG: 1\r\n"));
  EXPECT_EQ(host.say("AT+CGACT=1,1;+CGPADDR=1\r"), lines("+CGPADDR: 1,\"10.0.0.2\""));
  LivingOptions locked = quiet();
  locked.pin = "1234";
  Host with_pin(locked);
  EXPECT_EQ(with_pin.say("AT+CREG?;+CPIN=\"1234\"\r"), lines("+CREG: 0,0"));
  with_pin.hear(Time{1000});
  EXPECT_EQ(with_pin.say("AT+CREG?;+CFUN=1,1;+CPIN?\r"),
            "\r\n+CREG: 0,1\r\n\r\n+CPIN: SIM PIN\r\n" + kOk);
}

TEST(LivingModem, SomebodyCalls) {
  LivingOptions options = quiet();
  options.call_interval = Time{10000};
  Host host(options);
  host.say("AT+CLIP=1\r");
  const std::string rings = "\r\nRING\r\n\r\n+CLIP: \"+15550111\",145,,,,0\r\n";
  EXPECT_EQ(host.hear(Time{10000}), rings);
  EXPECT_EQ(host.say("AT+CLCC\r"), lines("+CLCC: 1,1,4,0,0,\"+15550111\",145"));
  EXPECT_EQ(host.hear(Time{3000}), rings);
  EXPECT_EQ(host.say("ATA\r"), kOk);
  EXPECT_EQ(host.hear(Time{5000}), "\r\n^CONN:1,0\r\n");
  EXPECT_EQ(host.say("ATH\r"), kOk);
  EXPECT_THAT(host.hear(Time{1}), HasSubstr("^CEND:1,5"));
}

TEST(LivingModem, UssdHasAMenu) {
  Host host;
  const auto after = [&host](const std::string& code) {
    host.say("AT+CUSD=1,\"" + code + "\"\r");
    return host.hear(Time{1000});
  };
  EXPECT_EQ(after("*101#"), "\r\n+CUSD: 1,\"1 Balance\n2 Data left\n0 End\",15\r\n");
  EXPECT_EQ(after("2"), "\r\n+CUSD: 0,\"1.5 GB are left.\",15\r\n");
  EXPECT_EQ(after("2"), "\r\n+CUSD: 4\r\n");
  after("*101#");
  host.say("AT+CUSD=2\r");
  EXPECT_EQ(after("1"), "\r\n+CUSD: 4\r\n");
}

TEST(LivingModem, CallsAreReported) {
  Host host;
  EXPECT_EQ(host.say("ATD+4930123;\r"), kOk);
  EXPECT_EQ(host.say("ATD110;\r"), "\r\nERROR\r\n");
  EXPECT_EQ(host.hear(Time{500}), "\r\n^ORIG:1,0\r\n\r\n^CONF:1\r\n");
  EXPECT_EQ(host.say("AT+CLCC\r"), lines("+CLCC: 1,0,3,0,0,\"+4930123\",145"));
  EXPECT_EQ(host.hear(Time{2600}), "\r\n^CONN:1,0\r\n");
  EXPECT_EQ(host.say("ATH\r"), kOk);
  EXPECT_EQ(host.hear(Time{5}), "\r\n^CEND:1,2,104,16\r\n");
}

TEST(LivingModem, ReportsBySwitch) {
  LivingOptions options = quiet();
  options.report_interval = Time{100};
  Host host(options);
  EXPECT_THAT(host.hear(Time{300}), Not(HasSubstr("^DSFLOWRPT"))) << "nothing is connected";
  EXPECT_EQ(host.say("ATD*99***1#\rAT+CGACT?\r"), "\r\nCONNECT 7200000\r\n" + lines("+CGACT: 1,1"));
  std::string heard = host.hear(Time{300});
  for (const auto* report :
       {"\r\n^RSSI:", "\r\n^HCSQ:\"WCDMA\",", "\r\n^DSFLOWRPT:0000", "^SRVST:1", "^MODE:5,4"}) {
    EXPECT_THAT(heard, HasSubstr(report));
  }
  EXPECT_THAT(heard, Not(HasSubstr("REG:")));
  host.say("AT^CURC=0;^SRVST=0;^MODE=0;+CREG=2;+CGREG=1\r");
  EXPECT_EQ(host.hear(Time{300}), "\r\n+CREG: 1,\"007C\",\"00B19502\"\r\n\r\n+CGREG: 1\r\n");
}

TEST(LivingModem, AHostThatGoesLeavesNothingBehind) {
  Host host;
  host.say("AT+CUSD=1,\"*100#\"\rATD1;\rAT+CMGS=20\r0001");
  host.modem.receive("AT+CM", host.now);
  host.modem.detached(host.now);
  host.modem.attached(host.now);
  EXPECT_EQ(host.say("AT+CLCC\r"), kOk);
  EXPECT_EQ(host.hear(Time{5000}), "");
}

TEST(LivingModem, AHostThatNeverReadsIsBounded) {
  LivingOptions options = quiet();
  options.report_interval = Time{1};
  Host host(options);
  for (; host.now < Time{10000}; host.now += Time{1}) {
    host.modem.advance(host.now);
    if (host.modem.accepts_input()) host.modem.receive("AT+CSQ\r", host.now);
  }
  EXPECT_FALSE(host.modem.accepts_input());
  size_t waiting = 0;
  for (std::string read; !(read = host.modem.transmit(host.now)).empty();) waiting += read.size();
  EXPECT_LT(waiting, 17U * 1024U);
  EXPECT_TRUE(host.modem.accepts_input());
}

TEST(LivingModem, OutlivesAnyBytes) {
  constexpr std::string_view kAlphabet =
      "ATDEHISVZ&+^=?,;\"*#0123456789CMGSWLRFQPNUOE\r\r\r\x1a\x1b\b\n ";
  for (unsigned seed = 0; seed < 200; ++seed) {
    std::mt19937 random(seed);
    Host host;
    for (int i = 0; i < 2000; ++i) {
      const auto choice = random();
      const char c = choice % 16 == 0 ? static_cast<char>(choice >> 8U)
                                      : kAlphabet[(choice >> 8U) % kAlphabet.size()];
      host.modem.receive({&c, 1}, host.now);
    }
    host.hear(Time{10000});
    EXPECT_THAT(host.say("\x1b\rATE0\rAT+CSQ\r"), HasSubstr("+CSQ: ")) << "seed " << seed;
  }
}

}  // namespace
}  // namespace mdxsim
