// SPDX-License-Identifier: Apache-2.0

// A modem that is recorded, learnt and played by its script answers as it did.
#include "tools/line/learn.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tools/line/escape.h"
#include "tools/mdxsim/living_modem.h"
#include "tools/mdxsim/modem_commands.h"
#include "tools/mdxsim/scripted_modem.h"
#include "tools/mdxtap/masker.h"

namespace {

using mdxline::escape;
using mdxline::Session;
using mdxline::SessionStep;
using mdxsim::Time;
using testing::HasSubstr;

const std::vector<mdxline::SessionRemark> kOpened = {{Time{0}, "the host opened the device"}};
constexpr Time kPause{2500};  // behind which the modem has said what it has to say

// A host that opens the modem at 0 and says something at given times. What the modem says is kept
// by what the host said before, the first by the opening.
std::vector<std::string> answers(mdxsim::Modem& modem, const std::vector<SessionStep>& host,
                                 Time end, std::vector<SessionStep>* seen) {
  std::vector<std::string> heard(1);
  size_t next = 0;
  modem.attached(Time{0});
  for (Time now{0}; now <= end; ++now) {
    modem.advance(now);
    for (std::string bytes; !(bytes = modem.transmit(now)).empty();) {
      heard.back() += bytes;
      if (seen != nullptr) seen->push_back({false, bytes, 0, now});
    }
    for (; next < host.size() && *host[next].at <= now; ++next) {
      if (seen != nullptr) seen->push_back(host[next]);
      heard.emplace_back();
      modem.receive(host[next].bytes, now);
    }
  }
  return heard;
}

std::string all_of(const std::vector<std::string>& heard) {
  std::string all;
  for (const std::string& bytes : heard) all += bytes;
  return all;
}

mdxsim::Script parsed(const std::string& text) {
  std::istringstream stream(text);
  return mdxsim::parse_script(stream, "learnt");
}

void expect_same(const std::vector<std::string>& was, const std::vector<std::string>& is,
                 const std::vector<SessionStep>& host, const std::string& script) {
  ASSERT_EQ(was.size(), is.size());
  for (size_t i = 0; i < was.size(); ++i) {
    EXPECT_EQ(escape(is[i]), escape(was[i]))
        << "behind " << (i == 0 ? "the opening" : escape(host[i - 1].bytes)) << "\n"
        << script;
  }
}

// With every form of every command, one after the other; and dialogues.
std::vector<SessionStep> all_commands() {
  std::vector<std::string> lines = {
      "ATE1",
      "AT+CMEE=2",
      "AT+NOSUCH",
      "AT",
      "at+csq",
      "AT+CPIN?",
      "AT+CPIN=\"0000\"",
      "AT+CPIN=\"2718\"",
      "AT+CMGF=1",
      "AT+CMGL=\"ALL\"",
      "AT+CMGR=0",
      "AT+CMGF=0",
      "AT+CMGR=0",
      "AT+CUSD=1,\"*100#\",15",
      "ATD+4930123456;",
      "AT+CLCC",
      "ATH",
      "ATE0",
      "AT+CSQ",
      "ATZ",
      "AT+CSQ",
      "AT+CSQ;+COPS?",
      "AT+CMGS=24",
      "AT+COPS=?",
  };
  for (const mdxsim::CommandRow& row : mdxsim::command_rows()) {
    const std::string name = "AT" + std::string(row.name);
    lines.push_back(name);
    if (row.name.size() < 3) continue;
    for (const char* form : {"?", "=?", "=0", "=1"}) lines.push_back(name + form);
  }
  std::vector<SessionStep> steps;
  Time now{100};
  for (const std::string& line : lines) {
    steps.push_back({true, line + "\r", 0, now});
    now += kPause + kPause;
    const bool asks = line.starts_with("AT+CMGS=") || line.starts_with("AT+CMGW=");
    if (!asks || line.ends_with('?')) continue;
    steps.push_back({true, "0011000C919471325476980000A70BC472580E6AA6D9ECB21C\x1a", 0, now});
    now += kPause;
  }
  return steps;
}

TEST(Learn, ALivingModemIsLearntByAllItsCommands) {
  mdxsim::LivingOptions options;
  options.report_interval = Time{0};
  options.scan_time = Time{2000};
  options.pin = "2718";
  mdxsim::LivingModem living(options);
  const std::vector<SessionStep> host = all_commands();
  const Time end = *host.back().at + kPause;
  std::vector<SessionStep> seen;
  const auto was = answers(living, host, end, &seen);

  const std::string script = mdxline::learn(Session{"living", seen, kOpened});
  mdxsim::ScriptedModem learnt(parsed(script), {});
  expect_same(was, answers(learnt, host, end, nullptr), host, "");
  if (HasFailure()) std::cout << script;
}

TEST(Learn, AMaskedRecordingIsLearntAsItStands) {
  mdxsim::LivingOptions options;
  options.report_interval = Time{700};
  mdxsim::LivingModem living(options);
  std::vector<SessionStep> seen;
  std::vector<SessionStep> host = {
      {true, "AT+CMGS=24\r", 0, Time{100}},
      {true, "0011000C919471325476980000A70BC472580E6AA6D9ECB21C\x1a", 0, Time{200}},
      {true, "AT+CIMI\r", 0, Time{300}},
      {true, "AT+CGSN\r", 0, Time{400}},
      {true, "AT+CMGL=4\r", 0, Time{500}}};
  answers(living, host, Time{4000}, &seen);
  mdxtap::Masker masker{mdxtap::StandIn({1, 2})};
  host.clear();
  for (SessionStep& step : seen) {
    step.bytes = step.from_host ? masker.from_host(step.bytes) : masker.from_modem(step.bytes);
    if (step.from_host) host.push_back(step);
  }
  std::string recorded;
  for (const SessionStep& step : seen) recorded += step.from_host ? "" : step.bytes;
  const std::string script = mdxline::learn(Session{"masked", seen, kOpened});
  mdxsim::ScriptedModem learnt(parsed(script), {});
  EXPECT_EQ(escape(all_of(answers(learnt, host, Time{4000}, nullptr))), escape(recorded)) << script;
}

TEST(Learn, TheRecordedSessionsArePlayedAsTheyWere) {
  for (const auto& file : std::filesystem::directory_iterator(MDX_SESSIONS)) {
    if (file.path().extension() != ".txt") continue;
    std::ifstream stream(file.path());
    Session session = mdxline::parse_session(stream, file.path().filename());
    std::vector<SessionStep> host;
    std::string recorded;
    Time now{1};
    for (SessionStep& step : session.steps) {
      step.at = now;
      now += Time{50};
      if (step.from_host) host.push_back(step);
      if (!step.from_host) recorded += step.bytes;
    }
    const std::string script = mdxline::learn(session);
    mdxsim::ScriptedModem learnt(parsed(script), {});
    EXPECT_EQ(escape(all_of(answers(learnt, host, now + Time{1000}, nullptr))), escape(recorded))
        << script;
  }
}

// An answer that does not end, different commands, reports at uneven times: what looks at all that
// came before once more for each line takes minutes here.
TEST(Learn, ADayIsNotTooLong) {
  constexpr int kMany = 30000;
  Session day{"day", {}, kOpened};
  const auto add = [&day](bool from_host, const std::string& bytes, int pause) {
    const Time now = day.steps.empty() ? Time{0} : *day.steps.back().at;
    day.steps.push_back({from_host, bytes, 0, now + Time{pause}});
  };
  add(true, "AT+STREAM\r", 0);
  for (int i = 0; i < kMany; ++i) add(false, "an answer without an end\r\n", 50);
  for (int i = 0; i < kMany; ++i) {
    add(true, "AT+X=" + std::to_string(i) + "\r", 50);
    add(false, "\r\nOK\r\n", 50);
  }
  for (int i = 0; i < kMany; ++i) add(false, "\r\n^A:1\r\n", 100 + 900 * (i % 2));
  const std::string script = mdxline::learn(day);
  EXPECT_EQ(std::count(script.begin(), script.end(), '\n'), 4 + 2 * kMany);
  EXPECT_THAT(script, HasSubstr("on AT+X=29999 -> OK\nelse ERROR\n"));
}

// Each case: what was recorded, and what the script says of it.
TEST(Learn, SaysWhatWasSeen) {
  // clang-format off
  const struct { const char* session; std::vector<const char*> lines; } cases[] = {
      {"> AT+CSQ\\r\n< AT+CSQ\\r\\r\\n+CSQ: 1,99\\r\\n\\r\\nOK\\r\\n\n> at+csq\\r\n< at+csq\\r\\r\\n+CSQ: 2,99\\r\\n\\r\\nOK\\r\\n\n",
       {"on AT+CSQ once -> +CSQ: 1,99 | OK\n", "on AT+CSQ -> +CSQ: 2,99 | OK\n", "else ERROR\n"}},
      {"> AT\\r\n> ATI\\r\n< ATI\\r\\r\\nOK\\r\\n\n",         {"on AT -> nothing\n", "on ATI -> OK\n"}},
      {"> ATE0\\r\n< ATE0\\r\\r\\nOK\\r\\n\n> AT\\r\n< \\r\\nOK\\r\\n\n", {"on ATE0 then echo off -> OK\n"}},
      {"> AT\\r\n< \\r\\nOK\\r\\n\n",                       {"echo off\n"}},
      {"> ATD*99#\\r\n< \\r\\nCONNECT\\r\\n\n",             {"on ATD\\*99# -> CONNECT\n"}},
      {"> A\n< A\n> T\n< T\n> I\n< I\n> \\r\n< \\r\\r\\nme\\r\\n\\r\\nOK\\r\\n\n> A\n< A\n> T\\r\n< T\\r\\r\\nOK\\r\\n\n", {"# learnt from s\non ATI -> me | OK\non AT -> OK\nelse ERROR\n"}},
      {"> AT+A=\"a -> b once\"\\r\n< \\r\\nOK\\r\\n\n",       {"on AT+A=\"a\\x20\\x2d>\\x20b\\x20once\" -> OK\n"}},
      {"> AT+A within\\r\n< \\r\\nOK\\r\\n\n",              {"on AT+A\\x20within -> OK\n"}},
      {"> X after Y=1\\r\n< \\r\\n> \n",                  {"on X\\x20after\\x20Y=1 -> prompt\n", "on X\\x20after\\x20Y=* -> prompt\n"}},
      {"> AT+CMGS=1\\r\n< \\r\\n> \n> \\x1a\n< \\r\\nOK\\r\\n\n",  {"on pdu\\x20 -> OK\n"}},
      {"> -> AT\\r\n< \\r\\nOK\\r\\n\n",                  {"on \\x2d> AT -> OK\n"}},
      {"> pdu\\r\n< \\r\\nOK\\r\\n\n",                    {"on \\x70du -> OK\n"}},
      {"# at 1.000\n> AT+COPS=?\\r\n# at 5.040\n< \\r\\n+COPS: {1|2}\\r\\n\\r\\nOK\\r\\n\n", {"on AT+COPS=? after 4s -> +COPS: \\x7b1\\x7c2} | OK\n"}},
      {"# at 1.000\n> AT+CUSD=1,1\\r\n< \\r\\nOK\\r\\n\n# at 1.800\n< \\r\\n+CUSD: 0\\r\\n\n", {"on AT+CUSD=1,1 -> OK\nalso after 800ms -> +CUSD: 0\n"}},
      {"# at 1.000: the host opened the device\n# at 2.500\n< \\r\\n^A:1\\r\\n\n# at 3.600\n< \\r\\n^A:1\\r\\n\n# at 4.500\n< \\r\\n^A:1\\r\\n\n# at 9.000\n< ^B\n",
       {"every 1100ms report ^A:1\n", "at 8s report raw ^B\n"}},
      {"# at 0.500: the host opened the device\n# at 0.600\n> AT\\r\n# at 2.000: the modem is gone\n# at 7.500: the modem is there\n", {"at 1500ms hang-up 5500ms\n"}},
      {"> AT\\rATI\\r\n< AT\\r\\r\\nOK\\r\\nATI\\r\\r\\nme\\r\\n\\r\\nOK\\r\\n\n", {"on AT -> OK\n", "on ATI -> me | OK\n"}},
  };
  // clang-format on
  for (const auto& [text, lines] : cases) {
    std::istringstream stream(text);
    const std::string script = mdxline::learn(mdxline::parse_session(stream, "s"));
    for (const char* line : lines) EXPECT_THAT(script, HasSubstr(line)) << text;
    EXPECT_NO_THROW(parsed(script)) << script;
  }
}

}  // namespace
