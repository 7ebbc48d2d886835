// The channel to the modem: a device that comes and goes, one thread that reads it, sends from
// others.
//
// The delivery thread alone opens, reads and closes the device: a right that only the binding
// caller has would open a device that could not be opened again. What the thread reads goes through
// the assembler to the server's callback. A refused delivery stops the reading, so that the
// device's own flow control holds the modem back.

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/linux/border.h"
#include "platform/linux/counters.h"
#include "platform/linux/delivery.h"
#include "platform/linux/modem_device.h"
#include "platform/mdx_platform.h"

namespace {

constexpr char kSource[] = "modem_channel";
constexpr uint32_t kSendPatienceMs = 5000;
constexpr uint32_t kReopenMs = 200;
constexpr uint32_t kOfferAgainMs = 50;
constexpr size_t kReadSize = 4096;

class lock_guard {
 public:
  explicit lock_guard(pthread_mutex_t& mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
  ~lock_guard() { pthread_mutex_unlock(&mutex_); }
  lock_guard(const lock_guard&) = delete;
  lock_guard& operator=(const lock_guard&) = delete;

 private:
  pthread_mutex_t& mutex_;
};

/// What the threads share. Where both locks are needed, the binding's comes first.
struct channel_t {
  pthread_mutex_t binding_lock = PTHREAD_MUTEX_INITIALIZER;  ///< held for the whole of a send
  modem_device_t device;  ///< changed by the delivery thread alone, under the lock
  std::atomic<bool> bound{false};
  bool has_thread = false;
  pthread_cond_t tried = PTHREAD_COND_INITIALIZER;
  bool has_tried = false;  ///< to open the device since the binding began
  int open_error = 0;      ///< how that went
  int told_error = 0;      ///< why the last attempt to bind failed, to say each reason once
  int wake = -1;           ///< eventfd; set before the thread starts, as are the next three
  int32_t number = 0;
  mdx_receive_function_t receive = nullptr;
  char path[sizeof(kMdxChannelPrefix) + 11] = {};

  pthread_mutex_t assembler_lock = PTHREAD_MUTEX_INITIALIZER;
  delivery_assembler assembler;
};

/// What only the delivery thread knows.
struct reader_t {
  char bytes[kReadSize] = {};
  size_t size = 0;
  size_t used = 0;            ///< bytes that the assembler has taken
  bool more_waiting = false;  ///< the last read left something behind
  bool refused = false;       ///< a delivery is to be offered again
  uint64_t looked_at =
      0;  ///< when the device was last asked for bytes: silence is known up to here
  uint64_t reopen_at = 0;
  bool was_open = false;
  uint32_t echoes = 0;  ///< what the assembler's tallies were when they were last counted
  uint32_t cuts = 0;
};

constinit channel_t channel;
constinit reader_t reader;

void count_changes() {
  const uint32_t echoes = channel.assembler.echoes_dropped();
  const uint32_t cuts = channel.assembler.deliveries_cut();
  if (echoes != reader.echoes) counter_add(COUNT_ECHOES_DROPPED, echoes - reader.echoes);
  if (cuts != reader.cuts) counter_add(COUNT_DELIVERIES_CUT, cuts - reader.cuts);
  reader.echoes = echoes;
  reader.cuts = cuts;
}

std::string_view next_delivery() {
  lock_guard guard(channel.assembler_lock);
  reader.used += channel.assembler.received(reader.bytes + reader.used, reader.size - reader.used,
                                            reader.looked_at);
  const bool more_waiting = reader.more_waiting || reader.used < reader.size;
  const std::string_view delivery = channel.assembler.next(reader.looked_at, more_waiting);
  count_changes();
  return delivery;
}

/// Hands over all that is ready, as long as it is taken.
void hand_over() {
  reader.refused = false;
  for (;;) {
    const std::string_view delivery = next_delivery();
    if (delivery.empty()) return;
    const auto length = static_cast<uint32_t>(delivery.size());
    if (channel.receive(channel.number, delivery.data(), length) != 0) {
      counter_add(COUNT_DELIVERIES_HELD);
      reader.refused = true;
      return;
    }
    counter_add(COUNT_DELIVERIES);
    counter_add(COUNT_DELIVERY_BYTES, length);
    lock_guard guard(channel.assembler_lock);
    channel.assembler.taken();
  }
}

void close_device() {
  {
    lock_guard guard(channel.binding_lock);
    modem_device_close(channel.device);
    channel.device = {};
    counter_add(COUNT_CHANNEL_CLOSED);
  }
  reader.more_waiting = false;
  lock_guard guard(channel.assembler_lock);
  channel.assembler.link_lost();
}

void lose_device() {
  close_device();
  reader.reopen_at = monotonic_ms() + kReopenMs;
  MDX_TRACE(kSource, MDX_TRACE_MISSING, "%s is gone\n", channel.path);
}

void open_device() {
  const modem_device_t device = modem_device_open(channel.path);
  const int error = device.fd < 0 ? errno : 0;
  reader.reopen_at = monotonic_ms() + kReopenMs;
  lock_guard guard(channel.binding_lock);
  channel.device = device;
  channel.open_error = error;
  channel.has_tried = true;
  pthread_cond_signal(&channel.tried);
  if (error != 0) return;
  if (reader.was_open) {
    counter_add(COUNT_CHANNEL_REOPENED);
    MDX_TRACE(kSource, MDX_TRACE_MISSING, "%s is back\n", channel.path);
  } else {
    counter_add(COUNT_CHANNEL_OPENED);
    MDX_TRACE(kSource, MDX_TRACE_FLOW, "%s is open\n", channel.path);
  }
  reader.was_open = true;
}

/// The binding has ended: the device is left to others, and what was not handed over is forgotten.
void rest() {
  if (channel.device.fd >= 0) {
    close_device();
    MDX_TRACE(kSource, MDX_TRACE_FLOW, "%s is closed\n", channel.path);
  }
  reader.size = reader.used = 0;
  reader.refused = false;
  reader.reopen_at = 0;
  lock_guard guard(channel.assembler_lock);
  channel.assembler = delivery_assembler();
  reader.echoes = reader.cuts = 0;
}

/// Milliseconds until there is something to do without anybody saying so, -1 for never.
int wait_ms() {
  if (!channel.bound) return -1;
  if (reader.refused) return kOfferAgainMs;
  if (reader.more_waiting) return 0;
  uint64_t due = channel.device.fd < 0 ? reader.reopen_at : delivery_assembler::kNever;
  {
    lock_guard guard(channel.assembler_lock);
    if (channel.assembler.due() < due) due = channel.assembler.due();
  }
  if (due == delivery_assembler::kNever) return -1;
  const uint64_t now = monotonic_ms();
  return due > now ? static_cast<int>(due - now) : 0;
}

void wait_and_read() {
  const int device = reader.refused ? -1 : channel.device.fd;
  pollfd sources[] = {{channel.wake, POLLIN, 0}, {device, POLLIN, 0}};
  if (poll(sources, 2, wait_ms()) < 0) return;
  if (sources[0].revents != 0) {
    uint64_t wakes = 0;
    [[maybe_unused]] const ssize_t size = read(channel.wake, &wakes, sizeof(wakes));
  }
  if (reader.refused) return;
  reader.looked_at = monotonic_ms();
  reader.more_waiting = false;
  if (sources[1].revents == 0) return;
  const ssize_t size = modem_device_read(channel.device, reader.bytes, sizeof(reader.bytes));
  if (size < 0 || (size == 0 && (sources[1].revents & POLLIN) == 0)) {
    lose_device();
    return;
  }
  reader.used = 0;
  reader.size = static_cast<size_t>(size);
  reader.more_waiting = reader.size == sizeof(reader.bytes);
}

/// The delivery thread.
void serve_deliveries() {
  for (;;) {
    if (!channel.bound) {
      rest();
    } else {
      hand_over();
      if (channel.device.fd < 0 && monotonic_ms() >= reader.reopen_at) open_device();
    }
    wait_and_read();
  }
}

void wake_thread() {
  const uint64_t one = 1;
  [[maybe_unused]] const ssize_t size = write(channel.wake, &one, sizeof(one));
}

int32_t send_to_channel(int32_t number, const char* data, uint32_t length) {
  if (data == nullptr || length == 0) return -1;
  lock_guard guard(channel.binding_lock);
  int error = channel.bound && number == channel.number ? 0 : ENOTCONN;
  if (error == 0 && channel.device.fd < 0) error = ENODEV;
  if (error == 0) {
    {
      lock_guard assembler_guard(channel.assembler_lock);
      channel.assembler.sent(data, length);
    }
    error = modem_device_write(channel.device, data, length, kSendPatienceMs);
  }
  if (error != 0) {
    counter_add(COUNT_CHANNEL_SENDS_FAILED);
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "channel %d takes no bytes: %s\n", number, strerror(error));
    return -1;
  }
  counter_add(COUNT_CHANNEL_SENDS);
  counter_add(COUNT_CHANNEL_SEND_BYTES, length);
  return 0;
}

/// @return 0, else an errno value
int start_thread(int32_t number, mdx_receive_function_t receive) {
  std::snprintf(channel.path, sizeof(channel.path), "%s%d", kMdxChannelPrefix, number);
  if (channel.wake < 0) channel.wake = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  if (channel.wake < 0) return errno;
  channel.number = number;
  channel.receive = receive;
  channel.has_thread = MDX_pthread_create(0, 0, 0, serve_deliveries, 0) != 0;
  return channel.has_thread ? 0 : EAGAIN;
}

/// Has the thread open the device, and waits until it has tried once.
/// @return 0 when the channel is up, else an errno value
int begin_binding(int32_t number, mdx_receive_function_t receive) {
  const int error = channel.has_thread ? 0 : start_thread(number, receive);
  if (error != 0) return error;
  if (number != channel.number || receive != channel.receive) return EBUSY;
  if (!channel.bound && channel.device.fd >= 0) return EBUSY;  // not given up yet
  if (!channel.bound) {
    channel.has_tried = false;
    channel.bound = true;
    wake_thread();
  }
  while (!channel.has_tried) pthread_cond_wait(&channel.tried, &channel.binding_lock);
  return channel.device.fd >= 0 ? 0 : channel.open_error;
}

}  // namespace

int32_t Q7_APP_RegCallBack(int32_t number, mdx_receive_function_t receive,
                           mdx_send_function_t* send) {
  if (receive == nullptr || send == nullptr || number < 0) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "no channel %d without callback and slot\n", number);
    return -1;
  }
  lock_guard guard(channel.binding_lock);
  const int error = begin_binding(number, receive);
  if (error != 0) {
    if (error != channel.told_error) {
      MDX_TRACE(kSource, MDX_TRACE_MISSING, "%s%d is not there yet: %s\n", kMdxChannelPrefix,
                number, strerror(error));
    }
    channel.told_error = error;
    return -1;
  }
  *send = send_to_channel;
  return 0;
}

void Q7_App_Ungister() {
  lock_guard guard(channel.binding_lock);
  if (!channel.bound.exchange(false)) return;
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "%s is given up\n", channel.path);
  wake_thread();
}
