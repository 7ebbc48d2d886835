/* SPDX-License-Identifier: Apache-2.0 */

/* What programs were compiled with stays true: the size that each struct had in its first version,
 * and where its fields are. New fields go behind the last one. This is C99, and compiling it is
 * all. */

#include "client/mdxclient.h"
#include "client/mdxsms.h"

#define IS(name, condition) typedef char name[(condition) ? 1 : -1]
#define AT(type, field, offset) IS(type##_##field, offsetof(type, field) == (offset))
#define POINTER sizeof(void*)

AT(mdx_options_t, size, 0);
AT(mdx_options_t, timeout_s, 4);
AT(mdx_options_t, deadline_ms, 8);
AT(mdx_options_t, match, 8 + POINTER);
AT(mdx_options_t, multi_line, 8 + 2 * POINTER);
AT(mdx_options_t, transparent, 12 + 2 * POINTER);
AT(mdx_options_t, wait_s, 16 + 2 * POINTER);

AT(mdx_result_t, size, 0);
AT(mdx_result_t, ret_val, 4);
AT(mdx_result_t, text, 8);
AT(mdx_result_t, length, 8 + POINTER);
AT(mdx_result_t, timeout_left_s, 12 + POINTER);
AT(mdx_result_t, refused, 16 + POINTER);
AT(mdx_result_t, truncated, 20 + POINTER);

AT(mdx_packet_t, size, 0);
AT(mdx_packet_t, type, 4);
AT(mdx_packet_t, kind, 8);
AT(mdx_packet_t, to, 12);
AT(mdx_packet_t, lost, 28);
AT(mdx_packet_t, module, 32);
AT(mdx_packet_t, a, 36);
AT(mdx_packet_t, b, 40);
AT(mdx_packet_t, length, 44);
AT(mdx_packet_t, payload, 48);
AT(mdx_packet_t, remembered, 48 + POINTER);
AT(mdx_packet_t, age_s, 52 + POINTER);

AT(mdx_subscribe_options_t, size, 0);
AT(mdx_subscribe_options_t, module, 4);
AT(mdx_subscribe_options_t, service, 8);
AT(mdx_subscribe_options_t, last, 8 + POINTER);

AT(mdx_field_t, size, 0);
AT(mdx_field_t, kind, 4);
AT(mdx_field_t, name, 8);
AT(mdx_field_t, unit, 8 + POINTER);
AT(mdx_field_t, number, 8 + 2 * POINTER);
AT(mdx_field_t, unsigned_number, 16 + 2 * POINTER);
AT(mdx_field_t, data, 24 + 2 * POINTER);
AT(mdx_field_t, length, 24 + 3 * POINTER);

AT(mdx_sms_options_t, size, 0);
AT(mdx_sms_options_t, reference, 4);
AT(mdx_sms_options_t, flash, 8);
AT(mdx_sms_options_t, report, 12);

AT(mdx_sms_part_t, size, 0);
AT(mdx_sms_part_t, alphabet, 4);
AT(mdx_sms_part_t, parts, 8);
AT(mdx_sms_part_t, tpdu_length, 12);
AT(mdx_sms_part_t, head, 16);
AT(mdx_sms_part_t, pdu, 32);

AT(mdx_sms_t, size, 0);
AT(mdx_sms_t, type, 4);
AT(mdx_sms_t, alphabet, 8);
AT(mdx_sms_t, units_length, 12);
AT(mdx_sms_t, units, 16);
AT(mdx_sms_t, text_length, 176);
AT(mdx_sms_t, text, 180);
AT(mdx_sms_t, number, 692);
AT(mdx_sms_t, service_centre, 740);
AT(mdx_sms_t, message_class, 764);
AT(mdx_sms_t, time_s, 768);
AT(mdx_sms_t, time_zone_min, 776);
AT(mdx_sms_t, time_known, 780);
AT(mdx_sms_t, protocol, 784);
AT(mdx_sms_t, coding, 788);
AT(mdx_sms_t, reference, 792);
AT(mdx_sms_t, parts, 796);
AT(mdx_sms_t, part, 800);
AT(mdx_sms_t, language_locking, 804);
AT(mdx_sms_t, language_single, 808);
AT(mdx_sms_t, has_ports, 812);
AT(mdx_sms_t, destination_port, 816);
AT(mdx_sms_t, source_port, 820);
AT(mdx_sms_t, report_wanted, 824);
AT(mdx_sms_t, message_reference, 828);
AT(mdx_sms_t, status, 832);
AT(mdx_sms_t, discharged_s, 840);
AT(mdx_sms_t, discharged_zone_min, 848);
AT(mdx_sms_t, discharged_known, 852);

AT(mdx_sms_stored_t, size, 0);
AT(mdx_sms_stored_t, index, 4);
AT(mdx_sms_stored_t, state, 8);
AT(mdx_sms_stored_t, tpdu_length, 12);
AT(mdx_sms_stored_t, pdu, 16);
AT(mdx_sms_stored_t, pdu_length, 16 + POINTER);

AT(mdx_sms_sent_parts_t, size, 0);
AT(mdx_sms_sent_parts_t, parts, 4);
AT(mdx_sms_sent_parts_t, sent, 8);
AT(mdx_sms_sent_parts_t, mistake, 12);
AT(mdx_sms_sent_parts_t, reference, 16);

const mdx_options_t abi_options = MDX_OPTIONS_INIT;
const mdx_result_t abi_result = MDX_RESULT_INIT;
const mdx_packet_t abi_packet = MDX_PACKET_INIT;
const mdx_subscribe_options_t abi_subscribe_options = MDX_SUBSCRIBE_OPTIONS_INIT;
const mdx_field_t abi_field = MDX_FIELD_INIT;
const mdx_sms_options_t abi_sms_options = MDX_SMS_OPTIONS_INIT;
const mdx_sms_part_t abi_sms_part = MDX_SMS_PART_INIT;
const mdx_sms_t abi_sms = MDX_SMS_INIT;
const mdx_sms_stored_t abi_sms_stored = MDX_SMS_STORED_INIT;
const mdx_sms_sent_parts_t abi_sms_sent = MDX_SMS_SENT_INIT;
