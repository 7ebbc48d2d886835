// SPDX-License-Identifier: Apache-2.0

// The debug console: a person connects, sends one line, reads the answer until it is closed.
//
// It is served on the hub's thread, one client at a time. So each client has a deadline for its
// line, which nobody waits for, and a short one for taking an answer that its socket has no room
// for: a client that sends nothing, never reads or sends rubbish holds up nobody for long.

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "platform/linux/claim.h"
#include "platform/linux/console.h"
#include "platform/linux/counters.h"
#include "platform/linux/hub.h"
#include "platform/linux/large_buffers.h"
#include "platform/linux/local_socket.h"
#include "platform/linux/monotonic.h"
#include "platform/linux/nas_queue.h"
#include "platform/linux/record_queue.h"
#include "platform/mdx_platform.h"
#include "wire/border.h"

namespace {

constexpr uint32_t kLineWaitMs = 2000;
constexpr timeval kAnswerWait = {0, 500'000};
constexpr uint32_t kAcceptNapMs = 100;
constexpr size_t kLineSize = 128;
constexpr size_t kMaxModules = 8;
constexpr char kBlanks[] = " \t\r\n";

struct console_module_t {
  const char* name;
  const mdx_debug_command_t* commands;
  int32_t count;
};

int32_t print_or_set_trace_mask();
int32_t print_stats();
int32_t print_receivers();
int32_t print_version();

constexpr mdx_debug_command_t platform_commands[] = {
    {"trace", print_or_set_trace_mask},
    {"stats", print_stats},
    {"receivers", print_receivers},
    {"version", print_version},
};

constinit console_module_t modules[kMaxModules] = {
    {"platform", platform_commands, static_cast<int32_t>(std::size(platform_commands))}};
constinit std::atomic<size_t> module_count{1};

// The client that is served, what came of its line, and the argument of its command.
constinit int client = -1;
constinit bool client_lost = false;
[[MDX_SELDOM_TOUCHED]] constinit char line[kLineSize] = {};
constinit size_t line_length = 0;
constinit uint32_t line_begun = 0;  ///< MDX_elapse
constinit const char* argument = nullptr;

std::atomic<int> listener{-1};
constinit complaint told;  ///< why nobody can connect
uint64_t started_at = 0;   ///< monotonic_us

int32_t print_or_set_trace_mask() {
  if (argument != nullptr) {
    char* end = nullptr;
    errno = 0;
    const unsigned long mask = strtoul(argument, &end, 0);
    if (argument[0] == '-' || *end != '\0' || errno != 0 || mask > UINT32_MAX) {
      KRP_Debug_Print(
          "usage: platform trace MASK; a mask is a sum of 2 errors, 4 things missing, 8 flow, 16 "
          "details\n");
      return 0;
    }
    mdx_trace_mask.store(static_cast<uint32_t>(mask), std::memory_order_relaxed);
  }
  KRP_Debug_Print("trace %" PRIu32 "\n", mdx_trace_mask.load(std::memory_order_relaxed));
  return 0;
}

/// Prints values that go up and down; the counters only go up.
void print_levels() {
  const uint64_t opened =
      counter_value(COUNT_CHANNEL_OPENED) + counter_value(COUNT_CHANNEL_REOPENED);
  hub_receiver_t connected[kMaxReceivers];
  KRP_Debug_Print("channel_open %d\n", opened > counter_value(COUNT_CHANNEL_CLOSED) ? 1 : 0);
  KRP_Debug_Print("requests_waiting %d\n", record_queue_depth(kMdxRequestQueue));
  KRP_Debug_Print("answers_waiting %d\n", record_queue_depth(kMdxResponseQueue));
  KRP_Debug_Print("deliveries_waiting %d\n", MDX_msgQ_num(nas_queue_find()));
  KRP_Debug_Print("receivers_connected %zu\n", hub_receivers(connected, kMaxReceivers));
  KRP_Debug_Print("uptime_seconds %" PRIu64 "\n", (monotonic_us() - started_at) / 1000000u);
}

int32_t print_stats() {
  for (uint32_t i = 0; i < COUNT_COUNTERS; ++i) {
    const auto counter = static_cast<mdx_counter_t>(i);
    KRP_Debug_Print("%s %" PRIu64 "\n", counter_name(counter), counter_value(counter));
  }
  print_levels();
  return 0;
}

/// One word without blanks: "*", a service's name, or "module:" and its number.
void print_wanted(const hub_receiver_t& receiver) {
  if (receiver.name[0] == '\0') return KRP_Debug_Print("module:%" PRIu32, receiver.module);
  char name[sizeof(receiver.name)] = "";
  for (size_t i = 0; i + 1 < sizeof(name) && receiver.name[i] != '\0'; ++i)
    name[i] = receiver.name[i] > ' ' && receiver.name[i] <= '~' ? receiver.name[i] : '?';
  KRP_Debug_Print("%s", name);
}

/// Process, user, what it wants, packets sent, packets lost.
int32_t print_receivers() {
  hub_receiver_t connected[kMaxReceivers];
  const size_t count = hub_receivers(connected, kMaxReceivers);
  for (size_t i = 0; i < count; ++i) {
    const hub_receiver_t& receiver = connected[i];
    KRP_Debug_Print("receiver %d %u ", receiver.process, receiver.user);
    print_wanted(receiver);
    KRP_Debug_Print(" %" PRIu64 " %" PRIu64 "\n", receiver.sent, receiver.lost);
  }
  return 0;
}

int32_t print_version() {
  KRP_Debug_Print("version %s\n", MDXGATE_VERSION);
  return 0;
}

void print_usage() {
  KRP_Debug_Print("usage: <module> <command>\n");
  const size_t count = module_count.load(std::memory_order_acquire);
  for (size_t i = 0; i < count; ++i) {
    for (int32_t row = 0; row < modules[i].count; ++row)
      KRP_Debug_Print("  %s %s\n", modules[i].name, modules[i].commands[row].name);
  }
}

const mdx_debug_command_t* find_command(const char* module, const char* command) {
  const size_t count = module_count.load(std::memory_order_acquire);
  for (size_t i = 0; i < count; ++i) {
    if (strcmp(modules[i].name, module) != 0) continue;
    for (int32_t row = 0; row < modules[i].count; ++row)
      if (strcmp(modules[i].commands[row].name, command) == 0) return &modules[i].commands[row];
  }
  return nullptr;
}

void run_line() {
  char* rest = nullptr;
  const char* module = strtok_r(line, kBlanks, &rest);
  const char* command = strtok_r(nullptr, kBlanks, &rest);
  argument = strtok_r(nullptr, kBlanks, &rest);
  const mdx_debug_command_t* row =
      module != nullptr && command != nullptr ? find_command(module, command) : nullptr;
  if (row == nullptr) return print_usage();
  counter_add(COUNT_CONSOLE_COMMANDS);
  row->handler();
}

void accept_client() {
  client = accept4(listener.load(), nullptr, nullptr, SOCK_CLOEXEC);
  if (client < 0) {
    if (errno != EINTR && errno != EAGAIN) MDX_sleep(kAcceptNapMs);
    return;
  }
  setsockopt(client, SOL_SOCKET, SO_SNDTIMEO, &kAnswerWait, sizeof(kAnswerWait));
  client_lost = false;
  line_length = 0;
  line_begun = MDX_elapse();
}

void end_client(bool has_line) {
  if (has_line) {
    run_line();
  } else {
    MDX_DROP(COUNT_CONSOLE_DROPPED, MDX_TRACE_MISSING, "console: no line came\n");
  }
  if (client_lost)
    MDX_DROP(COUNT_CONSOLE_DROPPED, MDX_TRACE_MISSING, "console: the answer was not read\n");
  close(client);
  client = -1;
}

/// Reads some of the line, which ends with a line end or with what the client sends.
void read_client() {
  const ssize_t size =
      recv(client, line + line_length, sizeof(line) - 1 - line_length, MSG_DONTWAIT);
  if (size < 0 && (errno == EINTR || errno == EAGAIN)) return;
  if (size < 0) return end_client(false);
  line_length += static_cast<size_t>(size);
  line[line_length] = '\0';
  const bool has_end = size == 0 || memchr(line, '\n', line_length) != nullptr;
  if (has_end || line_length == sizeof(line) - 1) end_client(has_end && line_length > 0);
}

void start_console() {
  if (listener.load() >= 0) return;
  started_at = monotonic_us();
  listener = local_socket_listen(kMdxConsolePath, SOCK_STREAM | SOCK_NONBLOCK, 0600, &told);
}

}  // namespace

void KRP_Debug_RegModCmds(const char* module, const mdx_debug_command_t* commands, int32_t count) {
  const size_t used = module_count.load(std::memory_order_relaxed);
  if (module != nullptr && commands != nullptr && used < kMaxModules) {
    modules[used] = {module, commands, count};
    module_count.store(used + 1, std::memory_order_release);
  }
  claim_machine();
  start_console();
}

int console_fd() { return client >= 0 ? client : listener.load(); }

int console_wait_ms() {
  if (client < 0) return -1;
  const uint32_t waited = MDX_elapse() - line_begun;
  return waited < kLineWaitMs ? static_cast<int>(kLineWaitMs - waited) : 0;
}

void console_look(bool has_something) {
  if (has_something && client < 0) return accept_client();
  if (has_something) read_client();
  if (console_wait_ms() == 0) end_client(false);
}

bool console_restore() {
  if (listener.load() < 0 || access(kMdxConsolePath, F_OK) == 0) return true;
  const int fresh = local_socket_listen(kMdxConsolePath, SOCK_STREAM | SOCK_NONBLOCK, 0600, &told);
  if (fresh < 0) return false;
  close(listener.exchange(fresh));
  MDX_TRACE(MDX_FROM_PLATFORM, MDX_TRACE_ERROR, "%s was removed: made again\n", kMdxConsolePath);
  return true;
}

void KRP_Debug_Print(const char* format, ...) {
  if (client < 0 || client_lost) return;
  va_list values;
  va_start(values, format);
  client_lost = vdprintf(client, format, values) < 0;
  va_end(values);
}
