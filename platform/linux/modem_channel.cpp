// SPDX-License-Identifier: Apache-2.0

// The channel to the modem: a device that comes and goes, read and written by the task that bound
// it.
//
// What is read goes through the assembler to the server's callback. A refused delivery stops the
// reading, so that the device's own flow control holds the modem back. Between two exchanges what
// the modem still owes is collected, and the clients' requests wait for that. Another thread may
// end the binding; it only says so, and the reading task gives the device up at its next wait.

#include "platform/linux/modem_channel.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "platform/linux/counters.h"
#include "platform/linux/delivery.h"
#include "platform/linux/device_news.h"
#include "platform/linux/line_memory.h"
#include "platform/linux/modem_device.h"
#include "platform/linux/monotonic.h"
#include "platform/linux/nas_queue.h"
#include "platform/linux/privileges.h"
#include "platform/linux/record_queue.h"
#include "platform/linux/served_client.h"
#include "platform/mdx_platform.h"
#include "wire/border.h"
#include "wire/destinations.h"

namespace {

constexpr mdx_trace_source_t kSource = MDX_FROM_CHANNEL;
constexpr uint32_t kSendPatienceMs = 5000;
constexpr uint32_t kReopenMs = 200;
constexpr uint32_t kPauseShare = 9;  // of ten parts of the time, when opening takes long
/// A delivery that was refused is offered again so soon: its client waits.
constexpr uint32_t kOfferAgainMs = 20;
constexpr size_t kReadSize = 1024;
constexpr char kEscape[] = {0x1B};
/// What takes a character off a command line that has not ended yet (ITU-T V.250).
constexpr char kErase[] = "\b\b\b\b\b\b\b\b\b\b\b\b\b\b\b\b";

/// What the threads share. The lock is held while a binding begins or ends, and for the whole of a
/// send.
pthread_mutex_t binding_lock = PTHREAD_MUTEX_INITIALIZER;
constinit std::atomic<uint32_t> bound{0};  ///< a word: not every processor exchanges bytes
constinit std::atomic<int32_t> reading_task{0};
constinit std::atomic<int> wake_fd{-1};  ///< eventfd

/// The first four change under the lock; all else is the reading task's own.
struct channel_t {
  int32_t number;
  mdx_receive_function_t receive;
  char path[sizeof(kMdxChannelPrefix) + 11];
  int told_error;  ///< why the last attempt to bind failed, to say each reason once

  bool was_open;     ///< before, since the binding
  bool gone_untold;  ///< the device is gone, and what it said before is still on its way
  modem_device_t device;
  uint64_t reopen_at;

  size_t size;         ///< bytes read last
  size_t used;         ///< those that the assembler has taken
  size_t half;         ///< bytes of a command that the modem may hold without its end
  bool more_waiting;   ///< the last read left something behind
  bool refused;        ///< a delivery is to be offered again
  uint64_t looked_at;  ///< what the modem said before this has been read: silence is known so far
};
constinit channel_t channel{};
constinit char bytes[kReadSize] = {};
constinit delivery_assembler assembler;
constinit device_news log_news;

/// What the assembler's tallies were when they were last counted.
struct tallies_t {
  uint32_t echoes, cuts, dropped, too_long;
  line_counts_t line;
};
constinit tallies_t counted{};

void tell(uint32_t level, const char* news) {
  MDX_TRACE(kSource, level, "%s is %s\n", channel.path, news);
}

bool is_open() { return channel.device.fd >= 0; }

void tell_receivers(service_message_t news) { KRP_MSG_SendMsgData(kServiceLink, news, nullptr, 0); }

/// Receivers hear of the end when they have heard all that the modem said.
void tell_gone_in_order() {
  if (!channel.gone_untold || assembler.holds_text() || !nas_queue_is_empty()) return;
  channel.gone_untold = false;
  tell_receivers(LINK_MSG_GONE);
}

bool count_change(mdx_counter_t counter, uint32_t* before, uint32_t now) {
  const uint32_t more = now - *before;
  *before = now;
  if (more != 0) counter_add(counter, more);
  return more != 0;
}

/// The next server has to know, should this one be killed now.
void keep_account() {
  const line_balance_t balance = assembler.debt().balance(channel.half > 0);
  line_memory_keep({balance, static_cast<uint32_t>(channel.half), channel.device.mark});
}

void count_changes() {
  const line_counts_t& line = assembler.debt().counts();
  keep_account();
  count_change(COUNT_ECHOES_DROPPED, &counted.echoes, assembler.echoes_dropped());
  count_change(COUNT_DELIVERIES_CUT, &counted.cuts, assembler.deliveries_cut());
  count_change(COUNT_PROMPTS_ESCAPED, &counted.line.escapes, line.escapes);
  if (count_change(COUNT_LATE_ANSWERS_ABSORBED, &counted.line.absorbed, line.absorbed)) {
    MDX_TRACE(kSource, MDX_TRACE_MISSING, "an answer came too late for its client\n");
  }
  if (count_change(COUNT_PATIENCE_RAN_OUT, &counted.line.given_up, line.given_up)) {
    MDX_TRACE(kSource, MDX_TRACE_MISSING, "an answer that is late is no longer waited for\n");
  }
  if (count_change(COUNT_LINES_DROPPED, &counted.dropped, assembler.lines_dropped())) {
    MDX_TRACE(kSource, MDX_TRACE_FLOW, "a line that is for nobody dropped\n");
  }
  if (count_change(COUNT_ANSWERS_TOO_LONG, &counted.too_long, assembler.answers_too_long())) {
    MDX_TRACE(kSource, MDX_TRACE_MISSING, "an answer has more than %u bytes and is cut\n",
              kDeliveryMaxBytes);
  }
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
  channel.half = 0;
  channel.more_waiting = false;
  assembler.link_lost();
  keep_account();
  counter_add(COUNT_CHANNEL_CLOSED);
}

void tell_gone() {
  tell(MDX_TRACE_MISSING, "gone");
  if (log_news.untold() == 0) return;
  MDX_TRACE(kSource, MDX_TRACE_MISSING, "%s went and came back %u times before, untold\n",
            channel.path, log_news.untold());
}

void lose_device() {
  close_device();
  channel.reopen_at = monotonic_ms() + kReopenMs;
  channel.gone_untold = true;
  if (log_news.gone(MDX_elapse())) tell_gone();
}

/// What is still on its way to the modem is no command of ours. What the modem says is sorted like
/// everything else, since the news in it counts; what an earlier server asked it answers to us.
void begin_listening(uint64_t now) {
  modem_device_discard_output(channel.device);
  line_account_t left = channel.was_open ? line_account_t{} : line_memory_left();
  if (left.device != channel.device.mark) left = {};
  assembler.debt().opened(now, left.balance);
  channel.half = left.half;
  channel.looked_at = now;
}

/// With a faulty modem this may take seconds, in which clients wait: the next try comes later then.
/// @return 0, else an errno value
int open_device() {
  const uint64_t begin = monotonic_ms();
  privileges_set_aside();  // what is opened with more could not be opened again
  channel.device = modem_device_open(channel.path);
  const int error = is_open() ? 0 : errno;
  privileges_take_up();
  const uint64_t end = monotonic_ms();
  channel.reopen_at = end + kReopenMs + kPauseShare * (end - begin);
  if (error != 0 && log_news.still_gone(MDX_elapse())) tell_gone();
  if (error != 0) return error;
  begin_listening(end);
  tell_receivers(LINK_MSG_UP);
  if (channel.was_open) {
    counter_add(COUNT_CHANNEL_REOPENED);
    if (log_news.back()) tell(MDX_TRACE_MISSING, "back");
  } else {
    counter_add(COUNT_CHANNEL_OPENED);
    tell(MDX_TRACE_FLOW, "open");
  }
  channel.was_open = true;
  return 0;
}

/// The binding has ended: the device is left to others, and what was not handed over is forgotten.
void give_up() {
  const bool is_news = is_open() || channel.gone_untold;
  if (is_open()) {
    close_device();
    tell(MDX_TRACE_FLOW, "closed");
  }
  if (is_news) tell_receivers(LINK_MSG_GONE);
  channel.gone_untold = false;
  channel.size = channel.used = 0;
  channel.refused = false;
  assembler = delivery_assembler();
  counted = {};
  reading_task = 0;
}

/// Milliseconds until there is something to do without anybody saying so, -1 for never.
int due_in_ms(uint64_t now) {
  if (channel.refused) return kOfferAgainMs;
  if (channel.more_waiting) return 0;
  const bool opens = !is_open() && !channel.gone_untold;
  uint64_t due = opens ? channel.reopen_at : delivery_assembler::kNever;
  const bool is_for_server_to_read =
      assembler.debt().waits_for_silence() && !assembler.holds_text() && !nas_queue_is_empty();
  if (!is_for_server_to_read && assembler.due() < due) due = assembler.due();
  if (due == delivery_assembler::kNever) return -1;
  return due > now ? static_cast<int>(due - now) : 0;
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

/// A prompt that nobody answers would take the next command for a message.
void escape_prompt() {
  const bool taken = modem_device_write(channel.device, kEscape, sizeof(kEscape)) != 0;
  assembler.debt().escaped(channel.looked_at, taken);
}

/// Between two exchanges: what an earlier one is still owed is collected.
/// @return whether nothing of it can come any more; the server may still have to read it
bool collect_debt() {
  const delivery_assembler::step_t step = assembler.step(channel.looked_at);
  if (step == delivery_assembler::step_t::escape) escape_prompt();
  count_changes();
  if (step == delivery_assembler::step_t::clean) return true;
  hand_over();
  return false;
}

void mind_line() {
  const line_debt& debt = assembler.debt();
  if (debt.in_exchange() || debt.is_clean() || !collect_debt() || !nas_queue_is_empty()) return;
  assembler.debt().settled();
  request_queue_raise();
}

/// A modem that takes nothing may be waiting for us to take what it says.
int wait_for_room(uint64_t deadline) {
  const uint64_t now = monotonic_ms();
  if (now >= deadline) return ETIMEDOUT;
  pollfd sources[] = {device_source(POLLOUT), served_client_source()};
  const int wait_ms = sooner_ms(due_in_ms(now), static_cast<int>(deadline - now));
  if (poll(sources, 2, wait_ms) < 0) return errno == EINTR ? 0 : errno;
  served_client_polled(sources[1]);
  read_device(sources[0].revents, now);
  return is_open() ? 0 : EIO;
}

/// @param left  the bytes that are still to go out; behind an error those that did not
/// @return 0, else an errno value
int write_device(std::string_view* left) {
  const uint64_t deadline = monotonic_ms() + kSendPatienceMs;
  for (;;) {
    const ssize_t taken = modem_device_write(channel.device, left->data(), left->size());
    if (taken < 0) return errno;
    left->remove_prefix(static_cast<size_t>(taken));
    if (left->empty()) return 0;
    const int error = wait_for_room(deadline);
    if (error == ETIMEDOUT) modem_device_discard_output(channel.device);
    if (error != 0) return error;
  }
}

/// A command must not be taken for the rest of one that did not get out whole.
int erase_half() {
  while (channel.half > 0) {
    std::string_view left(kErase, std::min(channel.half, sizeof(kErase) - 1));
    const size_t size = left.size();
    const int error = write_device(&left);
    channel.half -= size - left.size();
    if (error != 0) return error;
  }
  return 0;
}

int write_command(std::string_view text) {
  std::string_view left = text;
  channel.half = text.size();
  keep_account();
  const int error = write_device(&left);
  channel.half = error == 0 || !is_open() ? 0 : text.size() - left.size();
  if (channel.half > 0) assembler.debt().cut_short();
  keep_account();
  return error;
}

/// The first command of all is sent before anybody asks whether the line is clean. The server reads
/// nothing meanwhile, so it is clean only when that command is on its way, to which what has been
/// handed over belongs.
void wait_for_clean_line() {
  const line_debt& debt = assembler.debt();
  while (is_open() && !debt.in_exchange() && !debt.is_clean()) {
    if (collect_debt() || channel.refused) return;
    const uint64_t now = monotonic_ms();
    const uint64_t due = assembler.due();
    pollfd source = device_source(0);
    if (poll(&source, 1, due > now ? static_cast<int>(due - now) : 0) < 0 && errno != EINTR) return;
    read_device(source.revents, now);
  }
}

/// @return 0, else an errno value: why nothing may be sent
int refusal_to_send(int32_t number) {
  if (!modem_channel_is_read_here() || bound.load() == 0 || number != channel.number)
    return ENOTCONN;
  if (served_client_is_dead()) return EOWNERDEAD;
  wait_for_clean_line();
  return is_open() && !assembler.debt().link_lost_in_exchange() ? 0 : ENODEV;
}

int32_t send_to_channel(int32_t number, const char* data, uint32_t length) {
  if (data == nullptr || length == 0) return -1;
  pthread_mutex_lock(&binding_lock);
  int error = refusal_to_send(number);
  if (error == 0) error = erase_half();
  if (error == 0 && served_client_is_dead()) error = EOWNERDEAD;
  if (error == 0) {
    if (!assembler.debt().in_exchange()) assembler.debt().settled();
    assembler.sent(data, length);
    error = write_command({data, length});
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
  if (modem_channel_is_read_here() && bound.load() == 0) give_up();
  if (reading_task.load() == 0) {
    if (wake_fd.load() < 0) wake_fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (wake_fd.load() < 0) return errno;
    std::snprintf(channel.path, sizeof(channel.path), "%s%d", kMdxChannelPrefix, number);
    channel.number = number;
    channel.receive = receive;
    channel.was_open = false;
    bound = 1;
    reading_task = MDX_task_getid();
  }
  if (!modem_channel_is_read_here()) return EBUSY;
  if (number != channel.number || receive != channel.receive) return EBUSY;
  tell_gone_in_order();
  if (channel.gone_untold) return ENODEV;
  return is_open() ? 0 : open_device();
}

}  // namespace

bool modem_channel_is_read_here() {
  return reading_task.load(std::memory_order_relaxed) == MDX_task_getid();
}

int modem_channel_poll(pollfd* own, int wait_ms) {
  if (!modem_channel_is_read_here()) return poll(own, 1, wait_ms);
  if (bound.load() == 0) give_up();
  if (bound.load() == 0 || (channel.refused && hand_over())) return 0;
  tell_gone_in_order();
  pollfd sources[] = {*own, {wake_fd.load(), POLLIN, 0}, device_source(0), served_client_source()};
  const uint64_t now = monotonic_ms();
  if (poll(sources, 4, sooner_ms(due_in_ms(now), wait_ms)) < 0) return -1;
  own->revents = sources[0].revents;
  served_client_polled(sources[3]);
  if (sources[1].revents != 0) {
    uint64_t wakes = 0;
    [[maybe_unused]] const ssize_t size = read(wake_fd.load(), &wakes, sizeof(wakes));
  }
  if (bound.load() == 0) {
    give_up();
    return 0;
  }
  read_device(sources[2].revents, now);
  tell_gone_in_order();
  if (!is_open() && !channel.gone_untold && monotonic_ms() >= channel.reopen_at) open_device();
  mind_line();
  return 0;
}

bool modem_channel_is_clean() {
  if (!modem_channel_is_read_here()) return true;
  if (assembler.debt().exchange_ended(nas_queue_is_empty() && !channel.refused)) return true;
  assembler.debt().ended_at(monotonic_ms());  // the modem may have been looked at long before
  mind_line();
  return assembler.debt().is_clean();
}

bool modem_channel_answer_is_lost() {
  return modem_channel_is_read_here() && assembler.debt().link_lost_in_exchange();
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
  if (wake_fd.load() < 0) return;
  [[maybe_unused]] const ssize_t size = write(wake_fd.load(), &one, sizeof(one));
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
  if (bound.exchange(0) != 0) {
    tell(MDX_TRACE_FLOW, "given up");
    if (modem_channel_is_read_here()) {
      give_up();
    } else {
      modem_channel_wake();
    }
  }
  pthread_mutex_unlock(&binding_lock);
}
