// SPDX-License-Identifier: Apache-2.0

// From a command to its answer. The ways take turns in short blocks, so that whatever disturbs the
// machine disturbs all of them.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "bench/bare_queues.h"
#include "bench/roads.h"
#include "client/mdxclient.h"

namespace {

constexpr int kBlocks = 8;
constexpr int kBlockSize = 250;
constexpr int64_t kGatherNs = 100'000'000;
constexpr int64_t kCrowdNs = 1'000'000'000;
constexpr int kMostTurns = 100'000;
constexpr const char* kCommands[] = {"AT", "AT+CSQ"};

/// One way from a command to its answer.
class way_t {
 public:
  way_t(std::string name, std::function<void(const char*)> send)
      : name_(std::move(name)), send_(std::move(send)) {}

  void run_block() {
    for (size_t which = 0; which < std::size(kCommands); ++which) {
      for (int i = 0; i < kBlockSize; ++i) {
        const int64_t start = now_ns();
        send_(kCommands[which]);
        times_[which].push_back(now_ns() - start);
      }
    }
  }

  void print() const {
    for (size_t which = 0; which < std::size(kCommands); ++which) {
      print_times(name_ + "." + kCommands[which], times_[which]);
    }
  }

 private:
  std::string name_;
  std::function<void(const char*)> send_;
  std::vector<int64_t> times_[std::size(kCommands)];
};

void send_raw(const terminal_t& terminal, const char* command) {
  write_all(terminal.user_fd, std::string(command) + "\r");
  read_answer(terminal.user_fd);
}

mdx_client_t* open_client() {
  mdx_client_t* client = nullptr;
  if (mdx_open(&client) != MDX_OK) give_up("mdx_open");
  return client;
}

void send_to_server(mdx_client_t* client, const char* command) {
  mdx_result_t result = MDX_RESULT_INIT;
  const int error = mdx_send(client, command, nullptr, &result);
  if (error != MDX_OK || result.ret_val != MDX_RESULT_OK) {
    give_up(error != MDX_OK ? mdx_strerror(error) : mdx_result_name(result.ret_val));
  }
}

/// What one client of a crowd tells, in memory that it shares with the bench.
struct turns_t {
  int count;
  uint32_t waited_us[kMostTurns];
};

/// Sends and sends, from one moment to another.
void take_turns(int64_t begin, int64_t end, turns_t* turns, const std::function<void()>& send) {
  while (now_ns() < begin) usleep(1000);
  for (int64_t now = begin; now < end && turns->count < kMostTurns;) {
    const int64_t sent = now_ns();
    send();
    now = now_ns();
    turns->waited_us[turns->count++] = static_cast<uint32_t>((now - sent) / 1000);
  }
}

/// Prints microseconds a command, the 99th percentile of what one waits, and how many times as many
/// turns the luckiest client gets as the unluckiest.
void print_crowd(const std::string& name, const turns_t* crowd, int clients) {
  std::vector<int64_t> waited;
  int most = 0;
  int fewest = kMostTurns;
  for (int i = 0; i < clients; ++i) {
    most = std::max(most, crowd[i].count);
    fewest = std::min(fewest, crowd[i].count);
    for (int turn = 0; turn < crowd[i].count; ++turn) {
      waited.push_back(int64_t{crowd[i].waited_us[turn]} * 1000);
    }
  }
  print_value(name, static_cast<double>(kCrowdNs) / 1e3 / static_cast<double>(waited.size()));
  print_value(name + ".luck", static_cast<double>(most) / std::max(fewest, 1));
  print_times(name, waited);
}

/// @param open  called in each client's process, with its number above 0: the way it sends
void measure_crowd(const std::string& name, int clients,
                   const std::function<std::function<void()>(int)>& open) {
  const size_t size = sizeof(turns_t) * static_cast<size_t>(clients);
  void* shared = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) give_up("mmap");
  auto* turns = static_cast<turns_t*>(shared);
  const int64_t begin = now_ns() + kGatherNs;
  std::vector<pid_t> crowd;
  for (int i = 0; i < clients; ++i) {
    crowd.push_back(
        start_process([&, i] { take_turns(begin, begin + kCrowdNs, turns + i, open(i + 1)); }));
  }
  for (const pid_t process : crowd) wait_for_process(process);
  print_crowd(name + "." + std::to_string(clients), turns, clients);
  munmap(shared, size);
}

}  // namespace

void measure_round_trips(const terminal_t&) {
  const terminal_t raw = open_terminal();
  const pid_t modem = start_process([&] { answer_commands(raw.modem_fd); });
  const bare_queues_t queues(bare_wait_t::in_queue);
  const bare_queues_t formats(bare_wait_t::for_events);
  const std::shared_ptr<mdx_client_t> client(open_client(), mdx_close);

  way_t ways[] = {
      {"raw", [&](const char* command) { send_raw(raw, command); }},
      {"queues", [&](const char* command) { queues.send(command); }},
      {"formats", [&](const char* command) { formats.send(command); }},
      {"server", [&](const char* command) { send_to_server(client.get(), command); }},
  };
  for (int block = 0; block < kBlocks; ++block) {
    for (way_t& way : ways) way.run_block();
  }
  for (const way_t& way : ways) way.print();

  stop_process(modem);
}

void measure_crowds() {
  const bare_queues_t queues(bare_wait_t::in_queue);
  for (const int clients : {1, 8, 16, 64}) {
    measure_crowd("bare_clients", clients,
                  [&](int number) { return [&, number] { queues.send("AT", number); }; });
    measure_crowd("clients", clients, [](int) {
      const std::shared_ptr<mdx_client_t> client(open_client(), mdx_close);
      return [client] { send_to_server(client.get(), "AT"); };
    });
  }
}
