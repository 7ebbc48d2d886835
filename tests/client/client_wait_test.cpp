// SPDX-License-Identifier: Apache-2.0

// How a client waits: until its answer, its turn, its deadline, or the server's death.

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <future>
#include <thread>
#include <vector>

#include "tests/client/client_tools.h"

namespace {
/// While this is not 0, a queue gives messages of this size for ever, of whatever type is asked
/// for.
ssize_t flood_size = 0;
}  // namespace

/// Stands in the place of the C library's.
extern "C" ssize_t msgrcv(int queue, void* message, size_t room, long type, int flags) {
  if (flood_size == 0) return syscall(SYS_msgrcv, queue, message, room, type, flags);
  std::memset(message, 0, sizeof(long) + room);
  return flood_size;
}

namespace {

using testing::ElementsAre;

TEST(Client, RaisesAgainWhenTheServersPipeWasFull) {
  StandInServer server(ignore, false);
  const int raiser = event_fifo_open(StandInServer::kFifo);
  while (event_fifo_raise(raiser, 8) == 0) continue;
  Handle client;
  std::thread server_thread([&] {
    at_msg_t record{};
    while (!server.take(&record)) std::this_thread::yield();
    pollfd nothing{-1, 0, 0};
    poll(&nothing, 1, 30);  // the client's own raise finds the pipe full
    pollfd fifo = {server.fifo(), POLLIN, 0};
    uint32_t bits = 0;
    while ((bits & kMdxEventRequest) == 0 && poll(&fifo, 1, 60000) == 1) {
      bits |= event_fifo_take(fifo.fd);
    }
    EXPECT_NE(bits & kMdxEventRequest, 0u);
    echo(server, record);
  });
  mdx_result_t result = MDX_RESULT_INIT;
  EXPECT_EQ(mdx_send(client, "AT", nullptr, &result), MDX_OK);
  server_thread.join();
  close(raiser);
}

TEST(Client, DeathOfTheServerEndsTheWaitAtOnce) {
  for (const bool full : {false, true}) {
    StandInServer server(ignore, false);
    at_msg_t filler{};
    for (int i = 0; full && i < 10; ++i) server.put(2, filler, 77, sizeof(filler));
    Handle client;
    auto death = std::async(std::launch::async, [&] {
      pollfd nothing{-1, 0, 0};
      poll(&nothing, 1, 50);
      server.die();
    });
    mdx_result_t result = MDX_RESULT_INIT;
    const mdx_options_t for_ever = within(INT32_MAX);
    // With the queue full nothing was handed over: then there is just no server any more.
    EXPECT_EQ(mdx_send(client, "AT", &for_ever, &result),
              full ? MDX_ERR_NO_SERVER : MDX_ERR_SERVER_GONE);
    death.get();
    EXPECT_EQ(server.waiting(2), full ? 10 : 0) << "the next server shall not run it";
    EXPECT_EQ(mdx_send(client, "AT", nullptr, &result), MDX_ERR_NO_SERVER);

    StandInServer next(echo);
    ASSERT_EQ(mdx_send(client, "AThello", nullptr, &result), MDX_OK);
    EXPECT_STREQ(result.text, "AThello");
  }
}

/// Waits on nothing but the descriptor, as a loop does.
int finish_by_polling(mdx_client_t* client, mdx_result_t* result) {
  pollfd own = {mdx_client_fd(client), POLLIN, 0};
  int error = MDX_ERR_PENDING;
  while (error == MDX_ERR_PENDING && poll(&own, 1, 60000) == 1) error = mdx_finish(client, result);
  return error;
}

bool polls_readable(mdx_client_t* client) {
  pollfd own = {mdx_client_fd(client), POLLIN, 0};
  return poll(&own, 1, 0) != 0;
}

TEST(Client, DescriptorTellsALoopEverything) {
  mdx_result_t result = MDX_RESULT_INIT;
  const mdx_options_t soon = within(50);
  {
    StandInServer server(echo);
    Handle client;
    EXPECT_EQ(mdx_finish(client, &result), MDX_ERR_ARGUMENT) << "nothing was begun";
    for (const char* command : {"AT1", "AT2"}) {
      ASSERT_EQ(mdx_begin(client, command, nullptr), MDX_OK);
      ASSERT_EQ(finish_by_polling(client, &result), MDX_OK);
      EXPECT_STREQ(result.text, command);
    }
    server.die();
    EXPECT_FALSE(polls_readable(client)) << "a dead server is no news while nothing is under way";
  }
  {
    StandInServer server(ignore, false);
    Handle client;
    ASSERT_EQ(mdx_begin(client, "AT", nullptr), MDX_OK);
    EXPECT_FALSE(polls_readable(client));
    EXPECT_EQ(mdx_finish(client, &result), MDX_ERR_PENDING);
    EXPECT_EQ(mdx_send(client, "AT", nullptr, &result), MDX_ERR_PENDING);
    EXPECT_EQ(mdx_cancel(client), MDX_OK);
    ASSERT_EQ(mdx_begin(client, "AT", &soon), MDX_OK);
    EXPECT_EQ(finish_by_polling(client, &result), MDX_ERR_BUSY) << "the deadline is polled too";
    EXPECT_EQ(server.waiting(2), 0);

    ASSERT_EQ(mdx_begin_pdu(client, "AT+CMGS=1", "00", nullptr), MDX_OK);
    server.die();
    EXPECT_EQ(finish_by_polling(client, &result), MDX_ERR_SERVER_GONE);
    EXPECT_EQ(mdx_begin(client, "AT", nullptr), MDX_ERR_NO_SERVER);
  }
  StandInServer server(ignore, false);
  at_msg_t filler{};
  for (int i = 0; i < 10; ++i) server.put(2, filler, 77, sizeof(filler));
  Handle client;
  ASSERT_EQ(mdx_begin(client, "ATfull", &soon), MDX_OK);
  EXPECT_EQ(finish_by_polling(client, &result), MDX_ERR_BUSY);
  ASSERT_EQ(mdx_begin(client, "ATroom", nullptr), MDX_OK);
  at_msg_t record{};
  while (server.take(&record)) continue;
  EXPECT_EQ(mdx_finish(client, &result), MDX_ERR_PENDING);
  std::thread slow([&] {
    while (!server.take(&record)) std::this_thread::yield();
    echo(server, record);
  });
  EXPECT_EQ(finish_by_polling(client, &result), MDX_OK);
  EXPECT_STREQ(result.text, "ATroom");
  slow.join();
}

/// The tickets that clients have raised since the last look.
std::vector<uint32_t> tickets_at(const StandInServer& server) {
  static std::vector<uint32_t> tickets;
  tickets.clear();
  event_fifo_take(server.fifo(), [](uint32_t ticket) { tickets.push_back(ticket); });
  return tickets;
}

TEST(Client, WaitsInLineForRoom) {
  StandInServer server(ignore, false);
  at_msg_t record{};
  for (int i = 0; i < 10; ++i) server.put(2, record, 77, sizeof(record));
  Handle client;
  const int32_t task = gettid();
  const uint32_t ticket = kMdxTicket | static_cast<uint32_t>(task);
  mdx_result_t result = MDX_RESULT_INIT;
  ASSERT_EQ(mdx_begin(client, "ATfirst", nullptr), MDX_OK);
  EXPECT_THAT(tickets_at(server), ElementsAre(ticket));
  server.raise_at(task, kMdxEventRoom);
  EXPECT_EQ(mdx_finish(client, &result), MDX_ERR_PENDING);
  EXPECT_THAT(tickets_at(server), ElementsAre(ticket | kMdxTicketCalled)) << "others were faster";
  while (server.take(&record)) continue;
  server.raise_at(task, kMdxEventRoom);
  EXPECT_EQ(mdx_finish(client, &result), MDX_ERR_PENDING);
  ASSERT_TRUE(server.take(&record));

  // Who comes again only after a while is not asked to wait; here that is who is not given the CPU.
  bool lets_others_go_first = false;
  for (int i = 0; i < 1000 && !lets_others_go_first; ++i) {
    tickets_at(server);
    server.answer(record, false);
    server.raise_at(task, kMdxEventAnswer | kMdxEventLine);
    ASSERT_EQ(mdx_finish(client, &result), MDX_OK);
    ASSERT_EQ(mdx_begin(client, "ATnext", nullptr), MDX_OK);
    lets_others_go_first = !server.take(&record);
  }
  ASSERT_TRUE(lets_others_go_first);
  EXPECT_THAT(tickets_at(server), ElementsAre(ticket));
  server.raise_at(task, kMdxEventRoom);
  EXPECT_EQ(mdx_finish(client, &result), MDX_ERR_PENDING);
  ASSERT_TRUE(server.take(&record));
  server.answer(record);
  EXPECT_EQ(mdx_finish(client, &result), MDX_OK);
  ASSERT_EQ(mdx_begin(client, "ATlast", nullptr), MDX_OK);
  EXPECT_TRUE(server.take(&record)) << "once it has let them it need not again";
}

TEST(Client, CancelTellsWhetherTheCommandMayRun) {
  StandInServer server(ignore, false);
  mdx_result_t result = MDX_RESULT_INIT;
  {
    Handle client;
    EXPECT_EQ(mdx_cancel(client), MDX_ERR_ARGUMENT);
    ASSERT_EQ(mdx_begin(client, "AT", nullptr), MDX_OK);
    EXPECT_EQ(mdx_cancel(client), MDX_OK);
    EXPECT_EQ(server.waiting(2), 0);

    ASSERT_EQ(mdx_begin(client, "ATold", nullptr), MDX_OK);
    at_msg_t taken;
    ASSERT_TRUE(server.take(&taken));
    EXPECT_EQ(mdx_cancel(client), MDX_ERR_TIMEOUT);
    echo(server, taken);
    EXPECT_FALSE(polls_readable(client)) << "nobody wants that answer any more";
    ASSERT_EQ(mdx_begin(client, "ATnew", nullptr), MDX_OK);
    ASSERT_TRUE(server.take(&taken));
    echo(server, taken);
    EXPECT_EQ(finish_by_polling(client, &result), MDX_OK);
    EXPECT_STREQ(result.text, "ATnew");
    ASSERT_EQ(mdx_begin(client, "ATclose", nullptr), MDX_OK);
  }
  EXPECT_EQ(server.waiting(2), 0) << "a closed handle leaves nothing to be run";
}

TEST(Client, WaitForItsTurnHasATimeOfItsOwn) {
  mdx_options_t options = within(0, 600);
  options.wait_s = 1;
  mdx_result_t result = MDX_RESULT_INIT;
  StandInServer server(ignore, false);
  Handle client;
  EXPECT_EQ(mdx_send(client, "AT", &options, &result), MDX_ERR_BUSY);
  EXPECT_EQ(server.waiting(2), 0) << "it is not run later";

  std::thread server_thread([&] {
    at_msg_t record{};
    while (!server.take(&record)) std::this_thread::yield();
    std::this_thread::sleep_for(1300ms);
    echo(server, record);
  });
  EXPECT_EQ(mdx_send(client, "ATslow", &options, &result), MDX_OK) << "its turn had come";
  EXPECT_STREQ(result.text, "ATslow");
  server_thread.join();
  options.wait_s = -1;
  EXPECT_EQ(mdx_send(client, "AT", &options, &result), MDX_ERR_ARGUMENT);
}

TEST(Client, WhoFloodsTheQueuesInItsNameDoesNotKeepItBeyondItsDeadline) {
  StandInServer server(ignore, false);
  Handle client;
  const mdx_options_t options = within(100);
  mdx_result_t result = MDX_RESULT_INIT;
  for (const size_t size : {sizeof(at_msg_t), size_t{10}}) {
    flood_size = static_cast<ssize_t>(size);
    EXPECT_EQ(mdx_send(client, "AT", &options, &result), MDX_ERR_TIMEOUT) << size;
    flood_size = 0;
  }
}

TEST(Client, OnlyItsOwnRequestIsWithdrawn) {
  StandInServer server(ignore, false);
  Handle client;
  at_msg_t planted{};
  ASSERT_EQ(mdx_begin(client, "ATold", nullptr), MDX_OK);
  ASSERT_TRUE(server.take(&planted));
  planted.seq -= 1;
  server.put(2, planted, planted.msg_type, sizeof(planted));
  EXPECT_EQ(mdx_cancel(client), MDX_ERR_TIMEOUT) << "the server has it";

  ASSERT_EQ(mdx_begin(client, "ATnew", nullptr), MDX_OK);
  at_msg_t own{};
  ASSERT_TRUE(server.take(&own));
  server.put(2, planted, planted.msg_type, sizeof(planted));
  server.put(2, own, own.msg_type, sizeof(own));
  EXPECT_EQ(mdx_cancel(client), MDX_OK);
  EXPECT_EQ(server.waiting(2), 0) << "its own has gone, and what stood before it";
}

TEST(Client, AnswerGivenJustBeforeDeathCounts) {
  StandInServer server([](StandInServer& self, const at_msg_t& record) {
    self.answer(with_text(record, "last words"), false);
    self.die();
  });
  Handle client;
  mdx_result_t result = MDX_RESULT_INIT;
  EXPECT_EQ(mdx_send(client, "AT", nullptr, &result), MDX_OK);
}

TEST(Client, SignalsDoNotCutAWaitShort) {
  StandInServer server(ignore);
  Handle client;
  struct sigaction action {};
  action.sa_handler = [](int) {};
  sigaction(SIGALRM, &action, nullptr);
  itimerval often{{0, 2000}, {0, 2000}};
  setitimer(ITIMER_REAL, &often, nullptr);
  mdx_result_t result = MDX_RESULT_INIT;
  const mdx_options_t options = within(200);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(mdx_send(client, "AT", &options, &result), MDX_ERR_TIMEOUT);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 199ms);
  often = {};
  setitimer(ITIMER_REAL, &often, nullptr);
}

}  // namespace
