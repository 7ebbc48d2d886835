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
constexpr const char* kFresh = ".new";

void refuse_other_things(const std::string& path) {
  struct stat there {};
  if (lstat(path.c_str(), &there) == 0 && !S_ISSOCK(there.st_mode))
    throw std::runtime_error(path + " is no socket; not touching it");
}

[[noreturn]] void cannot_listen(const std::string& path) {
  throw std::system_error(errno, std::generic_category(), "cannot listen on " + path);
}

int listen_on(const std::string& path, const mdxline::Access& access) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), path.size());
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    const bool given = chown(path.c_str(), access.owner, access.group) == 0 ||
                       chown(path.c_str(), static_cast<uid_t>(-1), access.group) == 0;
    const mode_t mode = access.mode & (given ? 0777U : 0700U);
    if (chmod(path.c_str(), mode) == 0 && listen(fd, 1) == 0) return fd;
  }
  close(fd);
  return -1;
}

}  // namespace

void TerminalEnd::plug(const mdxline::Access& access) {
  pty_.allow(access);
  pty_.plug();
}

SocketEnd::SocketEnd(std::string path) : path_(std::move(path)) {
  if (path_.size() + std::strlen(kFresh) >= sizeof sockaddr_un{}.sun_path)
    throw std::runtime_error(path_ + " is too long");
  refuse_other_things(path_);
}

// Whoever sees it can connect, if its rights let him.
void SocketEnd::plug(const mdxline::Access& access) {
  const std::string fresh = path_ + kFresh;
  for (const std::string& path : {path_, fresh}) refuse_other_things(path);
  unlink(fresh.c_str());
  listener_ = listen_on(fresh, access);
  if (listener_ < 0 || rename(fresh.c_str(), path_.c_str()) != 0) cannot_listen(path_);
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
