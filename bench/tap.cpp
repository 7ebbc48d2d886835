// SPDX-License-Identifier: Apache-2.0

// What mdxtap adds between a modem and its host: bytes that go straight through a terminal take
// turns with bytes that go through mdxtap and two terminals, and are recorded, masked.

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "bench/roads.h"

namespace {

constexpr int kBlocks = 10;
constexpr int kBlockSize = 100;
constexpr size_t kStreamBytes = 4'000'000;  // each way
constexpr char kHost[] = "/tmp/bench.host";
constexpr char kRecord[] = "/tmp/bench.record";
constexpr std::string_view kCommand = "AT+CSQ\r";
constexpr std::string_view kAnswer = "\r\n+CSQ: 20,99\r\n\r\nOK\r\n";
constexpr double kMega = 1e6;

pid_t start_tap(const terminal_t& modem) {
  const pid_t process = start_process([&] {
    if (std::freopen("/dev/null", "w", stderr) == nullptr) give_up("/dev/null");
    execlp("mdxtap", "mdxtap", modem.path, "--link", kHost, "--record", kRecord, "--max-size", "0",
           nullptr);
    give_up("mdxtap");
  });
  while (access(kHost, F_OK) != 0) usleep(1000);
  return process;
}

/// From the first byte written at one end to the last read at the other.
int64_t carry(int from, int to, std::string_view bytes) {
  char buffer[256];
  const int64_t start = now_ns();
  write_all(from, bytes);
  for (size_t got = 0; got < bytes.size();) {
    const ssize_t size = read(to, buffer, sizeof(buffer));
    if (size <= 0) give_up("read");
    got += static_cast<size_t>(size);
  }
  return now_ns() - start;
}

struct line_t {
  const char* name;
  int modem_fd;
  int host_fd;
  std::vector<int64_t> up;
  std::vector<int64_t> down;

  void run_block() {
    for (int i = 0; i < kBlockSize; ++i) {
      up.push_back(carry(host_fd, modem_fd, kCommand));
      down.push_back(carry(modem_fd, host_fd, kAnswer));
    }
  }

  void print() const {
    print_times(std::string(name) + ".up", up);
    print_times(std::string(name) + ".down", down);
  }
};

std::string repeated(std::string_view text) {
  std::string stream;
  while (stream.size() < kStreamBytes) stream += text;
  return stream;
}

void read_stream(int fd, size_t size) {
  char buffer[4096];
  while (size > 0) {
    const ssize_t got = read(fd, buffer, sizeof(buffer));
    if (got <= 0) give_up("stream");
    size -= static_cast<size_t>(got);
  }
}

/// Both ways at once, as fast as they go. Returns megabits a second of each.
double measure_stream(const line_t& line) {
  const std::string up = repeated(kCommand);
  const std::string down = repeated(kAnswer);
  const int64_t start = now_ns();
  const pid_t host_writes = start_process([&] { write_all(line.host_fd, up); });
  const pid_t modem_writes = start_process([&] { write_all(line.modem_fd, down); });
  const pid_t modem_reads = start_process([&] { read_stream(line.modem_fd, up.size()); });
  read_stream(line.host_fd, down.size());
  for (const pid_t process : {host_writes, modem_writes, modem_reads}) wait_for_process(process);
  return static_cast<double>(down.size()) * 8 / kMega /
         (static_cast<double>(now_ns() - start) / 1e9);
}

/// Bytes that the recording says are missing.
double missing_bytes() {
  std::ifstream record(kRecord);
  double missing = 0;
  for (std::string line; std::getline(record, line);) {
    if (line.ends_with(" bytes are missing here")) missing += std::stod(line.substr(2));
  }
  return missing;
}

}  // namespace

void measure_tap() {
  const terminal_t bare = open_terminal();
  const terminal_t tapped = open_terminal();
  const pid_t tap = start_tap(tapped);
  line_t beside{"bare", bare.modem_fd, bare.user_fd, {}, {}};
  line_t through{"tap", tapped.modem_fd, open(kHost, O_RDWR | O_NOCTTY), {}, {}};
  if (through.host_fd < 0) give_up(kHost);
  carry(through.host_fd, through.modem_fd, kCommand);
  for (int block = 0; block < kBlocks; ++block) {
    beside.run_block();
    through.run_block();
  }
  beside.print();
  through.print();

  print_value("bare.stream", measure_stream(beside));
  const int64_t start = now_ns();
  print_value("tap.stream", measure_stream(through));
  kill(tap, SIGTERM);
  wait_for_process(tap);
  print_value("tap.recorded", static_cast<double>(kStreamBytes) * 8 / kMega /
                                  (static_cast<double>(now_ns() - start) / 1e9));
  print_value("tap.missing", missing_bytes());
}
