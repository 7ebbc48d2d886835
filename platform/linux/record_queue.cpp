// SPDX-License-Identifier: Apache-2.0

// Requests and answers between processes: System V queues, which the kernel keeps over a crash.
//
// Only the server puts answers on queue 1, and clients take them; one that does not must not starve
// the others. So the server remembers what it put when. When the queue is full it takes everything
// out, leaves out what nobody will read, or who takes too much room (answer_room), and puts back
// the rest, waking those clients again: one that looked in between found nothing.

#include <fcntl.h>
#include <pthread.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "platform/linux/answer_room.h"
#include "platform/linux/complaint.h"
#include "platform/linux/counters.h"
#include "platform/linux/events.h"
#include "platform/linux/large_buffers.h"
#include "platform/linux/modem_channel.h"
#include "platform/linux/monotonic.h"
#include "platform/linux/nas_queue.h"
#include "platform/linux/queue_key.h"
#include "platform/linux/record_queue.h"
#include "platform/linux/served_client.h"
#include "platform/linux/waiting_line.h"
#include "platform/mdx_platform.h"
#include "wire/at_msg.h"
#include "wire/border.h"
#include "wire/event_fifo.h"

namespace {

constexpr uint32_t kUnreadLimitMs = 5000;
constexpr uint32_t kLongestNapMs = 20;
constexpr size_t kMaxDepth = 16;
constexpr int kMaxDrain = 100000;  // one who fills the queue as fast as it is emptied gains nothing
constexpr size_t kPutsRemembered = 1024;
/// The id of a queue that could not be made at the start. The kernel's ids are far lower.
constexpr int32_t kIdOfMissing = 0x7fffff00;

struct record_message_t {
  long type;
  char record[kMdxRecordSize + 1];  // one byte more, to tell a longer message
};

struct put_t {
  int32_t type;
  uint32_t at;  ///< MDX_elapse
};

struct answer_t {
  record_message_t message;
  uint32_t put_at;

  int32_t task() const { return static_cast<int32_t>(message.type); }
};

/// A queue keeps the id that it was created with, whatever the kernel calls it now.
struct border_queue_t {
  int32_t id = -1;
  int32_t kernel_id = -1;
  int32_t bytes = 0;
  complaint told;  ///< why it could not be made again
};

constinit border_queue_t border_queues[kMdxRequestQueue + 1];  ///< by number
constinit std::atomic<int32_t> serving_task{0};
/// From taking a request until its client is known to live.
pthread_mutex_t taking = PTHREAD_MUTEX_INITIALIZER;
[[MDX_FILLED_DOWN]] constinit put_t puts_remembered[kPutsRemembered] = {};
constinit size_t puts_total = 0;
[[MDX_SELDOM_TOUCHED]] constinit answer_t answers[kMaxDepth] = {};
constinit answer_patience patience;
/// Requests that are on the queue for certain, or were when they were counted; -1 when not known.
constinit int32_t requests_known = -1;
/// How often the requests were counted since the server slept. A client that is quick has its next
/// one there before the server sleeps again; but who wants to stand in line is heard after a sleep.
constinit int32_t looks_awake = 0;
/// The client of the request in hand has lost its place to who waited.
constinit bool place_is_lost = false;

// When the thread took the request that it serves, to tell how long that lasted.
constinit thread_local uint64_t request_taken_at = 0;  ///< microseconds, 0 without one
constinit thread_local uint64_t sends_before_request = 0;

void note_request() {
  counter_add(COUNT_REQUESTS);
  request_taken_at = monotonic_us();
  sends_before_request = counter_value(COUNT_CHANNEL_SENDS);
}

void note_answer() {
  counter_add(COUNT_ANSWERS);
  const uint64_t sends = counter_value(COUNT_CHANNEL_SENDS);
  if (request_taken_at == 0 || sends == sends_before_request) return;
  const uint64_t taken = monotonic_us() - request_taken_at;
  request_taken_at = 0;
  counter_add(COUNT_COMMANDS);
  counter_add(COUNT_COMMAND_MICROSECONDS, taken);
  counter_raise_to(COUNT_COMMAND_MICROSECONDS_MAX, taken);
}

bool is_border_queue(int32_t number) {
  return number == kMdxResponseQueue || number == kMdxRequestQueue;
}

/// Tells clients whose task ids the server knows. Without /proc it stays untold.
void link_pid_namespace() {
  char name[kPidNamespaceSize];
  if (!read_pid_namespace("/proc/self/ns/pid", name)) return;
  unlink(kMdxPidNamespaceLink);
  static constinit complaint told;
  const int error = symlink(name, kMdxPidNamespaceLink) == 0 ? 0 : errno;
  if (told.is_news(error)) {
    MDX_TRACE(MDX_FROM_PLATFORM, MDX_TRACE_ERROR, "%s: %s\n", kMdxPidNamespaceLink,
              strerror(error));
  }
}

/// Tells clients whom to wake: the link appears whole or not at all.
bool link_server() {
  char target[kEventPathSize];
  char fresh[sizeof(kMdxServerLink) + sizeof(".new")];
  server_fifo_path(serving_task.load(), target);
  snprintf(fresh, sizeof(fresh), "%s.new", kMdxServerLink);
  unlink(fresh);
  link_pid_namespace();
  static constinit complaint told;
  const bool is_linked = serving_task.load() != 0 && symlink(target, fresh) == 0 &&
                         renameat(AT_FDCWD, fresh, AT_FDCWD, kMdxServerLink) == 0;
  const int error = is_linked ? 0 : errno;
  if (told.is_news(error)) {
    MDX_TRACE(MDX_FROM_PLATFORM, MDX_TRACE_ERROR, "clients cannot find the server: %s\n",
              strerror(error));
  }
  return is_linked;
}

int32_t kernel_id_of(int32_t id) {
  for (const border_queue_t& queue : border_queues)
    if (id >= 0 && queue.id == id) return queue.kernel_id;
  return id;
}

size_t answers_at_most() {
  return static_cast<size_t>(border_queues[kMdxResponseQueue].bytes) / kMdxRecordSize;
}

bool is_response_queue(int32_t id) { return id >= 0 && id == border_queues[kMdxResponseQueue].id; }
bool is_request_queue(int32_t id) { return id >= 0 && id == border_queues[kMdxRequestQueue].id; }

[[noreturn]] void end_for_want_of(int32_t number, int error) {
  const auto key = static_cast<uint32_t>(kMdxQueueKey + number);
  if (error == EEXIST) {
    dprintf(STDERR_FILENO,
            "mdxgate: queue 0x%x is another user's: remove it with \"ipcrm -Q 0x%x\", or start as "
            "root\n",
            key, key);
  } else {
    dprintf(STDERR_FILENO, "mdxgate: cannot make queue 0x%x: %s\n", key, strerror(error));
  }
  _exit(1);
}

/// Makes a queue that is missing. A key that is somebody else's now can be freed by root alone: who
/// supervises this process starts it again.
/// @return whether it is there
bool make_queue(int32_t number) {
  border_queue_t& queue = border_queues[number];
  queue.kernel_id = queue_key_take(number, queue.bytes);
  const int error = queue.kernel_id < 0 ? errno : 0;
  if (queue.told.is_news(error)) {
    MDX_TRACE(MDX_FROM_PLATFORM, MDX_TRACE_ERROR, "no queue %d: %s\n", number, strerror(error));
  }
  errno = error;
  return error == 0;
}

/// Makes a queue again, if it is one of ours and `error` says that it is gone.
/// @return whether it is there again
bool restore_queue(int32_t id, int error) {
  if (error != EINVAL && error != EIDRM) return false;
  int32_t number = kMdxRequestQueue;
  while (number > 0 && (id < 0 || border_queues[number].id != id)) --number;
  if (number == 0) return false;
  if (!make_queue(number)) {
    if (errno == EEXIST) end_for_want_of(number, EEXIST);
    errno = error;
    return false;
  }
  MDX_TRACE(MDX_FROM_PLATFORM, MDX_TRACE_ERROR, "queue %d was removed with all in it: made again\n",
            number);
  return true;
}

/// The first ones stand last.
put_t& put_of_number(size_t number) {
  return puts_remembered[kPutsRemembered - 1 - number % kPutsRemembered];
}

void remember_put(int32_t type, uint32_t at) {
  put_of_number(puts_total) = {type, at};
  ++puts_total;
}

/// When the last answer of this type was put that has not been asked for yet. What is no longer
/// remembered counts as old: many more answers have been read since.
uint32_t recall_put(int32_t type, uint32_t now) {
  const size_t known = puts_total < kPutsRemembered ? puts_total : kPutsRemembered;
  for (size_t back = 1; back <= known; ++back) {
    put_t& put = put_of_number(puts_total - back);
    if (put.type != type) continue;
    put.type = 0;
    return put.at;
  }
  return now - kUnreadLimitMs - 1;
}

/// Takes all answers off the queue, the oldest first, each with its age.
size_t drain_answers(int32_t id, uint32_t now) {
  size_t count = 0;
  for (int i = 0; i < kMaxDrain && count < kMaxDepth; ++i) {
    record_message_t& message = answers[count].message;
    const ssize_t size = msgrcv(id, &message, sizeof(message.record), 0, IPC_NOWAIT | MSG_NOERROR);
    if (size < 0) break;
    if (size == static_cast<ssize_t>(kMdxRecordSize)) ++count;
  }
  // A client takes its oldest answer first, so what is left of a type are the last ones put.
  for (size_t i = count; i-- > 0;) answers[i].put_at = recall_put(answers[i].task(), now);
  puts_total = 0;
  return count;
}

bool is_for_the_dead(const answer_t& answer, uint32_t) { return task_is_dead(answer.task()); }

bool is_unread_for_long(const answer_t& answer, uint32_t now) {
  return now - answer.put_at > kUnreadLimitMs;
}

/// Leaves out the answers for which `lost` is true. @return how many are left
size_t drop_answers(size_t count, uint32_t now, bool (*lost)(const answer_t&, uint32_t),
                    mdx_counter_t counter, const char* why) {
  size_t kept = 0;
  for (size_t i = 0; i < count; ++i) {
    if (lost(answers[i], now)) {
      MDX_DROP(counter, MDX_TRACE_ERROR, "answer for task %ld dropped: %s\n",
               answers[i].message.type, why);
    } else {
      if (kept != i) answers[kept] = answers[i];
      ++kept;
    }
  }
  return kept;
}

/// The user who has the most unread answers loses one, so those who read lose none.
/// @param waited  whether it was waited for the answers already
/// @return how many are left
size_t drop_of_hoarder(size_t count, uint32_t now, int32_t receiver, bool waited) {
  unread_answer_t unread[kMaxDepth + 1];
  for (size_t i = 0; i < count; ++i) {
    const uid_t user = task_user(answers[i].task());
    const uint32_t age_ms = patience.is_over(user, now) ? kTakingMs : now - answers[i].put_at;
    unread[i] = {answers[i].task(), user, age_ms};
  }
  unread[count] = {receiver, task_user(receiver), 0};
  const size_t lost = answer_to_lose(unread, count + 1);
  if (lost >= count) return count;
  if (waited) patience.was_in_vain(unread[lost].user, now);
  MDX_DROP(COUNT_ANSWERS_DROPPED_UNREAD, MDX_TRACE_ERROR, "answer for task %d dropped: %s\n",
           answers[lost].task(), "its user leaves too many unread");
  for (size_t i = lost + 1; i < count; ++i) answers[i - 1] = answers[i];
  return count - 1;
}

/// Leaves out what nobody will read, or else what was left unread the longest or the most.
/// @return how many are left
size_t drop_some(size_t count, uint32_t now, int32_t receiver, bool waited) {
  size_t kept =
      drop_answers(count, now, is_for_the_dead, COUNT_ANSWERS_DROPPED_DEAD, "its client is dead");
  if (kept != count) return kept;
  kept = drop_answers(count, now, is_unread_for_long, COUNT_ANSWERS_DROPPED_UNREAD,
                      "unread for more than 5 seconds");
  return kept != count ? kept : drop_of_hoarder(count, now, receiver, waited);
}

bool put_message(int32_t id, const record_message_t& message) {
  int result = 0;
  do {
    result = msgsnd(id, &message, kMdxRecordSize, IPC_NOWAIT);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

/// Puts an answer back that was taken out to make room, and wakes its client again.
void put_back(int32_t id, const answer_t& answer) {
  if (!put_message(id, answer.message)) {
    MDX_DROP(COUNT_ANSWERS_REFUSED, MDX_TRACE_ERROR, "answer for task %d lost its place\n",
             answer.task());
    return;
  }
  remember_put(answer.task(), answer.put_at);
  if (answer.task() != kMdxOddMessageType) MDX_event_send(answer.task(), kMdxEventAnswer);
}

/// Only the server puts answers, so what others have put since the queue was drained may go. Each
/// time it is one, and the answer at once behind it: who fills the queue without pause is too late.
bool put_over_foreign(int32_t id, const record_message_t& message) {
  constexpr int kFlags = IPC_NOWAIT | MSG_NOERROR | MSG_EXCEPT;
  for (int i = 0; i < kMaxDrain; ++i) {
    if (put_message(id, message)) return true;
    if (errno != EAGAIN) return false;
    long type_alone = 0;
    if (msgrcv(id, &type_alone, 0, message.type, kFlags) < 0) return put_message(id, message);
  }
  return false;
}

/// Makes room on a full queue, where somebody has to give way, and puts the answer there: behind
/// those of its own client, and in front of the others, so that who fills the queue meanwhile is
/// too late. @return whether it is there
bool put_in_place_of_others(int32_t id, const record_message_t& message, bool waited) {
  const uint32_t now = MDX_elapse();
  const auto receiver = static_cast<int32_t>(message.type);
  const size_t count = drain_answers(id, now);
  const size_t kept = drop_some(count, now, receiver, waited);
  for (size_t i = 0; i < kept; ++i)
    if (answers[i].task() == receiver) put_back(id, answers[i]);
  const int error = kept < answers_at_most() && put_over_foreign(id, message) ? 0 : EAGAIN;
  for (size_t i = 0; i < kept; ++i)
    if (answers[i].task() != receiver) put_back(id, answers[i]);
  errno = error;
  return error == 0;
}

/// Puts an answer where others may be in its way. Those that are about to be read are waited for.
bool put_answer(int32_t id, const record_message_t& message) {
  const uint32_t begin = MDX_elapse();
  for (uint32_t nap_ms = 1;; nap_ms = nap_ms < kLongestNapMs ? 2 * nap_ms : kLongestNapMs) {
    if (put_message(id, message)) return true;
    if (errno != EAGAIN) return false;
    if (put_in_place_of_others(id, message, nap_ms > 1)) return true;
    if (MDX_elapse() - begin > kUnreadLimitMs + kLongestNapMs) return false;
    modem_channel_sleep(nap_ms);
  }
}

void drop_request_of_the_dead(int32_t client) {
  MDX_DROP(COUNT_REQUESTS_OF_THE_DEAD, MDX_TRACE_MISSING, "request of task %d dropped: %s\n",
           client, "it is gone");
}

/// Not inlined: the caller would hold each of its ends, and what it does then, once more.
/// @return the message's size or -1 with errno: EOWNERDEAD for the request of a client that is gone
[[gnu::noinline]] ssize_t take_message(int32_t id, int32_t type, record_message_t* message) {
  const ssize_t size =
      msgrcv(kernel_id_of(id), message, sizeof(message->record), type, IPC_NOWAIT | MSG_NOERROR);
  if (size != static_cast<ssize_t>(kMdxRecordSize) || !is_request_queue(id)) return size;
  int32_t client = 0;
  uint32_t seq = 0;
  memcpy(&client, message->record + offsetof(at_msg_t, msg_type), sizeof(client));
  memcpy(&seq, message->record + offsetof(at_msg_t, seq), sizeof(seq));
  if (served_client_begin(client, seq)) return size;
  drop_request_of_the_dead(client);
  errno = EOWNERDEAD;
  return -1;
}

int32_t count_messages(int32_t id) {
  msqid_ds status;
  if (id < 0) return 0;
  if (msgctl(kernel_id_of(id), IPC_STAT, &status) == 0)
    return static_cast<int32_t>(status.msg_qnum);
  restore_queue(id, errno);
  return 0;
}

/// What is put after the queue was counted is raised after it, too: so the count need not be
/// repeated before the requests that it found are read.
void note_taking(int32_t id, bool has_taken, bool is_served) {
  if (!is_request_queue(id)) return;
  requests_known = has_taken && requests_known > 0 ? requests_known - 1 : -1;
  if (has_taken && !is_served) waiting_line_call(1);
}

/// Counts the requests. Where there are none nobody keeps those who wait in line from coming.
int32_t count_requests(int32_t id) {
  const int32_t count = count_messages(id);
  if (count == 0) waiting_line_call(kMdxQueueDepth);
  return count;
}

/// The request in hand has left its place.
void note_place(int32_t id, const record_message_t& message) {
  if (!is_request_queue(id)) return;
  int32_t client = 0;
  memcpy(&client, message.record, sizeof(client));
  place_is_lost = waiting_line_move(client, static_cast<uint32_t>(request_taken_at));
}

int32_t fail(int* retcode, int error) {
  if (retcode != nullptr) *retcode = error;
  return -1;
}

}  // namespace

int32_t MDX_get_msgQ_id(int32_t number) {
  if (number == kNasQueueNumber) return nas_queue_find();
  return is_border_queue(number) ? msgget(kMdxQueueKey + number, 0) : -1;
}

int32_t MDX_msgQex_create(int32_t number, int32_t depth, int32_t size) {
  if (!is_border_queue(number) || depth <= 0 || depth > static_cast<int32_t>(kMaxDepth) ||
      size != static_cast<int32_t>(kMdxRecordSize)) {
    MDX_TRACE(MDX_FROM_PLATFORM, MDX_TRACE_ERROR, "no queue %d of %d times %d bytes\n", number,
              depth, size);
    return -1;
  }
  border_queue_t& queue = border_queues[number];
  if (queue.id >= 0) {
    MDX_TRACE(MDX_FROM_PLATFORM, MDX_TRACE_ERROR, "queue %d is there already\n", number);
    return -1;
  }
  queue.bytes = depth * size;
  queue.id = make_queue(number) ? queue.kernel_id : kIdOfMissing + number;
  if (number != kMdxRequestQueue) return queue.id;
  serving_task = MDX_task_getid();
  link_server();
  return queue.id;
}

void MDX_msgQex_delete(int32_t id) {
  if (id < 0) return;
  if (queue_key_remove(kernel_id_of(id)) != 0)
    MDX_TRACE(MDX_FROM_PLATFORM, MDX_TRACE_MISSING, "queue is not deleted: %s\n", strerror(errno));
  for (border_queue_t& queue : border_queues)
    if (queue.id == id) queue.id = -1;
}

int32_t record_queue_depth(int32_t number) {
  msqid_ds status;
  if (msgctl(MDX_get_msgQ_id(number), IPC_STAT, &status) != 0) return 0;
  return static_cast<int32_t>(status.msg_qnum);
}

void request_queue_raise() {
  if (serving_task.load() != 0) MDX_event_send(serving_task.load(), kMdxEventRequest);
}

void request_queue_wanted(uint32_t ticket) {
  if (serving_task.load() == MDX_task_getid()) waiting_line_join(ticket);
}

requests_wait_t::requests_wait_t() { pthread_mutex_lock(&taking); }
requests_wait_t::~requests_wait_t() { pthread_mutex_unlock(&taking); }

void requests_drop(int32_t task_id) {
  record_message_t message;
  const int32_t id = MDX_get_msgQ_id(kMdxRequestQueue);
  constexpr int kFlags = IPC_NOWAIT | MSG_NOERROR;
  for (int i = 0; i < kMaxDrain; ++i) {
    if (msgrcv(id, &message, sizeof(message.record), task_id, kFlags) < 0) return;
    drop_request_of_the_dead(task_id);
  }
}

void record_queues_settle() {
  for (int32_t number = kMdxResponseQueue; number <= kMdxRequestQueue; ++number) {
    border_queue_t& queue = border_queues[number];
    if (queue.id < 0 || queue.kernel_id >= 0 || make_queue(number)) continue;
    if (errno != ENOSPC && errno != ENOMEM) end_for_want_of(number, errno);
  }
}

bool server_link_restore() {
  return serving_task.load() == 0 || access(kMdxServerLink, F_OK) == 0 || link_server();
}

int32_t MDX_msgQex_num(int32_t id) {
  if (!is_request_queue(id)) return count_messages(id);
  const bool is_clean = modem_channel_is_clean();
  const bool was_asleep = requests_known < 0;
  const bool may_look = was_asleep || looks_awake < kMdxQueueDepth || waiting_line_stands();
  if (is_clean && requests_known <= 0 && may_look) {
    looks_awake = was_asleep ? 0 : looks_awake + 1;
    requests_known = count_requests(id);
  }
  const int32_t waiting = is_clean ? requests_known : 0;
  if (waiting == 0) requests_known = -1;
  return waiting;
}

int32_t read_from_msgqueue(int32_t id, void* record, int32_t type, int* retcode) {
  if (record == nullptr || type < 0) return fail(retcode, EINVAL);
  record_message_t message;
  pthread_mutex_lock(&taking);
  const ssize_t size = take_message(id, type, &message);
  const int error = errno;
  pthread_mutex_unlock(&taking);
  const bool is_served = size == static_cast<ssize_t>(kMdxRecordSize);
  note_taking(id, size >= 0 || error == EOWNERDEAD, is_served);
  if (size < 0) return fail(retcode, error);
  if (!is_served) {
    MDX_DROP(COUNT_REQUESTS_MISSIZED, MDX_TRACE_ERROR, "message of %s%zd bytes dropped\n",
             size > static_cast<ssize_t>(kMdxRecordSize) ? "at least " : "", size);
    return fail(retcode, EBADMSG);
  }
  memcpy(record, message.record, kMdxRecordSize);
  note_request();
  note_place(id, message);
  return 0;
}

int32_t send_to_msgqueue(int32_t id, const void* record, int* retcode) {
  if (record == nullptr) return fail(retcode, EINVAL);
  record_message_t message;
  int32_t type = 0;
  memcpy(&type, record, sizeof(type));
  memcpy(message.record, record, kMdxRecordSize);
  message.type = type > 0 ? type : kMdxOddMessageType;

  const bool is_answer = is_response_queue(id);
  if (is_answer && served_client_is_dead()) {
    MDX_DROP(COUNT_ANSWERS_DROPPED_DEAD, MDX_TRACE_MISSING, "answer for task %d dropped: %s\n",
             type, "it is gone");
    return 0;
  }
  const auto put = is_answer ? put_answer : put_message;
  if (!put(kernel_id_of(id), message) &&
      !(restore_queue(id, errno) && put(kernel_id_of(id), message))) {
    const int error = errno;
    if (is_answer) counter_add(COUNT_ANSWERS_REFUSED);
    return fail(retcode, error);
  }
  if (is_answer) remember_put(static_cast<int32_t>(message.type), MDX_elapse());
  if (is_answer) note_answer();
  const uint32_t line = is_answer && place_is_lost ? kMdxEventLine : 0;
  if (type > 0) MDX_event_send(type, kMdxEventAnswer | line);
  return 0;
}
