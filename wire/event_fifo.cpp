// SPDX-License-Identifier: Apache-2.0

// The four-byte writes of event sets, and the checks that keep them from going anywhere else.

#include "wire/event_fifo.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <ctime>

#include "wire/border.h"

namespace {

constexpr size_t kRaisesAtOnce = 256;
constexpr size_t kSmallestPipe = 4096;
constexpr size_t kLargestPipe = 1024 * 1024;
constexpr uint32_t kAllBits = 0xffffffff;

/// Keeps SIGPIPE from the calling thread for the length of a write, and takes back one the write
/// made.
class sigpipe_guard {
 public:
  sigpipe_guard() {
    sigemptyset(&pipe_only_);
    sigaddset(&pipe_only_, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe_only_, &before_);
  }
  ~sigpipe_guard() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  sigpipe_guard(const sigpipe_guard&) = delete;
  sigpipe_guard& operator=(const sigpipe_guard&) = delete;

  void swallow() {
    if (sigismember(&before_, SIGPIPE) == 1) return;
    const timespec no_wait{};
    sigtimedwait(&pipe_only_, nullptr, &no_wait);
  }

 private:
  sigset_t pipe_only_;
  sigset_t before_;
};

/// Newer kernels can leave SIGPIPE out of a single write: one system call in place of three.
/// @return what write returns; errno EOPNOTSUPP where the kernel cannot
ssize_t write_without_signal(int fd, uint32_t bits) {
#ifdef SYS_pwritev2
  constexpr int kNoSignal = 0x100;   // RWF_NOSIGNAL, which headers may lack
  constexpr long kNoPosition = -1L;  // in both halves: as write does
  static constinit std::atomic<bool> is_known_not_to{false};
  if (!is_known_not_to.load(std::memory_order_relaxed)) {
    const iovec piece = {&bits, sizeof(bits)};
    const ssize_t written =
        syscall(SYS_pwritev2, fd, &piece, 1L, kNoPosition, kNoPosition, kNoSignal);
    if (written >= 0 || errno == EAGAIN || errno == EPIPE || errno == EINTR) return written;
    is_known_not_to.store(true, std::memory_order_relaxed);
  }
#endif
  errno = EOPNOTSUPP;
  return -1;
}

ssize_t write_with_signal_blocked(int fd, uint32_t bits) {
  sigpipe_guard guard;
  const ssize_t written = write(fd, &bits, sizeof(bits));
  const int error = errno;
  if (written < 0 && error == EPIPE) guard.swallow();
  errno = error;
  return written;
}

/// The opened file, or -1 with errno EINVAL when it is no FIFO.
int fifo_only(int fd) {
  struct stat status {};
  if (fd < 0) return -1;
  if (fstat(fd, &status) == 0 && S_ISFIFO(status.st_mode)) return fd;
  close(fd);
  errno = EINVAL;
  return -1;
}

/// The opened file, or -1 with errno EEXIST when another user made it.
int own_only(int fd) {
  struct stat status {};
  if (fd < 0 || (fstat(fd, &status) == 0 && status.st_uid == geteuid())) return fd;
  close(fd);
  errno = EEXIST;
  return -1;
}

bool is_shortage(int error) { return error == EMFILE || error == ENFILE || error == ENOMEM; }

}  // namespace

bool read_pid_namespace(const char* link, char (&name)[kPidNamespaceSize]) {
  const ssize_t length = readlink(link, name, sizeof(name) - 1);
  name[length > 0 ? length : 0] = '\0';
  return length > 0;
}

void event_fifo_path(int32_t task_id, char (&path)[kEventPathSize]) {
  std::snprintf(path, sizeof(path), "%s%d", kMdxTaskPrefix, task_id);
}

int event_fifo_create(const char* path, mode_t mode) {
  if (unlink(path) != 0 && errno != ENOENT) return -1;
  if (mkfifo(path, 0600) != 0) return -1;
  // Open for writing as well, so that the last raiser's close is no end of file.
  const int fd = own_only(fifo_only(open(path, O_RDWR | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC)));
  if (fd < 0 && !is_shortage(errno)) errno = EEXIST;  // somebody else was faster
  if (fd >= 0) fchmod(fd, mode);  // the umask is the process's, and its threads share it
  return fd;
}

int event_fifo_open(const char* path) {
  return fifo_only(open(path, O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
}

int event_fifo_raise(int fd, uint32_t bits) {
  ssize_t written = 0;
  do {
    written = write_without_signal(fd, bits);
    if (written < 0 && errno == EOPNOTSUPP) written = write_with_signal_blocked(fd, bits);
  } while (written < 0 && errno == EINTR);
  if (written == static_cast<ssize_t>(sizeof(bits))) return 0;
  return errno == EPIPE ? EPIPE : EAGAIN;
}

uint32_t event_fifo_take(int fd, void (*take_ticket)(uint32_t ticket)) {
  uint32_t raises[kRaisesAtOnce];
  uint32_t bits = 0;
  size_t total = 0;
  while (total < kLargestPipe) {
    const ssize_t size = read(fd, raises, sizeof(raises));
    if (size < 0 && errno == EINTR) continue;
    if (size <= 0) return bits;
    total += static_cast<size_t>(size);
    if (static_cast<size_t>(size) % sizeof(raises[0]) != 0 ||
        total > kSmallestPipe - sizeof(raises[0]))
      bits = kAllBits;
    const size_t count = static_cast<size_t>(size) / sizeof(raises[0]);
    for (size_t i = 0; i < count; ++i) {
      const bool is_ticket = take_ticket != nullptr && (raises[i] & kMdxTicket) != 0;
      if (is_ticket && total <= kSmallestPipe) take_ticket(raises[i]);
      bits |= is_ticket ? kMdxEventRequest : raises[i];
    }
    if (static_cast<size_t>(size) < sizeof(raises)) return bits;
  }
  return bits;
}
