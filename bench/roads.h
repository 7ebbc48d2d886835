// SPDX-License-Identifier: Apache-2.0

// What the measurements of mdx_bench_roads share: terminals, the processes at their ends, and the
// printing of what was measured.
//
// A measurement that can't be made ends the program with exit code 1.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

/// A pseudo terminal, raw. The modem sits on `modem_fd`; who talks to it on `user_fd`, or opens
/// `path`.
struct terminal_t {
  int modem_fd;
  int user_fd;
  char path[64];
};
terminal_t open_terminal();

/// Says why on standard error, and ends the program.
[[noreturn]] void give_up(const char* what);

/// Runs `work` in a process of its own, which dies with this one.
pid_t start_process(const std::function<void()>& work);
void stop_process(pid_t process);
void wait_for_process(pid_t process);

/// Answers each command on the terminal at once, for good: reads until a CR, writes.
void answer_commands(int modem_fd);

/// Reads from a terminal until the answer's last bytes, "OK" CR LF, are there.
void read_answer(int user_fd);

void write_all(int fd, std::string_view bytes);
int64_t now_ns();
/// The CPU time that a process has used so far.
int64_t cpu_ns(pid_t process);

/// Prints "name value" for bench/run.
void print_value(std::string_view name, double value);
/// Prints the median as "name.p50" and the 99th percentile as "name.p99", in microseconds.
void print_times(std::string_view name, std::vector<int64_t> nanoseconds);

/// Round trips of AT and AT+CSQ: raw, through bare queues, without events and with, through the
/// server.
/// @param device  where the server's modem sits
void measure_round_trips(const terminal_t& device);
/// Clients that never pause, through bare queues and through the server: what a command takes of
/// the server's time, how long the slowest wait, and how evenly the turns fall.
void measure_crowds();
/// Reports to receivers: one at a time, in bursts, with many receivers.
void measure_reports(const terminal_t& device, pid_t server);
/// A report to many receivers, and beside it the least that sends packets to as many.
void measure_crowds_of_receivers(const terminal_t& device, pid_t server);
/// How many of so many bursts of 10,000 reports are delivered whole, to a receiver that reads, and
/// beside one that does not.
void measure_whole_bursts(const terminal_t& device, pid_t server, int bursts);
/// What mdxtap adds between a terminal's two ends, beside a terminal without it.
void measure_tap();
