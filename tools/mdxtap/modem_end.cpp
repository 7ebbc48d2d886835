// SPDX-License-Identifier: Apache-2.0

// System calls on the modem's device.
#include "tools/mdxtap/modem_end.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "tools/mdxtap/device_users.h"

namespace mdxtap {
namespace {

constexpr tcflag_t kLineFlags =
    CSIZE | CSTOPB | PARENB | PARODD | CRTSCTS | CLOCAL | HUPCL | static_cast<tcflag_t>(CMSPAR);
constexpr tcflag_t kFlowFlags = IXON | IXOFF | IXANY;

}  // namespace

int ModemEnd::open() {
  struct stat there {};
  if (stat(path_.c_str(), &there) != 0) return errno;
  if (S_ISSOCK(there.st_mode)) return connect_socket();
  return S_ISCHR(there.st_mode) ? open_terminal() : ENOTTY;
}

int ModemEnd::connect_socket() {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path_.size() >= sizeof address.sun_path) return ENAMETOOLONG;
  std::memcpy(address.sun_path, path_.data(), path_.size());
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) return errno;
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    const int error = errno;
    ::close(fd);
    return error;
  }
  fd_ = fd;
  is_terminal_ = false;
  return 0;
}

int ModemEnd::open_terminal() {
  const int fd = ::open(path_.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return errno;
  const auto refused = [fd](int error) {
    ::close(fd);
    return error;
  };
  if (isatty(fd) == 0) return refused(ENOTTY);
  const bool locked = flock(fd, LOCK_EX | LOCK_NB) != 0;
  if (locked || !other_user_of(path_).empty()) return refused(EBUSY);
  if (ioctl(fd, TIOCEXCL) != 0 || tcgetattr(fd, &line_) != 0) return refused(errno);
  cfmakeraw(&line_);
  line_.c_cflag |= CLOCAL | CREAD;
  line_.c_cc[VMIN] = 1;
  line_.c_cc[VTIME] = 0;
  if (tcsetattr(fd, TCSANOW, &line_) != 0) return refused(errno);
  fd_ = fd;
  is_terminal_ = true;
  return 0;
}

// A serial line would keep us until its modem has taken everything.
void ModemEnd::close() {
  if (fd_ < 0) return;
  if (is_terminal_) {
    ioctl(fd_, TIOCNXCL);
    tcflush(fd_, TCOFLUSH);
  }
  ::close(std::exchange(fd_, -1));
}

ssize_t ModemEnd::read(char* buffer, size_t size) {
  const ssize_t got = ::read(fd_, buffer, size);
  if (got > 0) return got;
  return got < 0 && (errno == EAGAIN || errno == EINTR) ? 0 : -1;
}

ssize_t ModemEnd::write(std::string_view bytes) {
  const ssize_t taken = is_terminal_ ? ::write(fd_, bytes.data(), bytes.size())
                                     : send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  if (taken >= 0) return taken;
  return errno == EAGAIN || errno == EINTR ? 0 : -1;
}

// A speed that the device does not have stays what it was.
void ModemEnd::set_line(const termios& wanted) {
  if (!is_terminal_) return;
  termios line = line_;
  line.c_cflag = (line.c_cflag & ~kLineFlags) | (wanted.c_cflag & kLineFlags);
  line.c_iflag = (line.c_iflag & ~kFlowFlags) | (wanted.c_iflag & kFlowFlags);
  const speed_t speed = cfgetospeed(&wanted);
  if (speed != B0) {
    cfsetospeed(&line, speed);
    cfsetispeed(&line, cfgetispeed(&wanted));
  }
  const bool same = line.c_cflag == line_.c_cflag && line.c_iflag == line_.c_iflag &&
                    cfgetospeed(&line) == cfgetospeed(&line_);
  if (!same && tcsetattr(fd_, TCSANOW, &line) == 0) line_ = line;
}

void ModemEnd::set_ready(bool ready) {
  if (!is_terminal_) return;
  const int lines = ready ? TIOCM_DTR | TIOCM_RTS : TIOCM_DTR;
  ioctl(fd_, ready ? TIOCMBIS : TIOCMBIC, &lines);
}

}  // namespace mdxtap
