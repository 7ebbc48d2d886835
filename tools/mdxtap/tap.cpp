// SPDX-License-Identifier: Apache-2.0

// The loop between modem and host.
//
// Each side is read only when the other one has taken what was read before: so a side that does not
// read is felt at the other end, and nothing is kept that could be lost.
#include "tools/mdxtap/tap.h"

#include <poll.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <system_error>
#include <utility>

namespace mdxtap {
namespace {

constexpr std::chrono::milliseconds kLookAgain{200};
constexpr size_t kReadSize = 4096;

// Who may open the modem may open what stands for it.
mdxline::Access access_of(const std::string& path) {
  struct stat there {};
  if (stat(path.c_str(), &there) != 0) return {0600};
  return {there.st_mode & 0777U, there.st_uid, there.st_gid};
}

}  // namespace

Tap::Tap(ModemEnd& modem, HostEnd& host, Recorder& recorder, int signal_fd)
    : modem_(modem), host_(host), recorder_(recorder), signal_fd_(signal_fd) {
  look_again_ = Clock::now();
}

void Tap::tell(const std::string& what) { std::cerr << "mdxtap: " << what << '\n'; }

void Tap::run() {
  if (modem_.is_open()) look_for_modem();
  while (true) {
    const short modem_events =
        static_cast<short>((for_host_.empty() ? POLLIN : 0) | (for_modem_.empty() ? 0 : POLLOUT));
    const short host_events =
        static_cast<short>((for_modem_.empty() ? POLLIN : 0) | (for_host_.empty() ? 0 : POLLOUT));
    const bool there = modem_.is_open();
    std::array<pollfd, 4> fds{{{signal_fd_, POLLIN, 0},
                               {there ? host_.change_fd() : -1, POLLIN, 0},
                               {modem_.fd(), modem_events, 0},
                               {there && host_events != 0 ? host_.data_fd() : -1, host_events, 0}}};
    if (poll(fds.data(), fds.size(), wait_ms()) < 0 && errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "cannot wait");
    }
    if (fds[0].revents != 0) return;
    if (look_again_ && Clock::now() >= *look_again_) look_for_modem();
    if (fds[1].revents != 0) note_changes();
    if ((fds[2].revents & ~POLLOUT) != 0) from_modem();
    if (!for_modem_.empty() && modem_.is_open()) to_modem();
    if (!for_host_.empty()) to_host();
    if ((fds[3].revents & ~POLLOUT) != 0 && for_modem_.empty() && modem_.is_open()) from_host();
  }
}

int Tap::wait_ms() const {
  if (!look_again_) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*look_again_ - Clock::now());
  return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

void Tap::look_for_modem() {
  const int error = modem_.is_open() ? 0 : modem_.open();
  if (error != 0) {
    look_again_ = Clock::now() + kLookAgain;
    if (error != std::exchange(told_error_, error)) {
      tell("waiting for " + modem_.path() + ": " + std::strerror(error));
    }
    return;
  }
  look_again_.reset();
  told_error_ = 0;
  attached_ = false;
  modem_.set_ready(false);
  host_.plug(access_of(modem_.path()));
  recorder_.happened("the modem is there");
  tell(modem_.path() + " is there, as " + host_.name());
}

void Tap::lose_modem() {
  modem_.close();
  host_.unplug();
  attached_ = false;
  for_host_.clear();
  for_modem_.clear();
  recorder_.hung_up("the modem is gone");
  look_again_ = Clock::now() + kLookAgain;
}

void Tap::note_changes() {
  host_.take_changes();
  if (host_.attached() == attached_) return;
  attached_ = host_.attached();
  if (attached_) {
    recorder_.happened("the host opened the device");
  } else {
    recorder_.hung_up("the host closed the device");
    for_host_.clear();
  }
  follow_settings();
  modem_.set_ready(attached_);
}

void Tap::follow_settings() {
  const std::optional<termios> settings = host_.settings();
  if (settings) modem_.set_line(*settings);
}

void Tap::from_modem() {
  std::array<char, kReadSize> buffer;
  const ssize_t size = modem_.read(buffer.data(), buffer.size());
  if (size < 0) return lose_modem();
  if (size == 0) return;
  const std::string_view bytes(buffer.data(), static_cast<size_t>(size));
  if (!attached_) note_changes();
  if (attached_) {  // a modem that has gone may be read while the host has not taken all yet
    const size_t taken = for_host_.empty() ? host_.write(bytes) : 0;
    for_host_ += bytes.substr(taken);
  }
  modem_bytes_ += bytes.size();
  recorder_.passed(false, bytes);
}

void Tap::from_host() {
  const std::string bytes = host_.read();
  if (host_.attached() != attached_) note_changes();
  if (bytes.empty()) return;
  follow_settings();
  const ssize_t taken = modem_.write(bytes);
  host_bytes_ += bytes.size();
  recorder_.passed(true, bytes);
  if (taken < 0) return lose_modem();
  for_modem_ = bytes.substr(static_cast<size_t>(taken));
}

void Tap::to_host() {
  if (attached_) for_host_.erase(0, host_.write(for_host_));
  if (host_.attached() != attached_) note_changes();
}

void Tap::to_modem() {
  const ssize_t taken = modem_.write(for_modem_);
  if (taken < 0) return lose_modem();
  for_modem_.erase(0, static_cast<size_t>(taken));
}

}  // namespace mdxtap
