// SPDX-License-Identifier: Apache-2.0

// What clients rely on: the depth, who gets which answer, and that nobody can block the others.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/counters.h"
#include "platform/linux/events.h"
#include "platform/linux/record_queue.h"
#include "platform/linux/served_client.h"
#include "platform/linux/task_names.h"
#include "platform/linux/waiting_line.h"
#include "tests/platform/other_process.h"
#include "tests/platform/shifted_clock.h"
#include "wire/border.h"
#include "wire/event_fifo.h"

namespace {

using testing::ElementsAre;

constexpr int kUntouched = 77;
using record_t = std::array<int32_t, kMdxRecordSize / 4>;

/// A client's end of an event set: alive until it goes away.
class Client {
 public:
  explicit Client(int32_t task) : task_(task) {
    event_fifo_path(task, path_);
    fd_ = event_fifo_create(path_);
  }
  ~Client() {
    close(fd_);
    unlink(path_);
  }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  void die() { close(std::exchange(fd_, -1)); }
  bool was_woken() { return event_fifo_take(fd_) == kMdxEventAnswer; }
  uint32_t raised() { return event_fifo_take(fd_); }
  int32_t task() const { return task_; }

 private:
  int32_t task_;
  int fd_ = -1;
  char path_[kEventPathSize];
};

class RecordQueue : public testing::Test {
 protected:
  RecordQueue() {
    be_the_server();
    MDX_event_init(7);
    for (const int32_t number : {kMdxRequestQueue, kMdxResponseQueue}) {
      MDX_msgQex_delete(MDX_get_msgQ_id(number));
      ids_[number] = MDX_msgQex_create(number, 10, kMdxRecordSize);
    }
  }
  ~RecordQueue() override {
    for (const int32_t id : {requests(), responses()}) MDX_msgQex_delete(id);
  }
  int32_t requests() const { return ids_[kMdxRequestQueue]; }
  int32_t responses() const { return ids_[kMdxResponseQueue]; }

  /// Puts an answer on queue 1. @return 0, or the errno
  int answer(int32_t task, int32_t number) const {
    record_t record{task};
    record[4] = number;
    record.back() = ~number;
    int error = kUntouched;
    const int result = send_to_msgqueue(responses(), record.data(), &error);
    EXPECT_EQ(result == 0, error == kUntouched);
    return result == 0 ? 0 : error;
  }
  int answers(int32_t task, int32_t from, int32_t to) const {
    int error = 0;
    for (int32_t number = from; number <= to && error == 0; ++number) error = answer(task, number);
    return error;
  }
  /// The numbers of all answers on queue 1 for a task, oldest first.
  std::vector<int32_t> take_all(int32_t task) const {
    std::vector<int32_t> numbers;
    record_t record{};
    int error = 0;
    while (read_from_msgqueue(responses(), record.data(), task, &error) == 0) {
      EXPECT_EQ(record.back(), ~record[4]);
      numbers.push_back(record[4]);
    }
    EXPECT_EQ(error, ENOMSG);
    return numbers;
  }

 private:
  int32_t ids_[3] = {-1, -1, -1};
};

TEST_F(RecordQueue, DropsForeignSizesAndServesTheRest) {
  struct {
    long type;
    char text[4000];
  } message = {5, {}};
  const uint64_t dropped = counter_value(COUNT_REQUESTS_MISSIZED);
  for (const size_t size : {0u, 1u, 1599u, 1601u, 4000u})
    ASSERT_EQ(msgsnd(requests(), &message, size, IPC_NOWAIT), 0) << size;
  record_t record{getpid(), 1};
  int error = kUntouched;
  ASSERT_EQ(send_to_msgqueue(requests(), record.data(), &error), 0);

  record_t read{};
  for (int i = 0; i < 5; ++i)
    EXPECT_EQ(read_from_msgqueue(requests(), read.data(), 0, &error), -1) << i;
  EXPECT_EQ(read, record_t{});
  EXPECT_EQ(counter_value(COUNT_REQUESTS_MISSIZED), dropped + 5);
  error = kUntouched;
  EXPECT_EQ(read_from_msgqueue(requests(), read.data(), 0, &error), 0);
  EXPECT_EQ(read, record);
  EXPECT_EQ(error, kUntouched);
}

TEST_F(RecordQueue, RequestIsServedWhileItsTaskLivesWithAnEventSetOrWithout) {
  const pid_t child = fork();
  if (child == 0) _exit(0);
  ASSERT_EQ(waitpid(child, nullptr, 0), child);
  Client open(4001), closed(4002);
  closed.die();
  // clang-format off
  const struct { int32_t task; int error; } cases[] = {
      {getpid(), kUntouched}, {open.task(), kUntouched}, {0, kUntouched}, {-7, kUntouched},
      {child, EOWNERDEAD},    {closed.task(), EOWNERDEAD},
  };
  // clang-format on
  for (const auto& [task, expected] : cases) {
    record_t record{task};
    int error = kUntouched;
    ASSERT_EQ(send_to_msgqueue(requests(), record.data(), &error), 0) << task;
    const int32_t result = read_from_msgqueue(requests(), record.data(), 0, &error);
    EXPECT_EQ(error, expected) << task;
    EXPECT_EQ(result == 0, error == kUntouched) << task;
  }
}

TEST_F(RecordQueue, TypesKeepClientsApart) {
  // clang-format off
  const struct { int32_t msg_type, type; } cases[] = {
      {1, 1}, {4711, 4711}, {0x7fffffff, 0x7fffffff}, {0, 0x7fffffff}, {-1, 0x7fffffff},
      {INT32_MIN, 0x7fffffff},
  };
  // clang-format on
  for (const auto& [msg_type, type] : cases) {
    ASSERT_EQ(answer(msg_type, 9), 0) << msg_type;
    EXPECT_THAT(take_all(4242), ElementsAre()) << msg_type;
    EXPECT_THAT(take_all(type), ElementsAre(9)) << msg_type;
  }
}

TEST_F(RecordQueue, FullQueueLosesAnswersOfTheDeadFirst) {
  Client dead(4001), alive(4002), late(4003);
  ASSERT_EQ(answers(alive.task(), 1, 3), 0);
  ASSERT_EQ(answers(dead.task(), 4, 8), 0);
  ASSERT_EQ(answers(alive.task(), 9, 10), 0);
  dead.die();
  shift_clock(6000);  // old answers of the living stay while the dead make room
  ASSERT_TRUE(alive.was_woken());
  EXPECT_EQ(answer(late.task(), 11), 0);
  EXPECT_TRUE(late.was_woken());
  EXPECT_TRUE(alive.was_woken()) << "it may have looked while its answers were off the queue";
  EXPECT_THAT(take_all(dead.task()), ElementsAre());
  EXPECT_THAT(take_all(alive.task()), ElementsAre(1, 2, 3, 9, 10));
  EXPECT_THAT(take_all(late.task()), ElementsAre(11));
}

TEST_F(RecordQueue, AnswersUnreadForLongMakeRoom) {
  Client never_reads(4001), slow(4002), busy(4003);
  ASSERT_EQ(answers(never_reads.task(), 1, 8), 0);
  for (int32_t i = 0; i < 500; ++i) {  // those between were read at once
    ASSERT_EQ(answer(busy.task(), i), 0);
    ASSERT_THAT(take_all(busy.task()), ElementsAre(i));
  }
  shift_clock(4000);
  ASSERT_EQ(answers(slow.task(), 9, 10), 0);
  EXPECT_EQ(MDX_msgQex_num(responses()), 10);
  shift_clock(1500);
  EXPECT_EQ(answer(busy.task(), 12), 0);
  EXPECT_THAT(take_all(never_reads.task()), ElementsAre());
  EXPECT_THAT(take_all(slow.task()), ElementsAre(9, 10));
}

TEST_F(RecordQueue, WhoLeavesTheMostUnreadMakesRoomForTheOthers) {
  Client hoarder(4001), reader(4002);
  ASSERT_EQ(answer(reader.task(), 1), 0);
  ASSERT_EQ(answers(hoarder.task(), 2, 10), 0);
  EXPECT_EQ(answers(reader.task(), 11, 15), 0);
  EXPECT_THAT(take_all(hoarder.task()), ElementsAre(6, 7, 8, 9, 10));
  EXPECT_THAT(take_all(reader.task()), ElementsAre(11, 12, 13, 14, 15)) << "now it has the most";
}

TEST_F(RecordQueue, AnAnswerWaitsForOthersThatAreAboutToRead) {
  hold_clock(true);
  std::vector<std::unique_ptr<Client>> clients;
  for (int32_t task = 4001; task <= 4012; ++task) clients.push_back(std::make_unique<Client>(task));
  for (int32_t task = 4001; task <= 4010; ++task) ASSERT_EQ(answer(task, 1), 0);
  ASSERT_TRUE(clients[0]->was_woken());
  std::thread reader([&] {  // woken again each time the server has looked for room
    decltype(take_all(4001)) taken;
    while (taken.empty()) {
      while (!clients[0]->was_woken()) std::this_thread::yield();
      taken = take_all(4001);
    }
    EXPECT_THAT(taken, ElementsAre(1));
  });
  EXPECT_EQ(answer(4011, 1), 0);
  reader.join();
  shift_clock(300);
  EXPECT_EQ(answer(4012, 1), 0) << "they had their time";
  EXPECT_THAT(take_all(4002), ElementsAre());
  for (int32_t task = 4003; task <= 4012; ++task)
    EXPECT_THAT(take_all(task), ElementsAre(1)) << task;
  hold_clock(false);
}

TEST_F(RecordQueue, WhoFillsTheQueueWithoutPauseKeepsNoAnswerOut) {
  const OtherProcess flooder([this] {
    const struct {
      long type;
      char text[kMdxRecordSize];
    } answer = {4001, {}};
    for (;;) msgsnd(responses(), &answer, sizeof(answer.text), IPC_NOWAIT);
    return 0;
  });
  Client reader(4002);
  for (int32_t number = 1; number <= 100; ++number) {
    ASSERT_EQ(answer(reader.task(), number), 0);
    ASSERT_THAT(take_all(reader.task()), ElementsAre(number));
  }
}

// What waiting clients do, and a server that takes a request now and then.
class WaitingLine : public RecordQueue {
 protected:
  static uint32_t ticket(const Client& client, uint32_t bits = 0) {
    return kMdxTicket | bits | static_cast<uint32_t>(client.task());
  }
  static void raise(const std::vector<uint32_t>& tickets) {
    char path[kEventPathSize];
    server_fifo_path(MDX_task_getid(), path);
    const int fd = event_fifo_open(path);
    for (const uint32_t one : tickets) ASSERT_EQ(event_fifo_raise(fd, one), 0);
    close(fd);
    uint32_t bits = 0;
    ASSERT_EQ(MDX_event_recv(7, 0, &bits), 1);
    EXPECT_EQ(bits, kMdxEventRequest) << "the server looks at the queue, and at nothing else";
  }
  void queue(const Client& client, int count) const {
    record_t record{client.task()};
    int error = 0;
    for (int i = 0; i < count; ++i)
      ASSERT_EQ(send_to_msgqueue(requests(), record.data(), &error), 0);
  }
  /// Serves a request, as slowly as a modem does.
  void serve() const {
    std::this_thread::sleep_for(std::chrono::milliseconds(3));
    record_t record{};
    int error = 0;
    ASSERT_GT(MDX_msgQex_num(requests()), 0);
    ASSERT_EQ(read_from_msgqueue(requests(), record.data(), 0, &error), 0);
    ASSERT_EQ(answer(record[0], 1), 0);
    take_all(record[0]);
  }
};

TEST_F(WaitingLine, IsCalledInTheOrderOfArrival) {
  constexpr uint32_t kAnswerAndLine = kMdxEventAnswer | kMdxEventLine;
  Client served(4001), first(4002), dead(4003), second(4004), third(4005);
  dead.die();
  queue(served, 9);
  raise({ticket(first), ticket(dead), ticket(second), ticket(first), ticket(third)});
  EXPECT_EQ(MDX_msgQex_num(requests()), 9);
  served.raised();
  serve();
  EXPECT_EQ(first.raised(), kMdxEventRoom);
  EXPECT_EQ(second.raised(), 0u);
  EXPECT_EQ(served.raised(), kAnswerAndLine) << "others come first now";
  raise({ticket(served), ticket(first, kMdxTicketCalled)});
  serve();
  EXPECT_EQ(first.raised(), kMdxEventRoom) << "it has waited the longest, and found no room";
  EXPECT_EQ(second.raised(), 0u);
  serve();
  EXPECT_EQ(second.raised(), kMdxEventRoom);
  EXPECT_EQ(third.raised(), 0u);
  served.raised();
  serve();
  EXPECT_EQ(third.raised(), kMdxEventRoom);
  EXPECT_EQ(served.raised(), kAnswerAndLine);
  serve();
  EXPECT_EQ(served.raised(), kMdxEventAnswer) << "nobody waits any more";
}

TEST_F(WaitingLine, WhoIsServedIsStillWatchedWhenTheNextIsCalled) {
  std::vector<std::unique_ptr<Client>> clients;
  for (int32_t task = 4001; task <= 4065; ++task) clients.push_back(std::make_unique<Client>(task));
  // As many as the server remembers, the one that is served longest ago.
  for (size_t i = 0; i < 64; ++i) ASSERT_EQ(MDX_event_send(clients[i]->task(), kMdxEventAnswer), 1);
  Client& served = *clients.front();
  queue(served, 1);
  waiting_line_join(ticket(*clients.back()));
  std::this_thread::sleep_for(std::chrono::milliseconds(3));
  record_t record{};
  int error = 0;
  ASSERT_EQ(read_from_msgqueue(requests(), record.data(), 0, &error), 0);
  ASSERT_EQ(clients.back()->raised(), kMdxEventRoom);
  EXPECT_GE(served_client_source().fd, 0) << "its end would not be noticed";

  // Again, with the request that it sends next.
  for (size_t i = 1; i < 63; ++i) ASSERT_EQ(MDX_event_send(clients[i]->task(), kMdxEventAnswer), 1);
  ASSERT_TRUE(served_client_begin(served.task(), 1));
  ASSERT_EQ(MDX_event_send(clients[63]->task(), kMdxEventAnswer), 1);
  EXPECT_GE(served_client_source().fd, 0) << "its end would not be noticed";
}

TEST_F(WaitingLine, IsHeardBesideAClientThatNeverLetsTheServerSleep) {
  Client quick(4001), waiting(4002);
  queue(quick, 1);
  int served = 0;
  for (; MDX_msgQex_num(requests()) > 0; ++served) {
    ASSERT_LT(served, 100) << "who waits would never be heard";
    serve();
    queue(quick, 1);
  }
  EXPECT_GT(served, 1) << "what is there is served without a sleep";
  raise({ticket(waiting)});
  EXPECT_EQ(MDX_msgQex_num(requests()), 1);
  serve();
  EXPECT_EQ(waiting.raised(), kMdxEventRoom);
}

TEST_F(WaitingLine, AllAreCalledWhenTheQueueHasBecomeEmpty) {
  Client served(4001), first(4002), second(4003);
  queue(served, 1);
  raise({ticket(first), ticket(second)});
  serve();
  EXPECT_EQ(first.raised(), kMdxEventRoom);
  EXPECT_EQ(MDX_msgQex_num(requests()), 0);
  EXPECT_EQ(second.raised(), kMdxEventRoom) << "nobody would wake the server again";
}

TEST_F(WaitingLine, WhoComesAgainAtOnceKeepsItsPlaceForAWhile) {
  Client quick(4001), waiting(4002), came(4003);
  waiting_line_move(quick.task(), 4'999'900);
  waiting_line_join(ticket(came));
  waiting_line_join(ticket(waiting));
  EXPECT_FALSE(waiting_line_move(came.task(), 5'000'000)) << "it has not waited for its call";
  EXPECT_FALSE(waiting_line_move(quick.task(), 5'000'040));
  EXPECT_FALSE(waiting_line_move(quick.task(), 5'000'080));
  EXPECT_EQ(waiting.raised(), 0u);
  EXPECT_TRUE(waiting_line_move(quick.task(), 5'100'000));
  EXPECT_EQ(waiting.raised(), kMdxEventRoom);
  EXPECT_EQ(came.raised(), 0u);
}

TEST_F(WaitingLine, IsNotHeldUpByTicketsThatNobodyUses) {
  std::vector<uint32_t> invented;
  for (uint32_t task = 0x3fff0000; invented.size() < 900; ++task)
    invented.push_back(kMdxTicket | task);
  raise(invented);
  Client honest(4001);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(MDX_msgQex_num(requests()), 0);
  raise({ticket(honest)});
  EXPECT_EQ(MDX_msgQex_num(requests()), 0);
  EXPECT_EQ(honest.raised(), kMdxEventRoom) << "the queue is empty";
}

TEST_F(RecordQueue, AQueueFullOfForeignMessagesIsCleared) {
  const struct {
    long type;
    char text[100];
  } rubbish = {4001, {}};
  while (msgsnd(responses(), &rubbish, sizeof(rubbish.text), IPC_NOWAIT) == 0) {
  }
  EXPECT_EQ(answer(4001, 1), 0);
  EXPECT_THAT(take_all(4001), ElementsAre(1));
}

TEST_F(RecordQueue, RefusesWhatItCannotHold) {
  // clang-format off
  const struct { int32_t number, depth, size; } cases[] = {
      {0, 10, 1600}, {3, 10, 1600}, {1, 0, 1600}, {1, -1, 1600}, {1, 10, 1599}, {1, 10, 0},
      {1, 1 << 20, 1600}, {2, 10, 1600},
  };
  // clang-format on
  for (const auto& [number, depth, size] : cases)
    EXPECT_EQ(MDX_msgQex_create(number, depth, size), -1) << number << " " << depth << " " << size;
  EXPECT_EQ(MDX_msgQex_num(requests()), 0) << "the second of a number leaves the first alone";
}

// The server decides that a FIFO goes, and waits; until it goes on, the task has made another.
TEST_F(RecordQueue, FifoThatWasMadeAnewStays) {
  char path[kEventPathSize];
  event_fifo_path(getpid(), path);
  ASSERT_EQ(mkfifo(path, 0600), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(kTaskNamePatienceMs + 100));
  const int directory = open(kMdxTaskDirectory, O_RDONLY | O_DIRECTORY);
  std::thread server;
  std::unique_ptr<Client> reborn;
  {
    const requests_wait_t server_waits;
    server = std::thread([=] { task_name_tend(directory, std::to_string(getpid()).c_str()); });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    unlink(path);
    reborn = std::make_unique<Client>(getpid());
  }
  server.join();
  EXPECT_EQ(access(path, F_OK), 0);
  close(directory);
}

}  // namespace
