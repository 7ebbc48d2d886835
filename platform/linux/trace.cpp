// SPDX-License-Identifier: Apache-2.0

// Traces to the system's log and, where a person or a journal reads along, to standard error.
//
// A trace must not hold up an exchange: the C library's syslog() waits for a log that does not keep
// up, so the log's socket is written here, without waiting. What the log does not take is counted.
// Some traces come with each line of the modem: where nobody reads them they must cost next to
// nothing, and looking a path up costs as much as a third of a round trip to a modem.

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "platform/linux/counters.h"
#include "platform/linux/monotonic.h"
#include "platform/linux/trace_limit.h"
#include "platform/mdx_platform.h"

constinit std::atomic<uint32_t> mdx_trace_mask{MDX_TRACE_ERROR | MDX_TRACE_MISSING};

namespace {

constexpr size_t kTraceSize = 1024;
constexpr char kCutMark[] = " (cut)";
/// A sockaddr_un, as far as it is filled.
constexpr struct {
  sa_family_t family;
  char path[sizeof("/dev/log")];
} kLogAddress = {AF_UNIX, "/dev/log"};

struct trace_outputs_t {
  int log = -1;
  int terminal = -1;            ///< standard error, if that is a terminal
  bool terminal_waits = false;  ///< a write to it may wait
  bool journal = false;         ///< standard error is a socket
};
constinit trace_outputs_t outputs;
constinit std::atomic<bool> log_found{false};
constinit std::atomic<uint32_t> log_missed_in{0};  ///< a second since the machine's start, plus one
pthread_once_t outputs_opened = PTHREAD_ONCE_INIT;

void open_outputs() {
  outputs.log = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  struct stat status {};
  outputs.journal = fstat(STDERR_FILENO, &status) == 0 && S_ISSOCK(status.st_mode);
  if (isatty(STDERR_FILENO) == 0) return;
  // Opened anew, so that not to wait is a property of this descriptor only.
  outputs.terminal = open("/proc/self/fd/2", O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (outputs.terminal >= 0) return;
  outputs.terminal = STDERR_FILENO;
  outputs.terminal_waits = true;
}

/// Looks for a log that is missing, once in a second.
/// @return false when a trace is not for the log; where nobody else reads it, it is counted
bool find_log() {
  if (log_found.load()) return true;
  const auto second = static_cast<uint32_t>(monotonic_ms() / 1000 + 1);
  if (log_missed_in.load() != second) {
    const auto* address = reinterpret_cast<const sockaddr*>(&kLogAddress);
    const bool found = connect(outputs.log, address, sizeof(kLogAddress)) == 0;
    log_found = found;
    if (found) return true;
    log_missed_in = second;
  }
  if (!outputs.journal && outputs.terminal < 0) counter_add(COUNT_TRACES_LOST);
  return false;
}

bool somebody_reads() {
  pthread_once(&outputs_opened, open_outputs);
  return outputs.journal || outputs.terminal >= 0 || find_log();
}

struct origin_t {
  const char* source;
  int line;
  const char* module;
  uint32_t level;
};

/// The server says with each line of the modem what it does not find there, and the reports'
/// handlers trace that they were called, at the level of errors.
bool comes_with_each_line(const origin_t& origin) {
  constexpr const char* kReports = mdx_trace_source_name(MDX_FROM_REPORTS);
  constexpr const char* kServer = mdx_trace_source_name(MDX_FROM_SERVER);
  if (strcmp(origin.source, kReports) == 0) return true;
  return strcmp(origin.source, kServer) == 0 && origin.level == MDX_TRACE_MISSING;
}

int log_priority(const origin_t& origin) {
  if (comes_with_each_line(origin)) return LOG_DEBUG;
  switch (origin.level) {
    case MDX_TRACE_ERROR:
      return LOG_ERR;
    case MDX_TRACE_MISSING:
      return LOG_WARNING;
    case MDX_TRACE_FLOW:
      return LOG_INFO;
    default:
      return LOG_DEBUG;
  }
}

iovec piece(const char* text, size_t length) { return {const_cast<char*>(text), length}; }

void write_log(int priority, const char* text, size_t length) {
  char head[48];
  const int size = snprintf(head, sizeof(head), "<%d>mdxgate[%d]: ", LOG_DAEMON | priority,
                            static_cast<int>(getpid()));
  iovec pieces[] = {piece(head, static_cast<size_t>(size)), piece(text, length)};
  msghdr message{};
  message.msg_iov = pieces;
  message.msg_iovlen = std::size(pieces);
  // A log that was started anew has another socket.
  for (int attempt = 0; attempt < 2 && find_log(); ++attempt) {
    if (sendmsg(outputs.log, &message, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0) return;
    if (errno == EAGAIN) return counter_add(COUNT_TRACES_LOST);
    log_found = false;
  }
}

void write_journal(int priority, const char* text, size_t length) {
  char head[8];
  const int size = snprintf(head, sizeof(head), "<%d>", priority);
  iovec pieces[] = {piece(head, static_cast<size_t>(size)), piece(text, length), piece("\n", 1)};
  msghdr message{};
  message.msg_iov = pieces;
  message.msg_iovlen = std::size(pieces);
  if (sendmsg(STDERR_FILENO, &message, MSG_DONTWAIT | MSG_NOSIGNAL) < 0 && errno == EAGAIN)
    counter_add(COUNT_TRACES_LOST);
}

void write_terminal(const char* text, size_t length) {
  pollfd terminal = {outputs.terminal, POLLOUT, 0};
  if (outputs.terminal_waits && poll(&terminal, 1, 0) != 1) return counter_add(COUNT_TRACES_LOST);
  const iovec pieces[] = {piece(text, length), piece("\r\n", 2)};
  if (writev(outputs.terminal, pieces, std::size(pieces)) < 0) counter_add(COUNT_TRACES_LOST);
}

/// A text comes from a modem or a client at times: it must not steer a terminal or forge a line.
size_t make_harmless(char* text, size_t length) {
  while (length > 0 && (text[length - 1] == '\n' || text[length - 1] == '\r')) --length;
  for (size_t i = 0; i < length; ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte < 0x20 || byte == 0x7f) text[i] = ' ';
  }
  return length;
}

/// Writes `text`, of which a buffer of kTraceSize bytes has room for `length` at most.
void write_text(int priority, char* text, size_t length) {
  if (length >= kTraceSize) {
    length = kTraceSize - 1;
    memcpy(text + length - strlen(kCutMark), kCutMark, strlen(kCutMark));
  }
  length = make_harmless(text, length);
  write_log(priority, text, length);
  if (outputs.journal) write_journal(priority, text, length);
  if (outputs.terminal >= 0) write_terminal(text, length);
}

origin_t origin_at(uint32_t place) {
  return {mdx_trace_source_name(place >> 8 & 0xff), static_cast<int>(place >> 16), "mdxgate",
          place & 0xff};
}

bool is_on(uint32_t level) { return (mdx_trace_mask.load(std::memory_order_relaxed) & level) != 0; }

void write_values(const origin_t& origin, const char* format, va_list values) {
  char text[kTraceSize];
  const int head =
      snprintf(text, sizeof(text), "%.32s %.32s:%d: ", origin.module, origin.source, origin.line);
  const auto used = static_cast<size_t>(head);
  const int body = vsnprintf(text + used, sizeof(text) - used, format, values);
  write_text(log_priority(origin), text, used + (body > 0 ? static_cast<size_t>(body) : 0));
}

void write_trace(const origin_t& origin, const char* format, va_list values) {
  const int saved_errno = errno;
  if (somebody_reads()) write_values(origin, format, values);
  errno = saved_errno;
}

}  // namespace

void KRP_TRACE_PrintInfo(const char* source, int line, int, const char* module, uint32_t level,
                         const char* format, ...) {
  va_list values;
  va_start(values, format);
  write_trace({source, line, module, level}, format, values);
  va_end(values);
}

void mdx_trace(uint32_t place, const char* format, ...) {
  const origin_t origin = origin_at(place);
  if (!is_on(origin.level)) return;
  va_list values;
  va_start(values, format);
  write_trace(origin, format, values);
  va_end(values);
}

void mdx_drop(trace_limit& limit, mdx_counter_t counter, uint32_t place, const char* format, ...) {
  counter_add(counter);
  const origin_t origin = origin_at(place);
  uint32_t left_out = 0;
  if (!is_on(origin.level) || !limit.lets_through(MDX_elapse(), &left_out)) return;
  if (left_out != 0) {
    MDX_TRACE(MDX_FROM_PLATFORM, origin.level, "%u more were not traced: %s\n", left_out,
              counter_name(counter));
  }
  va_list values;
  va_start(values, format);
  write_trace(origin, format, values);
  va_end(values);
}

void mlog_print(const char* module, int32_t, const char* text) {
  const int saved_errno = errno;
  if (somebody_reads()) {
    char line[kTraceSize];
    const int length = snprintf(line, sizeof(line), "%.32s start-up: %s", module, text);
    write_text(LOG_ERR, line, static_cast<size_t>(length));
  }
  errno = saved_errno;
}
