// SPDX-License-Identifier: Apache-2.0

// Turns what passes into the lines of a session file.
//
// Reads are recorded one by one and in their order, but masked line by line: a read waits here
// until the line that it is part of has ended, or for so long that the line is taken for broken.
#include "tools/mdxtap/recorder.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "tools/line/escape.h"

namespace mdxtap {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kBatch{200};      // that is written at once
constexpr milliseconds kLineTime{250};   // that a line may pause
constexpr milliseconds kWholeLine{600};  // that it may take to its end
constexpr milliseconds kSyncEvery{300};
constexpr size_t kMostAtOnce = 8U << 10U;  // that go into one file
constexpr size_t kMostWaiting = 16U << 20U;

}  // namespace

Recorder::Recorder(Options options) : file_(options.file) {
  if (options.stand_in) masker_.emplace(*options.stand_in);
  const int error = file_.open();
  if (error == EEXIST) throw std::runtime_error(options.file.path + " is no file; not touching it");
  if (error != 0) {
    throw std::system_error(error, std::generic_category(),
                            "cannot record to " + options.file.path);
  }
  thread_ = std::thread(&Recorder::run, this);
}

Recorder::~Recorder() { finish(); }

void Recorder::finish() {
  {
    const std::lock_guard guard(lock_);
    ends_ = true;
  }
  news_.notify_one();
  if (thread_.joinable()) thread_.join();
}

void Recorder::passed(bool from_host, std::string_view bytes) {
  put(from_host ? Kind::kHost : Kind::kModem, bytes);
}

void Recorder::happened(std::string_view what) { put(Kind::kRemark, what); }

void Recorder::hung_up(std::string_view what) { put(Kind::kHangUp, what); }

void Recorder::put(Kind kind, std::string_view bytes) {
  bool first = false;
  {
    const std::lock_guard guard(lock_);
    if (waiting_ + bytes.size() > kMostWaiting) {
      dropped_ += bytes.size();
      return;
    }
    first = arrived_.empty();
    waiting_ += bytes.size();
    arrived_.push_back({Clock::now(), kind, std::string(bytes), {}});
  }
  if (first) news_.notify_one();
}

void Recorder::run() {
  Clock::time_point synced = Clock::now();
  for (bool last = false; !last;) {
    std::vector<Entry> arrived;
    size_t dropped = 0;
    {
      std::unique_lock guard(lock_);
      if (held_.empty()) news_.wait(guard, [this] { return ends_ || !arrived_.empty(); });
      news_.wait_for(guard, kBatch, [this] { return ends_; });
      last = ends_;
      arrived.swap(arrived_);
      waiting_ = 0;
      dropped = std::exchange(dropped_, 0);
    }
    lose(dropped);
    for (Entry& entry : arrived) take(std::move(entry));
    release_old(last ? Clock::time_point::max() : Clock::now());
    write_ready();
    if (last && lost_ > 0) store("", 0);
    const auto now = Clock::now();
    if (!last && held_.empty() && now - synced < kSyncEvery) {
      std::unique_lock guard(lock_);
      news_.wait_for(guard, kSyncEvery - (now - synced), [this] { return ends_; });
    }
    sync();
    synced = Clock::now();
  }
}

void Recorder::take(Entry entry) {
  const Kind kind = entry.kind;
  const bool passed = kind == Kind::kHost || kind == Kind::kModem;
  if (passed) last_[kind == Kind::kHost] = entry.at;
  held_.push_back(std::move(entry));
  const std::string& bytes = held_.back().bytes;
  if (!masker_ || !passed) {
    held_.back().masked = bytes;
    if (masker_ && kind == Kind::kHangUp) hang_up();
  } else {
    deal_out(kind, kind == Kind::kHost ? masker_->from_host(bytes) : masker_->from_modem(bytes));
  }
}

void Recorder::hang_up() {
  deal_out(Kind::kHost, masker_->release_host());
  deal_out(Kind::kModem, masker_->release_modem());
  masker_->hung_up();
}

// To the reads that the bytes came in. Begins where the last one ended: thousands may be held.
void Recorder::deal_out(Kind kind, std::string_view masked) {
  size_t& number = masked_to_[kind == Kind::kHost ? 0 : 1];
  for (number = std::max(number, gone_); !masked.empty() && number < gone_ + held_.size();
       ++number) {
    Entry& entry = held_[number - gone_];
    if (entry.kind != kind) continue;
    const size_t count = std::min(entry.bytes.size() - entry.masked.size(), masked.size());
    entry.masked.append(masked, 0, count);
    masked.remove_prefix(count);
    if (entry.masked.size() < entry.bytes.size()) return;
  }
}

void Recorder::release_old(Clock::time_point now) {
  if (!masker_) return;
  for (const Entry& entry : held_) {
    if (entry.masked.size() == entry.bytes.size()) continue;
    const Kind kind = entry.kind;
    const bool goes_on = now - last_[kind == Kind::kHost] < kLineTime;
    if (now != Clock::time_point::max() && goes_on && now - entry.at < kWholeLine) return;
    deal_out(kind, kind == Kind::kHost ? masker_->release_host() : masker_->release_modem());
  }
}

void Recorder::write_ready() {
  std::string lines;
  size_t bytes = 0;
  while (!held_.empty() && held_.front().masked.size() == held_.front().bytes.size()) {
    lines += line_of(held_.front());
    bytes += held_.front().bytes.size();
    held_.pop_front();
    ++gone_;
    if (lines.size() < kMostAtOnce) continue;
    store(lines, bytes);
    lines.clear();
    bytes = 0;
  }
  if (!lines.empty()) store(lines, bytes);
}

// A time once for all that came in the same millisecond.
std::string Recorder::line_of(const Entry& entry) {
  const auto passed = std::chrono::duration_cast<milliseconds>(entry.at - start_).count();
  std::array<char, 40> time{};
  std::snprintf(time.data(), time.size(), "# at %lld.%03lld", static_cast<long long>(passed / 1000),
                static_cast<long long>(passed % 1000));
  if (entry.kind == Kind::kRemark || entry.kind == Kind::kHangUp) {
    told_time_ = time.data();
    return told_time_ + ": " + entry.masked + "\n";
  }
  const bool told = std::exchange(told_time_, time.data()) == time.data();
  return (told ? "" : told_time_ + "\n") + (entry.kind == Kind::kHost ? "> " : "< ") +
         mdxline::escape(entry.masked) + "\n";
}

void Recorder::store(const std::string& lines, size_t bytes) {
  const std::string gap =
      lost_ == 0 ? "" : "# " + std::to_string(lost_) + " bytes are missing here\n";
  const int error = file_.append(gap + lines);
  if (error != std::exchange(told_error_, error)) {
    std::cerr << "mdxtap: " << (error != 0 ? "not recording: " : "recording again")
              << (error != 0 ? std::strerror(error) : "") << '\n';
  }
  lost_ = error != 0 ? lost_ + bytes : 0;
  if (error == 0) return;
  missing_ += bytes;
  told_time_.clear();
}

// For which there was no room. Said once until there is room again.
void Recorder::lose(size_t bytes) {
  lost_ += bytes;
  missing_ += bytes;
  if (bytes > 0 && !told_slow_) std::cerr << "mdxtap: not recording: the disk is too slow\n";
  told_slow_ = bytes > 0;
}

void Recorder::sync() {
  const int error = file_.sync();
  if (error == 0) return;
  if (!unsafe_)
    std::cerr << "mdxtap: the disk may have lost the last second: " << std::strerror(error) << '\n';
  unsafe_ = true;
}

}  // namespace mdxtap
