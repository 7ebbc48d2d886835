// SPDX-License-Identifier: Apache-2.0

// One request to the server and its answer, by a deadline, as steps between which the caller may
// wait where it likes.
//
// The server may be busy, may die at any point, may be started again. The answer queue is common to
// all clients and may hold answers to what this task, or a dead one of the same number, has given
// up.

#include "client/exchange.h"

#include <poll.h>
#include <cerrno>
#include <initializer_list>

#include "client/client_handle.h"
#include "client/wait_clock.h"
#include "client/watch.h"
#include "wire/border.h"
#include "wire/event_fifo.h"

namespace {

constexpr int64_t kFirstRetryMs = 1;
constexpr int64_t kLongestRetryMs = 50;
/// Who waits in line is called, should the ticket not get lost.
constexpr int64_t kRetryInLineMs = 100;
/// Who lost its place to others lets them go first only if it comes again at once.
constexpr int64_t kComesAgainMs = 5;
/// The answer is also looked for without a raise this often, should the server fail to reach our
/// FIFO.
constexpr int64_t kLookAgainMs = 500;
/// More than a queue holds. Somebody who puts records there in our name, as fast as we take them,
/// must not keep us beyond the deadline.
constexpr int kMostAtOnce = 2 * kMdxQueueDepth;

/// Takes away what the server still holds of earlier requests.
void drop_leftovers(mdx_client_t* client) {
  at_msg_t old;
  for (const auto take : {server_link_take_request, server_link_take_answer}) {
    for (int i = 0; i < kMostAtOnce && take(&client->link, client->task, &old) == MDX_OK; ++i)
      continue;
  }
  event_fifo_take(client->event_fd);
}

using take_t = int (*)(server_link_t* link, int32_t task, at_msg_t* record);

/// Takes the request's own record off a queue, and what lies before it in our name.
/// @return MDX_OK, MDX_ERR_TIMEOUT when it is not there, or what is wrong with the queue
int take_own(mdx_client_t* client, take_t take, at_msg_t* record) {
  for (int i = 0; i < kMostAtOnce; ++i) {
    const int error = take(&client->link, client->task, record);
    if (error != MDX_OK || record->seq == client->exchange.sent.seq) return error;
  }
  return MDX_ERR_TIMEOUT;
}

/// Nobody shall run the request any more, unless it is already being run.
bool withdraw(mdx_client_t* client) {
  at_msg_t unserved;
  return take_own(client, server_link_take_request, &unserved) == MDX_OK;
}

/// @return 0, EAGAIN when the server cannot be told now, or EPIPE when it is dead
int raise_server(mdx_client_t* client) {
  if (client->exchange.raised) return 0;
  const int error = event_fifo_raise(client->link.event_fd, kMdxEventRequest);
  client->exchange.raised = error == 0;
  return error;
}

/// The first try of who shall let others go first is none.
int ask_or_put(mdx_client_t* client) {
  server_link_t& link = client->link;
  const int64_t line_until = link.line_until;
  link.line_until = 0;
  if (line_until != 0 && now_ms() < line_until)
    return server_link_wait_in_line(link, client->task, false);
  return server_link_put(&link, client->exchange.sent, client->exchange.called);
}

/// Puts the request on the queue, once, and tells the server. That also shows whether it lives: one
/// that went away before it had the request took nothing with it, so another is looked for.
/// @return MDX_OK, MDX_ERR_BUSY when the queue is full or missing, or why there is no use in trying
///         again
int put_request(mdx_client_t* client) {
  int error = MDX_ERR_SERVER_GONE;
  for (int attempt = 0; attempt < 2 && error == MDX_ERR_SERVER_GONE; ++attempt) {
    error = client_connect(client);
    if (error != MDX_OK) return error;
    if (!client->settled) drop_leftovers(client);
    error = ask_or_put(client);
    client->settled = client->settled && error == MDX_ERR_BUSY;  // then nothing was put
    if (error == MDX_OK && raise_server(client) == EPIPE && withdraw(client)) {
      error = MDX_ERR_SERVER_GONE;
    }
    if (error == MDX_ERR_SERVER_GONE) client_disconnect(client);
  }
  return error == MDX_ERR_SERVER_GONE ? MDX_ERR_NO_SERVER : error;
}

int end(mdx_client_t* client, int error) {
  client->exchange.phase = EXCHANGE_NONE;
  if (error == MDX_ERR_SERVER_GONE) client_disconnect(client);
  watch_update(client);
  return error;
}

/// To be called again at the latest `wait_ms` from now.
int pending(mdx_client_t* client, exchange_phase_t phase, int64_t wait_ms) {
  exchange_t& exchange = client->exchange;
  exchange.phase = phase;
  exchange.look_at = now_ms() + wait_ms;
  if (exchange.look_at > exchange.deadline) exchange.look_at = exchange.deadline;
  watch_update(client);
  return MDX_ERR_PENDING;
}

int64_t next_retry_ms(const mdx_client_t& client) {
  if (client.link.has_line) return kRetryInLineMs;
  const int64_t next_ms = 2 * client.exchange.retry_ms;
  return next_ms == 0 ? kFirstRetryMs : next_ms < kLongestRetryMs ? next_ms : kLongestRetryMs;
}

int try_to_put(mdx_client_t* client) {
  exchange_t& exchange = client->exchange;
  const int error = put_request(client);
  if (error == MDX_ERR_BUSY && now_ms() < exchange.deadline) {
    exchange.retry_ms = next_retry_ms(*client);
    return pending(client, EXCHANGE_QUEUE_FULL, exchange.retry_ms);
  }
  if (error != MDX_OK) return end(client, error);
  return pending(client, EXCHANGE_SENT, kLookAgainMs);
}

/// @return MDX_OK, MDX_ERR_TIMEOUT when it is not there yet, or why it never will be
int take_answer(mdx_client_t* client, at_msg_t* answer) {
  return take_own(client, server_link_take_answer, answer);
}

/// The deadline was that of the request's turn, and the modem is at it.
bool its_turn_has_come(exchange_t* exchange) {
  if (exchange->serve_ms == 0) return false;
  const int64_t served = now_ms() + exchange->serve_ms;
  exchange->deadline = served < exchange->end ? served : exchange->end;
  exchange->serve_ms = 0;
  return true;
}

bool server_lives(mdx_client_t* client) {
  if (server_link_alive(client->link, now_ms())) return true;
  watch_forget_server(client);
  return server_link_follow(&client->link);
}

int look_for_answer(mdx_client_t* client, mdx_result_t* result) {
  raise_server(client);
  at_msg_t answer;
  int error = take_answer(client, &answer);
  if (error == MDX_ERR_TIMEOUT && !server_lives(client)) {
    // Another server shall not run it. The last thing this one did may have been our answer.
    withdraw(client);
    error = take_answer(client, &answer) == MDX_OK ? MDX_OK : MDX_ERR_SERVER_GONE;
  } else if (error == MDX_ERR_TIMEOUT) {
    if (now_ms() < client->exchange.deadline) return pending(client, EXCHANGE_SENT, kLookAgainMs);
    error = withdraw(client) ? MDX_ERR_BUSY : take_answer(client, &answer);
    if (error == MDX_ERR_TIMEOUT && its_turn_has_come(&client->exchange)) {
      return pending(client, EXCHANGE_SENT, kLookAgainMs);
    }
  }
  client->settled = error == MDX_OK;
  if (error == MDX_OK) read_answer(client->exchange.sent, answer, client->text, result);
  return end(client, error);
}

int begin(mdx_client_t* client, const request_t& request) {
  if (client->task != client_own_task()) return MDX_ERR_THREAD;
  if (client->exchange.phase != EXCHANGE_NONE) return MDX_ERR_PENDING;
  exchange_t& exchange = client->exchange;
  exchange = {};
  const int64_t now = now_ms();
  exchange.end = now + request.deadline_ms;
  exchange.deadline = exchange.end;
  if (request.wait_ms > 0 && request.wait_ms < request.deadline_ms) {
    exchange.deadline = now + request.wait_ms;
    exchange.serve_ms = request.serve_ms;
  }
  exchange.sent = request.record;
  exchange.sent.msg_type = client->task;
  exchange.sent.seq = ++client->seq;
  const int error = try_to_put(client);
  return error == MDX_ERR_PENDING ? MDX_OK : error;
}

/// Goes on where something may have changed.
/// @return MDX_ERR_PENDING, or how it ended
int step(mdx_client_t* client, mdx_result_t* result) {
  exchange_t& exchange = client->exchange;
  const uint32_t bits = event_fifo_take(client->event_fd);
  if ((bits & (kMdxEventRoom | kMdxEventLine)) != 0) client->link.has_line = true;
  if ((bits & kMdxEventLine) != 0) client->link.line_until = now_ms() + kComesAgainMs;
  if (exchange.phase == EXCHANGE_SENT) return look_for_answer(client, result);
  exchange.called = (bits & kMdxEventRoom) != 0;
  if (!exchange.called && now_ms() < exchange.look_at &&
      server_link_alive(client->link, now_ms())) {
    return MDX_ERR_PENDING;
  }
  return try_to_put(client);
}

int wait_for_change(const mdx_client_t* client) {
  const bool room_needed = client->exchange.phase == EXCHANGE_SENT && !client->exchange.raised;
  pollfd fds[] = {{client->event_fd, POLLIN, 0},
                  {client->link.event_fd, static_cast<short>(room_needed ? POLLOUT : 0), 0}};
  return poll_until(fds, 2, client->exchange.look_at);
}

int run(mdx_client_t* client, const request_t& request, mdx_result_t* result) {
  int error = begin(client, request);
  if (error != MDX_OK) return error;
  do {
    if (wait_for_change(client) < 0) return end(client, MDX_ERR_SYSTEM);
    error = step(client, result);
  } while (error == MDX_ERR_PENDING);
  return error;
}

}  // namespace

void exchange_give_up(mdx_client_t* client) {
  if (client->exchange.phase == EXCHANGE_SENT) withdraw(client);
  end(client, MDX_OK);
}

int mdx_send(mdx_client_t* client, const char* command, const mdx_options_t* options,
             mdx_result_t* result) {
  request_t request;
  if (client == nullptr || !result_usable(result)) return MDX_ERR_ARGUMENT;
  const int error = request_command(command, options, &request);
  return error == MDX_OK ? run(client, request, result) : error;
}

int mdx_send_pdu(mdx_client_t* client, const char* head, const char* pdu,
                 const mdx_options_t* options, mdx_result_t* result) {
  request_t request;
  if (client == nullptr || !result_usable(result)) return MDX_ERR_ARGUMENT;
  const int error = request_pdu(head, pdu, options, &request);
  return error == MDX_OK ? run(client, request, result) : error;
}

int mdx_get_report(mdx_client_t* client, int32_t report, const mdx_options_t* options,
                   mdx_result_t* result) {
  request_t request;
  if (client == nullptr || !result_usable(result)) return MDX_ERR_ARGUMENT;
  const int error = request_report(report, options, &request);
  return error == MDX_OK ? run(client, request, result) : error;
}

int mdx_begin(mdx_client_t* client, const char* command, const mdx_options_t* options) {
  request_t request;
  if (client == nullptr) return MDX_ERR_ARGUMENT;
  const int error = request_command(command, options, &request);
  return error == MDX_OK ? begin(client, request) : error;
}

int mdx_begin_pdu(mdx_client_t* client, const char* head, const char* pdu,
                  const mdx_options_t* options) {
  request_t request;
  if (client == nullptr) return MDX_ERR_ARGUMENT;
  const int error = request_pdu(head, pdu, options, &request);
  return error == MDX_OK ? begin(client, request) : error;
}

int mdx_begin_report(mdx_client_t* client, int32_t report, const mdx_options_t* options) {
  request_t request;
  if (client == nullptr) return MDX_ERR_ARGUMENT;
  const int error = request_report(report, options, &request);
  return error == MDX_OK ? begin(client, request) : error;
}

int mdx_finish(mdx_client_t* client, mdx_result_t* result) {
  if (client == nullptr || !result_usable(result)) return MDX_ERR_ARGUMENT;
  if (client->task != client_own_task()) return MDX_ERR_THREAD;
  if (client->exchange.phase == EXCHANGE_NONE) return MDX_ERR_ARGUMENT;
  return step(client, result);
}

int mdx_cancel(mdx_client_t* client) {
  if (client == nullptr) return MDX_ERR_ARGUMENT;
  if (client->task != client_own_task()) return MDX_ERR_THREAD;
  if (client->exchange.phase == EXCHANGE_NONE) return MDX_ERR_ARGUMENT;
  const bool never_run = client->exchange.phase == EXCHANGE_QUEUE_FULL || withdraw(client);
  return end(client, never_run ? MDX_OK : MDX_ERR_TIMEOUT);
}
