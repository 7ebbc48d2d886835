// SPDX-License-Identifier: Apache-2.0

// Runs beside the main thread and shares nothing with it: the one message it acts on goes straight
// to the platform.

#include "server/mdx_msgproc.h"

#include <pthread.h>

#include <cstring>

#include "platform/mdx_platform.h"
#include "server/mdx_state.h"
#include "wire/destinations.h"

namespace {

constexpr mdx_trace_source_t kSource = MDX_FROM_SERVER;
constexpr size_t kLengthOffset = 36;

uint32_t word_at(const void* packet, size_t offset) {
  uint32_t word = 0;
  std::memcpy(&word, static_cast<const char*>(packet) + offset, sizeof(word));
  return word;
}

}  // namespace

void mdx_start_msgproc_thread() {
  mdx_state.msgproc_thread = MDX_pthread_create(0, 0, 0, mdx_msgproc_thread, 0);
}

void mdx_msgproc_thread() {
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "mdx_msgproc_thread(): enter\n");
  KRP_MSG_RegisterMsgProc(mdx_msgproc);
  KRP_UTIL_SockBaseStart(0);
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "mdx_msgproc_thread(): leave\n");
  pthread_exit(nullptr);
}

void mdx_msgproc(const void* packet) {
  if (packet == nullptr) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "mdx_msgproc(): NULL==packet\n");
    return;
  }
  const uint32_t type = word_at(packet, 0);
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "mdx_msgproc(): enter\n");
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "mdx_msgproc(): msg type=%x.\n", type);
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "mdx_msgproc(): msg length=%x.\n",
            word_at(packet, kLengthOffset));
  if (type == SERVER_MSG_UNINSTALL) {
    MDX_TRACE(kSource, MDX_TRACE_FLOW, "mdx_msgproc(): received Uninstall datacard message\n");
    Q7_App_Ungister();
  } else {
    MDX_TRACE(kSource, MDX_TRACE_FLOW, "mdx_msgproc(): unexpected message type %x\n", type);
    KRP_MSG_DefaultMsgProc(packet);
  }
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "mdx_msgproc(): leave\n");
}
