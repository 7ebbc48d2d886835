// SPDX-License-Identifier: Apache-2.0

// A text message as the modem takes it: command line and PDU, one pair for each part.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "client/mdxsms.h"

struct sms_part_t {
  std::string head;  ///< the command line, such as AT+CMGS=22
  std::string pdu;   ///< with the service centre's address in front, which is the SIM's own
};

struct sms_message_t {
  uint32_t alphabet = MDX_SMS_GSM_7_BIT;  ///< mdx_sms_alphabet_t
  std::vector<sms_part_t> parts;
  std::string error;  ///< why there are no parts, and what to do; else empty
};

/// All parts of a message, as mdx_sms_encode makes them.
sms_message_t encode_sms(std::string_view number, std::string_view text,
                         const mdx_sms_options_t& options);
