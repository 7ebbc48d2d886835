// SPDX-License-Identifier: Apache-2.0

// From the modem's write of a report to its receiver's read. The receiver asks the modem for
// reports, then waits; the modem notes the time right before it writes, where the receiver can read
// it.

#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "bench/roads.h"
#include "client/mdxclient.h"
#include "wire/border.h"
#include "wire/report_records.h"

namespace {

constexpr int kBlocks = 8;
constexpr int kBlockSize = 200;
constexpr uint32_t kBurst = 10000;
constexpr uint32_t kCrowdReports = 200;
constexpr size_t kCrowds[] = {1, 8, 64, 128};
constexpr int kBareSendBuffer = 128 * 1024;
constexpr int kPatienceMs = 2000;
constexpr int kCrowdPatienceMs = 20000;
constexpr uint32_t kSmsModule = 1;

/// In memory that all processes share.
struct board_t {
  int64_t written_at;          ///< when the modem began to write
  std::atomic<uint32_t> left;  ///< receivers of the crowd that have not yet joined, then reports
                               ///< that it has not yet read
  int64_t last_at;             ///< when it had read them all
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
  pid_t server;
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
void measure_bursts(const ends_t& ends, const std::string& name, int bursts) {
  const int64_t used = cpu_ns(ends.server);
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
              static_cast<double>(cpu_ns(ends.server) - used) / 1e3 / (1.0 * bursts * kBurst));
  print_times(name, times);
}

/// Asks for some reports and waits until all of a crowd have them all.
/// @return microseconds a report
double reports_to_crowd(reporting_modem_t* modem, board_t* board, int done, size_t receivers,
                        uint32_t reports) {
  board->left = static_cast<uint32_t>(receivers) * reports;
  modem->ask_for(reports);
  pollfd last = {done, POLLIN, 0};
  char byte = 0;
  if (poll(&last, 1, kCrowdPatienceMs) != 1 || read(done, &byte, 1) != 1) {
    give_up("a report is missing");
  }
  return static_cast<double>(board->last_at - board->written_at) / 1e3 / reports;
}

/// Runs so many receivers, and prints how long a report takes until the last of them has it: of
/// single reports the median, of a burst the mean and how much CPU time the hub and all receivers
/// use together, which counts less of what else runs.
/// @param join  joins the hub, and returns what takes one report
void measure_crowd(const std::string& name, reporting_modem_t* modem, board_t* board, pid_t hub,
                   size_t receivers, const std::function<std::function<void()>(size_t)>& join) {
  int done[2];
  if (pipe(done) != 0) give_up("pipe");
  std::vector<pid_t> crowd = {hub};
  board->left = static_cast<uint32_t>(receivers);
  for (size_t i = 0; i < receivers; ++i) {
    crowd.push_back(start_process([&, i] {
      const std::function<void()> take = join(i);
      for (--board->left;;) {
        take();
        const int64_t now = now_ns();
        if (--board->left != 0) continue;
        board->last_at = now;
        write_all(done[1], "d");
      }
    }));
  }
  while (board->left != 0) usleep(1000);  // not all have joined
  std::vector<double> singles;
  for (uint32_t i = 0; i < kCrowdReports; ++i) {
    singles.push_back(reports_to_crowd(modem, board, done[0], receivers, 1));
  }
  std::sort(singles.begin(), singles.end());
  const auto used = [&] {
    int64_t sum = 0;
    for (const pid_t process : crowd) sum += cpu_ns(process);
    return sum;
  };
  const int64_t before = used();
  const double burst = reports_to_crowd(modem, board, done[0], receivers, kCrowdReports);
  const std::string crowd_name = name + "." + std::to_string(receivers);
  print_value(crowd_name, singles[singles.size() / 2]);
  print_value(crowd_name + ".burst", burst);
  print_value(crowd_name + ".cpu", static_cast<double>(used() - before) / 1e3 / kCrowdReports);
  for (size_t i = 1; i < crowd.size(); ++i) stop_process(crowd[i]);
  close(done[0]);
  close(done[1]);
}

void measure_crowd_of_server(const ends_t& ends, size_t receivers) {
  measure_crowd("receivers", ends.modem, ends.board, ends.server, receivers, [](size_t) {
    return [subscription = subscribe()] {
      mdx_packet_t packet = MDX_PACKET_INIT;
      if (mdx_next_packet(subscription, -1, &packet) != MDX_OK) give_up("mdx_next_packet");
      if (packet.lost != 0) give_up("a report was lost");
    };
  });
}

/// As large as the server's packet of such a report.
struct bare_packet_t {
  mdx_packet_header_t header;
  at_sms_index_info record;
};

/// The least that fans out: reads what the terminal holds, and sends a packet a report to each.
void fan_out(int terminal_fd, const std::vector<int>& receivers) {
  char bytes[4096];
  uint32_t ends = 0;
  for (;;) {
    const ssize_t got = read(terminal_fd, bytes, sizeof(bytes));
    if (got <= 0) give_up("read");
    for (ssize_t i = 0; i < got; ++i) {
      if (bytes[i] != '\n' || ++ends % 2 != 0) continue;
      const bare_packet_t packet = {};
      for (const int fd : receivers) {
        if (send(fd, &packet, sizeof(packet), MSG_DONTWAIT) < 0) give_up("send");
      }
    }
  }
}

void take_bare(int fd) {
  pollfd hub = {fd, POLLIN, 0};
  bare_packet_t packet;
  if (poll(&hub, 1, -1) != 1 || recv(fd, &packet, sizeof(packet), 0) < 0) give_up("recv");
}

void measure_bare_crowd(const ends_t& ends, size_t receivers) {
  std::vector<int> near;
  std::vector<int> far;
  for (size_t i = 0; i < receivers; ++i) {
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, pair) != 0) give_up("socketpair");
    setsockopt(pair[0], SOL_SOCKET, SO_SNDBUF, &kBareSendBuffer, sizeof(kBareSendBuffer));
    near.push_back(pair[0]);
    far.push_back(pair[1]);
  }
  const pid_t hub = start_process([&] { fan_out(ends.raw_fd, near); });
  measure_crowd("bare_receivers", ends.raw_modem, ends.board, hub, receivers,
                [&](size_t i) { return [fd = far[i]] { take_bare(fd); }; });
  stop_process(hub);
  for (const int fd : near) close(fd);
  for (const int fd : far) close(fd);
}

void measure_fan_out(const ends_t& ends) {
  for (const size_t receivers : kCrowds) {
    measure_bare_crowd(ends, receivers);
    measure_crowd_of_server(ends, receivers);
  }
}

}  // namespace

void measure_crowds_of_receivers(const terminal_t& device, pid_t server) {
  board_t* board = make_board();
  const terminal_t raw = open_terminal();
  reporting_modem_t raw_modem(raw.modem_fd, board);
  reporting_modem_t modem(device.modem_fd, board);
  measure_fan_out({&raw_modem, raw.user_fd, &modem, nullptr, board, server});
}

void measure_reports(const terminal_t& device, pid_t server) {
  board_t* board = make_board();
  const terminal_t raw = open_terminal();
  reporting_modem_t raw_modem(raw.modem_fd, board);
  reporting_modem_t modem(device.modem_fd, board);
  ends_t ends = {&raw_modem, raw.user_fd, &modem, subscribe(), board, server};

  measure_single_reports(ends);
  measure_raw_burst(ends);
  measure_burst(ends, "server.burst");
  mdx_subscription_t* sleeper = subscribe();
  measure_burst(ends, "server.burst_beside_sleeper");
  mdx_unsubscribe(sleeper);
  mdx_unsubscribe(ends.subscription);
  measure_fan_out(ends);
}

void measure_whole_bursts(const terminal_t& device, pid_t server, int bursts) {
  board_t* board = make_board();
  reporting_modem_t modem(device.modem_fd, board);
  ends_t ends = {nullptr, -1, &modem, subscribe(), board, server};
  print_value("bursts", bursts);
  measure_bursts(ends, "bursts.alone", bursts);
  mdx_subscription_t* sleeper = subscribe();
  measure_bursts(ends, "bursts.beside_sleeper", bursts);
  mdx_unsubscribe(sleeper);
  mdx_unsubscribe(ends.subscription);
}
