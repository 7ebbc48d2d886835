// SPDX-License-Identifier: Apache-2.0

// Everything the server asks of the device it runs on: queues, time, tasks and events, the message
// bus, the modem channel, traces, the debug console.
//
// Two things stand behind this header: platform/linux/, the real one, and tests/fake_platform/,
// which keeps everything in memory under a virtual clock. The linker chooses. Nothing here throws.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

// ------------------------------------------------------------------------------------------------
// Queues and time
// ------------------------------------------------------------------------------------------------

/// Looks for a queue that exists already, from an earlier run of the server.
/// @param number  1 client responses, 2 client requests, 3 modem data
/// @return its id, or -1
int32_t MDX_get_msgQ_id(int32_t number);

/// Creates a queue between processes (numbers 1 and 2). The task that creates number 2 becomes the
/// one that clients wake. Where the system has no queue left to give, it is made as soon as there
/// is one.
/// @param number  queue number
/// @param depth   elements the queue holds at most
/// @param size    bytes of one element
/// @return its id, or -1
int32_t MDX_msgQex_create(int32_t number, int32_t depth, int32_t size);

/// Deletes a queue between processes and all that waits in it. An unknown id does nothing.
void MDX_msgQex_delete(int32_t id);

/// Elements waiting, 0 for an unknown id.
///
/// Asking for queue 2 says that no exchange is under way. While the modem may still say something
/// that belongs to an earlier one the number is 0, whatever waits; bit 1 is raised at the task that
/// serves the queue as soon as that is over, at most 5 seconds after the exchange's end.
int32_t MDX_msgQex_num(int32_t id);

/// Creates the queue inside the process (number 3); arguments and result as above.
int32_t MDX_msgQ_create(int32_t number, int32_t depth, int32_t size);
void MDX_msgQ_delete(int32_t id);
int32_t MDX_msgQ_num(int32_t id);

/// Puts a copy of an element on the queue inside the process. Any thread.
///
/// A full queue is waited for, up to 1000 ms.
/// @param size   bytes of the element, at most what the queue was created for
/// @param flags  0
/// @return 1 on success; 0 when the queue stayed full, the id is unknown or the size does not fit
int32_t MDX_msgQ_send(int32_t id, const void* data, uint32_t size, int32_t flags);

/// Takes the oldest element off the queue inside the process.
/// @param size     room in `buffer`; a longer element is cut
/// @param wait_ms  how long to wait for one; 0 does not wait. For the task that bound the modem's
///                 channel the wait is over early when the client whose request it took last is
///                 gone, or the modem has gone away since something was sent to it
/// @return bytes of the element; -1 when nothing came, `buffer` is untouched then
int32_t MDX_msgQ_recv(int32_t id, void* buffer, uint32_t size, int32_t wait_ms);

/// Takes one 1600-byte record off a queue between processes, without waiting.
///
/// A message of another size is dropped with a trace and counts as a failure, and so is a request
/// on queue 2 whose sender's event FIFO has no reader any more.
/// @param record   room for the record
/// @param type     the message type wanted, 0 for any: the server takes any, a client its own
/// @param retcode  an errno value on failure; not written on success
/// @return 0, or -1
int32_t read_from_msgqueue(int32_t id, void* record, int32_t type, int* retcode);

/// Puts a record on a queue between processes, and wakes the task that its first four bytes
/// (`msg_type`) name, if there is one.
///
/// Of a full queue 1, answers are dropped whose client is dead, else those that have lain unread
/// for more than 5 seconds, else one of the user that has the most, the new answer included: the
/// oldest of its client that has the most, or, where each of its clients has one, the oldest once
/// it has lain for 300 ms. What is still to be read is waited for: 300 ms at most, and not again
/// for 10 seconds if that was in vain; or 5 seconds where each answer is another user's. Each drop
/// is counted. Nothing else waits.
/// @param retcode  an errno value on failure; not written on success
/// @return 0, or -1
int32_t send_to_msgqueue(int32_t id, const void* record, int* retcode);

/// A counter of milliseconds that never jumps with the wall clock. It wraps at 2^32.
uint32_t MDX_elapse();
void MDX_sleep(uint32_t milliseconds);

// ------------------------------------------------------------------------------------------------
// Tasks and events
// ------------------------------------------------------------------------------------------------

/// Gives the calling task its event set.
/// @param mask  the bits in use
void MDX_event_init(uint32_t mask);

/// Id of the calling task; other tasks raise events with it.
int32_t MDX_task_getid();

/// Raises event bits at a task. Bits raised while it does not wait stay pending; none is ever lost.
/// @return 1, or 0 when there is no such task
int32_t MDX_event_send(int32_t task_id, uint32_t bits);

/// Waits until one of the mask's bits is pending, then takes all of them that are; what another
/// process raised is taken by the next call at the latest.
/// @param wait_ms  -1: no time-out
/// @param bits     the bits taken
/// @return 1, or 0 on failure: `bits` is untouched then
int32_t MDX_event_recv(uint32_t mask, int32_t wait_ms, uint32_t* bits);

/// Starts a thread. The unnamed arguments are 0.
/// @return a handle for pthread_join, 0 on failure
pthread_t MDX_pthread_create(int, int, int, void (*entry)(), int);

// ------------------------------------------------------------------------------------------------
// Message bus, notifications, voice. Sends never block; what a slow receiver misses it is told.
// ------------------------------------------------------------------------------------------------

/// Joins the bus under a name of at most 11 characters. 0 on success.
int32_t KRP_MSG_Init(const char* module);

/// Names the procedure that gets what others send to this module. A packet holds its message type,
/// 32 bits, at byte 0 and the length of what follows its 40-byte header, 32 bits, at byte 36. The
/// packet is valid during the call only.
void KRP_MSG_RegisterMsgProc(void (*procedure)(const void* packet));

/// Takes a packet that the procedure has no use for.
void KRP_MSG_DefaultMsgProc(const void* packet);

/// Dispatches packets on the calling thread; returns when that ends.
void KRP_UTIL_SockBaseStart(int32_t);

/// Sends a message to a named service. `data` may be null with length 0. 0 on success.
int32_t KRP_MSG_SendMsgData(const char* service, uint32_t type, const void* data, uint32_t length);
int32_t KRP_MSG_SendSimpleMsg(const char* service, uint32_t type, int32_t);

/// Makes notifications possible. The argument is 31; 0 on success.
int32_t KRP_NOTIFYCLT_Init(int32_t);

/// Tells a notification module of an event, with two values, or with a payload. 0 on success.
int32_t MDX_post_notify(int32_t module, int32_t event, int32_t a, int32_t b);
int32_t MDX_post_notify_ex(int32_t module, int32_t event, const void* data, uint32_t length,
                           int32_t a, int32_t b);

/// Sends a call record to the voice service. `message` is 8907, `type` the report's type. 0 on
/// success.
int32_t KRP_UTIL_SendMsgToVoice2(int32_t message, int32_t type, int32_t, const void* data,
                                 uint32_t length);

// ------------------------------------------------------------------------------------------------
// Modem channel
// ------------------------------------------------------------------------------------------------

/// Sends bytes to the modem; only for the task that bound the channel. Blocks while the modem takes
/// nothing, 5 seconds at most; a device just opened is first listened to until it is silent, a
/// second at most, or 5 where an earlier server died with a command under way. 0 on success.
/// Refused, with nothing sent, when the client that it is for is gone, or when the modem is not the
/// one that the exchange began with.
using mdx_send_function_t = int32_t (*)(int32_t channel, const char* data, uint32_t length);

/// Takes a delivery; 0 when it is taken, 1 when not: it is then offered again. It is called by the
/// task that bound the channel, from within the platform: while that task waits for events or for
/// modem data, or sends. A delivery has 1 to 1499 bytes and ends behind a line, behind the SMS
/// prompt, or where the modem fell silent inside a line; never between a CR and its LF. What nobody
/// waits for is left out: results and text of an exchange that has ended. Where that leaves text
/// with the server which no result will end, a delivery with an OK of the platform's own comes.
using mdx_receive_function_t = int32_t (*)(int32_t, const char* data, uint32_t length);

/// Binds a modem channel to the calling task, which from then on reads the modem whenever it waits
/// for events or for modem data. May be repeated until `*send` is filled, which is the sign of
/// success: the channel is up from then on, and the slot stays filled when the device goes away and
/// comes back.
/// @param channel  6 is /dev/smd6
int32_t Q7_APP_RegCallBack(int32_t channel, mdx_receive_function_t receive,
                           mdx_send_function_t* send);

/// Ends the binding. Any thread, but not from within the receive callback; waits for a send that is
/// under way. Every send after it fails.
void Q7_App_Ungister();

// ------------------------------------------------------------------------------------------------
// Traces
// ------------------------------------------------------------------------------------------------

enum : uint32_t {
  MDX_TRACE_ERROR = 2,    ///< a null argument, a failed call, a refused input
  MDX_TRACE_MISSING = 4,  ///< things missing but expected: no data, time-outs
  MDX_TRACE_FLOW = 8,     ///< enter and leave, state changes, results
  MDX_TRACE_DETAIL = 16,  ///< positions in a line, the next time-out
};

/// The levels that are on. Levels 2 and 4 are at start.
extern std::atomic<uint32_t> mdx_trace_mask;

/// Writes one trace, whatever the mask says.
/// @param source  the source module, which may stand in several files
/// @param line    where in its file
/// @param module  "mdxgate"
void KRP_TRACE_PrintInfo(const char* source, int line, int, const char* module, uint32_t level,
                         const char* format, ...) __attribute__((format(printf, 6, 7), cold));

/// Who traces.
enum mdx_trace_source_t : uint32_t {
  MDX_FROM_LINE,  ///< the server, where each line of the modem passes
  MDX_FROM_SERVER,
  MDX_FROM_REPORTS,
  MDX_FROM_REGISTER,
  MDX_FROM_CHANNEL,
  MDX_FROM_PLATFORM,
};

/// The source module that a trace of it names.
constexpr const char* mdx_trace_source_name(uint32_t source) {
  constexpr const char* names[] = {"mdxgate",      "mdxgate",       "mdx_report_callback",
                                   "mdx_register", "modem_channel", "platform"};
  return names[source];
}

/// The same for module "mdxgate" where the level is on. Hundreds of places call it, so its call is
/// short: `place` is the line, the source and the level. Call MDX_TRACE.
void mdx_trace(uint32_t place, const char* format, ...) __attribute__((format(printf, 2, 3), cold));
constexpr uint32_t mdx_trace_place(uint32_t line, mdx_trace_source_t source, uint32_t level) {
  return line << 16 | source << 8 | level;
}
#define MDX_TRACE_PLACE(source, level) mdx_trace_place(__LINE__, (source), (level))

/// A trace. Where each line passes, one of level 8 or 16 costs a load and a branch while that is
/// off, and its values are not evaluated then; elsewhere the call finds out, which is smaller.
#define MDX_TRACE(source, level, ...)                                                        \
  do {                                                                                       \
    if ((source) != MDX_FROM_LINE || ((level) & (MDX_TRACE_FLOW | MDX_TRACE_DETAIL)) == 0 || \
        (mdx_trace_mask.load(std::memory_order_relaxed) & (level)) != 0)                     \
      mdx_trace(MDX_TRACE_PLACE(source, level), __VA_ARGS__);                                \
  } while (false)

/// A line for the device's start-up log. The number is 2.
void mlog_print(const char* module, int32_t, const char* text);

// ------------------------------------------------------------------------------------------------
// Debug console
// ------------------------------------------------------------------------------------------------

/// One command of a console module. The handler runs on the thread that dispatches packets, prints
/// with KRP_Debug_Print and returns 0.
struct mdx_debug_command_t {
  const char* name;
  int32_t (*handler)();
};

/// Adds a module to the console. `commands` lives for the process. May be called before `main`.
///
/// It is the platform's first call and therefore also the one that claims the machine: when another
/// server runs, it says so on standard error and ends the process with exit code 1.
void KRP_Debug_RegModCmds(const char* module, const mdx_debug_command_t* commands, int32_t count);

/// Prints to whoever asked; only from within a command's handler.
void KRP_Debug_Print(const char* format, ...) __attribute__((format(printf, 1, 2)));

// ------------------------------------------------------------------------------------------------
// Rights
// ------------------------------------------------------------------------------------------------

/// Gives a path the octal mode in `mode`, such as "640", whatever the umask has made of it.
void KRP_UTIL_RemoveAndroidWPerm(const char* path, const char* mode);

/// Gives up root for good: user `mdxgate` with its groups. Without that user, or when not started
/// as root, it says what it could not do and goes on. A queue whose key is another user's ends the
/// process with exit code 1.
void KRP_UTIL_DropAndroidRootPrivileges();
