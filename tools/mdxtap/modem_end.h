// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/types.h>
#include <termios.h>

#include <string>
#include <string_view>

namespace mdxtap {

/// The modem's device: a terminal, or a Unix stream socket.
class ModemEnd {
 public:
  explicit ModemEnd(std::string path) : path_(std::move(path)) {}
  ~ModemEnd() { close(); }

  ModemEnd(const ModemEnd&) = delete;
  ModemEnd& operator=(const ModemEnd&) = delete;

  /// Opens it raw, for nobody else: who honours locks, and who is not root, can't open it
  /// meanwhile.
  /// @return 0 or an errno value: EBUSY when another program has it, ENOTTY when it is no such
  /// device
  int open();
  void close();
  [[nodiscard]] bool is_open() const { return fd_ >= 0; }

  /// To poll.
  [[nodiscard]] int fd() const { return fd_; }

  /// At most `size` bytes. @return how many, 0 when there are none, -1 when the device is gone
  ssize_t read(char* buffer, size_t size);
  ssize_t write(std::string_view bytes);

  /// Speed, character size, parity, stop bits, flow control and whether the carrier counts, as the
  /// host has set them. Nothing where the device has no such thing.
  void set_line(const termios& wanted);

  /// The line that tells the modem that its host is there (DTR, with RTS). Nothing without such
  /// lines.
  void set_ready(bool ready);

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  int connect_socket();
  int open_terminal();

  std::string path_;
  int fd_ = -1;
  bool is_terminal_ = false;
  termios line_{};
};

}  // namespace mdxtap
