// SPDX-License-Identifier: Apache-2.0

// The server leaves a symbolic link to the event FIFO of the task that serves requests. A dead
// server leaves link, FIFO and queues behind: only a FIFO with a reader is a server.

#include "client/server_link.h"

#include <poll.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "client/mdxclient.h"
#include "client/wait_clock.h"
#include "wire/border.h"
#include "wire/event_fifo.h"

namespace {

struct queue_message_t {
  long type;
  at_msg_t record;
};
static_assert(offsetof(queue_message_t, record) == sizeof(long));
static_assert(sizeof(at_msg_t) == kMdxRecordSize);

int error_of(int system_error) {
  switch (system_error) {
    case ENOENT:
    case ENXIO:  // a FIFO that nobody reads
      return MDX_ERR_NO_SERVER;
    case EACCES:
    case EPERM:
      return MDX_ERR_ACCESS;
    case EIDRM:
    case EINVAL:  // the queue's number is no longer one
      return MDX_ERR_SERVER_GONE;
    case EAGAIN:
      return MDX_ERR_BUSY;
    case ENOMSG:
      return MDX_ERR_TIMEOUT;
    default:
      return MDX_ERR_SYSTEM;
  }
}

/// @return whether there is a link, and it leads to where a server's FIFO is; else errno tells more
bool read_link(char (&path)[kEventPathSize]) {
  const ssize_t length = readlink(kMdxServerLink, path, sizeof(path));
  if (length < 0) return false;
  errno = ENOENT;
  if (length == static_cast<ssize_t>(sizeof(path))) return false;
  path[length] = '\0';
  return std::strncmp(path, kMdxEventPrefix, sizeof(kMdxEventPrefix) - 1) == 0;
}

int open_event_fifo() {
  char path[kEventPathSize];
  return read_link(path) ? event_fifo_open(path) : -1;
}

/// Task ids are addresses at the server, and another namespace's name other tasks. Where one of the
/// two is not to be read nobody knows better.
bool knows_our_tasks() {
  char servers[kPidNamespaceSize];
  char own[kPidNamespaceSize];
  return !read_pid_namespace(kMdxPidNamespaceLink, servers) ||
         !read_pid_namespace("/proc/self/ns/pid", own) || std::strcmp(servers, own) == 0;
}

/// @return whether the queue is there; else errno tells more, ENOENT when it is missing
bool find_queue(int32_t number, int* queue) {
  if (*queue < 0) *queue = msgget(kMdxQueueKey + number, 0600);
  return *queue >= 0;
}

/// What is no record is passed over, as much as a queue holds.
int take(int queue, int32_t task, at_msg_t* record) {
  queue_message_t message;
  for (int i = 0; i < kMdxQueueDepth; ++i) {
    const ssize_t size =
        msgrcv(queue, &message, sizeof(message.record), task, IPC_NOWAIT | MSG_NOERROR);
    if (size == static_cast<ssize_t>(sizeof(message.record))) {
      *record = message.record;
      return MDX_OK;
    }
    if (size < 0 && errno != EINTR) return error_of(errno);
  }
  return MDX_ERR_TIMEOUT;
}

/// A queue that was deleted may have been made again since.
int take_from(int32_t number, int* queue, int32_t task, at_msg_t* record) {
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (!find_queue(number, queue)) return errno == ENOENT ? MDX_ERR_TIMEOUT : error_of(errno);
    const int error = take(*queue, task, record);
    if (error != MDX_ERR_SERVER_GONE) return error;
    *queue = -1;
  }
  return MDX_ERR_TIMEOUT;
}

}  // namespace

int server_link_open(server_link_t* link) {
  *link = server_link_t{};
  link->event_fd = open_event_fifo();
  if (link->event_fd >= 0 && !knows_our_tasks()) {
    server_link_close(link);
    return MDX_ERR_NAMESPACE;
  }
  const bool is_open = link->event_fd >= 0 &&
                       (find_queue(kMdxRequestQueue, &link->request_queue) || errno == ENOENT) &&
                       (find_queue(kMdxResponseQueue, &link->response_queue) || errno == ENOENT);
  if (is_open) return MDX_OK;

  const int system_error = errno;
  server_link_close(link);
  errno = system_error;
  return error_of(system_error);
}

bool server_link_lacks_fifo() {
  constexpr mode_t kNobodysMode = 0600;  // until all have their rights to it
  char path[kEventPathSize];
  struct stat fifo {};
  if (!read_link(path)) return false;
  if (lstat(path, &fifo) != 0) return errno == ENOENT;
  return fifo.st_mode == (S_IFIFO | kNobodysMode);
}

void server_link_close(server_link_t* link) {
  if (link->event_fd >= 0) close(link->event_fd);
  *link = server_link_t{};
}

bool server_link_alive(const server_link_t& link, int64_t deadline) {
  pollfd server = {link.event_fd, 0, 0};
  return poll_until(&server, 1, deadline) == 0;
}

bool server_link_follow(server_link_t* link) {
  const int fresh = open_event_fifo();
  if (fresh < 0) return false;
  // Another server would have deleted the queue before it could be found.
  msqid_ds status{};
  if (msgctl(link->request_queue, IPC_STAT, &status) != 0) {
    close(fresh);
    return false;
  }
  close(link->event_fd);
  link->event_fd = fresh;
  return true;
}

int server_link_wait_in_line(const server_link_t& link, int32_t task, bool was_called) {
  const uint32_t ticket = kMdxTicket | (static_cast<uint32_t>(task) & kMdxTicketTask);
  const int error =
      event_fifo_raise(link.event_fd, was_called ? ticket | kMdxTicketCalled : ticket);
  return error == EPIPE ? MDX_ERR_SERVER_GONE : MDX_ERR_BUSY;
}

int server_link_put(server_link_t* link, const at_msg_t& record, bool was_called) {
  const int32_t task = record.msg_type;
  if (!find_queue(kMdxRequestQueue, &link->request_queue)) {
    return errno == ENOENT ? server_link_wait_in_line(*link, task, was_called) : error_of(errno);
  }
  queue_message_t message;
  message.type = task;
  message.record = record;
  int sent = 0;
  do {
    sent = msgsnd(link->request_queue, &message, sizeof(message.record), IPC_NOWAIT);
  } while (sent != 0 && errno == EINTR);
  if (sent == 0) return MDX_OK;
  return errno == EAGAIN ? server_link_wait_in_line(*link, task, was_called) : error_of(errno);
}

int server_link_take_answer(server_link_t* link, int32_t task, at_msg_t* record) {
  return take_from(kMdxResponseQueue, &link->response_queue, task, record);
}

int server_link_take_request(server_link_t* link, int32_t task, at_msg_t* record) {
  return take_from(kMdxRequestQueue, &link->request_queue, task, record);
}
