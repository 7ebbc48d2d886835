// SPDX-License-Identifier: Apache-2.0

// The receive stream: the one delivery that the main thread is working on.
//
// A read takes the next delivery off the NAS queue and throws away what was left of the one before.
// Reading wipes: a byte that was read is zero afterwards.
#pragma once

#include <cstdint>

#include "server/mdx_state.h"
#include "wire/at_msg.h"

/// Takes the next delivery off the NAS queue into the receive stream.
///
/// Unread bytes of the delivery before are lost, and `msg`'s text is cleared, even when nothing
/// comes.
/// @param msg      the record of the exchange; its `timeout` (seconds) bounds the wait, 0 and below
///                 do not wait, and the wait is at most what a signed 32-bit count of milliseconds
///                 holds
/// @param retcode  never null; not written
/// @return 0 when a delivery was taken, -1 on a null argument or when nothing came in time
int32_t read_from_smd(at_msg_t* msg, int* retcode);

/// @return 0 when the stream is empty, -1 when it holds bytes or `p_strm` is null. Mind the sense.
int32_t at_sm_is_rcv_buf_empty(const at_stream_t* p_strm);

/// Takes one byte.
/// @return 0 with the byte in `*ch`; -1 when `ch` is null or the stream is empty
int32_t at_sm_getchar(char* ch);

/// Takes the bytes in front of the next CR together with that CR and the LF behind it, the way of
/// nearly every line.
/// @param text  room for as many bytes as are unread; gets neither CR nor LF, nor a terminator
/// @return how many bytes stand in `text`; -1 when no CR comes, or no LF behind it: nothing is
///         taken then
int32_t at_sm_get_line(char* text);

/// Takes `buf_length` bytes; the caller answers for the room. No terminator is written.
/// @return 0 when all were read, also when `buf_length` is negative and nothing is; -1 for a null
///         buffer, a length of 0, or a stream that ran out: what it held is in `msg_buf` then
[[gnu::cold]] int32_t at_sm_get_buf(char* msg_buf, int32_t buf_length);

/// Looks for the last `ch` among the unread bytes.
/// @return how many bytes there are up to and including it; 0 when there is none
[[gnu::cold]] int32_t at_find_last_of_char(char ch);
