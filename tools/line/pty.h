// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/types.h>
#include <termios.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace mdxline {

/// Who may open a terminal, and whom it belongs to: -1 leaves that as it is.
struct Access {
  mode_t mode = 0666;
  uid_t owner = static_cast<uid_t>(-1);
  gid_t group = static_cast<gid_t>(-1);
};

/// A pseudo terminal with a symbolic link to it: the device that the host opens.
///
/// The terminal is raw from the start, so what is said before the host sets it up comes through and
/// is not echoed. Unless told otherwise its node has mode 0666, since a host may run as any user.
/// All functions throw std::system_error or std::runtime_error when the system refuses.
class Pty {
 public:
  struct Options {
    bool plugged = true;      ///< with a link from the start
    bool tells_reads = true;  ///< `change_fd` tells of them, too
  };

  /// Makes terminal and link. A symbolic link at `link` is replaced, anything else there is
  /// refused.
  explicit Pty(std::string link) : Pty(std::move(link), Options{}) {}
  Pty(std::string link, Options options);

  /// As `unplug`.
  ~Pty();

  Pty(const Pty&) = delete;
  Pty& operator=(const Pty&) = delete;

  /// Removes the link if it still leads here, and the terminal behind it: the host sees a hang-up.
  void unplug();

  /// Makes the link again, to a terminal with another number.
  void plug();

  /// For this terminal and those to come. Where its owner or group can't be given away, the mode
  /// loses what it allows them.
  void allow(const Access& access);

  /// What the host has set; the speed, among others.
  [[nodiscard]] termios settings() const;

  [[nodiscard]] bool plugged() const { return plugged_; }

  /// To poll for POLLIN: bytes of the host. This one and the next change with `unplug`.
  [[nodiscard]] int data_fd() const { return master_; }

  /// To poll for POLLIN: the host opened, closed or read the device. Then call `take_changes`.
  [[nodiscard]] int change_fd() const { return watch_; }

  /// Takes note of openings, closings and reads. True when the last host has gone without having
  /// read all that was written.
  ///
  /// When the last host has gone, what it left unread is dropped, the terminal is raw again and no
  /// longer exclusive: a device that is opened next is as new. Two hosts that open or close it in
  /// the same instant may count as one.
  bool take_changes();

  /// Whether a host has the device open.
  [[nodiscard]] bool attached() const { return openings_ > 0; }

  /// The bytes of the host that are there, at most a buffer; empty when none are.
  std::string read();

  /// Writes without waiting and returns how much went.
  size_t write(std::string_view bytes);

  /// Whether the host has read all that was written.
  [[nodiscard]] bool host_has_read_all() const;

  [[nodiscard]] const std::string& node() const { return node_; }

 private:
  void open_terminal();
  void apply_access() const;
  void make_link() const;
  void remove_link() const;
  void reset_line() const;

  std::string link_;
  Options options_;
  Access access_;
  std::string node_;
  int master_ = -1;
  int slave_ = -1;
  int watch_ = -1;
  int openings_ = 0;
  bool plugged_ = true;
};

}  // namespace mdxline
