// SPDX-License-Identifier: Apache-2.0

#include "tests/simulation/line_rules.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace simulation {
namespace {

constexpr size_t kTextMax = MAX_ATCMD_REPORT_SIZE - 1;
const std::string kLineEnd = "\r\n";

bool holds(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

}  // namespace

std::vector<report_t> line_rules::parse(const std::string& delivery, answer_t* answer) {
  rest_ = delivery;
  has_result_ = false;
  while (!rest_.empty()) pass(answer);
  return std::exchange(reports_, {});
}

void line_rules::pass(answer_t* answer) {
  bool goes_on = true;
  while (goes_on) {
    std::optional<std::string> line = next_line();
    if (!line) return;
    if (line->empty()) continue;
    const bool body_follows = answer->req_type != TRANSPARENT_CMD && complete_sms_header(&*line);
    goes_on = sort(answer, *line);
    if (goes_on && body_follows) take_body();
  }
}

/// Nothing when the delivery is used up; a line whose CR is the last byte is lost.
std::optional<std::string> line_rules::next_line() {
  if (rest_.empty()) return std::nullopt;
  if (std::exchange(cr_pending_, false) && rest_.starts_with('\n')) {
    rest_.erase(0, 1);
    return "";
  }
  std::string line;
  for (size_t i = 0; i < rest_.size(); ++i) {
    if (rest_[i] != '\r') {
      line += rest_[i];
      continue;
    }
    if (++i == rest_.size()) {
      cr_pending_ = true;
      rest_.clear();
      return std::nullopt;
    }
    if (rest_[i] == '\n') {
      rest_.erase(0, i + 1);
      return line;
    }
    line += rest_[i];  // the CR disappears, and what follows it is text, a second CR too
  }
  rest_.clear();
  return line;
}

/// @return whether a raw body follows
bool line_rules::complete_sms_header(std::string* line) {
  const std::string shown = line->c_str();
  const bool raw = holds(shown, "^HCMGR");
  const bool broadcast = holds(shown, "+CBM");
  if (!raw && !broadcast && !holds(shown, "+CMGR") && !holds(shown, "+CMGL")) return false;
  if (line->size() + kLineEnd.size() > MAX_ATCMD_REPORT_SIZE) return false;
  *line += kLineEnd;
  if (!broadcast) return raw;
  // The PDU goes where the header's text ends, which is earlier if there is a NUL in it.
  const std::string pdu = next_line().value_or("");
  const std::string joined = std::string(line->c_str()) + pdu.c_str() + '\0';
  *line += std::string(pdu.size() + 1, '\0');
  line->replace(0, joined.size(), joined);
  line->pop_back();
  return raw;
}

void line_rules::take_body() {
  const size_t last = rest_.rfind('\x1a');
  const size_t size = (last == std::string::npos ? 0 : last + 1) + 2;
  const std::string body = rest_.substr(0, size);
  rest_.erase(0, size);
  if (body.size() < size) return;
  if (collected_.size() + size > kTextMax) {
    cut_ = true;
  } else {
    collected_ += body;
  }
}

/// @return whether the pass goes on
bool line_rules::sort(answer_t* answer, const std::string& line) {
  const std::string shown = line.c_str();
  const bool plain = answer->multi_line == 0 || answer->multi_line == 1;
  for (const char* update : {"^CPINNTY:READY", "^CPINNTY:SIM PUK", "^CARDLOCKNTY:SIM LOCKED"}) {
    if (!holds(shown, update)) continue;
    if (!has_result_) answer->ret_val = AT_NONE;
    return false;
  }
  if (!answer->match.empty() && holds(shown, answer->match)) {
    if (plain) collect(answer, line + (answer->multi_line == 1 ? kLineEnd : ""), true);
    return plain;
  }
  for (const auto* row = at_result_table; row->literal != nullptr && !has_result_; ++row) {
    if (!shown.starts_with(row->literal)) continue;
    accept(answer, line, row->code);
    return false;
  }
  if (is_report(*answer, line)) {
    if (!has_result_) answer->ret_val = AT_NONE;
    answer->rsp_len = static_cast<int32_t>(line.size());
    return true;
  }
  const bool transparent = answer->req_type == TRANSPARENT_CMD && answer->multi_line != 1;
  if (!plain && !transparent) return false;
  const size_t start = collected_.size();
  const bool keep_beginning = transparent || answer->multi_line == 1;
  if (!collect(answer, line + (transparent ? kLineEnd : ""), keep_beginning)) return keep_beginning;
  answer->rsp_len = static_cast<int32_t>(collected_.size());
  if (!transparent) return true;
  answer->text.resize(std::max(answer->text.size(), collected_.size()), '\0');
  answer->text.replace(start, collected_.size() - start, collected_, start);
  return true;
}

bool line_rules::collect(answer_t* answer, const std::string& text, bool keep_beginning) {
  const bool fits = collected_.size() + text.size() <= kTextMax && !(keep_beginning && cut_);
  if (fits) {
    collected_ += text;
  } else if (keep_beginning) {
    cut_ = true;
    answer->rsp_len = MAX_ATCMD_REPORT_SIZE;
  } else {
    collected_.clear();
    cut_ = false;
    answer->rsp_len = kTextMax;
  }
  return fits;
}

void line_rules::accept(answer_t* answer, const std::string& line, int32_t code) {
  has_result_ = true;
  answer->ret_val = code;
  const bool plain = answer->multi_line == 0 || answer->multi_line == 1;
  const bool numbered = code == AT_CME_ERROR || code == AT_CMS_ERROR;
  std::string text = std::exchange(collected_, {});
  bool cut = std::exchange(cut_, false);
  if (answer->req_type == TRANSPARENT_CMD) {
    const std::string result = line.substr(0, kTextMax - kLineEnd.size()) + kLineEnd;
    while (text.size() + result.size() > kTextMax) {
      const size_t end = text.rfind(kLineEnd, text.size() - 1 - kLineEnd.size());
      text.resize(
          text.size() <= kLineEnd.size() || end == std::string::npos ? 0 : end + kLineEnd.size());
      cut = true;
    }
    text += result;
  } else if (plain && numbered) {
    text = line.substr(0, kTextMax);
    cut = false;
  } else if (answer->multi_line != 0 && (!plain || code != AT_OK)) {
    text.clear();
    cut = false;
  }
  answer->text = text;
  answer->rsp_len = cut ? MAX_ATCMD_REPORT_SIZE : static_cast<int32_t>(text.size());
}

bool line_rules::is_report(const answer_t& answer, const std::string& line) {
  const std::string shown = line.c_str();
  if (shown.starts_with('>')) return true;
  const bool marked = shown.starts_with('^') || shown.starts_with('+');
  if (!marked && !holds(shown, "RING") && !holds(shown, "CONNECT")) return false;
  for (const auto* row = at_report_table; row->literal != nullptr; ++row) {
    if (!holds(shown, row->literal)) continue;
    if (row->handler != nullptr) reports_.push_back({row, line});
    return true;
  }
  if (answer.req_type == TRANSPARENT_CMD) return false;
  if (answer.req_type == ACTIVE_REPORT) return true;
  const size_t colon = shown.find(':');
  if (colon == std::string::npos) return false;
  return colon >= 64 || !holds(sent_head, shown.substr(0, colon));
}

}  // namespace simulation
