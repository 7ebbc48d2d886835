// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tools/mdxtap/masker.h"
#include "tools/mdxtap/record_file.h"

namespace mdxtap {

/// Writes down what passes, as a session file: each read a line, in front of it a remark with the
/// seconds since the recorder was made. See docs/man/mdxtap.1.scd for the remarks.
///
/// Who records never waits: masking and disk have a thread of their own. What passed is in the file
/// half a second later and on the disk within a second. What the disk does not take is counted and
/// told in the file, when it takes some again, and on standard error.
class Recorder {
 public:
  struct Options {
    RecordFileOptions file;
    std::optional<StandIn> stand_in;  ///< none: everything is recorded as it is
  };

  /// Throws std::system_error when the file can't be made.
  explicit Recorder(Options options);

  /// Writes what is left, masking a line that has not ended.
  ~Recorder();

  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  void passed(bool from_host, std::string_view bytes);

  /// Something that happened; one line of text.
  void happened(std::string_view what);

  /// Likewise, and with it a data connection has ended.
  void hung_up(std::string_view what);

  /// Ends the recording as the destructor does.
  void finish();

  /// What it has written, after `finish`.
  [[nodiscard]] const RecordFile& file() const { return file_; }

  /// Bytes that passed and were not recorded, after `finish`.
  [[nodiscard]] uint64_t missing() const { return missing_; }

  /// Whether the disk may have lost what it had taken, after `finish`.
  [[nodiscard]] bool unsafe() const { return unsafe_; }

 private:
  using Clock = std::chrono::steady_clock;
  enum class Kind { kHost, kModem, kRemark, kHangUp };

  struct Entry {
    Clock::time_point at;
    Kind kind;
    std::string bytes;
    std::string masked;  ///< the beginning of `bytes`, as it is to be recorded
  };

  void put(Kind kind, std::string_view bytes);
  void run();
  void take(Entry entry);
  void hang_up();
  void deal_out(Kind kind, std::string_view masked);
  void release_old(Clock::time_point now);
  void write_ready();
  void store(const std::string& lines, size_t bytes);
  void lose(size_t bytes);
  void sync();
  [[nodiscard]] std::string line_of(const Entry& entry);

  Clock::time_point start_ = Clock::now();
  RecordFile file_;
  std::optional<Masker> masker_;

  std::mutex lock_;  // of the three below
  std::condition_variable news_;
  std::vector<Entry> arrived_;
  size_t waiting_ = 0;  // bytes in it
  size_t dropped_ = 0;  // bytes for which there was no room
  bool ends_ = false;

  // The thread's own.
  std::deque<Entry> held_;             // in their order; the first is not masked to its end
  size_t gone_ = 0;                    // entries that were in it before
  std::array<size_t, 2> masked_to_{};  // for host and modem: no entry before this one needs more
  Clock::time_point last_[2];          // when the modem, the host was last heard
  std::string told_time_;
  size_t lost_ = 0;  // bytes since the disk last took any
  uint64_t missing_ = 0;
  bool unsafe_ = false;
  bool told_slow_ = false;
  int told_error_ = 0;
  std::thread thread_;
};

}  // namespace mdxtap
