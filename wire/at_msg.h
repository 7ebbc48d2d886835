// SPDX-License-Identifier: Apache-2.0

// The record that carries one AT exchange, on the queues to the clients and inside the server.
//
// It crosses a process border as a flat image of 1600 bytes, so its layout is a wire format: 32-bit
// integers in the host's byte order, no pointers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

/// Size of a response text and of the response collector, and the most that a line can have.
constexpr int32_t MAX_ATCMD_REPORT_SIZE = 1500;
constexpr size_t kCommandSize = 640;
constexpr size_t kMatchSize = 64;

enum at_req_type_t : uint32_t {
  NORMAL_CMD = 0,       ///< run the command in `smsg`
  ACTIVE_REPORT = 1,    ///< wait for one delivery and discard it; no reply
  GET_REPORT = 2,       ///< return the stored report that `rep_type` names; the modem is not asked
  REQ_RESERVED_3 = 3,   ///< refused without a reply
  REQ_RESERVED_4 = 4,   ///< refused with `ret_val` 8, as is every value above 5
  TRANSPARENT_CMD = 5,  ///< run the command raw: every line kept with CR LF, the result included
};

enum at_rep_type_t : int32_t { RSSI_REPORT = 2 };

/// `ret_val`: what became of the exchange. The other result codes stand in at_result_table.
enum at_ret_val_t : int32_t {
  AT_NONE = -1,          ///< no result came
  AT_OK = 2,             ///< "OK"
  AT_CME_ERROR = 3,      ///< "+CME ERROR"
  AT_CMS_ERROR = 4,      ///< "+CMS ERROR"
  AT_NOT_SUPPORTED = 8,  ///< "COMMAND NOT SUPPORT"; also a refused request and a failed write
};

/// A record's text: the command on the way in, the response on the way out. Both views start at the
/// same byte, and the first read from the modem clears all of it.
union at_text_t {
  /// The response; the server ends it with a NUL, but for a stored line of its whole size. It comes
  /// first because it is the whole union: an empty initialiser clears all of it.
  char rmsg[MAX_ATCMD_REPORT_SIZE];
  /// The command, NUL-terminated unless `cmd_len` says otherwise; no line end is needed.
  char smsg[kCommandSize];
  /// The same with what follows it.
  struct {
    char text[kCommandSize];
    int32_t cmd_len;  ///< above 0: bytes of the command to send; else it counts up to its NUL
  } command;
};

struct at_msg_t {
  int32_t msg_type;    ///< the sender's identifier, returned unchanged: a client's task id
  uint32_t req_type;   ///< at_req_type_t, returned unchanged
  int32_t rep_type;    ///< for GET_REPORT: which report; returned unchanged
  uint32_t reserved;   ///< returned unchanged
  uint32_t seq;        ///< the sender's number for this request, returned unchanged
  int32_t multi_line;  ///< 0 plain collection; 1 CR LF behind each line that holds `at_match_str`,
                       ///< and no text unless the result is "OK"; returned unchanged
  int32_t timeout;     ///< budget in seconds, counted down in place; negative counts as 0
  char at_match_str[kMatchSize];  ///< a line that holds it is response text; empty for none
  at_text_t snd_rcv_msg;
  int32_t ret_val;  ///< at_ret_val_t, or another code of at_result_table; 0 for a stored report
                    ///< that does not exist and for a two-step exchange that ended at its head
  int32_t rsp_len;  ///< length of the response text when the result was taken; a report line behind
                    ///< it leaves its own, a response that outgrew its room 1499, a stored report 0
};

/// The answer area: the last 1572 bytes of a record. Refusals clear it, stored reports consist of
/// it.
struct at_answer_t {
  char at_match_str[kMatchSize];
  at_text_t snd_rcv_msg;
  int32_t ret_val;
  int32_t rsp_len;
};

static_assert(sizeof(at_msg_t) == 4 * 7 + 64 + 1500 + 4 * 2);
static_assert(offsetof(at_msg_t, msg_type) == 0 && offsetof(at_msg_t, req_type) == 4);
static_assert(offsetof(at_msg_t, rep_type) == 8 && offsetof(at_msg_t, reserved) == 12);
static_assert(offsetof(at_msg_t, seq) == 16 && offsetof(at_msg_t, multi_line) == 20);
static_assert(offsetof(at_msg_t, timeout) == 24 && offsetof(at_msg_t, at_match_str) == 28);
static_assert(offsetof(at_msg_t, snd_rcv_msg) == 92 && offsetof(at_text_t, command.cmd_len) == 640);
static_assert(offsetof(at_msg_t, ret_val) == 1592 && offsetof(at_msg_t, rsp_len) == 1596);
static_assert(sizeof(at_answer_t) == sizeof(at_msg_t) - offsetof(at_msg_t, at_match_str));
static_assert(offsetof(at_answer_t, at_match_str) == 0 && offsetof(at_answer_t, snd_rcv_msg) == 64);
static_assert(offsetof(at_answer_t, ret_val) == 1564 && offsetof(at_answer_t, rsp_len) == 1568);

/// The answer area inside a record, as the bytes that an at_answer_t is copied from and to.
inline char* at_answer_area(at_msg_t* msg) { return msg->at_match_str; }
inline const char* at_answer_area(const at_msg_t* msg) { return msg->at_match_str; }

/// Clears the answer area: no pattern, no text, `ret_val` 0.
inline void clear_answer_area(at_msg_t* msg) {
  std::memset(at_answer_area(msg), 0, sizeof(at_answer_t));
}
