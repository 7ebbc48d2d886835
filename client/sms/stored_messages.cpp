// SPDX-License-Identifier: Apache-2.0

// What the modem answers to message commands, taken apart.
//
//     +CMGL: 3,1,,26            +CMGR: 1,"Name",26          +CMGR: "REC READ","+4915…"
//     0791…                     0791…                       a text that anybody may have written
//
// A PDU line is pairs of hexadecimal digits and nothing else, so what looks like a heading is one.

#include <cctype>
#include <cstring>

#include "client/mdxsms.h"
#include "client/sms/sms_struct.h"

namespace {

struct line_t {
  const char* text;
  size_t length;
};

/// Takes the next line that is not empty off an answer.
bool take_line(const char** at, const char* end, line_t* line) {
  const auto ends = [](char c) { return c == '\r' || c == '\n'; };
  while (*at < end && ends(**at)) ++*at;
  line->text = *at;
  while (*at < end && !ends(**at)) ++*at;
  line->length = static_cast<size_t>(*at - line->text);
  return line->length > 0;
}

bool begins(const line_t& line, const char* name) {
  return line.length >= std::strlen(name) && std::memcmp(line.text, name, std::strlen(name)) == 0;
}

/// What stands between commas behind the colon, blanks aside; quotes hide commas.
class parameters_t {
 public:
  parameters_t(const line_t& line, size_t name_length)
      : at_(line.text + name_length), end_(line.text + line.length) {}

  /// @return false when there is none left
  bool next(line_t* parameter) {
    if (at_ > end_) return false;
    const char* start = at_;
    bool quoted = false;
    for (; at_ < end_ && (quoted || *at_ != ','); ++at_) quoted = quoted != (*at_ == '"');
    const char* behind = at_++;
    while (start < behind && *start == ' ') ++start;
    while (start < behind && behind[-1] == ' ') --behind;
    *parameter = {start, static_cast<size_t>(behind - start)};
    return true;
  }

 private:
  const char* at_;
  const char* end_;
};

/// @return -1 when it is no number
int32_t number_in(const line_t& text) {
  if (text.length == 0 || text.length > 9) return -1;
  int32_t number = 0;
  for (size_t i = 0; i < text.length; ++i) {
    if (text.text[i] < '0' || text.text[i] > '9') return -1;
    number = number * 10 + (text.text[i] - '0');
  }
  return number;
}

bool is_hexadecimal(const line_t& line) {
  for (size_t i = 0; i < line.length; ++i) {
    if (std::isxdigit(static_cast<unsigned char>(line.text[i])) == 0) return false;
  }
  return line.length > 0;
}

constexpr char kRead[] = "+CMGR:";
constexpr char kList[] = "+CMGL:";

bool is_heading(const line_t& line) { return begins(line, kRead) || begins(line, kList); }

/// Index (of a listing), state, perhaps a name, and the length at the end.
void read_heading(const line_t& line, mdx_sms_stored_t* stored) {
  parameters_t parameters(line, sizeof(kRead) - 1);
  line_t parameter = {line.text, 0};
  if (begins(line, kList) && parameters.next(&parameter)) stored->index = number_in(parameter);
  parameters.next(&parameter);
  const bool is_word = parameter.length > 0 && parameter.text[0] == '"';  // text mode
  stored->state = number_in(parameter);
  if (stored->state > MDX_SMS_SENT) stored->state = MDX_SMS_STATE_NONE;
  while (parameters.next(&parameter)) continue;
  const int32_t length = number_in(parameter);
  stored->tpdu_length = is_word || length < 0 ? 0 : static_cast<uint32_t>(length);
}

/// The number behind a name, wherever in an answer it stands.
int32_t number_behind(const char* answer, uint32_t length, const char* name) {
  line_t line;
  for (const char *at = answer, *end = answer + length; take_line(&at, end, &line);) {
    if (!begins(line, name)) continue;
    parameters_t parameters(line, std::strlen(name));
    line_t parameter = {nullptr, 0};
    parameters.next(&parameter);
    return number_in(parameter);
  }
  return -1;
}

}  // namespace

int mdx_sms_stored_at(const char* answer, uint32_t length, uint32_t index,
                      mdx_sms_stored_t* given) {
  if (answer == nullptr || !struct_usable(given)) return MDX_ERR_ARGUMENT;
  uint32_t found = 0;
  line_t line;
  for (const char *at = answer, *end = answer + length; take_line(&at, end, &line);) {
    if (!is_heading(line) || found++ != index) continue;
    mdx_sms_stored_t stored = MDX_SMS_STORED_INIT;
    read_heading(line, &stored);
    const bool has_pdu = stored.state != MDX_SMS_STATE_NONE || stored.tpdu_length != 0;
    if (has_pdu && take_line(&at, end, &line) && is_hexadecimal(line)) {
      stored.pdu = line.text;
      stored.pdu_length = static_cast<uint32_t>(line.length);
    }
    give_struct(stored, given);
    return MDX_OK;
  }
  return MDX_ERR_ARGUMENT;
}

int32_t mdx_sms_error_number(const char* answer, uint32_t length) {
  return answer == nullptr ? -1 : number_behind(answer, length, "+CMS ERROR:");
}

int32_t mdx_sms_sent_reference(const char* answer, uint32_t length) {
  return answer == nullptr ? -1 : number_behind(answer, length, "+CMGS:");
}
