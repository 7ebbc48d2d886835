// SPDX-License-Identifier: Apache-2.0

// What the modem's lines mean, told a second time: strings and searches from the top, without
// bounds to mind, buffers to keep or speed to gain. Whatever bytes come, the server must read them
// in the same way.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "server/at_match.h"

namespace simulation {

/// The part of a record that lines act on. Whoever reads a delivery clears the text before.
struct answer_t {
  uint32_t req_type = ACTIVE_REPORT;
  int32_t multi_line = 0;
  std::string match = {};  ///< empty for none
  std::string text = {};   ///< without the NUL bytes behind it
  int32_t ret_val = AT_NONE;
  int32_t rsp_len = 0;
};

struct report_t {
  const at_report_row_t* row;
  std::string line;
};

class line_rules {
 public:
  /// Works through a delivery.
  /// @return the reports that have a handler, in stream order
  std::vector<report_t> parse(const std::string& delivery, answer_t* answer);

  std::string sent_head;  ///< start of the last normal command

 private:
  void pass(answer_t* answer);
  std::optional<std::string> next_line();
  bool complete_sms_header(std::string* line);
  void take_body();
  bool sort(answer_t* answer, const std::string& line);
  bool collect(answer_t* answer, const std::string& text, bool keep_beginning);
  void accept(answer_t* answer, const std::string& line, int32_t code);
  bool is_report(const answer_t& answer, const std::string& line);

  std::string rest_;       // of the delivery
  std::string collected_;  // response text, across deliveries
  std::vector<report_t> reports_;
  bool cut_ = false;  // more came behind it
  bool cr_pending_ = false;
  bool has_result_ = false;
};

}  // namespace simulation
