// SPDX-License-Identifier: Apache-2.0

// One static block and two cursors. An element of the NAS queue is received straight into the
// block, so the delivered bytes start at its first byte and the element's length lies behind them.

#include "server/at_stream.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "channel/mdx_register.h"
#include "platform/bounded.h"

namespace {

constexpr mdx_trace_source_t kSource = MDX_FROM_LINE;

/// A budget in seconds as the milliseconds of one wait.
int32_t wait_milliseconds(int32_t seconds) {
  constexpr int64_t kLongest = std::numeric_limits<int32_t>::max();
  return static_cast<int32_t>(std::clamp<int64_t>(int64_t{seconds} * 1000, 0, kLongest));
}

/// Bytes that were read are zero already, so the unread ones and the element's length are what is
/// left.
void clear(at_stream_t* stream) {
  std::fill(stream->p_cur, stream->p_end, '\0');
  memset_s(stream->data + offsetof(nas_element_t, length), sizeof(uint16_t), 0, sizeof(uint16_t));
  stream->p_cur = stream->data;
  stream->p_end = stream->data;
}

}  // namespace

int32_t read_from_smd(at_msg_t* msg, int* retcode) {
  if (msg == nullptr || retcode == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "error,msg  or retcodeis null!\n");
    return -1;
  }
  at_stream_t& stream = mdx_state.stream;
  memset_s(msg->snd_rcv_msg.rmsg, sizeof(msg->snd_rcv_msg.rmsg), 0, MAX_ATCMD_REPORT_SIZE);
  clear(&stream);

  const int32_t received = MDX_msgQ_recv(mdx_state.nas_queue_id, stream.data, sizeof(nas_element_t),
                                         wait_milliseconds(msg->timeout));
  if (received == -1) {
    MDX_TRACE(kSource, MDX_TRACE_MISSING, "No data from NAS!\n");
    return -1;
  }
  uint16_t length = 0;
  std::memcpy(&length, stream.data + offsetof(nas_element_t, length), sizeof(length));
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "Read NAS data length %d, Content is :***\n", length);
  stream.p_end += std::min<uint32_t>(length, kDeliveryMax);
  return 0;
}

int32_t at_sm_is_rcv_buf_empty(const at_stream_t* p_strm) {
  if (p_strm == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "at_sm_is_rcv_buf_empty : error ,p_strm is NULL!\n");
    return -1;
  }
  if (p_strm->p_cur != p_strm->p_end) return -1;
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "p_strm->p_cur: pos = %d\n",
            static_cast<int>(p_strm->p_cur - p_strm->data));
  return 0;
}

int32_t at_sm_getchar(char* ch) {
  at_stream_t& stream = mdx_state.stream;
  if (ch == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "at_sm_getchar : error ,ch is NULL!\n");
    return -1;
  }
  if (stream.p_cur == stream.p_end) {
    MDX_TRACE(kSource, MDX_TRACE_FLOW, ": error ,return!\n");
    return -1;
  }
  // No delivery reaches the block's last byte, so this is where the block ends.
  if (stream.p_cur == stream.data + sizeof(stream.data) - 1) stream.p_cur = stream.data;
  *ch = *stream.p_cur;
  *stream.p_cur++ = '\0';
  return 0;
}

int32_t at_sm_get_line(char* text) {
  at_stream_t& stream = mdx_state.stream;
  const auto unread = static_cast<size_t>(stream.p_end - stream.p_cur);
  if (unread == 0) return -1;
  const auto* cr = static_cast<const char*>(std::memchr(stream.p_cur, '\r', unread));
  if (cr == nullptr || cr + 1 == stream.p_end || cr[1] != '\n') return -1;
  const auto size = static_cast<size_t>(cr - stream.p_cur);
  std::memcpy(text, stream.p_cur, size);
  std::memset(stream.p_cur, 0, size + 2);
  stream.p_cur += size + 2;
  return static_cast<int32_t>(size);
}

int32_t at_sm_get_buf(char* msg_buf, int32_t buf_length) {
  if (msg_buf == nullptr || buf_length == 0) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR,
              "at_sm_getchar : error ,msg_buf is NULL or buf_length == 0\n");
    return -1;
  }
  for (int32_t i = 0; i < buf_length; ++i) {
    if (at_sm_getchar(msg_buf + i) == 0) continue;
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "at_sm_getchar return error!\n");
    return -1;
  }
  return 0;
}

int32_t at_find_last_of_char(char ch) {
  const at_stream_t& stream = mdx_state.stream;
  for (const char* p = stream.p_end; p != stream.p_cur; --p) {
    if (p[-1] != ch) continue;
    const int32_t length = static_cast<int32_t>(p - stream.p_cur);
    MDX_TRACE(kSource, MDX_TRACE_DETAIL, "at_find_last_of_char: have found [%c],length = %d \n", ch,
              length);
    return length;
  }
  return 0;
}
