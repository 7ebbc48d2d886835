// SPDX-License-Identifier: Apache-2.0

// A text message as the modem takes it: SMS-SUBMIT TPDUs in hexadecimal digits, one for each part.
//
// Number and text are checked first. 3GPP TS 23.040 lays out the TPDU, 3GPP TS 23.038 the
// characters. No I/O.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

enum sms_alphabet_t { SMS_GSM_7_BIT, SMS_UCS_2 };

struct sms_part_t {
  std::string head;  ///< the command line, such as AT+CMGS=22
  std::string pdu;   ///< with the service centre's address in front, which is the SIM's own
};

struct sms_message_t {
  sms_alphabet_t alphabet = SMS_GSM_7_BIT;
  std::vector<sms_part_t> parts;
  std::string error;  ///< why there are no parts, and what to do; else empty
};

/// Encodes a message: in the GSM 7-bit default alphabet and its extension table where these have
/// all of its characters, in UCS-2 otherwise; in parts when it does not fit into one.
/// @param number     digits, * and #; a + in front for an international number; 20 digits at most
/// @param text       UTF-8
/// @param reference  joins the parts of this message at its receiver
sms_message_t encode_sms(std::string_view number, std::string_view text, uint8_t reference);

/// The septets of a text, nothing when a character is in neither table.
std::optional<std::vector<uint8_t>> gsm_septets(const std::u32string& text);

/// Septets packed into octets from the lowest bit up, behind `fill_bits` zero bits.
std::vector<uint8_t> pack_septets(const std::vector<uint8_t>& septets, unsigned fill_bits);
