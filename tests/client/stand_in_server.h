// SPDX-License-Identifier: Apache-2.0

// A server that does as it is told: the kernel objects of the real one, answers scripted by the
// test.
#pragma once

#include <poll.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <string>
#include <thread>

#include "wire/at_msg.h"
#include "wire/border.h"
#include "wire/event_fifo.h"

class StandInServer {
 public:
  /// Called for each request, on the server's own thread.
  using Script = std::function<void(StandInServer&, at_msg_t)>;

  explicit StandInServer(Script script, bool reads = true) : script_(std::move(script)) {
    mkdir(kMdxDirectory, 0755);
    mkdir(kMdxTaskDirectory, 0770);
    for (const int number : {1, 2}) {
      msgctl(msgget(kMdxQueueKey + number, 0), IPC_RMID, nullptr);
      queues_[number] = msgget(kMdxQueueKey + number, IPC_CREAT | IPC_EXCL | 0660);
      msqid_ds limits{};
      msgctl(queues_[number], IPC_STAT, &limits);
      limits.msg_qbytes = 10 * kMdxRecordSize;
      msgctl(queues_[number], IPC_SET, &limits);
    }
    fifo_ = event_fifo_create(kFifo);
    unlink(kMdxServerLink);
    if (symlink(kFifo, kMdxServerLink) != 0) std::abort();
    if (reads) thread_ = std::thread([this] { run(); });
  }
  ~StandInServer() { die(); }
  StandInServer(const StandInServer&) = delete;
  StandInServer& operator=(const StandInServer&) = delete;

  /// As after kill -9: everything stays behind, but the FIFO has no reader.
  void die() {
    stop_ = true;
    if (runs_in_.load() != std::this_thread::get_id() && thread_.joinable()) thread_.join();
    if (const int fifo = fifo_.exchange(-1); fifo >= 0) close(fifo);
  }

  /// The real server's way: record on queue 1, then a raise at its client.
  void answer(const at_msg_t& record, bool raise = true) {
    put(1, record, record.msg_type, sizeof(record));
    if (raise) raise_at(record.msg_type, kMdxEventAnswer);
  }

  static void raise_at(int32_t task, uint32_t bits) {
    char path[kEventPathSize];
    event_fifo_path(task, path);
    const int fd = event_fifo_open(path);
    if (fd < 0) return;
    event_fifo_raise(fd, bits);
    close(fd);
  }

  void put(int number, const at_msg_t& record, long type, size_t size) {
    Message message{type, record};
    if (msgsnd(queues_[number], &message, size, IPC_NOWAIT) != 0) std::abort();
  }

  int waiting(int number) {
    msqid_ds status{};
    msgctl(queues_[number], IPC_STAT, &status);
    return static_cast<int>(status.msg_qnum);
  }

  bool take(at_msg_t* record) {
    Message message;
    if (msgrcv(queues_[2], &message, sizeof(message.record), 0, IPC_NOWAIT) < 0) return false;
    *record = message.record;
    return true;
  }

  int fifo() const { return fifo_; }
  static constexpr const char* kFifo = "/var/run/mdxgate/event.99999999";

 private:
  struct Message {
    long type;
    at_msg_t record;
  };

  void run() {
    runs_in_ = std::this_thread::get_id();
    while (!stop_) {
      pollfd fifo = {fifo_, POLLIN, 0};
      if (fifo.fd < 0) return;
      if (poll(&fifo, 1, 10) > 0) event_fifo_take(fifo.fd);
      at_msg_t record;
      while (!stop_ && fifo_ >= 0 && take(&record)) script_(*this, record);
    }
  }

  Script script_;
  int queues_[3] = {-1, -1, -1};
  std::atomic<int> fifo_ = -1;
  std::atomic<bool> stop_ = false;
  std::atomic<std::thread::id> runs_in_;  // a script may end its own server
  std::thread thread_;
};

inline at_msg_t with_text(at_msg_t record, std::string_view text, int32_t ret_val = AT_OK) {
  record.snd_rcv_msg = {};
  std::memcpy(record.snd_rcv_msg.rmsg, text.data(), text.size());
  record.ret_val = ret_val;
  record.rsp_len = 12345;  // a report behind the result leaves its own length there
  return record;
}
