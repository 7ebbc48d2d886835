// SPDX-License-Identifier: Apache-2.0

// The server's one global block.
//
// Everything in it belongs to the main thread. Two things look in from outside: the platform fills
// `g_mdx_send_data_to_nas`; the console reads `at_state` and the two snapshots.
#pragma once

#include <pthread.h>

#include <cstdint>

#include "platform/mdx_platform.h"
#include "server/mdx_snapshot.h"
#include "wire/at_msg.h"

enum at_state_t : int32_t {
  AT_INIT_S = 0,            ///< waits for the modem channel, sets the modem up
  AT_IDLE_S = 1,            ///< takes the next pending request, or sleeps
  AT_PROCESS_CLIENT_S = 2,  ///< drains the client request queue
  AT_PROCESS_NAS_S = 3,     ///< drains the NAS queue
};

/// How the last line ended; the only state of the framing that outlives a delivery.
enum at_line_state_t : int32_t {
  LINE_DONE = 0,        ///< with CR LF
  LINE_CR_PENDING = 1,  ///< with a CR as the delivery's last byte: an LF read next belongs to it
  LINE_IN_TEXT = 2,     ///< not yet
};

/// The receive stream: one delivery, read byte by byte. Empty when `p_cur` equals `p_end`.
struct at_stream_t {
  char data[1532];  ///< an element of the NAS queue is received straight into its start
  char* p_cur;      ///< the next byte to read
  char* p_end;      ///< one past the last delivered byte
};

constexpr int32_t kStateRingSize = 32;
constexpr size_t kSentHeadSize = 64;
/// Bit of `query_flags`: "AT+COPS=3,2,," has succeeded.
constexpr uint32_t COPS_FORMAT_DONE = 64;

/// What is used most stands first: the pages behind it are never touched.
///
/// All zero at first, so that its 11 KiB are no part of the program file; mdx_state_init gives the
/// ids, the ring's slots, `sms_cancel_marker` and `line_state` the values they start with.
struct mdx_state_t {
  // State machine.
  int32_t at_state = AT_INIT_S;
  int32_t req_queue_id = 0;
  int32_t rsp_queue_id = 0;
  int32_t nas_queue_id = 0;
  int32_t main_task_id = 0;
  int32_t ring_head = 0;                    ///< slot of the next push; negative before set-up
  int32_t ring_tail = 0;                    ///< slot of the next pop
  int32_t state_ring[kStateRingSize] = {};  ///< pending requests for AT_IDLE_S
  pthread_t msgproc_thread = 0;

  // Modem link and parser.
  mdx_send_function_t g_mdx_send_data_to_nas = nullptr;
  int32_t line_state = 0;
  int32_t line_used = 0;           ///< bytes of `line_buf` that may be other than zero
  int32_t nas_response_legth = 0;  ///< bytes in `nas_response`
  int32_t nas_response_cut = 0;    ///< 1: more came behind them and is lost
  int32_t result_received = 0;     ///< 1: this delivery's result line has been taken
  int32_t sms_cancel_marker = 0;   ///< 0 makes a time-out send ESC; nothing sets it

  // The server's own commands.
  uint32_t msg_seq_counter = 0;
  int32_t last_roam_status = 0;
  int32_t cimi_done = 0;
  uint32_t query_flags = 0;
  char sent_cmd_head[kSentHeadSize] = {};  ///< start of the last normal command, for the colon test

  // What last passed.
  mdx_snapshot<at_msg_t> last_client_msg;  ///< the client record in service, as read
  at_stream_t stream = {};
  char nas_response[MAX_ATCMD_REPORT_SIZE] = {};  ///< response text, across deliveries
  /// The record in hand, the modem's last line in its `rmsg`.
  mdx_snapshot<at_msg_t, offsetof(at_msg_t, snd_rcv_msg), MAX_ATCMD_REPORT_SIZE> last_nas_msg;
  /// The parser's line. It has a NUL behind it whatever it holds.
  char line_buf[MAX_ATCMD_REPORT_SIZE + 1] = {};

  // Answers to the server's own commands.
  at_answer_t sysinfo_report = {};
  at_answer_t cimi_report = {};
};

extern mdx_state_t mdx_state;

/// The first thing the process does.
void mdx_state_init();
