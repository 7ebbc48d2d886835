// SPDX-License-Identifier: Apache-2.0

// Carries bytes between a modem and its terminal.
#include "tools/mdxsim/simulator.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iostream>
#include <system_error>

#include "tools/line/escape.h"

namespace mdxsim {
namespace {

// A read by the host wakes us; this is for a kernel that does not tell.
constexpr int kLookAgainMs = 20;
constexpr Time kLastReadPatience{5000};

}  // namespace

Simulator::Simulator(Modem& modem, Pty& pty, Cutter cutter, int signal_fd, bool log)
    : modem_(modem),
      pty_(pty),
      cutter_(std::move(cutter)),
      signal_fd_(signal_fd),
      log_(log),
      start_(std::chrono::steady_clock::now()) {}

Time Simulator::now() const {
  return std::chrono::duration_cast<Time>(std::chrono::steady_clock::now() - start_);
}

std::optional<Ending> Simulator::run() {
  while (true) {
    note_changes();
    modem_.advance(now());
    follow_plug();
    while (write_next_piece()) {
    }
    if (end_unread_) return Ending{false, "the host did not read the end"};
    if (done()) return modem_.ending();

    const short wanted = modem_.accepts_input() ? POLLIN : short{0};
    std::array<pollfd, 3> fds{
        {{signal_fd_, POLLIN, 0}, {pty_.change_fd(), POLLIN, 0}, {pty_.data_fd(), wanted, 0}}};
    if (poll(fds.data(), fds.size(), wait_ms()) < 0 && errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "cannot wait for the terminal");
    }
    if (fds[0].revents != 0) return std::nullopt;
    note_changes();
    if ((fds[2].revents & POLLIN) != 0) take_input();
  }
}

void Simulator::note_changes() {
  const bool was_attached = pty_.attached();
  const bool unread = pty_.take_changes();
  if (pty_.attached() == was_attached) return;
  if (pty_.attached()) return modem_.attached(now());
  const auto ending = modem_.ending();
  end_unread_ = ending && ending->to_be_read && (unread || !pieces_.empty());
  pieces_.clear();
  modem_.detached(now());
}

// What was on its way when the device was unplugged is lost.
void Simulator::follow_plug() {
  if (modem_.plugged() == pty_.plugged()) return;
  const bool was_attached = pty_.attached();
  if (modem_.plugged()) {
    pty_.plug();
  } else {
    pty_.unplug();
    pieces_.clear();
    if (was_attached) modem_.detached(now());
  }
  if (log_) std::cerr << (pty_.plugged() ? "# plugged in: " + pty_.node() : "# unplugged") << '\n';
}

void Simulator::take_input() {
  const std::string bytes = pty_.read();
  if (bytes.empty()) return;
  if (log_) std::cerr << "> " << escape(bytes) << '\n';
  modem_.receive(bytes, now());
}

// True when one was written and the next may be, too.
bool Simulator::write_next_piece() {
  if (!pty_.attached() || !pty_.host_has_read_all()) return false;
  if (pieces_.empty()) {
    const std::string delivery = modem_.transmit(now());
    if (delivery.empty()) return false;
    if (log_) std::cerr << "< " << escape(delivery) << '\n';
    for (const std::string_view piece : cutter_.cut(delivery)) pieces_.emplace_back(piece);
  }
  const size_t written = pty_.write(pieces_.front());
  pieces_.front().erase(0, written);
  if (pieces_.front().empty()) pieces_.pop_front();
  return written > 0;
}

// What was said last is still to be heard; a host that has gone hears nothing.
bool Simulator::done() {
  const auto ending = modem_.ending();
  if (!ending) return false;
  if (!ended_) ended_ = now();
  if (!ending->as_expected || !pty_.attached()) return true;
  if (pieces_.empty() && pty_.host_has_read_all()) return true;
  const bool waited = now() - *ended_ > kLastReadPatience;
  end_unread_ = waited && ending->to_be_read;
  return waited && !end_unread_;
}

int Simulator::wait_ms() const {
  if (!pieces_.empty() || modem_.ending()) return kLookAgainMs;
  const std::optional<Time> due = modem_.next_due();
  if (!due) return -1;
  const auto left = (*due - now()).count();
  // Something is due but the host has not read what is there.
  if (left <= 0) return kLookAgainMs;
  return static_cast<int>(std::min<Time::rep>(left, 60000));
}

}  // namespace mdxsim
