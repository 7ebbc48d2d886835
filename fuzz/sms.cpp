// SPDX-License-Identifier: Apache-2.0

// A PDU that anybody sent, as octets and as the modem's line, and an answer with messages in it: a
// message or a clear refusal, and what is text goes out and comes in the same.

#include "client/mdxsms.h"
#include "fuzz/fuzz.h"

namespace {

std::string joined(const mdx_sms_t& sms) {
  const mdx_sms_t* parts[] = {&sms};
  char text[sizeof(sms.text)];
  const size_t length = mdx_sms_join(parts, 1, text, sizeof(text));
  fuzz::require(length < sizeof(text));
  return {text, length};
}

void send_back(const mdx_sms_t& sms) {
  mdx_sms_part_t part = MDX_SMS_PART_INIT;
  const int mistake = mdx_sms_encode("1", sms.text, sms.text_length, nullptr, 0, &part, nullptr);
  fuzz::require(mistake == MDX_SMS_FINE);
  mdx_sms_t again = MDX_SMS_INIT;
  const auto length = static_cast<uint32_t>(std::strlen(part.pdu));
  fuzz::require(mdx_sms_decode(part.pdu, length, part.tpdu_length, &again) == MDX_SMS_FINE);
  if (part.parts == 1) fuzz::require(joined(again) == joined(sms));
}

void read(const std::string& pdu, uint32_t tpdu_length) {
  mdx_sms_t sms = MDX_SMS_INIT;
  const int mistake =
      mdx_sms_decode(pdu.data(), static_cast<uint32_t>(pdu.size()), tpdu_length, &sms);
  fuzz::require(*mdx_sms_mistake_text(mistake) != '\0');
  if (mistake != MDX_SMS_FINE) return fuzz::require(sms.text_length == 0);
  fuzz::require(sms.units_length <= MDX_SMS_UNITS_MAX && sms.part <= sms.parts);
  fuzz::require(joined(sms) == std::string(sms.text, sms.text_length));
  fuzz::require(std::strlen(sms.number) < sizeof(sms.number));
  fuzz::require(*mdx_sms_status_text(sms.status) != '\0' && mdx_sms_fate(&sms) <= MDX_SMS_FAILED);
  send_back(sms);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::input input(data, size);
  const uint32_t tpdu_length = input.byte();
  const std::string bytes = input.take(size);
  std::string digits;
  for (const char c : bytes) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    digits += {kDigits[static_cast<unsigned char>(c) >> 4], kDigits[c & 15]};
  }
  read(digits, tpdu_length);
  read(bytes, tpdu_length);
  mdx_sms_stored_t stored = MDX_SMS_STORED_INIT;
  const auto length = static_cast<uint32_t>(bytes.size());
  for (uint32_t i = 0; mdx_sms_stored_at(bytes.data(), length, i, &stored) == MDX_OK; ++i) {
    read(std::string(stored.pdu == nullptr ? "" : stored.pdu, stored.pdu_length),
         stored.tpdu_length);
  }
  mdx_sms_error_number(bytes.data(), length);
  mdx_sms_sent_reference(bytes.data(), length);
  return 0;
}
