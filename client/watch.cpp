// SPDX-License-Identifier: Apache-2.0

// An epoll descriptor can itself be polled. While no request is under way it holds nothing but a
// timer that is not set: a dead server, or an answer that nobody wants any more, would otherwise
// keep a caller's loop busy.

#include "client/watch.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>

#include "client/client_handle.h"

namespace {

void set_timer(int timer_fd, int64_t at_ms) {
  itimerspec when{};
  when.it_value.tv_sec = static_cast<time_t>(at_ms / 1000);
  when.it_value.tv_nsec = static_cast<long>(at_ms % 1000) * 1000000L;
  timerfd_settime(timer_fd, TFD_TIMER_ABSTIME, &when, nullptr);
}

void watch(int watch_fd, int fd, uint32_t events) {
  epoll_event event{};
  event.events = events;
  if (epoll_ctl(watch_fd, EPOLL_CTL_ADD, fd, &event) != 0 && errno == EEXIST) {
    epoll_ctl(watch_fd, EPOLL_CTL_MOD, fd, &event);
  }
}

void forget(int watch_fd, int fd) {
  if (fd >= 0) epoll_ctl(watch_fd, EPOLL_CTL_DEL, fd, nullptr);
}

bool watch_open(mdx_client_t* client) {
  client->watch_fd = epoll_create1(EPOLL_CLOEXEC);
  client->timer_fd = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
  epoll_event event{};
  event.events = EPOLLIN;
  if (client->watch_fd >= 0 && client->timer_fd >= 0 &&
      epoll_ctl(client->watch_fd, EPOLL_CTL_ADD, client->timer_fd, &event) == 0) {
    return true;
  }
  const int system_error = errno;
  watch_close(client);
  errno = system_error;
  return false;
}

}  // namespace

void watch_update(mdx_client_t* client) {
  if (client->watch_fd < 0) return;
  const exchange_t& exchange = client->exchange;
  if (exchange.phase == EXCHANGE_NONE) {
    forget(client->watch_fd, client->event_fd);
    forget(client->watch_fd, client->link.event_fd);
    return set_timer(client->timer_fd, 0);
  }
  const bool room_needed = exchange.phase == EXCHANGE_SENT && !exchange.raised;
  watch(client->watch_fd, client->event_fd, EPOLLIN);
  watch(client->watch_fd, client->link.event_fd, room_needed ? EPOLLOUT : 0u);
  set_timer(client->timer_fd, exchange.look_at);
}

void watch_forget_server(mdx_client_t* client) {
  if (client->watch_fd >= 0) forget(client->watch_fd, client->link.event_fd);
}

void watch_close(mdx_client_t* client) {
  if (client->watch_fd >= 0) close(client->watch_fd);
  if (client->timer_fd >= 0) close(client->timer_fd);
  client->watch_fd = client->timer_fd = -1;
}

int mdx_client_fd(mdx_client_t* client) {
  if (client == nullptr) return -1;
  if (client->watch_fd < 0 && watch_open(client)) watch_update(client);
  return client->watch_fd;
}
