// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxctl/sms_pdu.h"

namespace {

std::string error_of(int mistake, const std::string& number, uint32_t position) {
  const std::string count = std::to_string(position);
  switch (mistake) {
    case MDX_SMS_MISTAKE_NUMBER:
      return "a number has digits, * and #, and a + in front at most: leave out '" +
             number.substr(position, 1) + "'";
    case MDX_SMS_MISTAKE_NUMBER_TOO_LONG:
      return "the number has " + count + " digits, and 20 is the most: check it";
    case MDX_SMS_MISTAKE_TOO_MANY_PARTS:
      return "the text takes " + count + " parts, and " + std::to_string(MDX_SMS_PARTS_MAX) +
             " is the most: send it as several messages";
    default:
      return mdx_sms_mistake_text(mistake);
  }
}

}  // namespace

sms_message_t encode_sms(std::string_view number, std::string_view text,
                         const mdx_sms_options_t& options) {
  sms_message_t message;
  const std::string dialled(number);
  mdx_sms_part_t part = MDX_SMS_PART_INIT;
  part.parts = 1;
  for (uint32_t index = 0; index < part.parts; ++index) {
    uint32_t position = 0;
    const int mistake =
        mdx_sms_encode(dialled.c_str(), text.data(), static_cast<uint32_t>(text.size()), &options,
                       index, &part, &position);
    if (mistake != MDX_SMS_FINE) return {part.alphabet, {}, error_of(mistake, dialled, position)};
    message.alphabet = part.alphabet;
    message.parts.push_back({part.head, part.pdu});
  }
  return message;
}
