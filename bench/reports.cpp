// SPDX-License-Identifier: Apache-2.0

// From the modem's write of a report to its receiver's read. The receiver asks the modem for
// reports, then waits; the modem notes the time right before it writes, where the receiver can read
// it.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "bench/roads.h"
#include "client/mdxclient.h"
#include "wire/report_records.h"

namespace {

constexpr int kBlocks = 8;
constexpr int kBlockSize = 200;
constexpr uint32_t kBurst = 10000;
constexpr uint32_t kCrowdReports = 200;
constexpr size_t kMostReceivers = 64;
constexpr int kPatienceMs = 2000;
constexpr uint32_t kSmsModule = 1;

/// In memory that all processes share.
struct board_t {
  int64_t written_at;               ///< when the modem began to write
  int64_t read_at[kMostReceivers];  ///< when a receiver of the crowd had its last report
};

board_t* make_board() {
  void* memory =
      mmap(nullptr, sizeof(board_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) give_up("mmap");
  return static_cast<board_t*>(memory);
}

/// A modem that writes so many reports, each with a write of its own, as it is asked for; they are
/// numbered from 0.
class reporting_modem_t {
 public:
  reporting_modem_t(int modem_fd, board_t* board) {
    if (pipe(ends_) != 0) give_up("pipe");
    process_ = start_process([this, modem_fd, board] {
      uint32_t count = 0;
      while (read(ends_[0], &count, sizeof(count)) == sizeof(count)) {
        char line[64];
        for (uint32_t i = 0; i < count; ++i) {
          const int size = std::snprintf(line, sizeof(line), "\r\n+CMTI: \"SM\",%05u\r\n", i);
          if (i == 0) board->written_at = now_ns();
          write_all(modem_fd, {line, static_cast<size_t>(size)});
        }
      }
    });
  }
  ~reporting_modem_t() { stop_process(process_); }
  void ask_for(uint32_t count) {
    write_all(ends_[1], {reinterpret_cast<const char*>(&count), sizeof(count)});
  }

 private:
  int ends_[2] = {};
  pid_t process_ = -1;
};

mdx_subscription_t* subscribe() {
  mdx_subscription_t* subscription = nullptr;
  if (mdx_subscribe(&subscription, MDX_BY_MODULE, kSmsModule) != MDX_OK) give_up("mdx_subscribe");
  usleep(20000);  // it is taken on another thread of the server
  return subscription;
}

struct received_t {
  uint32_t count = 0;
  uint32_t lost = 0;
  bool in_order = true;
  int64_t last_at = 0;
};

/// Takes reports until `count` have come, or nothing more comes.
received_t receive(mdx_subscription_t* subscription, uint32_t count) {
  received_t received;
  int32_t before = -1;
  while (received.count + received.lost < count) {
    mdx_packet_t packet = MDX_PACKET_INIT;
    if (mdx_next_packet(subscription, kPatienceMs, &packet) != MDX_OK) break;
    received.last_at = now_ns();
    at_sms_index_info record;
    if (packet.length != sizeof(record)) give_up("another packet");
    std::memcpy(&record, packet.payload, sizeof(record));
    received.in_order = received.in_order && record.index > before;
    before = record.index;
    received.lost += packet.lost;
    ++received.count;
  }
  return received;
}

void read_lines(int fd, uint32_t count) {
  char bytes[4096];
  for (uint32_t ends = 0; ends < 2 * count;) {
    const ssize_t got = read(fd, bytes, sizeof(bytes));
    if (got <= 0) give_up("read");
    ends += static_cast<uint32_t>(std::count(bytes, bytes + got, '\n'));
  }
}

struct ends_t {
  reporting_modem_t* raw_modem;
  int raw_fd;
  reporting_modem_t* modem;
  mdx_subscription_t* subscription;
  board_t* board;
};

void measure_single_reports(const ends_t& ends) {
  std::vector<int64_t> raw_times;
  std::vector<int64_t> times;
  for (int i = 0; i < kBlocks * kBlockSize; ++i) {
    if (i / kBlockSize % 2 == 0) {
      ends.raw_modem->ask_for(1);
      read_lines(ends.raw_fd, 1);
      raw_times.push_back(now_ns() - ends.board->written_at);
    } else {
      ends.modem->ask_for(1);
      times.push_back(receive(ends.subscription, 1).last_at - ends.board->written_at);
    }
  }
  print_times("raw.report", raw_times);
  print_times("server.report", times);
}

void measure_raw_burst(const ends_t& ends) {
  ends.raw_modem->ask_for(kBurst);
  read_lines(ends.raw_fd, kBurst);
  print_value("raw.burst", static_cast<double>(now_ns() - ends.board->written_at) / 1e3);
}

void measure_burst(const ends_t& ends, const std::string& name) {
  ends.modem->ask_for(kBurst);
  const received_t received = receive(ends.subscription, kBurst);
  print_value(name, static_cast<double>(received.last_at - ends.board->written_at) / 1e3);
  print_value(name + ".delivered", received.count);
  print_value(name + ".in_order", received.in_order ? 1 : 0);
}

/// How many of so many bursts came whole, and what the worst of them left out.
void measure_bursts(const ends_t& ends, const std::string& name, pid_t server, int bursts) {
  const int64_t used = cpu_ns(server);
  int whole = 0;
  uint32_t fewest = kBurst;
  std::vector<int64_t> times;
  for (int i = 0; i < bursts; ++i) {
    ends.modem->ask_for(kBurst);
    const received_t received = receive(ends.subscription, kBurst);
    times.push_back(received.last_at - ends.board->written_at);
    fewest = std::min(fewest, received.count);
    if (received.count == kBurst && received.in_order) ++whole;
  }
  print_value(name + ".whole", whole);
  print_value(name + ".fewest", fewest);
  print_value(name + ".server_us",
              static_cast<double>(cpu_ns(server) - used) / 1e3 / (1.0 * bursts * kBurst));
  print_times(name, times);
}

/// Time of a report until the last of so many receivers has it.
void measure_crowd(const ends_t& ends, size_t receivers) {
  std::vector<pid_t> crowd;
  for (size_t i = 0; i < receivers; ++i) {
    crowd.push_back(start_process([&, i] {
      const received_t received = receive(subscribe(), kCrowdReports);
      if (received.count != kCrowdReports) give_up("a report is missing");
      ends.board->read_at[i] = received.last_at;
    }));
  }
  usleep(200000);  // all have subscribed
  ends.modem->ask_for(kCrowdReports);
  for (const pid_t process : crowd) wait_for_process(process);
  const int64_t last = *std::max_element(ends.board->read_at, ends.board->read_at + receivers);
  print_value("receivers." + std::to_string(receivers),
              static_cast<double>(last - ends.board->written_at) / 1e3 / kCrowdReports);
}

}  // namespace

void measure_reports(const terminal_t& device) {
  board_t* board = make_board();
  const terminal_t raw = open_terminal();
  reporting_modem_t raw_modem(raw.modem_fd, board);
  reporting_modem_t modem(device.modem_fd, board);
  ends_t ends = {&raw_modem, raw.user_fd, &modem, subscribe(), board};

  measure_single_reports(ends);
  measure_raw_burst(ends);
  measure_burst(ends, "server.burst");
  mdx_subscription_t* sleeper = subscribe();
  measure_burst(ends, "server.burst_beside_sleeper");
  mdx_unsubscribe(sleeper);
  mdx_unsubscribe(ends.subscription);
  for (const size_t receivers : {1, 8, 64}) measure_crowd(ends, receivers);
}

void measure_whole_bursts(const terminal_t& device, pid_t server, int bursts) {
  board_t* board = make_board();
  reporting_modem_t modem(device.modem_fd, board);
  ends_t ends = {nullptr, -1, &modem, subscribe(), board};
  print_value("bursts", bursts);
  measure_bursts(ends, "bursts.alone", server, bursts);
  mdx_subscription_t* sleeper = subscribe();
  measure_bursts(ends, "bursts.beside_sleeper", server, bursts);
  mdx_unsubscribe(sleeper);
  mdx_unsubscribe(ends.subscription);
}
