// SPDX-License-Identifier: Apache-2.0

// What does it cost to tell what a line is? The server's parser and the plain one, in turns, on the
// same deliveries; first each of their answers is compared. Prints "name value" lines for
// bench/run, values in nanoseconds a line.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "bench/plain_sorter.h"
#include "platform/mdx_platform.h"
#include "server/at_match.h"
#include "server/at_parser.h"
#include "server/mdx_state.h"

extern const char* bench_handler;

namespace {

constexpr int kTurns = 15;
constexpr double kTurnNs = 2e6;
constexpr int kRandomLines = 200000;

plain_sorter_t plain;

struct line_set_t {
  std::string name;
  uint32_t req_type;
  std::vector<std::string> lines;
};

std::string hex_text(size_t length) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  while (text.size() < length) text += kDigits[text.size() * 7 % 16];
  return text;
}

const std::vector<line_set_t>& line_sets() {
  static const std::vector<line_set_t> sets = {
      {"mix",
       ACTIVE_REPORT,
       {"^RSSI: 18", "^HCSQ:\"LTE\",46,41,136,22", "+CREG: 1,\"18C3\",\"D0A1F03\",7",
        "+CGREG: 1,\"18C3\",\"D0A1F03\",7", "^MODE:17,17", "+CMTI: \"SM\",17", "RING",
        "+CLIP: \"+4915112345678\",145,,,,0", "^NDISSTATEX:1,1,,,\"IPV4\"", "^SRVST:2",
        "^DSFLOWRPT:0000000A,00000000,00000000,0000000000000A3C,00000000000007D0,00000000,00000000",
        "^NWTIME:18/12/13,06:20:04+28,00", "^SIMST:1", "^LTESIGLEV: -97,-10,-66,12"}},
      {"text96", NORMAL_CMD, {hex_text(96)}},
      {"text308", NORMAL_CMD, {hex_text(308)}},
      {"unknown",
       NORMAL_CMD,
       {"+CGDCONT: 1,\"IP\",\"internet\",\"0.0.0.0\",0,0", "+CPMS: 3,20,3,20,3,20",
        "+XBANDSEL: 12, 3, 7, 8, 20", "+COPS: 0,2,\"26201\",7"}},
      {"result",
       NORMAL_CMD,
       {"OK", "ERROR", "+CME ERROR: 30", "NO CARRIER", "CONNECT 115200", "BUSY"}},
  };
  return sets;
}

at_msg_t record(uint32_t req_type) {
  at_msg_t msg = {};
  msg.req_type = req_type;
  msg.ret_val = AT_NONE;
  return msg;
}

void sort_fast(const std::string& delivery, at_msg_t* msg) {
  at_stream_t& stream = mdx_state.stream;
  std::memcpy(stream.data, delivery.data(), delivery.size());
  stream.p_cur = stream.data;
  stream.p_end = stream.data + delivery.size();
  mdx_state.nas_response_legth = 0;
  parse_response(msg);
}

void sort_plainly(const std::string& delivery, at_msg_t* msg) {
  std::memcpy(plain.stream, delivery.data(), delivery.size());
  plain.p_cur = plain.stream;
  plain.p_end = plain.stream + delivery.size();
  plain.nas_response_legth = 0;
  plain_parse_response(&plain, msg);
}

/// Both sorters' answers to one delivery, whatever can be seen of them.
bool agree(const std::string& delivery, uint32_t req_type) {
  at_msg_t fast_msg = record(req_type);
  at_msg_t plain_msg = fast_msg;
  bench_handler = "";
  sort_fast(delivery, &fast_msg);
  const std::string_view fast_handler = bench_handler;
  bench_handler = "";
  sort_plainly(delivery, &plain_msg);

  const auto collected = static_cast<size_t>(plain.nas_response_legth);
  const at_msg_t shown = mdx_state.last_nas_msg.load();
  return fast_handler == bench_handler &&
         std::memcmp(&fast_msg, &plain_msg, sizeof(at_msg_t)) == 0 &&
         mdx_state.nas_response_legth == plain.nas_response_legth &&
         std::memcmp(mdx_state.nas_response, plain.nas_response, collected) == 0 &&
         std::memcmp(&shown, &plain.last_nas_msg, sizeof(at_msg_t)) == 0;
}

/// A line of whole and cut literals, report starts and other text.
std::string random_line(std::mt19937* random) {
  constexpr std::string_view kOthers[] = {"+",       "^",       ": 1,2", "OK",    " ",
                                          "\"SM\",", "+CSQ: 7", "RIN",   "CONNEC"};
  const auto below = [random](size_t limit) { return (*random)() % limit; };
  std::string line;
  for (size_t pieces = 1 + below(8); pieces > 0; --pieces) {
    const bool literal = below(2) == 0;
    std::string_view piece =
        literal ? at_report_table[below(65)].literal : kOthers[below(std::size(kOthers))];
    if (literal && below(2) == 0)
      piece = piece.substr(below(piece.size()), 1 + below(piece.size()));
    line += piece;
  }
  return line;
}

bool is_sms_header(const std::string& line) {
  for (const char* header : {"+CBM", "+CMGR", "+CMGL", "^HCMGR"}) {
    if (line.find(header) != std::string::npos) return true;
  }
  return false;
}

bool prove() {
  std::mt19937 random(std::random_device{}());
  std::vector<std::pair<std::string, uint32_t>> cases;
  for (const line_set_t& set : line_sets()) {
    for (const std::string& line : set.lines) cases.emplace_back(line, set.req_type);
  }
  for (int i = 0; i < kRandomLines; ++i) {
    constexpr uint32_t kTypes[] = {NORMAL_CMD, ACTIVE_REPORT};
    cases.emplace_back(random_line(&random), kTypes[i % 2]);
  }
  for (const auto& [line, req_type] : cases) {
    if (is_sms_header(line)) continue;
    if (agree(line + "\r\n", req_type)) continue;
    std::fprintf(stderr, "the sorters do not agree on: %s\n", line.c_str());
    return false;
  }
  std::printf("sort.proved %zu\n", cases.size());
  return true;
}

/// Time this thread has had the CPU, so that others on the machine do not count.
double now_ns() {
  timespec time = {};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

/// Nanoseconds of one call of `work`.
template <class Work>
double turn(int repeats, const Work& work) {
  const double start = now_ns();
  for (int i = 0; i < repeats; ++i) work();
  return (now_ns() - start) / repeats;
}

double median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2),
                   values.end());
  return values[values.size() / 2];
}

void measure(const std::string& name, uint32_t req_type, const std::vector<std::string>& lines) {
  std::vector<std::string> deliveries;
  std::string all;
  for (const std::string& line : lines) deliveries.push_back(line + "\r\n");
  for (const std::string& delivery : deliveries) all += delivery;
  at_msg_t msg = record(req_type);
  const auto fast = [&] {
    for (const std::string& delivery : deliveries) sort_fast(delivery, &msg);
  };
  const auto slow = [&] {
    for (const std::string& delivery : deliveries) sort_plainly(delivery, &msg);
  };
  volatile size_t split = 0;
  const auto splitting = [&] {
    for (const char* at = all.data(); at < all.data() + all.size();) {
      at = static_cast<const char*>(
               std::memchr(at, '\n', static_cast<size_t>(all.data() + all.size() - at))) +
           1;
      split = split + 1;
    }
  };
  const int repeats = std::max(1, static_cast<int>(kTurnNs / turn(20, slow)));
  std::vector<double> times[3];
  for (int i = 0; i < kTurns; ++i) {
    times[0].push_back(turn(repeats, fast));
    times[1].push_back(turn(repeats, slow));
    times[2].push_back(turn(repeats, splitting));
  }
  const double lines_count = static_cast<double>(lines.size());
  std::printf("%s.fast %.1f\n%s.plain %.1f\n%s.split %.2f\n", name.c_str(),
              median(times[0]) / lines_count, name.c_str(), median(times[1]) / lines_count,
              name.c_str(), median(times[2]) / lines_count);
}

}  // namespace

int main() {
  mdx_trace_mask = 0;
  mdx_state.stream.p_cur = mdx_state.stream.p_end = mdx_state.stream.data;
  constexpr char kHead[] = "AT+CSQ";
  std::memcpy(mdx_state.sent_cmd_head, kHead, sizeof(kHead));
  std::memcpy(plain.sent_cmd_head, kHead, sizeof(kHead));
  if (!prove()) return 1;
  for (const line_set_t& set : line_sets()) measure("sort." + set.name, set.req_type, set.lines);
  for (size_t row = 0; row <= 64; row += 8) {
    measure("position." + std::to_string(row), ACTIVE_REPORT,
            {std::string(at_report_table[row].literal) + ": 1,2"});
  }
  for (const size_t length : {16, 64, 256, 512, 1024, 1400}) {
    measure("length." + std::to_string(length), NORMAL_CMD, {hex_text(length)});
  }
}
