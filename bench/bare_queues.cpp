// SPDX-License-Identifier: Apache-2.0

#include "bench/bare_queues.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include <string>

#include "wire/at_msg.h"

namespace {

constexpr int kTimeOutMs = 10'000;

struct message_t {
  long type;
  at_msg_t record;
};

void wait_for(int fd) {
  pollfd source = {fd, POLLIN, 0};
  if (poll(&source, 1, kTimeOutMs) != 1) give_up("a bare program's wait");
}

void put(int queue, const message_t& message, int told_fd) {
  if (msgsnd(queue, &message, sizeof(message.record), 0) != 0) give_up("msgsnd");
  if (told_fd >= 0) write_all(told_fd, "told");
}

void take(int queue, message_t* message, long type, int told_fd) {
  char bytes[64];
  if (told_fd >= 0) {
    wait_for(told_fd);
    if (read(told_fd, bytes, sizeof(bytes)) <= 0) give_up("read");
  }
  if (msgrcv(queue, message, sizeof(message->record), type, 0) < 0) give_up("msgrcv");
}

int new_queue() {
  const int queue = msgget(IPC_PRIVATE, 0600);
  if (queue < 0) give_up("msgget");
  return queue;
}

}  // namespace

bare_queues_t::bare_queues_t(bare_wait_t wait)
    : wait_(wait), requests_(new_queue()), answers_(new_queue()) {
  if (wait_ == bare_wait_t::for_events && (pipe(asked_) != 0 || pipe(answered_) != 0)) {
    give_up("pipe");
  }
  modem_ = start_process([this] { answer_commands(terminal_.modem_fd); });
  server_ = start_process([this] { serve(); });
}

bare_queues_t::~bare_queues_t() {
  stop_process(server_);
  stop_process(modem_);
  msgctl(requests_, IPC_RMID, nullptr);
  msgctl(answers_, IPC_RMID, nullptr);
  for (const int fd : {asked_[0], asked_[1], answered_[0], answered_[1]}) close(fd);
}

void bare_queues_t::send(const char* command, long client) const {
  static message_t message = {};
  message.type = client;
  message.record = {};
  std::string_view(command).copy(message.record.snd_rcv_msg.smsg, kCommandSize - 1);
  put(requests_, message, asked_[1]);
  take(answers_, &message, client, answered_[0]);
}

void bare_queues_t::serve() const {
  message_t message = {};
  for (;;) {
    take(requests_, &message, 0, asked_[0]);
    write_all(terminal_.user_fd, std::string(message.record.snd_rcv_msg.smsg) + "\r");
    if (wait_ == bare_wait_t::for_events) wait_for(terminal_.user_fd);
    read_answer(terminal_.user_fd);
    put(answers_, message, answered_[1]);
  }
}
