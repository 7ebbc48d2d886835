// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "tools/mdxtap/mask_table.h"
#include "tools/mdxtap/stand_in.h"

namespace mdxtap {

/// Puts stand-ins into a conversation, line by line.
///
/// A line without a name is understood by what stands around it: the command that it answers, the
/// heading in front of it. What can't be understood is masked as text rather than shown. Masked
/// lines have the length of the lines, and their control characters.
class LineMask {
 public:
  explicit LineMask(StandIn stand_in) : stand_in_(stand_in) {}

  /// What the host sent up to a CR, a Ctrl-Z or an ESC (`end`), which is not part of it.
  std::string host_line(std::string_view line, char end);

  /// What the modem sent up to a CR or LF, which is not part of it.
  std::string modem_line(std::string_view line);

  /// A prompt that has come without the blank behind it, so far.
  void prompt_began();

  /// The line was let go of; a data connection ends with that.
  void hung_up() { data_ = false; }

  /// A line that stopped in the middle: all but the name at its front is masked. Nothing is learnt
  /// from it.
  [[nodiscard]] std::string part_of_host_line(std::string_view line) const;
  [[nodiscard]] std::string part_of_modem_line(std::string_view line) const;

 private:
  enum class Body { kNone, kPdu, kBroadcast, kText, kUssd };

  /// What a command line asks for.
  struct Asked {
    const MaskRow* message = nullptr;
    bool in_pdu_mode = false;
    bool nameless = false;  ///< an answer may come without a name
    std::vector<std::string> names;
  };
  struct Sent {
    std::string line;
    std::string shown;
  };

  std::string command_line(std::string_view line, Asked* asked) const;
  size_t basic_commands(std::string& line, size_t at, Asked* asked) const;
  size_t named_command(std::string& line, size_t at, Asked* asked) const;
  std::string command(std::string_view line);
  std::string host_body(std::string_view line) const;
  void sent(std::string_view line, std::string_view shown);
  bool take_echo(std::string_view line, std::string& shown);
  bool take_damaged_echo(std::string_view line, std::string& shown) const;
  std::string without_sent_words(std::string_view line) const;
  bool take_result(std::string_view line, std::string& shown);
  std::string answer_line(std::string_view line);
  std::string line_in_text(std::string_view line);
  std::string named_line(std::string_view line, std::string_view name);
  std::string nameless_line(std::string_view line);
  std::string body_line(std::string_view line) const;
  std::string pdu_line(std::string_view line, bool from_host) const;
  std::string ussd_rest(std::string_view line);
  void open_body(const MaskRow& row, std::string_view parameters);
  [[nodiscard]] bool in_text() const;
  [[nodiscard]] bool is_asked(std::string_view name) const;

  StandIn stand_in_;
  bool data_ = false;       // between CONNECT and NO CARRIER or +++
  bool in_flight_ = false;  // a command waits for its result
  Asked asked_;             // by it
  bool identity_asked_ = false;
  bool imsi_asked_ = false;
  bool host_writes_ = false;      // a message, which has not come to its end
  Body host_body_ = Body::kNone;  // of the message that the command in flight sends
  bool prompted_ = false;
  Body modem_body_ = Body::kNone;  // of the message whose heading came
  bool answers_ = false;           // the message is asked for
  bool sent_since_ = false;        // a command, since the heading
  size_t empty_lines_ = 0;         // in a row, of the modem
  std::deque<Sent> sent_;          // by the host, the last ones
};

}  // namespace mdxtap
