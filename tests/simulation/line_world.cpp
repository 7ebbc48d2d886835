// SPDX-License-Identifier: Apache-2.0

#include "tests/simulation/line_world.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>

#include "server/mdxgate.h"
#include "tests/fake_platform/server_on_fake.h"
#include "tests/simulation/modem.h"
#include "tests/simulation/real_channel.h"
#include "tests/simulation/world.h"
#include "wire/destinations.h"
#include "wire/report_records.h"

namespace simulation {
namespace {

using namespace std::string_literals;
using fake::entry;
using fake::kind;

constexpr uint32_t kHourMs = 3600 * 1000;
constexpr int32_t kFirstClient = 100000;
constexpr int32_t kFirstReport = 1000000;
/// A modem has 5 seconds for what it owes and 2 for a prompt; a delivery may be offered twice.
constexpr uint32_t kLongestWaitMs = 9500;
/// What has been said so shortly before a modem is unplugged or the server killed may be lost.
constexpr uint32_t kMayBeLostMs = 2000;
/// A server that begins reads nothing before its first command is out; a kill takes it down with
/// it.
constexpr uint32_t kMayBeHeldMs = 7000;
constexpr uint32_t kSetUpMs = 3000;
constexpr uint32_t kThreadMayLagMs = 100;
constexpr uint32_t kPatienceMs = 5000;
/// When a rule is broken, what happened in this time before it is shown.
constexpr uint32_t kShownMs = 60000;

// clang-format off
const struct { uint32_t type; std::string match, text; } commands[] = {
    {NORMAL_CMD,      "",      "AT+OWN;+CMGL=#"},
    {NORMAL_CMD,      "",      "AT+OWN;+CMGL=#"},
    {NORMAL_CMD,      "+OWN",  "AT+OWN;+CMGL=#"},
    {TRANSPARENT_CMD, "",      "at+OWN;+CMGL=#"},
    {NORMAL_CMD,      "",      "AT+OWN;+CMGL=#\rAT+OWN;+CMGL=#"},
    {NORMAL_CMD,      "",      "AT+OWN;+CMGL=#\x1a"},
    {NORMAL_CMD,      "",      "AT\x1b+OWN;+CMGL=#\x1b"},
    {NORMAL_CMD,      "",      "ATE0;+OWN;+CMGL=#"},
    {NORMAL_CMD,      "",      "ATE1;+OWN;+CMGL=#"},
    {NORMAL_CMD,      "",      "ATD;+OWN;+CMGL=#"},
    {NORMAL_CMD,      "+CMGS", "AT+CMGS=#\r0011#\x1a\0"s},
    {NORMAL_CMD,      "+CMGS", "AT+CMGS=#\r0011#\x1a\0"s},
    {NORMAL_CMD,      "+CMGS", "AT+CMGS=#\rone#\rtwo\x1a\0"s},
    {TRANSPARENT_CMD, "",      "AT+CMGS=#\r00\x1a\x31#\x1a"},
    {TRANSPARENT_CMD, "",      "AT+CMGS=#"},
    {NORMAL_CMD,      "",      "at+cmgs =#"},
    {NORMAL_CMD,      "",      "at+cmgs=#\rAT+OWN;+CMGL=#"},
};
const int32_t timeouts[] = {0, 1, 1, 2, 3, 3, 5, 10, 30};
// clang-format on

std::string plain(const std::string& bytes) {
  std::string text;
  for (const char byte : bytes) {
    char code[8];
    snprintf(code, sizeof(code), byte >= ' ' && byte <= '~' ? "%c" : "\\x%02x", byte);
    text += code;
  }
  return text;
}

class line_world {
 public:
  explicit line_world(uint32_t seed) : random_(seed) {}
  uint64_t live(uint64_t hours);

 private:
  struct client_t {
    std::string text;
    uint64_t asked = 0;
    uint64_t written = 0;
    uint64_t died = 0;
  };

  size_t below(size_t limit) { return random_() % limit; }
  bool chance(size_t one_in) { return below(one_in) == 0; }
  uint32_t some_time() { return static_cast<uint32_t>(below(kHourMs)); }

  void run(int32_t state);
  void plan_hour();
  void ask(uint32_t when);
  void report(uint32_t when);
  void foreign_line();
  void plug();
  void unplug(uint32_t when);
  void note_loss();
  void sent(std::string_view bytes);

  void judge();
  void judge_wait(const entry& request, uint64_t idle_since);
  void judge_reply(const entry& reply);
  void judge_report(int32_t number);
  bool was_given_up_before(const std::string& tag, const client_t& client) const;
  [[noreturn]] void fail(const std::string& problem, uint64_t when);
  std::string history() const;

  std::mt19937 random_;
  const bool keeps_echo_ = chance(2);
  const bool dials_ = chance(2);  ///< then calls end only as answers
  real_channel channel_;
  said_t said_;
  std::shared_ptr<modem> modem_;
  std::map<int32_t, client_t> clients_;
  std::map<int32_t, uint64_t> reports_;  ///< when they were made
  std::set<int32_t> may_be_lost_;
  std::set<int32_t> handled_;
  std::vector<uint64_t> disturbed_;
  int32_t last_report_ = kFirstReport;
  int foreign_lines_ = 0;
  uint64_t replies_ = 0;
  uint64_t seen_at_ = 0;  ///< when a rule was broken, 0: now
};

uint64_t line_world::live(uint64_t hours) {
  fake::reset();
  fake::forget_server();
  mdx_trace_mask = 0;
  channel_.below = [this](size_t limit) { return below(limit); };
  channel_.on_write = [this](std::string_view bytes) { sent(bytes); };
  channel_.on_stall = [this] { disturbed_.push_back(fake::now()); };
  plug();
  const uint64_t end = fake::now() + hours * kHourMs;
  run(AT_INIT_S);
  while (fake::now() < end) {
    plan_hour();
    run(AT_IDLE_S);
  }
  return replies_;
}

void line_world::run(int32_t state) {
  for (bool is_over = false; !is_over;) {
    try {
      run_until_idle(state);
      judge();
      is_over = true;
    } catch (const broken_rule& broken) {
      throw broken_rule(broken.what() + history());
    } catch (const server_killed&) {
      note_loss();
      channel_.forget_process();
      fake::forget_server();
      state = AT_INIT_S;
    }
  }
}

void line_world::plan_hour() {
  fake::at(kHourMs, [] {});
  for (size_t bursts = below(60); bursts > 0; --bursts) {
    const uint32_t when = some_time();
    for (size_t left = chance(3) ? below(12) : 1; left > 0; --left)
      ask(when + static_cast<uint32_t>(below(2000)));
    for (size_t left = below(4); left > 0; --left)
      report(when + static_cast<uint32_t>(below(5000)));
    if (chance(8)) fake::at(when + 300, [this] { foreign_line(); });
    if (chance(40)) unplug(when + static_cast<uint32_t>(below(2000)));
    if (chance(40)) fake::at(when + 300, [this] { channel_.kills_server = true; });
    if (chance(40)) fake::at(when + 300, [this] { modem_->reset(); });
    if (chance(40)) fake::at(when + 300, [] { fake::fail.nas_send = 2; });
  }
  for (size_t left = below(30); left > 0; --left) {
    const uint32_t when = some_time();
    for (size_t storm = chance(12) ? below(50) : 1; storm > 0; --storm) report(when);
  }
}

void line_world::ask(uint32_t when) {
  const auto client = kFirstClient + static_cast<int32_t>(clients_.size());
  const auto& [type, match, text] = commands[below(std::size(commands))];
  if (keeps_echo_ && text.starts_with("ATE")) return;
  if (!dials_ && text.starts_with("ATD")) return;
  std::string own;
  for (const char byte : text) own += byte == '#' ? tag_of(client) : std::string(1, byte);
  at_msg_t msg = {};
  msg.msg_type = client;
  msg.seq = static_cast<uint32_t>(client);
  msg.req_type = type;
  msg.timeout = timeouts[below(std::size(timeouts))];
  msg.multi_line = static_cast<int32_t>(below(2));
  match.copy(msg.at_match_str, sizeof(msg.at_match_str));
  own.copy(msg.snd_rcv_msg.rmsg, sizeof(msg.snd_rcv_msg.rmsg));
  clients_[client] = {own, fake::now() + when, 0, 0};
  fake::request(msg, when);
  if (!chance(5)) return;
  const uint32_t end = when + static_cast<uint32_t>(below(chance(2) ? 300 : 9000));
  fake::at(end, [this, client] {
    channel_.dead.insert(client);
    clients_[client].died = fake::now();
  });
}

void line_world::report(uint32_t when) {
  fake::at(when, [this] {
    if (channel_.device == 0) return;
    reports_[++last_report_] = fake::now();
    const std::string number = std::to_string(last_report_);
    modem_->say_line(chance(4) ? "+CMT: ,35\r\n0791" + number : "^WAKEUPIN: " + number);
  });
}

void line_world::foreign_line() {
  if (channel_.device == 0) return;
  const bool is_about_a_call = !dials_ && chance(2);
  modem_->say_line(is_about_a_call ? "NO CARRIER" : "RDY" + std::to_string(++foreign_lines_) + ".");
}

void line_world::plug() {
  modem_ = std::make_shared<modem>(random_(), keeps_echo_, &channel_.said, &said_);
  channel_.plug();
}

void line_world::unplug(uint32_t when) {
  fake::at(when, [this] {
    note_loss();
    channel_.unplug();
    fake::at(static_cast<uint32_t>(below(chance(2) ? 20 : 3000)), [this] {
      if (channel_.device == 0) plug();
    });
  });
}

/// Something happens that takes reports with it, and excuses exchanges.
void line_world::note_loss() {
  disturbed_.push_back(fake::now());
  for (const auto& [number, made] : reports_)
    if (made + kMayBeHeldMs >= fake::now()) may_be_lost_.insert(number);
}

void line_world::sent(std::string_view bytes) {
  if (bytes != "\x1b" && channel_.served != 0) {
    client_t& client = clients_[channel_.served];
    const bool was_dead = client.died != 0 && client.died + kThreadMayLagMs < fake::now();
    if (was_dead && !channel_.has_begun_write) fail("sent for the dead", 0);
    if (client.written == 0) client.written = fake::now();
  }
  modem_->take(bytes);
}

void line_world::judge() {
  uint64_t idle_since = 0;
  for (const entry& e : fake::journal) {
    if (e.what == kind::REQUEST) judge_wait(e, idle_since);
    if (e.what == kind::REPLY) judge_reply(e);
    if (e.what == kind::REPLY || e.line() == "reply dropped") idle_since = e.at;
    if (e.name == ">" && e.a == 0) idle_since = e.at + kSetUpMs;
    if (e.what == kind::NOTIFICATION && e.module == NOTIFY_MODULE_55) judge_report(e.a);
    if (e.what != kind::NOTIFICATION || e.module != NOTIFY_MODULE_1) continue;
    const std::string pdu = e.as<at_sms_content_info>().pdu;
    judge_report(pdu.starts_with("0791") ? std::stoi(pdu.substr(4)) : 0);
  }
  for (const auto& [number, made] : reports_) {
    if (handled_.count(number) == 0 && may_be_lost_.count(number) == 0)
      fail("report " + std::to_string(number) + " has reached nobody", made + kMayBeLostMs);
  }
  fake::journal.clear();
  reports_.clear();
  may_be_lost_.clear();
  handled_.clear();
}

void line_world::judge_wait(const entry& request, uint64_t idle_since) {
  const client_t& client = clients_.at(request.as<at_msg_t>().msg_type);
  uint64_t begin = std::max(idle_since, client.asked);
  for (const uint64_t when : disturbed_)
    if (when <= request.at) begin = std::max(begin, when);
  if (request.at > begin + kLongestWaitMs) fail("a request waited: " + client.text, request.at);
}

void line_world::judge_reply(const entry& reply) {
  ++replies_;
  const auto msg = reply.as<at_msg_t>();
  const client_t& client = clients_.at(msg.msg_type);
  const std::string text = msg.snd_rcv_msg.rmsg;
  const std::string own = tag_of(msg.msg_type);
  const std::string what = plain(client.text + " got " + std::to_string(msg.ret_val) + ": " + text);
  const bool may_be_disturbed = std::any_of(disturbed_.begin(), disturbed_.end(), [&](uint64_t at) {
    return at + kMayBeLostMs >= client.written && at <= reply.at;
  });
  for (const std::string& tag : tags_in(text))
    if (tag != own && !was_given_up_before(tag, client))
      fail("the answer to " + tag + ": " + what, reply.at);
  const bool is_own_text = client.text.starts_with(text);  // a head that was refused
  // A modem that takes nothing in the middle of a command tears its echo.
  if (text.find("AT+") != text.npos && !is_own_text && !may_be_disturbed)
    fail("an echo: " + what, reply.at);
  for (const auto& [line, said] : said_.lines)
    if (text.find(line) != text.npos && said + kThreadMayLagMs < client.written)
      fail("an old line: " + what, reply.at);

  const auto found = said_.answers.find(own);
  const bool was_answered =
      found != said_.answers.end() && found->second <= reply.at + kThreadMayLagMs;
  const auto& calls = said_.about_a_call;
  const auto heard_word = [&](uint64_t at) {
    return at + kThreadMayLagMs >= client.written && at <= reply.at;
  };
  switch (msg.ret_val) {
    case AT_OK:
    case AT_CME_ERROR:
    case AT_CMS_ERROR:
    case 5:
      if (!was_answered) fail("a foreign result: " + what, reply.at);
      break;
    case 6:
      if (!was_answered && std::none_of(calls.begin(), calls.end(), heard_word))
        fail("no call: " + what, reply.at);
      break;
    case 0:  // of a message
    case AT_NONE: {
      const bool matched = msg.at_match_str[0] != '\0' && text.find(msg.at_match_str) != text.npos;
      if (was_answered && !matched && !may_be_disturbed &&
          found->second + kThreadMayLagMs < reply.at)
        fail("its answer came: " + what, reply.at);
      break;
    }
    default:
      if (!may_be_disturbed) fail("no such result: " + what, reply.at);
  }
}

/// What a command was called is forgotten with the server or the link. When its answer comes later
/// than is waited for, a line of it that could be a report is not told from one.
bool line_world::was_given_up_before(const std::string& tag, const client_t& client) const {
  const auto asked = std::find_if(clients_.begin(), clients_.end(),
                                  [&tag](const auto& known) { return tag_of(known.first) == tag; });
  if (asked == clients_.end()) return false;
  return std::any_of(disturbed_.begin(), disturbed_.end(), [&](uint64_t at) {
    return asked->second.written < at && at + kPatienceMs <= client.written;
  });
}

void line_world::judge_report(int32_t number) {
  if (number < kFirstReport && !disturbed_.empty()) return;  // half of one
  if (reports_.count(number) == 0) fail("no such report: " + std::to_string(number), 0);
  if (!handled_.insert(number).second) fail("twice: report " + std::to_string(number), 0);
}

void line_world::fail(const std::string& problem, uint64_t when) {
  seen_at_ = when;
  throw broken_rule(problem);
}

std::string line_world::history() const {
  const uint64_t end = seen_at_ != 0 ? seen_at_ : fake::now();
  std::string text;
  for (const entry& e : fake::journal) {
    const bool is_shown = e.what == kind::REQUEST || e.what == kind::REPLY || e.name == "<" ||
                          e.name == ">" || e.name == "reply dropped";
    if (is_shown && e.at <= end && e.at + kShownMs >= end)
      text += "\n  " + std::to_string(e.at) + " " + plain(e.line());
  }
  return text;
}

}  // namespace

uint64_t live_on_a_line(uint32_t seed, uint64_t hours) { return line_world(seed).live(hours); }

}  // namespace simulation
