// SPDX-License-Identifier: Apache-2.0

// Modem data that waits for the state machine.
//
// The task that reads the modem also takes the elements: it reads on while it waits for one. Others
// may send and receive too. A queue may be deleted under a waiting thread, which finds its
// generation gone.

#include "platform/linux/nas_queue.h"

#include <poll.h>
#include <pthread.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "platform/linux/counters.h"
#include "platform/linux/large_buffers.h"
#include "platform/linux/modem_channel.h"
#include "platform/linux/served_client.h"
#include "platform/mdx_platform.h"

namespace {

constexpr int32_t kRoomWaitMs = 1000;
constexpr int32_t kMaxDepth = 4096;
constexpr int32_t kMaxElementSize = 65536;
constexpr size_t kRoom = 16 * 1024;  // for the elements and their lengths

struct nas_queue_t {
  pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
  bool ready = false;  ///< `changed` has got the monotonic clock
  uint32_t generation = 0;
  size_t depth = 0;  ///< 0: no queue
  size_t element_size = 0;
  size_t head = 0;
  size_t count = 0;
};
constinit nas_queue_t queue;
[[MDX_FILLED_UP]] constinit char slots[kRoom] = {};  ///< each is a length and an element

class queue_lock {
 public:
  queue_lock() { take(); }
  ~queue_lock() { release(); }
  void take() {
    pthread_mutex_lock(&queue.lock);
    held_ = true;
  }
  void release() {
    if (held_) pthread_mutex_unlock(&queue.lock);
    held_ = false;
  }
  queue_lock(const queue_lock&) = delete;
  queue_lock& operator=(const queue_lock&) = delete;

 private:
  bool held_ = false;
};

size_t slot_size() { return sizeof(uint32_t) + queue.element_size; }
char* slot_at(size_t position) { return slots + position % queue.depth * slot_size(); }
bool is_queue(int32_t id) { return id == kNasQueueNumber && queue.depth != 0; }
bool has_room() { return queue.count < queue.depth; }
bool has_element() { return queue.count > 0; }

void tell_change() {
  pthread_cond_broadcast(&queue.changed);
  if (!modem_channel_is_read_here()) modem_channel_wake();
}

timespec deadline_in(int32_t milliseconds) {
  timespec deadline{};
  clock_gettime(CLOCK_MONOTONIC, &deadline);
  deadline.tv_sec += milliseconds / 1000;
  deadline.tv_nsec += milliseconds % 1000 * 1000000L;
  if (deadline.tv_nsec >= 1000000000L) {
    deadline.tv_nsec -= 1000000000L;
    ++deadline.tv_sec;
  }
  return deadline;
}

/// Waits, the lock held, until the condition is true.
/// @return false when the time is over or the queue has been deleted meanwhile
bool wait_for(bool (*condition)(), int32_t milliseconds) {
  if (condition()) return true;
  if (milliseconds <= 0) return false;
  const timespec deadline = deadline_in(milliseconds);
  const uint32_t generation = queue.generation;
  int error = 0;
  while (error != ETIMEDOUT) {
    error = pthread_cond_timedwait(&queue.changed, &queue.lock, &deadline);
    if (queue.generation != generation) return false;
    if (condition()) return true;
  }
  return false;
}

/// Waits for an element as the task that reads the modem, the lock held but for the waits. Its time
/// is up, too, when nobody is left who wants the answer or could give it.
bool read_modem_for_element(queue_lock* lock, int32_t milliseconds) {
  const uint32_t begin = MDX_elapse();
  const uint32_t generation = queue.generation;
  while (!has_element()) {
    const uint32_t waited = MDX_elapse() - begin;
    if (milliseconds <= 0 || waited >= static_cast<uint32_t>(milliseconds)) return false;
    if (served_client_is_dead() || modem_channel_answer_is_lost()) return false;
    pollfd nothing = {-1, 0, 0};
    lock->release();
    const int ready = modem_channel_poll(&nothing, milliseconds - static_cast<int32_t>(waited));
    const bool can_wait = ready >= 0 || errno == EINTR;
    lock->take();
    if (!can_wait || queue.generation != generation) return false;
  }
  return true;
}

bool make_condition_ready() {
  if (queue.ready) return true;
  pthread_condattr_t attributes;
  pthread_condattr_init(&attributes);
  pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
  queue.ready = pthread_cond_init(&queue.changed, &attributes) == 0;
  pthread_condattr_destroy(&attributes);
  return queue.ready;
}

}  // namespace

int32_t nas_queue_find() {
  const queue_lock lock;
  return queue.depth != 0 ? kNasQueueNumber : -1;
}

bool nas_queue_is_full() {
  const queue_lock lock;
  return queue.depth != 0 && !has_room();
}

bool nas_queue_is_empty() {
  const queue_lock lock;
  return queue.depth == 0 || !has_element();
}

int32_t MDX_msgQ_create(int32_t number, int32_t depth, int32_t size) {
  const queue_lock lock;
  if (number != kNasQueueNumber || queue.depth != 0) return -1;
  if (depth <= 0 || depth > kMaxDepth || size <= 0 || size > kMaxElementSize) return -1;
  queue.element_size = static_cast<size_t>(size);
  if (static_cast<size_t>(depth) * slot_size() > kRoom || !make_condition_ready()) return -1;
  queue.depth = static_cast<size_t>(depth);
  queue.head = 0;
  queue.count = 0;
  return kNasQueueNumber;
}

void MDX_msgQ_delete(int32_t id) {
  const queue_lock lock;
  if (!is_queue(id)) return;
  queue.depth = 0;
  queue.count = 0;
  ++queue.generation;
  tell_change();
}

int32_t MDX_msgQ_num(int32_t id) {
  const queue_lock lock;
  return is_queue(id) ? static_cast<int32_t>(queue.count) : 0;
}

// Who waits is woken when the lock is free again: woken earlier, it would only wait for the lock.

int32_t MDX_msgQ_send(int32_t id, const void* data, uint32_t size, int32_t) {
  queue_lock lock;
  if (!is_queue(id) || size > queue.element_size || (data == nullptr && size != 0)) return 0;
  if (!wait_for(has_room, kRoomWaitMs)) {
    MDX_DROP(COUNT_NAS_QUEUE_REFUSED, MDX_TRACE_ERROR, "NAS queue is full, %u bytes refused\n",
             size);
    return 0;
  }
  char* slot = slot_at(queue.head + queue.count);
  memcpy(slot, &size, sizeof(size));
  if (size != 0) memcpy(slot + sizeof(size), data, size);
  ++queue.count;
  lock.release();
  tell_change();
  return 1;
}

int32_t MDX_msgQ_recv(int32_t id, void* buffer, uint32_t size, int32_t wait_ms) {
  queue_lock lock;
  if (!is_queue(id) || buffer == nullptr) return -1;
  const bool came = modem_channel_is_read_here() ? read_modem_for_element(&lock, wait_ms)
                                                 : wait_for(has_element, wait_ms);
  if (!came) return -1;
  const char* slot = slot_at(queue.head);
  uint32_t length = 0;
  memcpy(&length, slot, sizeof(length));
  if (length > size) length = size;
  memcpy(buffer, slot + sizeof(length), length);
  --queue.count;
  queue.head = queue.count == 0 ? 0 : (queue.head + 1) % queue.depth;  // the same memory again
  lock.release();
  tell_change();
  return static_cast<int32_t>(length);
}
