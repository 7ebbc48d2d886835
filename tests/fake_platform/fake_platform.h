// SPDX-License-Identifier: Apache-2.0

// The platform in memory: a virtual clock, a scripted modem, clients that ask by the timetable, and
// a journal of all that the server did.
//
// Nothing waits and nothing runs beside the test: time passes only while the server itself waits,
// and what the timetable holds for that time happens then, on the same thread. Once nothing is left
// to happen, a wait without time-out throws end_of_world, so even the endless loop of `main` comes
// back.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/mdx_platform.h"
#include "wire/at_msg.h"

namespace fake {

/// Thrown by MDX_event_recv.
struct end_of_world {};
/// Thrown by pthread_exit, which would end the test.
struct thread_ended {};

/// The task that runs the test is the server's main task.
constexpr int32_t kMainTask = 4711;

// ---------------------------------------------------------------------------------------------------
// The journal
// ---------------------------------------------------------------------------------------------------

enum class kind {
  TRACE,         ///< name: source module, level, text
  WRITE,         ///< text: the bytes the modem got
  WRITE_FAILED,  ///< text: the bytes it did not get
  REQUEST,       ///< text: the 1600 bytes taken off queue 2
  DELIVERY,      ///< text: the element taken off queue 3, a: milliseconds it was waited for at most
  SILENCE,       ///< a: milliseconds in which no element came
  SERVICE,       ///< name: service, type, text: payload
  NOTIFICATION,  ///< module, type: event, a, b, text: payload
  VOICE,         ///< type: the report's type, text: payload
  REPLY,         ///< text: the 1600 bytes put on queue 1
  RAISE,         ///< a: task, type: bits
  SLEEP,         ///< type: milliseconds
  CALL,          ///< any other call, name: the function, text: its arguments in words
};

struct entry {
  kind what = kind::CALL;
  uint64_t at = 0;  ///< virtual milliseconds
  std::string name = {};
  std::string text = {};
  uint32_t level = 0;
  uint32_t type = 0;
  int32_t module = 0;
  int32_t a = 0;
  int32_t b = 0;

  /// A service message, a notification or a report to voice.
  bool is_packet() const {
    return what == kind::SERVICE || what == kind::NOTIFICATION || what == kind::VOICE;
  }
  /// One line: "write AT\r", "reply 7", "raise 4711 2", "sleep 1000", "trace 8 mdxgate: main():
  /// ...", "MDX_event_init 7"; of packets with the payload in hex: "cms 34820 ", "notify 12 3 0 0
  /// 05000000", "voice 8907 5 0100".
  std::string line() const;
  /// The text as a record: a payload's layout, or the at_msg_t of a reply.
  template <class Record>
  Record as() const {
    Record record{};
    if (text.size() == sizeof(Record)) text.copy(reinterpret_cast<char*>(&record), sizeof(Record));
    return record;
  }
};

/// Everything since reset, in the order it happened.
extern std::vector<entry> journal;

std::vector<entry> entries(kind what);
/// line() of the entries of these kinds, in the common order.
std::vector<std::string> lines(const std::vector<kind>& kinds);
/// Texts of the traces of one level, or of all (0).
std::vector<std::string> traces(uint32_t level = 0);
/// All packets: service messages, notifications, voice.
std::vector<entry> packets();
/// What the modem got, one element per write.
std::vector<std::string> writes();
std::vector<at_msg_t> replies();

// ---------------------------------------------------------------------------------------------------
// The timetable
// ---------------------------------------------------------------------------------------------------

struct delivery {
  uint32_t after;     ///< milliseconds
  std::string bytes;  ///< one delivery as it is: the fake neither joins nor cuts
};
using script = std::vector<delivery>;

/// An empty world: no queues, no binding, nothing scheduled, no faults, all traces on. The clock
/// starts at `clock`, so that its wrap can be visited.
void reset(uint32_t clock = 1000);

/// Virtual milliseconds since 0; MDX_elapse shows the low 32 bits.
uint64_t now();

/// Something happens `after` milliseconds from now. What falls on the same time keeps its order.
void at(uint32_t after, std::function<void()> happens);

/// The modem speaks, counted from now. Deliveries wait until the channel is bound, and one that the
/// server does not take is offered again with its next wait.
void deliver(const script& deliveries);

/// The modem speaks, counted from the next write that begins with `start`. Good for one write; of
/// several that fit, the oldest goes first.
void answer(std::string_view start, const script& deliveries);

/// Called for each write that no answer() takes, with the bytes.
extern std::function<void(const std::string&)> on_write;

/// A client's request goes on queue 2 and bit 1 is raised. A full queue refuses it: CALL "refused".
void request(const at_msg_t& record, uint32_t after = 0);

/// The bus brings the server a message, through the registered procedure, at once.
void bus_message(uint32_t type, uint32_t length);

/// Runs a debug console command.
/// @return what it printed
std::string console(std::string_view module, std::string_view command);

/// A file of the server's, as it is now. Paths below /var lead to a private directory that reset
/// empties; the path given is the server's.
bool file_exists(const std::string& path);
std::string file_content(const std::string& path);
void make_directory(const std::string& path);
void make_file(const std::string& path, std::string_view content);

// ---------------------------------------------------------------------------------------------------
// The line
// ---------------------------------------------------------------------------------------------------

/// Stands for what the platform does between the server and a modem that speaks bytes, and for its
/// knowledge of clients that die.
struct line {
  virtual ~line() = default;
  virtual int32_t bind(int32_t channel, mdx_receive_function_t receive,
                       mdx_send_function_t* send) = 0;
  /// The server waits; the line calls `pass`. @param until  UINT64_MAX: for ever
  virtual void wait(uint64_t until) = 0;
  virtual bool shows_requests() = 0;
  virtual bool begins_request(int32_t client) = 0;  ///< false: its client is gone
  virtual bool has_client() = 0;  ///< whether that of the request begun last is there
  virtual bool may_answer() = 0;  ///< whether the modem's answer can still come
};

/// Null: the modem's deliveries are ready-made, and all clients live.
extern line* the_line;

/// Lets the next thing on the timetable happen; when there is nothing up to `until`, it is `until`
/// now. Throws end_of_world when that is for ever.
void pass(uint64_t until);

// ---------------------------------------------------------------------------------------------------
// Faults
// ---------------------------------------------------------------------------------------------------

struct faults {
  int32_t queue_create = 0;      ///< creation of this queue fails
  std::string queues_left = {};  ///< numbers of queues that an earlier run left, as "21"
  bool msg_init = false;
  bool notify_init = false;
  int32_t bind_attempts = 0;  ///< so many bindings do not fill the slot
  int32_t write = 0;          ///< so many writes to the modem fail
  int32_t nas_send = 0;       ///< so many sends to queue 3 fail
  int32_t request_read = 0;   ///< so many reads of a client queue fail, with retcode EIO
  int32_t reply_send = 0;     ///< so many sends to a client queue fail, with retcode EAGAIN
  int32_t event_recv = 0;     ///< so many MDX_event_recv fail
  int32_t allocations = 0;    ///< so many malloc fail
  int32_t deliveries = 0;     ///< so many deliveries find no memory
  std::string files = {};     ///< open and mkdir fail below this path; empty for none
};
extern faults fail;

}  // namespace fake
