// SPDX-License-Identifier: Apache-2.0

// System calls on a modem's device, and what their errors mean.

#include "platform/linux/modem_device.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

modem_device_t refused(int fd, int error) {
  close(fd);
  errno = error;
  return {};
}

modem_device_t connect_socket(const char* path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (std::strlen(path) >= sizeof(address.sun_path)) {
    errno = ENAMETOOLONG;
    return {};
  }
  std::memcpy(address.sun_path, path, std::strlen(path));
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) return {};
  const auto* peer = reinterpret_cast<const sockaddr*>(&address);
  if (connect(fd, peer, sizeof(address)) != 0) return refused(fd, errno);
  return {fd, true};
}

// VMIN is 1, so that a read without data is EAGAIN and no end of file.
bool set_raw(int fd) {
  termios line{};
  if (tcgetattr(fd, &line) != 0) return false;
  cfmakeraw(&line);
  line.c_cflag |= CLOCAL | CREAD;
  line.c_cc[VMIN] = 1;
  line.c_cc[VTIME] = 0;
  return tcsetattr(fd, TCSANOW, &line) == 0;
}

/// The side of a pseudo terminal on which the modem would be; nobody ever says anything there.
bool is_master(int fd) {
  unsigned int number = 0;
  return ioctl(fd, TIOCGPTN, &number) == 0;
}

modem_device_t open_terminal(const char* path) {
  const int fd = open(path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return {};
  if (isatty(fd) == 0 || is_master(fd)) return refused(fd, ENOTTY);
  if (flock(fd, LOCK_EX | LOCK_NB) != 0) return refused(fd, EBUSY);
  if (ioctl(fd, TIOCEXCL) != 0 || !set_raw(fd)) return refused(fd, errno);
  return {fd, false};
}

/// A device that comes back may get its number and its inode's again, but not its time.
uint32_t mark_of(const struct stat& status) {
  const uint64_t numbers[] = {status.st_rdev, status.st_ino,
                              static_cast<uint64_t>(status.st_ctim.tv_sec),
                              static_cast<uint64_t>(status.st_ctim.tv_nsec)};
  uint64_t mark = 0;
  for (const uint64_t number : numbers) mark = (mark ^ number) * 0x9E3779B97F4A7C15;
  return static_cast<uint32_t>(mark >> 32);
}

}  // namespace

modem_device_t modem_device_open(const char* path) {
  struct stat status {};
  modem_device_t device;
  errno = ENOTTY;
  if (fstatat(AT_FDCWD, path, &status, 0) != 0) return {};
  if (S_ISSOCK(status.st_mode)) device = connect_socket(path);
  if (S_ISCHR(status.st_mode)) device = open_terminal(path);
  device.mark = mark_of(status);
  return device;
}

void modem_device_close(const modem_device_t& device) {
  if (!device.is_socket) {
    // A pseudo terminal would stay exclusive for as long as its other side is open, and a serial
    // line would keep us until its modem has taken everything.
    ioctl(device.fd, TIOCNXCL);
    tcflush(device.fd, TCOFLUSH);
  }
  close(device.fd);
}

ssize_t modem_device_read(const modem_device_t& device, char* buffer, size_t size) {
  const ssize_t got = read(device.fd, buffer, size);
  if (got > 0) return got;
  return got < 0 && (errno == EAGAIN || errno == EINTR) ? 0 : -1;
}

ssize_t modem_device_write(const modem_device_t& device, const char* data, size_t size) {
  ssize_t taken = 0;
  do {
    taken = write(device.fd, data, size);
  } while (taken < 0 && errno == EINTR);
  return taken < 0 && errno == EAGAIN ? 0 : taken;
}

void modem_device_discard_output(const modem_device_t& device) {
  if (!device.is_socket) tcflush(device.fd, TCOFLUSH);
}
