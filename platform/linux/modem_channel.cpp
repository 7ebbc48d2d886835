// SPDX-License-Identifier: Apache-2.0

// The channel to the modem: a device that comes and goes, read and written by the task that bound
// it.
//
// What is read goes through the assembler to the server's callback. A refused delivery stops the
// reading, so that the device's own flow control holds the modem back. Another thread may end the
// binding; it only says so, and the reading task gives the device up at its next wait.

#include "platform/linux/modem_channel.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/linux/counters.h"
#include "platform/linux/delivery.h"
#include "platform/linux/modem_device.h"
#include "platform/linux/monotonic.h"
#include "platform/linux/nas_queue.h"
#include "platform/linux/privileges.h"
#include "platform/mdx_platform.h"
#include "wire/border.h"

namespace {

constexpr char kSource[] = "modem_channel";
constexpr uint32_t kSendPatienceMs = 5000;
constexpr uint32_t kReopenMs = 200;
constexpr uint32_t kPauseShare = 9;  // of ten parts of the time, when opening takes long
constexpr uint32_t kOfferAgainMs = 1000;
constexpr size_t kReadSize = 4096;

/// What the threads share. The lock is held while a binding begins or ends, and for the whole of a
/// send.
pthread_mutex_t binding_lock = PTHREAD_MUTEX_INITIALIZER;
constinit std::atomic<bool> bound{false};
constinit std::atomic<int32_t> reading_task{0};
constinit std::atomic<int> wake_fd{-1};  ///< eventfd

/// The first four change under the lock; all else is the reading task's own.
struct channel_t {
  int32_t number;
  mdx_receive_function_t receive;
  char path[sizeof(kMdxChannelPrefix) + 11];
  int told_error;  ///< why the last attempt to bind failed, to say each reason once

  bool was_open;  ///< before, since the binding
  modem_device_t device;
  uint64_t reopen_at;

  size_t size;         ///< bytes read last
  size_t used;         ///< those that the assembler has taken
  bool more_waiting;   ///< the last read left something behind
  bool refused;        ///< a delivery is to be offered again
  uint64_t looked_at;  ///< what the modem said before this has been read: silence is known so far
  uint32_t echoes;     ///< what the assembler's tallies were when they were last counted
  uint32_t cuts;
};
constinit channel_t channel{};
constinit char bytes[kReadSize] = {};
constinit delivery_assembler assembler;

void tell(uint32_t level, const char* news) {
  MDX_TRACE(kSource, level, "%s is %s\n", channel.path, news);
}

bool is_open() { return channel.device.fd >= 0; }

void count_changes() {
  const uint32_t echoes = assembler.echoes_dropped();
  const uint32_t cuts = assembler.deliveries_cut();
  if (echoes != channel.echoes) counter_add(COUNT_ECHOES_DROPPED, echoes - channel.echoes);
  if (cuts != channel.cuts) counter_add(COUNT_DELIVERIES_CUT, cuts - channel.cuts);
  channel.echoes = echoes;
  channel.cuts = cuts;
}

std::string_view next_delivery() {
  channel.used +=
      assembler.received(bytes + channel.used, channel.size - channel.used, channel.looked_at);
  const bool more_waiting = channel.more_waiting || channel.used < channel.size;
  const std::string_view delivery = assembler.next(channel.looked_at, more_waiting);
  count_changes();
  return delivery;
}

/// Who takes deliveries off the queue is who waits here: a callback that waited for room would wait
/// for itself.
bool is_taken(std::string_view delivery) {
  if (nas_queue_is_full()) return false;
  return channel.receive(channel.number, delivery.data(), static_cast<uint32_t>(delivery.size())) ==
         0;
}

/// Hands over all that is ready, as long as it is taken. @return whether anything was
bool hand_over() {
  bool any = false;
  channel.refused = false;
  for (;;) {
    const std::string_view delivery = next_delivery();
    if (delivery.empty()) return any;
    if (!is_taken(delivery)) {
      counter_add(COUNT_DELIVERIES_HELD);
      channel.refused = true;
      return any;
    }
    counter_add(COUNT_DELIVERIES);
    counter_add(COUNT_DELIVERY_BYTES, delivery.size());
    assembler.taken();
    any = true;
  }
}

void close_device() {
  modem_device_close(channel.device);
  channel.device = {};
  channel.more_waiting = false;
  assembler.link_lost();
  counter_add(COUNT_CHANNEL_CLOSED);
}

void lose_device() {
  close_device();
  channel.reopen_at = monotonic_ms() + kReopenMs;
  tell(MDX_TRACE_MISSING, "gone");
}

/// A sick modem may take its time; the task has others to serve.
/// @return 0, else an errno value
int open_device() {
  const uint64_t begin = monotonic_ms();
  privileges_set_aside();  // what is opened with more could not be opened again
  channel.device = modem_device_open(channel.path);
  const int error = is_open() ? 0 : errno;
  privileges_take_up();
  const uint64_t end = monotonic_ms();
  channel.reopen_at = end + kReopenMs + kPauseShare * (end - begin);
  if (error != 0) return error;
  if (channel.was_open) {
    counter_add(COUNT_CHANNEL_REOPENED);
    tell(MDX_TRACE_MISSING, "back");
  } else {
    counter_add(COUNT_CHANNEL_OPENED);
    tell(MDX_TRACE_FLOW, "open");
  }
  channel.was_open = true;
  return 0;
}

/// The binding has ended: the device is left to others, and what was not handed over is forgotten.
void give_up() {
  if (is_open()) {
    close_device();
    tell(MDX_TRACE_FLOW, "closed");
  }
  channel.size = channel.used = 0;
  channel.refused = false;
  channel.echoes = channel.cuts = 0;
  assembler = delivery_assembler();
  reading_task = 0;
}

/// Milliseconds until there is something to do without anybody saying so, -1 for never.
int due_in_ms(uint64_t now) {
  if (channel.refused) return kOfferAgainMs;
  if (channel.more_waiting) return 0;
  uint64_t due = is_open() ? delivery_assembler::kNever : channel.reopen_at;
  if (assembler.due() < due) due = assembler.due();
  if (due == delivery_assembler::kNever) return -1;
  return due > now ? static_cast<int>(due - now) : 0;
}

int sooner_ms(int one, int other) {
  if (one < 0 || other < 0) return one < 0 ? other : one;
  return one < other ? one : other;
}

pollfd device_source(short events) {
  if (!channel.refused) events |= POLLIN;
  return {events != 0 ? channel.device.fd : -1, events, 0};
}

/// Takes what the modem has said, and hands over what is ready.
/// @param asked_at  when it was asked; this thread may have been kept from running since
void read_device(short revents, uint64_t asked_at) {
  if (channel.refused) {  // then the device was not asked for bytes
    hand_over();
    return;
  }
  channel.looked_at = asked_at;
  channel.more_waiting = false;
  if ((revents & ~POLLOUT) != 0) {
    const ssize_t size = modem_device_read(channel.device, bytes, sizeof(bytes));
    if (size < 0 || (size == 0 && (revents & POLLIN) == 0)) {
      lose_device();
    } else if (size > 0) {
      channel.used = 0;
      channel.size = static_cast<size_t>(size);
      channel.more_waiting = channel.size == sizeof(bytes);
      channel.looked_at = monotonic_ms();
    }
  }
  hand_over();
}

/// A modem that takes nothing may be waiting for us to take what it says.
int wait_for_room(uint64_t deadline) {
  const uint64_t now = monotonic_ms();
  if (now >= deadline) return ETIMEDOUT;
  pollfd source = device_source(POLLOUT);
  const int ready = poll(&source, 1, sooner_ms(due_in_ms(now), static_cast<int>(deadline - now)));
  if (ready < 0) return errno == EINTR ? 0 : errno;
  read_device(source.revents, now);
  return is_open() ? 0 : EIO;
}

/// @return 0, else an errno value
int write_device(const char* data, size_t size) {
  const uint64_t deadline = monotonic_ms() + kSendPatienceMs;
  for (;;) {
    const ssize_t taken = modem_device_write(channel.device, data, size);
    if (taken < 0) return errno;
    data += taken;
    size -= static_cast<size_t>(taken);
    if (size == 0) return 0;
    const int error = wait_for_room(deadline);
    if (error == ETIMEDOUT) modem_device_discard_output(channel.device);
    if (error != 0) return error;
  }
}

int32_t send_to_channel(int32_t number, const char* data, uint32_t length) {
  if (data == nullptr || length == 0) return -1;
  pthread_mutex_lock(&binding_lock);
  int error = 0;
  if (!modem_channel_is_read_here() || !bound || number != channel.number) error = ENOTCONN;
  if (error == 0 && !is_open()) error = ENODEV;
  if (error == 0) {
    assembler.sent(data, length);
    error = write_device(data, length);
  }
  pthread_mutex_unlock(&binding_lock);
  if (error != 0) {
    modem_channel_sleep(0);  // nobody waits between sends that fail at once: notices what goes on
    counter_add(COUNT_CHANNEL_SENDS_FAILED);
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "channel %d takes no bytes: %s\n", number, strerror(error));
    return -1;
  }
  counter_add(COUNT_CHANNEL_SENDS);
  counter_add(COUNT_CHANNEL_SEND_BYTES, length);
  return 0;
}

/// Makes this task the one that reads the modem, if there is none yet.
/// @return 0 when the device is open, else an errno value
int bind_channel(int32_t number, mdx_receive_function_t receive) {
  if (modem_channel_is_read_here() && !bound) give_up();
  if (reading_task == 0) {
    if (wake_fd < 0) wake_fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (wake_fd < 0) return errno;
    std::snprintf(channel.path, sizeof(channel.path), "%s%d", kMdxChannelPrefix, number);
    channel.number = number;
    channel.receive = receive;
    channel.was_open = false;
    bound = true;
    reading_task = MDX_task_getid();
  }
  if (!modem_channel_is_read_here()) return EBUSY;
  if (number != channel.number || receive != channel.receive) return EBUSY;
  return is_open() ? 0 : open_device();
}

}  // namespace

bool modem_channel_is_read_here() {
  return reading_task.load(std::memory_order_relaxed) == MDX_task_getid();
}

int modem_channel_poll(pollfd* own, int wait_ms) {
  if (!modem_channel_is_read_here()) return poll(own, 1, wait_ms);
  if (!bound) give_up();
  if (!bound || (channel.refused && hand_over())) return 0;
  pollfd sources[] = {*own, {wake_fd, POLLIN, 0}, device_source(0)};
  const uint64_t now = monotonic_ms();
  if (poll(sources, 3, sooner_ms(due_in_ms(now), wait_ms)) < 0) return -1;
  own->revents = sources[0].revents;
  if (sources[1].revents != 0) {
    uint64_t wakes = 0;
    [[maybe_unused]] const ssize_t size = read(wake_fd, &wakes, sizeof(wakes));
  }
  if (!bound) {
    give_up();
    return 0;
  }
  read_device(sources[2].revents, now);
  if (!is_open() && monotonic_ms() >= channel.reopen_at) open_device();
  return 0;
}

void modem_channel_sleep(uint32_t milliseconds) {
  const uint64_t end = monotonic_ms() + milliseconds;
  pollfd nothing = {-1, 0, 0};
  int64_t left = milliseconds;
  do {
    if (modem_channel_poll(&nothing, static_cast<int>(left)) < 0 && errno != EINTR) return;
    left = static_cast<int64_t>(end - monotonic_ms());
  } while (left > 0);
}

void modem_channel_wake() {
  const uint64_t one = 1;
  if (wake_fd < 0) return;
  [[maybe_unused]] const ssize_t size = write(wake_fd, &one, sizeof(one));
}

int32_t Q7_APP_RegCallBack(int32_t number, mdx_receive_function_t receive,
                           mdx_send_function_t* send) {
  if (receive == nullptr || send == nullptr || number < 0) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "no channel %d without callback and slot\n", number);
    return -1;
  }
  pthread_mutex_lock(&binding_lock);
  const int error = bind_channel(number, receive);
  if (error != 0 && error != channel.told_error) {
    MDX_TRACE(kSource, MDX_TRACE_MISSING, "%s%d is not there yet: %s\n", kMdxChannelPrefix, number,
              strerror(error));
  }
  channel.told_error = error;
  pthread_mutex_unlock(&binding_lock);
  if (error != 0) return -1;
  *send = send_to_channel;
  return 0;
}

void Q7_App_Ungister() {
  pthread_mutex_lock(&binding_lock);
  if (bound.exchange(false)) {
    tell(MDX_TRACE_FLOW, "given up");
    if (modem_channel_is_read_here()) {
      give_up();
    } else {
      modem_channel_wake();
    }
  }
  pthread_mutex_unlock(&binding_lock);
}
