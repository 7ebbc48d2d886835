// SPDX-License-Identifier: Apache-2.0

#include "tests/simulation/real_channel.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "platform/linux/events.h"
#include "platform/linux/line_memory.h"
#include "platform/linux/modem_channel.h"
#include "platform/linux/modem_device.h"
#include "platform/linux/nas_queue.h"
#include "platform/linux/privileges.h"
#include "platform/linux/record_queue.h"
#include "platform/linux/served_client.h"
#include "tests/simulation/broken_rule.h"

// The channel's names for what the fake platform has, too.
int32_t channel_bind(int32_t number, mdx_receive_function_t receive, mdx_send_function_t* send);
void channel_unbind();

namespace simulation {
namespace {

constexpr int kFirstDevice = 1 << 20;
constexpr int kFirstClient = 1 << 24;
constexpr int32_t kNasQueue = 300;
constexpr int32_t kNasQueueDepth = 10;

real_channel* channel = nullptr;
line_account_t remembered{};

void note(const char* what, std::string_view bytes) {
  fake::journal.push_back(
      {.at = fake::now(), .name = what, .text = std::string(bytes), .a = channel->served});
}

/// What is thrown beneath the channel would leave its lock locked.
void later_if_broken(const std::function<void()>& happens) {
  try {
    happens();
  } catch (const broken_rule&) {
    channel->broken = std::current_exception();
  }
}

bool one_in(size_t count) { return channel->below(count) == 0; }
bool is_gone(int fd) { return fd != kFirstDevice + channel->device || channel->device == 0; }

short events_of(const pollfd& source) {
  if (source.fd >= kFirstClient) {
    const bool is_dead = channel->dead.count(source.fd - kFirstClient) != 0;
    return static_cast<short>(is_dead ? POLLERR : 0);
  }
  if (source.fd < kFirstDevice) return 0;
  if (channel->is_dead) return 0;
  if (is_gone(source.fd)) return POLLHUP;
  const int ready = (channel->said.empty() ? 0 : POLLIN) | (channel->is_stalled ? 0 : POLLOUT);
  return static_cast<short>(ready & source.events);
}

int count_ready(pollfd* sources, nfds_t count) {
  for (nfds_t i = 0; i < count; ++i) sources[i].revents = events_of(sources[i]);
  return static_cast<int>(
      std::count_if(sources, sources + count, [](const pollfd& s) { return s.revents != 0; }));
}

}  // namespace

real_channel::real_channel() {
  channel = this;
  fake::the_line = this;
  remembered = {};
  served_client_begin(0, 0);
}

real_channel::~real_channel() {
  channel_unbind();
  modem_channel_sleep(0);  // the binding ends at the next wait
  fake::the_line = nullptr;
  channel = nullptr;
}

void real_channel::unplug() {
  device = 0;
  said.clear();
}

void real_channel::stall() {
  is_stalled = true;
  on_stall();
  fake::at(static_cast<uint32_t>(below(8000)), [this] { is_stalled = false; });
}

void real_channel::forget_process() {
  const line_account_t account = remembered;
  channel_unbind();
  modem_channel_sleep(0);
  remembered = account;
  served_client_begin(0, 0);
  kills_server = is_dead = has_begun_write = false;
  served = 0;
}

int32_t real_channel::bind(int32_t number, mdx_receive_function_t receive,
                           mdx_send_function_t* send) {
  return channel_bind(number, receive, send);
}

void real_channel::wait(uint64_t until) {
  pollfd nothing = {-1, 0, 0};
  const bool is_for_ever = until == UINT64_MAX;
  modem_channel_poll(&nothing, is_for_ever ? -1 : static_cast<int>(until - fake::now()));
  if (broken != nullptr) std::rethrow_exception(broken);
  if (kills_server) throw server_killed{};
}

bool real_channel::shows_requests() { return !is_dead && modem_channel_is_clean(); }
bool real_channel::begins_request(int32_t client) {
  served = client;
  return served_client_begin(client, ++requests_);
}
bool real_channel::has_client() { return !is_dead && !served_client_is_dead(); }
bool real_channel::may_answer() { return !modem_channel_answer_is_lost(); }

}  // namespace simulation

using namespace simulation;

extern "C" {

// The thread does not always run at once: time may pass, and bytes come, before it goes on.
int __wrap_poll(pollfd* sources, nfds_t count, int wait_ms) {
  const uint64_t now = fake::now();
  const uint64_t until = wait_ms < 0 ? UINT64_MAX : now + static_cast<uint64_t>(wait_ms);
  int ready = count_ready(sources, count);
  if (ready == 0) {
    later_if_broken([until] { fake::pass(until); });
    ready = count_ready(sources, count);
  }
  if (one_in(50)) later_if_broken([] { fake::pass(fake::now() + channel->below(60)); });
  return ready;
}

int __wrap_clock_gettime(clockid_t, timespec* time) {
  time->tv_sec = static_cast<time_t>(fake::now() / 1000);
  time->tv_nsec = static_cast<long>(fake::now() % 1000 * 1000000);
  return 0;
}
}

// What stands beside the channel in its platform.

modem_device_t modem_device_open(const char*) {
  errno = ENOENT;
  if (channel->device == 0) return {};
  return {kFirstDevice + channel->device, false, static_cast<uint32_t>(channel->device)};
}

void modem_device_close(const modem_device_t&) {}

ssize_t modem_device_read(const modem_device_t& device, char* buffer, size_t size) {
  if (is_gone(device.fd)) return -1;
  const size_t there = std::min(size, channel->said.size());
  if (there == 0) return 0;
  const size_t taken = one_in(2) ? there : 1 + channel->below(there);
  channel->said.copy(buffer, taken);
  note("<", {buffer, taken});
  channel->said.erase(0, taken);
  return static_cast<ssize_t>(taken);
}

ssize_t modem_device_write(const modem_device_t& device, const char* data, size_t size) {
  errno = EIO;
  if (is_gone(device.fd) || channel->is_dead) return -1;
  if (channel->is_stalled) return 0;
  size_t taken = one_in(20) ? 1 + channel->below(size) : size;
  channel->is_dead = one_in(500);
  if (channel->is_dead) {
    channel->kills_server = true;
    taken = channel->below(size + 1);
  }
  if (taken < size && one_in(20)) channel->stall();
  if (taken > 0) note(">", {data, taken});
  if (taken > 0) later_if_broken([&] { channel->on_write({data, taken}); });
  channel->has_begun_write = taken < size;
  errno = EIO;
  return channel->is_dead ? -1 : static_cast<ssize_t>(taken);
}

void modem_device_discard_output(const modem_device_t&) {}

bool nas_queue_is_full() { return MDX_msgQ_num(kNasQueue) >= kNasQueueDepth; }
bool nas_queue_is_empty() { return MDX_msgQ_num(kNasQueue) == 0; }

void request_queue_raise() { MDX_event_send(fake::kMainTask, 1); }

line_account_t line_memory_left() { return remembered; }
void line_memory_keep(const line_account_t& account) {
  if (!channel->is_dead) remembered = account;
}

int event_task_open(int32_t task_id) { return task_is_dead(task_id) ? -1 : event_task_fd(task_id); }
bool task_is_dead(int32_t task_id) { return channel->dead.count(task_id) != 0; }
int event_task_fd(int32_t task_id) { return kFirstClient + task_id; }

void privileges_set_aside() {}
void privileges_take_up() {}
