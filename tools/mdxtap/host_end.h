// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tools/line/pty.h"

namespace mdxtap {

/// Where the host finds the modem: a terminal or a socket, which is there while the modem is.
class HostEnd {
 public:
  virtual ~HostEnd() = default;

  /// Makes it reachable, for those who may open the modem's device.
  virtual void plug(const mdxline::Access& access) = 0;

  /// Takes it away; the host sees a hang-up. What it has not read is lost.
  virtual void unplug() = 0;

  /// To poll for POLLIN: who opens or closes it. Then call `take_changes`. -1 for none.
  [[nodiscard]] virtual int change_fd() const = 0;
  virtual void take_changes() = 0;
  [[nodiscard]] virtual bool attached() const = 0;

  /// To poll for bytes of the host and for room. -1 for none.
  [[nodiscard]] virtual int data_fd() const = 0;

  /// Empty when there are none.
  virtual std::string read() = 0;

  /// Without waiting. @return how much went
  virtual size_t write(std::string_view bytes) = 0;

  /// What the host has set, where it can.
  [[nodiscard]] virtual std::optional<termios> settings() const { return std::nullopt; }

  [[nodiscard]] virtual std::string name() const = 0;
};

/// A pseudo terminal with a link to it.
class TerminalEnd final : public HostEnd {
 public:
  explicit TerminalEnd(const std::string& link) : link_(link), pty_(link, {false, false}) {}

  void plug(const mdxline::Access& access) override;
  void unplug() override { pty_.unplug(); }
  [[nodiscard]] int change_fd() const override { return pty_.change_fd(); }
  void take_changes() override { pty_.take_changes(); }
  [[nodiscard]] bool attached() const override { return pty_.attached(); }
  [[nodiscard]] int data_fd() const override { return pty_.data_fd(); }
  std::string read() override { return pty_.read(); }
  size_t write(std::string_view bytes) override { return pty_.write(bytes); }
  [[nodiscard]] std::optional<termios> settings() const override { return pty_.settings(); }
  [[nodiscard]] std::string name() const override { return link_ + ", which is " + pty_.node(); }

 private:
  std::string link_;
  mdxline::Pty pty_;
};

/// A Unix stream socket, which serves one connection; another one is closed at once.
class SocketEnd final : public HostEnd {
 public:
  /// Throws std::runtime_error when there is something that is no socket at `path`.
  explicit SocketEnd(std::string path);
  ~SocketEnd() override { unplug(); }

  void plug(const mdxline::Access& access) override;
  void unplug() override;
  [[nodiscard]] int change_fd() const override { return listener_; }
  void take_changes() override;
  [[nodiscard]] bool attached() const override { return connection_ >= 0; }
  [[nodiscard]] int data_fd() const override { return connection_; }
  std::string read() override;
  size_t write(std::string_view bytes) override;
  [[nodiscard]] std::string name() const override { return path_; }

 private:
  void hang_up();

  std::string path_;
  int listener_ = -1;
  int connection_ = -1;
};

}  // namespace mdxtap
