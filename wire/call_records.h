// SPDX-License-Identifier: Apache-2.0

// What the voice service gets of a call report: one fixed record each, in the bytes of voice
// message 8907.
//
// The server fills the records, other processes read them, so this file is a wire format. All
// records are packed: they may be read in place, wherever in a packet they lie. Integers are in
// native byte order. A number the modem did not tell is 0, one that does not fit is the nearest
// value that does, so a negative one is 0. Texts are cut to their room, always hold a NUL, and are
// zero behind it.
#pragma once

#include <cstddef>
#include <cstdint>

/// ^ORIG (voice type 9) and ^CONN (13): a call was set up, a call was answered. Never without a
/// call id.
struct [[gnu::packed]] mdx_call_record_t {
  uint8_t call_id;      ///< from 1; the modem's number of the call while it lasts
  uint8_t call_type;    ///< 0 voice; other values as the modem numbers them
  uint8_t reserved[2];  ///< 0
};
static_assert(sizeof(mdx_call_record_t) == 4);
static_assert(offsetof(mdx_call_record_t, call_id) == 0);
static_assert(offsetof(mdx_call_record_t, call_type) == 1);
static_assert(offsetof(mdx_call_record_t, reserved) == 2);

/// ^CONF (12): the other side is being alerted. Never without a call id.
struct [[gnu::packed]] mdx_call_alerted_record_t {
  uint8_t call_id;
  uint8_t reserved[3];  ///< 0
};
static_assert(sizeof(mdx_call_alerted_record_t) == 4);
static_assert(offsetof(mdx_call_alerted_record_t, call_id) == 0);
static_assert(offsetof(mdx_call_alerted_record_t, reserved) == 1);

/// ^CEND (14): a call has ended. Never without at least one of call id and end status.
struct [[gnu::packed]] mdx_call_end_record_t {
  uint8_t call_id;      ///< 0: the modem did not say which; there are modems that never do
  uint8_t reserved[3];  ///< 0
  uint32_t duration;    ///< seconds
  uint16_t end_status;  ///< why, in the modem's own numbers
  uint16_t cause;       ///< why, in the network's call control causes; 0: not told
};
static_assert(sizeof(mdx_call_end_record_t) == 12);
static_assert(offsetof(mdx_call_end_record_t, call_id) == 0);
static_assert(offsetof(mdx_call_end_record_t, reserved) == 1);
static_assert(offsetof(mdx_call_end_record_t, duration) == 4);
static_assert(offsetof(mdx_call_end_record_t, end_status) == 8);
static_assert(offsetof(mdx_call_end_record_t, cause) == 10);

/// +CLIP (10): who calls. +CCWA and ^CCWA (19): who calls while another call is up. Never without a
/// number, or a type in its place.
struct [[gnu::packed]] mdx_caller_record_t {
  char number[32];  ///< with its "+" if it was sent with one; empty when the caller is not shown
  uint8_t type;     ///< type of address: 145 international, 129 national or unknown
  uint8_t service_class;  ///< 1 voice, 2 data, 4 fax, ... as a sum; 0 in +CLIP
  uint8_t cli_validity;   ///< 0 number valid, 1 withheld by the caller, 2 not available; 0 in ^CCWA
  uint8_t reserved;       ///< 0
};
static_assert(sizeof(mdx_caller_record_t) == 36);
static_assert(offsetof(mdx_caller_record_t, number) == 0);
static_assert(offsetof(mdx_caller_record_t, type) == 32);
static_assert(offsetof(mdx_caller_record_t, service_class) == 33);
static_assert(offsetof(mdx_caller_record_t, cli_validity) == 34);
static_assert(offsetof(mdx_caller_record_t, reserved) == 35);

/// ^CCALLSTATE (21): the state of a call has changed. Never without the state.
struct [[gnu::packed]] mdx_call_state_record_t {
  uint8_t call_id;
  uint8_t state;         ///< as the modem numbers it
  uint8_t voice_domain;  ///< as the modem numbers it: which network carries the call
  uint8_t reserved[2];   ///< 0
};
static_assert(sizeof(mdx_call_state_record_t) == 5);
static_assert(offsetof(mdx_call_state_record_t, call_id) == 0);
static_assert(offsetof(mdx_call_state_record_t, state) == 1);
static_assert(offsetof(mdx_call_state_record_t, voice_domain) == 2);
static_assert(offsetof(mdx_call_state_record_t, reserved) == 3);

/// ^XLEMA (27): one entry of the list of emergency numbers. Never without the number.
struct [[gnu::packed]] mdx_emergency_number_record_t {
  uint32_t index;        ///< from 1
  uint32_t total;        ///< entries of the list
  char number[32];       ///< never empty
  uint32_t category;     ///< emergency service category; 0: any
  uint32_t sim_present;  ///< whether the number counts with a SIM (1) or without one (0)
  char mcc[8];           ///< mobile country code as sent; "fff" is every country
};
static_assert(sizeof(mdx_emergency_number_record_t) == 56);
static_assert(offsetof(mdx_emergency_number_record_t, index) == 0);
static_assert(offsetof(mdx_emergency_number_record_t, total) == 4);
static_assert(offsetof(mdx_emergency_number_record_t, number) == 8);
static_assert(offsetof(mdx_emergency_number_record_t, category) == 40);
static_assert(offsetof(mdx_emergency_number_record_t, sim_present) == 44);
static_assert(offsetof(mdx_emergency_number_record_t, mcc) == 48);

/// ^CSCHANNELINFO (28): the speech channel was opened or closed. Never without the status.
struct [[gnu::packed]] mdx_speech_channel_record_t {
  uint8_t status;  ///< as the modem numbers it
  uint8_t voice_domain;
  uint8_t reserved[2];  ///< 0
};
static_assert(sizeof(mdx_speech_channel_record_t) == 4);
static_assert(offsetof(mdx_speech_channel_record_t, status) == 0);
static_assert(offsetof(mdx_speech_channel_record_t, voice_domain) == 1);
static_assert(offsetof(mdx_speech_channel_record_t, reserved) == 2);
