// SPDX-License-Identifier: Apache-2.0

#include "tests/simulation/world.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <random>
#include <string>

#include "server/mdxgate.h"
#include "tests/fake_platform/server_on_fake.h"

int mdxgate_main();

namespace simulation {
namespace {

using namespace std::string_literals;

constexpr uint32_t kHourMs = 3600 * 1000;
constexpr uint32_t kSecondMs = 1000;
constexpr size_t kDeliveryMax = 1499;

// clang-format off
const std::string commands[] = {
    "AT", "at+own?", "AT+OWN", "AT+OWN=" + std::string(600, '7'), "AT+OWN=" + std::string(1400, '8'),
    "AT+CMGR=1;+CMGL=4", "AT^HCMGR=1", "AT+CREG?;+CBM", "AT+COPS=?", "AT+cops=?\r\n",
    "AT+CMGS=22\r0011000B91AB\x1a", "AT^HCMGW=5\r00\x1a\x31\x1a", "AT+CMGS=1\rno end", "AT+CMGS=1",
    "AT+CMGW=5\r" + std::string(700, '0') + "\x1a", "+CMGS, not AT", "",
};
const std::string words[] = {
    "OK", "ERROR", "+CME ERROR: 10", "+CMS ERROR: 5", "NO CARRIER", "CONNECT 1", "BUSY",
    "OKAY", "some text", "12345", "+OWN: 1", "+OWN", "^OTHER: 1", "+PAT: 1", "OK +PAT", "> ", ">",
    "^CPINNTY:READY", "+CMGS: 31", "+CMGL: 1,,22", "+CMGR: 1", "^HCMGR: 1", "^HCMGR: 1\r\n7\r\n\x1a",
    "+CBM: 88\r\n0011", "+CMT: ,35\r\n0791", "+A:\0+CBM"s, "%s%n", "\x1a\r\n", "a\rb", "nothing:",
};
constexpr size_t kResults = 7;  // of the words, the first
const std::string pieces[] = {"\r\n", "\r\n", "\r", "\n", "\r\r\n", "\x1a", ">", "\0"s, ":", "\xff"};
const std::string matches[] = {"", "", "", "+PAT", "+OWN", "OK", "x", "+CMGS", std::string(63, '7')};
const int32_t timeouts[] = {3, 3, 3, 1, 2, 5, 10, 30, 60, 0, -1, INT_MIN};
const int32_t lengths[] = {-1, 1, 2, 5, 9, 638, 639, 640, 1501, INT_MAX};
const uint32_t kinds[] = {
    NORMAL_CMD, NORMAL_CMD, NORMAL_CMD, TRANSPARENT_CMD, ACTIVE_REPORT, GET_REPORT,
    REQ_RESERVED_3, REQ_RESERVED_4, 6, UINT32_MAX,
};
// clang-format on

class world {
 public:
  world(uint32_t seed, counts_t* counts) : random_(seed), witness_(counts) {}
  void live(uint64_t hours);

 private:
  size_t below(size_t limit) { return random_() % limit; }
  bool chance(size_t one_in) { return below(one_in) == 0; }
  template <class Choices>
  const auto& one_of(const Choices& choices) {
    return choices[below(std::size(choices))];
  }

  void run(int32_t state);
  void plan_hour();
  void plan_fault(uint32_t when);
  at_msg_t request();
  void answer(const std::string& written);
  std::string answer_to(const std::string& command);
  std::string report();
  std::string garbage();
  std::string line_of(size_t size);
  void say(uint32_t when, std::string talk);
  void deliver(uint32_t when, const std::string& bytes);

  std::mt19937 random_;
  witness witness_;
  uint32_t seq_ = 0;
};

/// What must be true whenever the state machine goes from one state to the next.
void check_state() {
  const mdx_state_t& s = mdx_state;
  const int32_t pending = (s.ring_head - s.ring_tail + kStateRingSize) % kStateRingSize;
  const bool inside = s.nas_response_legth >= 0 && s.nas_response_legth < MAX_ATCMD_REPORT_SIZE &&
                      s.line_state >= 0 && s.line_state <= LINE_IN_TEXT &&
                      s.line_buf[MAX_ATCMD_REPORT_SIZE] == '\0' &&
                      s.sent_cmd_head[kSentHeadSize - 1] == '\0' && s.line_used >= 0 &&
                      s.line_used <= static_cast<int32_t>(sizeof(s.line_buf));
  const bool untouched = s.req_queue_id == 200 && s.rsp_queue_id == 100 && s.nas_queue_id == 300 &&
                         s.main_task_id == fake::kMainTask && s.sms_cancel_marker == -1 &&
                         s.msg_seq_counter <= 1 && s.query_flags == 0 && s.cimi_done == 0;
  if (pending > 3) throw broken_rule("the ring holds more than three");
  if (!inside || !untouched) throw broken_rule("a buffer was left");
}

void world::live(uint64_t hours) {
  // Some worlds begin shortly before the platform's clock wraps.
  fake::reset(chance(4) ? UINT32_MAX - 2 * kHourMs : 1000);
  fake::forget_server();
  mdx_trace_mask = chance(8) ? ~0u : 0;
  fake::on_write = [this](const std::string& written) { answer(written); };
  fake::fail.bind_attempts = static_cast<int32_t>(below(4));
  const uint64_t begin = fake::now();
  run(AT_INIT_S);
  while (fake::now() < begin + hours * kHourMs) {
    plan_hour();
    run(AT_IDLE_S);
  }
}

void world::run(int32_t state) {
  run_until_idle(state);
  const std::vector<fake::entry> journal = std::move(fake::journal);
  witness_.read(journal);
  fake::journal.clear();
}

void world::plan_hour() {
  fake::at(kHourMs, [] {});
  for (size_t left = below(40); left > 0; --left) {
    const auto when = static_cast<uint32_t>(below(kHourMs));
    for (size_t clients = chance(4) ? below(12) : 1; clients > 0; --clients)
      fake::request(request(), when + static_cast<uint32_t>(below(3)));
  }
  for (size_t left = below(60); left > 0; --left) {
    const auto when = static_cast<uint32_t>(below(kHourMs));
    for (size_t storm = chance(12) ? below(50) : 1; storm > 0; --storm) say(when, report());
  }
  for (size_t left = below(6); left > 0; --left) plan_fault(static_cast<uint32_t>(below(kHourMs)));
}

void world::plan_fault(uint32_t when) {
  switch (below(8)) {
    case 0:
      return fake::at(when, [this] { fake::fail.write = static_cast<int32_t>(below(4)); });
    case 1:
      return fake::at(when, [this] { fake::fail.nas_send = static_cast<int32_t>(below(4)); });
    case 2:
      return fake::at(when, [] { fake::fail.event_recv = 1; });
    case 3:
      return fake::at(when, [] { fake::fail.request_read = 1; });
    case 4:
      return fake::at(when, [] { fake::console("display", "dialog"); });
    case 5:
      return deliver(when, chance(2) ? "" : line_of(kDeliveryMax - below(4)));
    case 6:
      if (chance(200)) fake::at(when, Q7_App_Ungister);
      return;
    default:
      return say(when, garbage());
  }
}

at_msg_t world::request() {
  at_msg_t msg = {};
  if (chance(20)) {
    auto* bytes = reinterpret_cast<char*>(&msg);
    std::generate_n(bytes, sizeof(msg), [this] { return static_cast<char>(1 + below(255)); });
  }
  msg.msg_type = static_cast<int32_t>(100 + below(8));
  msg.seq = ++seq_;
  msg.req_type = one_of(kinds);
  msg.rep_type = static_cast<int32_t>(below(4));
  msg.timeout = one_of(timeouts);
  msg.multi_line = chance(30) ? 7 : static_cast<int32_t>(chance(3));
  const std::string match = one_of(matches);
  std::copy_n(match.c_str(), match.size() + 1, msg.at_match_str);
  const std::string text = one_of(commands) + std::string(chance(2) ? 3 : 1, '\0');
  text.copy(msg.snd_rcv_msg.rmsg, sizeof(msg.snd_rcv_msg.rmsg));
  if (text.size() < kCommandSize && chance(5)) msg.snd_rcv_msg.command.cmd_len = one_of(lengths);
  return msg;
}

/// The modem has got a command.
void world::answer(const std::string& written) {
  if (chance(10)) return;
  const size_t longest = chance(8) ? 40 * kSecondMs : 800;
  const auto when = static_cast<uint32_t>(below(longest));
  say(when, chance(10) ? garbage() : answer_to(written));
  if (chance(10)) say(when + static_cast<uint32_t>(below(3 * kSecondMs)), answer_to(written));
}

std::string world::answer_to(const std::string& command) {
  std::string talk = chance(5) ? command + "\n" : "";
  const bool is_head = command.find("CMG") != command.npos && command.back() == '\r';
  if (is_head && !chance(4)) return talk + "\r\n> ";
  for (size_t lines = chance(3) ? below(8) : 1; lines > 0; --lines)
    talk += "\r\n" + (chance(15) ? std::string(below(800), 'x') : one_of(words)) + "\r\n";
  if (chance(6)) return talk;
  return talk + "\r\n" + words[chance(3) ? below(kResults) : 0] + "\r\n";
}

std::string world::report() {
  size_t rows = 0;
  while (at_report_table[rows].literal != nullptr) ++rows;
  std::string line = at_report_table[below(rows)].literal;
  if (chance(3)) line = "^WAKEUPIN";
  line += ": ";
  for (size_t parameters = below(8); parameters > 0; --parameters) {
    const std::string values[] = {"\"IPV6\"", "", "\"12/01/31,10:20:30+8\"", "0A3F"};
    line += (chance(3) ? one_of(values) : std::to_string(below(300))) + ',';
  }
  return "\r\n" + line + std::to_string(below(100000)) + "\r\n";
}

std::string world::garbage() {
  const size_t wanted = chance(4) ? kDeliveryMax : 1 + below(300);
  std::string bytes;
  while (bytes.size() < wanted) {
    const size_t what = below(10);
    if (what == 0) {
      bytes += std::string(below(700), 'x');
    } else if (what == 1) {
      bytes += static_cast<char>(below(256));
    } else if (what < 4) {
      bytes += report().substr(below(3));
    } else {
      bytes += what < 7 ? one_of(words) : one_of(pieces);
    }
  }
  return bytes.substr(0, wanted);
}

/// A line that fills a delivery and may be an SMS header on top of what else it is.
std::string world::line_of(size_t size) {
  const std::string start = chance(2) ? "^RSSI: 1" : one_of(words);
  std::string line = start + (chance(2) ? " +CMGR" : "");
  line.resize(size, 'x');
  return line;
}

/// The modem's talk, whole or torn, sometimes with a report at any byte.
void world::say(uint32_t when, std::string talk) {
  if (chance(5)) talk.insert(below(talk.size() + 1), report());
  const size_t longest = chance(2) ? kDeliveryMax : 1 + below(chance(3) ? 12 : 200);
  for (size_t at = 0; at < talk.size();) {
    const size_t size = longest == kDeliveryMax ? longest : 1 + below(longest);
    deliver(when, talk.substr(at, size));
    at += size;
    when += static_cast<uint32_t>(below(chance(6) ? 1500 : 20));
  }
}

void world::deliver(uint32_t when, const std::string& bytes) {
  fake::at(when, [this, delivery = bytes.substr(0, kDeliveryMax)] {
    if (chance(200)) fake::fail.deliveries = 1;
    witness_.said(delivery);
    fake::deliver({{0, delivery}});
  });
}

}  // namespace

void run_until_idle(int32_t state) {
  const auto run = [&state] {
    try {
      if (state == AT_INIT_S) mdxgate_main();
      for (;;) {
        state = mdx_state_pass(state);
        check_state();
      }
    } catch (const fake::end_of_world&) {
      state = AT_IDLE_S;
    }
  };
  run();
  // A delivery that a fault has held back is offered again.
  fake::fail.nas_send = 0;
  fake::at(1, [] {});
  run();
  check_state();
  if (mdx_state.at_state != AT_IDLE_S || mdx_state.ring_head != mdx_state.ring_tail ||
      MDX_msgQex_num(mdx_state.req_queue_id) != 0 || MDX_msgQ_num(mdx_state.nas_queue_id) != 0)
    throw broken_rule("the server is not idle");
}

void live(uint32_t seed, uint64_t hours, counts_t* counts) { world(seed, counts).live(hours); }

}  // namespace simulation
