// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

namespace mdxtap {

struct RecordFileOptions {
  std::string path;
  std::string head;       ///< lines that each file begins with
  uint64_t max_size = 0;  ///< bytes of one file, 0 for no limit
  int keep = 0;           ///< files that stay beside it, as PATH.1, PATH.2, ...
};

/// The file of a recording, and those before it. Readable by its owner alone.
///
/// All functions return 0 or an errno value. A disk that is full leaves whole lines: what did not
/// fit is not there at all, and the head comes with the first of them that do.
class RecordFile {
 public:
  explicit RecordFile(RecordFileOptions options) : options_(std::move(options)) {}
  ~RecordFile();

  RecordFile(const RecordFile&) = delete;
  RecordFile& operator=(const RecordFile&) = delete;

  /// A file that is there already becomes PATH.1, unless nothing was recorded in it.
  int open();

  /// Whole lines; begins a new file first when these do not fit any more, or when somebody has
  /// removed the file.
  int append(std::string_view lines);

  /// What was appended is on the disk when this returns.
  int sync();

  /// Files of this run that are there beside PATH, as PATH.1 to PATH.N.
  [[nodiscard]] int beside() const { return std::min(turned_, options_.keep); }

  /// Files of this run that are not there any more.
  [[nodiscard]] int gone() const { return turned_ - beside() + removed_; }

 private:
  int create();
  int turn();
  int write_all(std::string_view bytes);
  [[nodiscard]] bool is_removed() const;

  RecordFileOptions options_;
  int fd_ = -1;
  uint64_t size_ = 0;
  int turned_ = 0;   // files of this run that were given a number
  int removed_ = 0;  // by somebody else
  bool dirty_ = false;
};

}  // namespace mdxtap
