// SPDX-License-Identifier: Apache-2.0

// Opening and closing. The thread's id is its address at the server, so there is one handle a
// thread, and a forked child, which is another task, must not take its parent's event set away.

#include "client/client_handle.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>

#include "client/wait_clock.h"
#include "client/watch.h"
#include "wire/event_fifo.h"

namespace {

/// The task that has a handle open, as known to this thread; a forked child finds its parent's
/// here.
thread_local int32_t open_task = 0;

/// A FIFO at our path that another user left behind in the sticky directory cannot be replaced, but
/// it serves as well as long as we may read it.
int adopt_event_fifo(const char* path) {
  const int fd = open(path, O_RDWR | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
  struct stat status {};
  if (fd < 0) return -1;
  if (fstat(fd, &status) == 0 && S_ISFIFO(status.st_mode)) return fd;
  close(fd);
  errno = EACCES;
  return -1;
}

int open_own_fifo(mdx_client_t* client) {
  char path[kEventPathSize];
  event_fifo_path(client->task, path);
  client->event_fd = event_fifo_create(path);
  if (client->event_fd < 0 && (errno == EPERM || errno == EACCES || errno == EEXIST)) {
    client->event_fd = adopt_event_fifo(path);
  }
  if (client->event_fd >= 0) return MDX_OK;
  return errno == EPERM || errno == EACCES || errno == ELOOP ? MDX_ERR_ACCESS : MDX_ERR_SYSTEM;
}

/// An answer to a task that had this number before us may still come, so numbers do not start over.
uint32_t first_seq() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<uint32_t>(now.tv_sec) * 1000003U + static_cast<uint32_t>(now.tv_nsec);
}

}  // namespace

void client_disconnect(mdx_client_t* client) {
  watch_forget_server(client);
  server_link_close(&client->link);
}

int client_connect(mdx_client_t* client) {
  if (client->task != gettid()) return MDX_ERR_THREAD;
  if (client->link.event_fd >= 0) {
    if (server_link_alive(client->link, now_ms())) return MDX_OK;
    client_disconnect(client);
  }
  return server_link_open(&client->link);
}

int mdx_open(mdx_client_t** client) {
  if (client == nullptr) return MDX_ERR_ARGUMENT;
  *client = nullptr;
  if (open_task == gettid()) return MDX_ERR_THREAD;

  auto* opened = static_cast<mdx_client_t*>(std::calloc(1, sizeof(mdx_client_t)));
  if (opened == nullptr) return MDX_ERR_SYSTEM;
  opened->task = gettid();
  opened->seq = first_seq();
  opened->event_fd = -1;
  opened->watch_fd = opened->timer_fd = -1;
  opened->link = server_link_t{};

  int error = server_link_open(&opened->link);
  if (error == MDX_OK) error = open_own_fifo(opened);
  if (error != MDX_OK) {
    const int system_error = errno;
    server_link_close(&opened->link);
    std::free(opened);
    errno = system_error;
    return error;
  }
  open_task = opened->task;
  *client = opened;
  return MDX_OK;
}

void mdx_close(mdx_client_t* client) {
  if (client == nullptr) return;
  if (client->task == gettid()) {
    exchange_give_up(client);
    char path[kEventPathSize];
    event_fifo_path(client->task, path);
    unlink(path);
    open_task = 0;
  }
  watch_close(client);
  close(client->event_fd);
  server_link_close(&client->link);
  std::free(client);
}
