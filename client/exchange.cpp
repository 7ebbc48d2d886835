// One request to the server and its answer, by a deadline.
//
// The server may be busy, may die at any point, may be started again. The answer queue is common to
// all clients and may hold answers to what this task, or a dead one of the same number, has given
// up.

#include <poll.h>

#include <cerrno>

#include "client/client_handle.h"
#include "client/request.h"
#include "client/wait_clock.h"
#include "platform/linux/border.h"
#include "platform/linux/event_fifo.h"

namespace {

constexpr int64_t kFirstRetryMs = 1;
constexpr int64_t kLongestRetryMs = 50;
/// The answer is also looked for without a raise this often, should the server fail to reach our
/// FIFO.
constexpr int64_t kLookAgainMs = 500;

/// Takes away what the server still holds of earlier requests.
void drop_leftovers(mdx_client_t* client) {
  at_msg_t old;
  while (server_link_take(client->link.request_queue, client->task, &old) == MDX_OK) continue;
  while (server_link_take(client->link.response_queue, client->task, &old) == MDX_OK) continue;
  event_fifo_take(client->event_fd);
}

/// Puts the request on the queue; waits while that is full.
int put_request(const mdx_client_t* client, const at_msg_t& record, int64_t deadline) {
  for (int64_t wait_ms = kFirstRetryMs;; wait_ms *= 2) {
    const int error = server_link_put(client->link, record);
    if (error != MDX_ERR_BUSY || now_ms() >= deadline) return error;
    if (wait_ms > kLongestRetryMs) wait_ms = kLongestRetryMs;
    const int64_t retry = now_ms() + wait_ms;
    if (!server_link_alive(client->link, retry < deadline ? retry : deadline)) {
      return MDX_ERR_SERVER_GONE;
    }
  }
}

/// A server that went away before it had the request took nothing with it, so one more is looked
/// for.
int queue_request(mdx_client_t* client, const at_msg_t& record, int64_t deadline) {
  int error = MDX_ERR_SERVER_GONE;
  for (int attempt = 0; attempt < 2 && error == MDX_ERR_SERVER_GONE; ++attempt) {
    error = client_connect(client);
    if (error != MDX_OK) return error;
    drop_leftovers(client);
    error = put_request(client, record, deadline);
    if (error == MDX_ERR_SERVER_GONE) server_link_close(&client->link);
  }
  return error == MDX_ERR_SERVER_GONE ? MDX_ERR_NO_SERVER : error;
}

/// @return MDX_OK, MDX_ERR_TIMEOUT when it is not there yet, or why it never will be
int take_answer(const mdx_client_t* client, uint32_t seq, at_msg_t* answer) {
  for (;;) {
    const int error = server_link_take(client->link.response_queue, client->task, answer);
    if (error != MDX_OK || answer->seq == seq) return error;
  }
}

int wait_for_answer(const mdx_client_t* client, uint32_t seq, int64_t deadline, at_msg_t* answer) {
  bool raised = false;
  for (;;) {
    if (!raised) raised = event_fifo_raise(client->link.event_fd, kMdxEventRequest) == 0;
    const int error = take_answer(client, seq, answer);
    if (error != MDX_ERR_TIMEOUT || now_ms() >= deadline) return error;

    pollfd fds[] = {{client->event_fd, POLLIN, 0},
                    {client->link.event_fd, static_cast<short>(raised ? 0 : POLLOUT), 0}};
    const int64_t look_again = now_ms() + kLookAgainMs;
    if (poll_until(fds, 2, look_again < deadline ? look_again : deadline) < 0) {
      return MDX_ERR_SYSTEM;
    }
    if ((fds[0].revents & POLLIN) != 0) event_fifo_take(client->event_fd);
    if ((fds[1].revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
      // The last thing it did may have been our answer.
      return take_answer(client, seq, answer) == MDX_OK ? MDX_OK : MDX_ERR_SERVER_GONE;
    }
  }
}

/// The deadline has passed: nobody shall run the request any more, unless it is already being run.
int give_up(const mdx_client_t* client, uint32_t seq, at_msg_t* answer) {
  at_msg_t unserved;
  if (server_link_take(client->link.request_queue, client->task, &unserved) == MDX_OK) {
    return MDX_ERR_BUSY;
  }
  return take_answer(client, seq, answer);
}

int exchange(mdx_client_t* client, request_t* request, mdx_result_t* result) {
  const int64_t deadline = now_ms() + request->deadline_ms;
  at_msg_t& record = request->record;
  record.msg_type = client->task;
  record.seq = ++client->seq;
  int error = queue_request(client, record, deadline);
  if (error != MDX_OK) return error;

  at_msg_t answer;
  error = wait_for_answer(client, record.seq, deadline, &answer);
  if (error == MDX_ERR_TIMEOUT) error = give_up(client, record.seq, &answer);
  if (error == MDX_ERR_SERVER_GONE) server_link_close(&client->link);
  if (error == MDX_OK) read_answer(record, answer, client->text, result);
  return error;
}

}  // namespace

int mdx_send(mdx_client_t* client, const char* command, const mdx_options_t* options,
             mdx_result_t* result) {
  request_t request;
  if (client == nullptr || !result_usable(result)) return MDX_ERR_ARGUMENT;
  const int error = request_command(command, options, &request);
  return error == MDX_OK ? exchange(client, &request, result) : error;
}

int mdx_send_pdu(mdx_client_t* client, const char* head, const char* pdu,
                 const mdx_options_t* options, mdx_result_t* result) {
  request_t request;
  if (client == nullptr || !result_usable(result)) return MDX_ERR_ARGUMENT;
  const int error = request_pdu(head, pdu, options, &request);
  return error == MDX_OK ? exchange(client, &request, result) : error;
}

int mdx_get_report(mdx_client_t* client, int32_t report, const mdx_options_t* options,
                   mdx_result_t* result) {
  request_t request;
  if (client == nullptr || !result_usable(result)) return MDX_ERR_ARGUMENT;
  const int error = request_report(report, options, &request);
  return error == MDX_OK ? exchange(client, &request, result) : error;
}
