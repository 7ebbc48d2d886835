// SPDX-License-Identifier: Apache-2.0

// The roads of a command and of a report, walked through the real server, and beside each the least
// that the kernel takes for the same. Runs in a box, on the one CPU that bench/run gives it.
//
//   mdx_bench_roads               measures once, prints "name value" lines
//   mdx_bench_roads trips         measures round trips alone
//   mdx_bench_roads crowds        measures many clients alone
//   mdx_bench_roads receivers     measures many receivers alone
//   mdx_bench_roads bursts N      counts the bursts that come whole
//   mdx_bench_roads tap           measures mdxtap instead
//   mdx_bench_roads modem         is the modem at /dev/smd6
//   mdx_bench_roads send N TEXT   sends a command N times

#include "bench/roads.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "client/mdxclient.h"

namespace {

constexpr char kDevice[] = "/dev/smd6";
constexpr char kReadyFlag[] = "/var/mdx_ready.flg";
constexpr int64_t kStartUpLimitNs = 10'000'000'000;

/// The answer to AT+REPORTS: ten reports in front of the result.
std::string ten_reports() {
  std::string text;
  for (int i = 0; i < 10; ++i) text += "\r\n+CMTI: \"SM\",17\r\n";
  return text + "\r\nOK\r\n";
}

pid_t start_server() {
  return start_process([] {
    execlp("mdxgate", "mdxgate", nullptr);
    give_up("mdxgate");
  });
}

/// From the server's start to its first answer. @return the server
pid_t measure_start_up() {
  const int64_t start = now_ns();
  const pid_t server = start_server();
  mdx_client_t* client = nullptr;
  while (mdx_open(&client) != MDX_OK) {
    if (now_ns() - start > kStartUpLimitNs) give_up("the server does not start");
    usleep(100);
  }
  mdx_result_t result = MDX_RESULT_INIT;
  if (mdx_send(client, "AT", nullptr, &result) != MDX_OK) give_up("first command");
  print_value("start_ms", static_cast<double>(now_ns() - start) / 1e6);
  mdx_close(client);
  return server;
}

void send_commands(int count, const char* command) {
  mdx_client_t* client = nullptr;
  mdx_result_t result = MDX_RESULT_INIT;
  if (mdx_open(&client) != MDX_OK) give_up("no server");
  for (int i = 0; i < count; ++i) {
    if (mdx_send(client, command, nullptr, &result) != MDX_OK) give_up(command);
  }
  mdx_close(client);
}

terminal_t open_device() {
  const terminal_t device = open_terminal();
  if (symlink(device.path, kDevice) != 0) give_up(kDevice);
  close(device.user_fd);
  return device;
}

}  // namespace

terminal_t open_terminal() {
  terminal_t terminal = {};
  terminal.modem_fd = posix_openpt(O_RDWR | O_NOCTTY);
  if (terminal.modem_fd < 0 || grantpt(terminal.modem_fd) != 0 ||
      unlockpt(terminal.modem_fd) != 0 ||
      ptsname_r(terminal.modem_fd, terminal.path, sizeof(terminal.path)) != 0) {
    give_up("pseudo terminal");
  }
  terminal.user_fd = open(terminal.path, O_RDWR | O_NOCTTY);
  termios line = {};
  if (terminal.user_fd < 0 || tcgetattr(terminal.user_fd, &line) != 0) give_up(terminal.path);
  cfmakeraw(&line);
  tcsetattr(terminal.user_fd, TCSANOW, &line);
  return terminal;
}

void give_up(const char* what) {
  std::perror(what);
  std::exit(1);
}

pid_t start_process(const std::function<void()>& work) {
  std::fflush(stdout);
  const pid_t process = fork();
  if (process < 0) give_up("fork");
  if (process > 0) return process;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  work();
  std::fflush(stdout);
  _exit(0);
}

void stop_process(pid_t process) {
  kill(process, SIGKILL);
  waitpid(process, nullptr, 0);
}

void wait_for_process(pid_t process) {
  int status = 0;
  if (waitpid(process, &status, 0) != process || status != 0) give_up("a process of the bench");
}

void answer_commands(int modem_fd) {
  const std::string reports = ten_reports();
  char command[256];
  size_t size = 0;
  for (;;) {
    const ssize_t got = read(modem_fd, command + size, sizeof(command) - size);
    if (got <= 0) {  // nobody has the other side open yet
      usleep(1000);
      continue;
    }
    size += static_cast<size_t>(got);
    if (size < sizeof(command) && command[size - 1] != '\r') continue;
    const std::string_view text(command, size);
    size = 0;
    if (text.starts_with("AT+CSQ")) {
      write_all(modem_fd, "\r\n+CSQ: 20,99\r\n\r\nOK\r\n");
    } else {
      write_all(modem_fd,
                text.starts_with("AT+REPORTS") ? std::string_view(reports) : "\r\nOK\r\n");
    }
  }
}

void read_answer(int user_fd) {
  char text[256];
  size_t size = 0;
  while (size < 4 || std::memcmp(text + size - 4, "OK\r\n", 4) != 0) {
    const ssize_t got = read(user_fd, text + size, sizeof(text) - size);
    if (got <= 0) give_up("answer");
    size += static_cast<size_t>(got);
  }
}

void write_all(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(fd, bytes.data(), bytes.size());
    if (written <= 0) give_up("write");
    bytes.remove_prefix(static_cast<size_t>(written));
  }
}

int64_t cpu_ns(pid_t process) {
  clockid_t clock = 0;
  timespec used = {};
  if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &used) != 0) {
    give_up("the time of a process");
  }
  return used.tv_sec * int64_t{1'000'000'000} + used.tv_nsec;
}

int64_t now_ns() {
  timespec time = {};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return time.tv_sec * 1'000'000'000LL + time.tv_nsec;
}

void print_value(std::string_view name, double value) {
  std::printf("%.*s %.3f\n", static_cast<int>(name.size()), name.data(), value);
}

void print_times(std::string_view name, std::vector<int64_t> nanoseconds) {
  std::sort(nanoseconds.begin(), nanoseconds.end());
  const auto microseconds = [&](size_t percent) {
    return static_cast<double>(nanoseconds[nanoseconds.size() * percent / 100]) / 1e3;
  };
  print_value(std::string(name) + ".p50", microseconds(50));
  print_value(std::string(name) + ".p99", microseconds(99));
}

int main(int argc, char** argv) {
  const std::string_view mode = argc > 1 ? argv[1] : "";
  if (mode == "modem") {
    const terminal_t device = open_device();
    answer_commands(device.modem_fd);
  }
  if (mode == "send" && argc == 4) {
    send_commands(std::atoi(argv[2]), argv[3]);
    return 0;
  }
  if (mode == "tap") {
    measure_tap();
    return 0;
  }
  const terminal_t device = open_device();
  const pid_t modem = start_process([&] { answer_commands(device.modem_fd); });
  const pid_t server = measure_start_up();
  if (mode == "bursts" && argc == 3) {
    stop_process(modem);
    measure_whole_bursts(device, server, std::atoi(argv[2]));
    return 0;
  }
  if (access(kReadyFlag, F_OK) != 0) give_up(kReadyFlag);
  if (mode == "crowds") {
    measure_crowds();
    return 0;
  }
  if (mode == "receivers") {
    stop_process(modem);
    measure_crowds_of_receivers(device, server);
    return 0;
  }
  measure_round_trips(device);
  if (mode == "trips") return 0;
  measure_crowds();
  stop_process(modem);
  measure_reports(device, server);
}
