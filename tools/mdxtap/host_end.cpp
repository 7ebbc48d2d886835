// SPDX-License-Identifier: Apache-2.0

// The ends that a host can open.
#include "tools/mdxtap/host_end.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace mdxtap {
namespace {

constexpr size_t kReadSize = 4096;

bool is_socket(const std::string& path) {
  struct stat there {};
  return lstat(path.c_str(), &there) != 0 || S_ISSOCK(there.st_mode);
}

}  // namespace

void TerminalEnd::plug(const mdxline::Access& access) {
  pty_.allow(access);
  pty_.plug();
}

SocketEnd::SocketEnd(std::string path) : path_(std::move(path)) {
  if (path_.size() >= sizeof sockaddr_un{}.sun_path)
    throw std::runtime_error(path_ + " is too long");
  if (!is_socket(path_)) throw std::runtime_error(path_ + " is no socket; not touching it");
}

// Its rights are there before anybody can connect.
void SocketEnd::plug(const mdxline::Access& access) {
  if (!is_socket(path_)) throw std::runtime_error(path_ + " is no socket; not touching it");
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path_.data(), path_.size());
  unlink(path_.c_str());
  listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const bool bound = listener_ >= 0 && bind(listener_, reinterpret_cast<const sockaddr*>(&address),
                                            sizeof address) == 0;
  if (!bound) throw std::system_error(errno, std::generic_category(), "cannot listen on " + path_);
  const bool given = chown(path_.c_str(), access.owner, access.group) == 0 ||
                     chown(path_.c_str(), static_cast<uid_t>(-1), access.group) == 0;
  const mode_t mode = access.mode & (given ? 0777U : 0700U);
  if (chmod(path_.c_str(), mode) != 0 || listen(listener_, 1) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot listen on " + path_);
  }
}

void SocketEnd::unplug() {
  hang_up();
  if (listener_ < 0) return;
  close(std::exchange(listener_, -1));
  unlink(path_.c_str());
}

void SocketEnd::hang_up() {
  if (connection_ >= 0) close(std::exchange(connection_, -1));
}

void SocketEnd::take_changes() {
  while (listener_ >= 0) {
    const int fd = accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) return;
    if (connection_ < 0) {
      connection_ = fd;
    } else {
      close(fd);
    }
  }
}

std::string SocketEnd::read() {
  std::string bytes(kReadSize, '\0');
  const ssize_t length = ::read(connection_, bytes.data(), bytes.size());
  if (length == 0 || (length < 0 && errno != EAGAIN && errno != EINTR)) hang_up();
  bytes.resize(length > 0 ? static_cast<size_t>(length) : 0);
  return bytes;
}

size_t SocketEnd::write(std::string_view bytes) {
  const ssize_t length = send(connection_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  if (length < 0 && errno != EAGAIN && errno != EINTR) hang_up();
  return length > 0 ? static_cast<size_t>(length) : 0;
}

}  // namespace mdxtap
