// SPDX-License-Identifier: Apache-2.0

// Messages sent and read, in as many exchanges as that takes.

#include <cstdio>

#include "client/mdxsms.h"
#include "client/sms/sms_struct.h"

namespace {

constexpr int32_t kSendTimeoutS = 60;

}  // namespace

int mdx_sms_send(mdx_client_t* client, const char* number, const char* text, uint32_t length,
                 const mdx_sms_options_t* sms_options, const mdx_options_t* options,
                 mdx_sms_sent_parts_t* given, mdx_result_t* result) {
  mdx_sms_sent_parts_t sent = MDX_SMS_SENT_INIT;
  if (result == nullptr || (given != nullptr && !struct_usable(given))) return MDX_ERR_ARGUMENT;
  mdx_options_t patient = MDX_OPTIONS_INIT;
  patient.timeout_s = kSendTimeoutS;
  mdx_sms_part_t part = MDX_SMS_PART_INIT;
  int error = MDX_OK;
  do {
    sent.mistake = mdx_sms_encode(number, text, length, sms_options, sent.sent, &part, nullptr);
    error = sent.mistake != MDX_SMS_FINE
                ? MDX_ERR_ARGUMENT
                : mdx_send_pdu(client, part.head, part.pdu, options != nullptr ? options : &patient,
                               result);
    sent.parts = part.parts;
    if (error != MDX_OK || result->ret_val != MDX_RESULT_OK) break;
    sent.reference = mdx_sms_sent_reference(result->text, result->length);
    ++sent.sent;
  } while (sent.sent < sent.parts);
  if (given != nullptr) give_struct(sent, given);
  return error;
}

int mdx_sms_read(mdx_client_t* client, uint32_t index, const mdx_options_t* options,
                 mdx_sms_stored_t* stored, mdx_sms_t* sms, mdx_result_t* result, int* mistake) {
  if (!struct_usable(stored) || !struct_usable(sms)) return MDX_ERR_ARGUMENT;
  mdx_options_t transparent = MDX_OPTIONS_INIT;
  if (options != nullptr) {
    transparent.timeout_s = options->timeout_s;
    transparent.deadline_ms = options->deadline_ms;
  }
  transparent.transparent = 1;
  char command[24];
  std::snprintf(command, sizeof(command), "AT+CMGR=%u", index);
  const int error = mdx_send(client, command, &transparent, result);
  if (error != MDX_OK) return error;
  mdx_sms_stored_t none = MDX_SMS_STORED_INIT;
  give_struct(none, stored);
  mdx_sms_stored_at(result->text, result->length, 0, stored);
  stored->index = static_cast<int32_t>(index);
  const int found = mdx_sms_decode(stored->pdu, stored->pdu_length, stored->tpdu_length, sms);
  if (mistake != nullptr) *mistake = found;
  return MDX_OK;
}
