// SPDX-License-Identifier: Apache-2.0

// Opening and closing. The thread's id is its address at the server, so there is one handle a
// thread, and a forked child, which is another task, must not take its parent's event set away.

#include "client/client_handle.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
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

/// This thread's id, 0 while it is not known; as the process's.
thread_local int32_t known_task = 0;
std::atomic<int32_t> known_process{0};
bool forks_are_noticed = false;
pthread_once_t forks_asked_for = PTHREAD_ONCE_INIT;

void forget_ids() { known_task = known_process = 0; }

void ask_for_forks() { forks_are_noticed = pthread_atfork(nullptr, nullptr, forget_ids) == 0; }

constexpr int64_t kNamePatienceMs = 2000;
constexpr timespec kNameRetry = {0, 1'000'000};

/// What somebody removed of the server's the server makes again some 200 ms later.
int find_server(server_link_t* link) {
  const int64_t deadline = now_ms() + kNamePatienceMs;
  for (;;) {
    const int error = server_link_open(link);
    const bool is_hidden = error == MDX_ERR_NO_SERVER || error == MDX_ERR_ACCESS;
    if (!is_hidden || now_ms() >= deadline) return error;
    if (!server_link_lacks_fifo()) return server_link_open(link);
    nanosleep(&kNameRetry, nullptr);
  }
}

/// Something that we cannot remove bears our name.
bool is_taken(int system_error) {
  return system_error == EPERM || system_error == EEXIST || system_error == EISDIR;
}

/// What another user left at our name, or put there, the server removes as soon as it sees it.
int open_own_fifo(mdx_client_t* client) {
  char path[kEventPathSize];
  event_fifo_path(client->task, path);
  const int64_t deadline = now_ms() + kNamePatienceMs;
  for (;;) {
    client->event_fd = event_fifo_create(path);
    if (client->event_fd >= 0) return MDX_OK;
    if (!is_taken(errno)) return errno == EACCES ? MDX_ERR_ACCESS : MDX_ERR_SYSTEM;
    if (now_ms() >= deadline) return MDX_ERR_TAKEN;
    nanosleep(&kNameRetry, nullptr);
  }
}

/// An answer to a task that had this number before us may still come, so numbers do not start over.
uint32_t first_seq() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<uint32_t>(now.tv_sec) * 1000003U + static_cast<uint32_t>(now.tv_nsec);
}

}  // namespace

int32_t client_own_task() {
  if (known_task != 0) return known_task;
  pthread_once(&forks_asked_for, ask_for_forks);
  const int32_t task = gettid();
  if (forks_are_noticed) known_task = task;
  return task;
}

int32_t client_own_process() {
  if (const int32_t known = known_process.load(); known != 0) return known;
  pthread_once(&forks_asked_for, ask_for_forks);
  const int32_t process = getpid();
  if (forks_are_noticed) known_process = process;
  return process;
}

void client_disconnect(mdx_client_t* client) {
  watch_forget_server(client);
  server_link_close(&client->link);
}

int client_connect(mdx_client_t* client) {
  return client->link.event_fd >= 0 ? MDX_OK : server_link_open(&client->link);
}

int mdx_open(mdx_client_t** client) {
  if (client == nullptr) return MDX_ERR_ARGUMENT;
  *client = nullptr;
  if (open_task == client_own_task()) return MDX_ERR_THREAD;

  auto* opened = static_cast<mdx_client_t*>(std::calloc(1, sizeof(mdx_client_t)));
  if (opened == nullptr) return MDX_ERR_SYSTEM;
  opened->task = client_own_task();
  opened->seq = first_seq();
  opened->event_fd = -1;
  opened->watch_fd = opened->timer_fd = -1;
  opened->link = server_link_t{};

  int error = find_server(&opened->link);
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
  if (client->task == client_own_task()) {
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
