// SPDX-License-Identifier: Apache-2.0

// What waits for the broker. A message stays until the broker has confirmed it, and goes out again
// on the next connection otherwise. Where too many wait the oldest goes, and the next one says how
// many went.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

namespace mdxbridge {

struct message_t {
  std::string topic;
  std::string text;  ///< one JSON object; empty: it takes a retained message back
  bool retain = false;
  std::string correlation = {};  ///< of an answer; empty: none
  uint64_t dropped = 0;          ///< so many went that stood in front of it
};

/// Messages of one kind, in their order.
class lane_t {
 public:
  /// @param room        for messages that wait; those on their way to the broker come on top
  /// @param most_tries  a message that was under way when so many connections ended goes, as it may
  ///                    be what ends them; 0: all stay
  explicit lane_t(size_t room, int most_tries = 0) : room_(room), most_tries_(most_tries) {}

  void add(message_t message);

  /// The next to be sent, null when there is none.
  const message_t* next() const;
  /// The message that `next` shows was sent, under this number.
  void sent(int mid);
  /// The message that `next` shows can never be sent: it is dropped, and the one behind it says so.
  void drop_next() { drop(sent_); }
  /// @return false when none of these was sent under this number
  bool confirmed(int mid);
  /// The connection is gone: what was not confirmed is to be sent again.
  void rewind();
  void clear();

  bool empty() const { return messages_.empty(); }
  size_t size() const { return messages_.size(); }
  size_t on_their_way() const { return sent_; }
  uint64_t dropped() const { return dropped_; }

 private:
  struct entry_t {
    message_t message;
    int mid = 0;
    int tries = 0;
  };

  void drop(size_t index);

  size_t room_;
  int most_tries_;
  std::deque<entry_t> messages_;
  size_t sent_ = 0;       ///< so many in front are on their way
  uint64_t untold_ = 0;   ///< went, and no message behind them could say so yet
  uint64_t dropped_ = 0;  ///< ever
};

/// The text of a message, with "dropped" in it where some went.
std::string text_of(const message_t& message);

/// `{"a":1}` and `"b":2` become `{"b":2,"a":1}`.
std::string with_member(std::string object, const std::string& member);

}  // namespace mdxbridge
