// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <string_view>

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

  /// A line that stopped in the middle: all but the name at its front is masked. Nothing is learnt
  /// from it.
  [[nodiscard]] std::string part_of_host_line(std::string_view line) const;
  [[nodiscard]] std::string part_of_modem_line(std::string_view line) const;

 private:
  enum class Body { kNone, kPdu, kBroadcast, kText };

  std::string command_line(std::string_view line, const MaskRow** asked, bool* in_pdu_mode) const;
  std::string host_body(std::string_view line) const;
  std::string answer_line(std::string_view line);
  std::string named_line(std::string_view line, std::string_view name);
  std::string nameless_line(std::string_view line);
  std::string body_line(std::string_view line) const;
  std::string pdu_line(std::string_view line, bool from_host) const;
  std::string ussd_rest(std::string_view line);
  void open_body(const MaskRow& row, std::string_view parameters);

  StandIn stand_in_;
  bool in_flight_ = false;  // a command waits for its result
  bool identity_asked_ = false;
  bool imsi_asked_ = false;
  Body host_body_ = Body::kNone;  // of the message that the command in flight sends
  bool host_writes_ = false;      // it has not come to its end
  bool prompted_ = false;
  Body modem_body_ = Body::kNone;  // of the message whose heading came
  bool ussd_open_ = false;         // its text goes on behind a line end
};

}  // namespace mdxtap
