// SPDX-License-Identifier: Apache-2.0

// Makes the pseudo terminal that stands for a modem's serial port.
//
// The host's side stays open here as well: only there can be seen whether the host has read what
// was written, and an exclusive lock of a host that was killed can only be lifted through it. The
// price is that the master sees no hang-up, so openings, closings and reads are watched on the node
// itself.
#include "tools/line/pty.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace mdxline {
namespace {

constexpr mode_t kOwnersShare = 0700;
constexpr size_t kReadSize = 4096;

void require(bool done, const std::string& what) {
  if (!done) throw std::system_error(errno, std::generic_category(), what);
}

void close_all(std::initializer_list<int> descriptors) {
  for (const int fd : descriptors) {
    if (fd >= 0) close(fd);
  }
}

std::string link_target(const std::string& path) {
  std::array<char, 256> target{};
  const ssize_t length = readlink(path.c_str(), target.data(), target.size());
  return length > 0 ? std::string(target.data(), static_cast<size_t>(length)) : std::string();
}

}  // namespace

Pty::Pty(std::string link, Options options)
    : link_(std::move(link)), options_(options), plugged_(options.plugged) {
  try {
    open_terminal();
    if (plugged_) make_link();
  } catch (...) {
    close_all({watch_, slave_, master_});
    throw;
  }
}

Pty::~Pty() {
  remove_link();
  close_all({watch_, slave_, master_});
}

// The next terminal is there before this one goes, or it would get the same number.
void Pty::unplug() {
  remove_link();
  const auto gone = {std::exchange(watch_, -1), std::exchange(slave_, -1),
                     std::exchange(master_, -1)};
  openings_ = 0;
  plugged_ = false;
  open_terminal();
  close_all(gone);
}

void Pty::plug() {
  make_link();
  plugged_ = true;
}

void Pty::open_terminal() {
  master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
  require(master_ >= 0, "cannot open a pseudo terminal");
  std::array<char, 128> name{};
  require(grantpt(master_) == 0 && unlockpt(master_) == 0 &&
              ptsname_r(master_, name.data(), name.size()) == 0,
          "cannot set up a pseudo terminal");
  node_ = name.data();
  slave_ = open(node_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  require(slave_ >= 0, "cannot open " + node_);
  apply_access();
  reset_line();
  watch_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  const uint32_t changes = IN_OPEN | IN_CLOSE | (options_.tells_reads ? IN_ACCESS : 0U);
  require(watch_ >= 0 && inotify_add_watch(watch_, node_.c_str(), changes) >= 0,
          "cannot watch " + node_);
}

void Pty::allow(const Access& access) {
  access_ = access;
  apply_access();
}

// Who is not root may still have the group.
void Pty::apply_access() const {
  mode_t mode = access_.mode & 0777U;
  const bool given = fchown(slave_, access_.owner, access_.group) == 0 ||
                     fchown(slave_, static_cast<uid_t>(-1), access_.group) == 0;
  if (!given) mode &= kOwnersShare;
  require(fchmod(slave_, mode) == 0, "cannot open " + node_ + " to others");
}

termios Pty::settings() const {
  termios line{};
  require(tcgetattr(slave_, &line) == 0, "cannot read the settings of " + node_);
  return line;
}

// By way of a second name, so that there is no moment without a link when an old one is replaced.
void Pty::make_link() const {
  struct stat there {};
  if (lstat(link_.c_str(), &there) == 0 && !S_ISLNK(there.st_mode)) {
    throw std::runtime_error(link_ + " is not a symbolic link; not touching it");
  }
  const std::string fresh = link_ + ".new." + std::to_string(getpid());
  require(symlink(node_.c_str(), fresh.c_str()) == 0, "cannot link " + link_);
  if (rename(fresh.c_str(), link_.c_str()) != 0) {
    const int reason = errno;
    unlink(fresh.c_str());
    throw std::system_error(reason, std::generic_category(), "cannot link " + link_);
  }
}

void Pty::remove_link() const {
  if (link_target(link_) == node_) unlink(link_.c_str());
}

void Pty::reset_line() const {
  termios line = settings();
  cfmakeraw(&line);
  line.c_cflag |= CLOCAL | CREAD;
  require(tcsetattr(slave_, TCSANOW, &line) == 0, "cannot set " + node_ + " raw");
}

bool Pty::take_changes() {
  const bool was_attached = attached();
  alignas(inotify_event) std::array<char, 4096> events{};
  ssize_t length = 0;
  while ((length = ::read(watch_, events.data(), events.size())) > 0) {
    for (size_t at = 0; at < static_cast<size_t>(length);) {
      inotify_event event{};
      std::memcpy(&event, events.data() + at, sizeof event);
      if ((event.mask & IN_OPEN) != 0) ++openings_;
      if ((event.mask & IN_CLOSE) != 0 && openings_ > 0) --openings_;
      at += sizeof event + event.len;
    }
  }
  if (!was_attached || attached()) return false;
  const bool unread = !host_has_read_all();
  ioctl(slave_, TIOCNXCL);
  tcflush(slave_, TCIFLUSH);
  reset_line();
  return unread;
}

std::string Pty::read() {
  std::string bytes(kReadSize, '\0');
  const ssize_t length = ::read(master_, bytes.data(), bytes.size());
  require(length >= 0 || errno == EAGAIN || errno == EINTR, "cannot read from the terminal");
  bytes.resize(length > 0 ? static_cast<size_t>(length) : 0);
  return bytes;
}

size_t Pty::write(std::string_view bytes) {
  const ssize_t length = ::write(master_, bytes.data(), bytes.size());
  require(length >= 0 || errno == EAGAIN || errno == EINTR, "cannot write to the terminal");
  return length > 0 ? static_cast<size_t>(length) : 0;
}

// The poll, unlike a count of the waiting bytes, first waits for those under way inside the kernel.
bool Pty::host_has_read_all() const {
  pollfd line{slave_, POLLIN, 0};
  return ::poll(&line, 1, 0) == 0;
}

}  // namespace mdxline
