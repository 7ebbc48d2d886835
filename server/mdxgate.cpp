// SPDX-License-Identifier: Apache-2.0

// The process, as a table of contents: what has to exist before the first command can be served,
// and the state machine that from then on decides what the main thread does next.

#include "server/mdxgate.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "channel/mdx_register.h"
#include "platform/bounded.h"
#include "platform/mdx_platform.h"
#include "reports/stored_report.h"
#include "server/at_stream.h"
#include "server/client_request.h"
#include "server/mdx_msgproc.h"
#include "server/mdx_state.h"
#include "server/modem_setup.h"
#include "server/nas_request.h"
#include "wire/destinations.h"

namespace {

constexpr mdx_trace_source_t kSource = MDX_FROM_SERVER;
constexpr char kModule[] = "mdxgate";
constexpr char kPidFolder[] = "/var/run/pidfile/";
constexpr char kPidFile[] = "/var/run/pidfile/mdxgate.pid";
constexpr char kReadyFlag[] = "/var/mdx_ready.flg";
constexpr char kFirstRssiReport[] = "^RSSI: 0";
constexpr int32_t kNotifyClient = 31;
constexpr int32_t kStartLog = 2;
constexpr mode_t kPidFolderMode = 0750;
constexpr uint32_t kChannelRetryMs = 1000;

constexpr uint32_t kEventMask = 7;
constexpr int32_t kNoTimeout = -1;
/// What an event bit leaves in the ring, in the order in which one receive is served.
struct pending_t {
  uint32_t bit;
  int32_t ring_value;
};
constexpr int32_t kPendingClient = 2;
constexpr int32_t kPendingNas = 3;
constexpr pending_t kPending[] = {{1, kPendingClient}, {2, kPendingNas}, {4, 4}};

constexpr int32_t kQueueDepth = 10;
/// The NAS queue's elements have room to spare; 1502 bytes travel.
constexpr int32_t kNasElementRoom = 1516;

bool make_pid_folder() {
  const int folder = open(kPidFolder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder >= 0) {
    MDX_TRACE(kSource, MDX_TRACE_DETAIL, "pidfile folder is exist.\n");
    close(folder);
    return true;
  }
  if (mkdir(kPidFolder, kPidFolderMode) != 0) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "pidfile folder create failed.\n");
    mlog_print(kModule, kStartLog, "mdx pidfile folder create failed.");
    return false;
  }
  KRP_UTIL_RemoveAndroidWPerm(kPidFolder, "750");
  return true;
}

/// A new file or an emptied one. No FILE: its buffers would stay with the process.
int make_file(const char* path) { return open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666); }

void write_pid_file() {
  const int file = make_file(kPidFile);
  if (file < 0) {
    MDX_TRACE(kSource, MDX_TRACE_DETAIL, "open pid file failed.\n");
    mlog_print(kModule, kStartLog, "mdx open pid file failed.");
    return;
  }
  dprintf(file, "%d", getpid());
  MDX_TRACE(kSource, MDX_TRACE_DETAIL, "create syswatch pid file success.\n");
  close(file);
  KRP_UTIL_RemoveAndroidWPerm(kPidFile, "640");
}

void clear_stores() {
  at_stream_t& stream = mdx_state.stream;
  at_answer_t& report = mdx_rssi_report;
  memset_s(stream.data, sizeof(stream.data), 0, sizeof(stream.data));
  memset_s(&report, sizeof(report), 0, sizeof(report));
  report.ret_val = AT_OK;
  memcpy_s(report.snd_rcv_msg.rmsg, sizeof(report.snd_rcv_msg.rmsg), kFirstRssiReport,
           sizeof(kFirstRssiReport));
  stream.p_cur = stream.data;
  stream.p_end = stream.data;
}

/// A queue that an earlier run left behind holds requests of clients that no longer wait: it goes.
bool create_client_queue(int32_t number, int32_t* id) {
  const int32_t leftover = MDX_get_msgQ_id(number);
  if (leftover != -1) MDX_msgQex_delete(leftover);
  *id = MDX_msgQex_create(number, kQueueDepth, sizeof(at_msg_t));
  return *id != -1;
}

bool create_nas_queue() {
  constexpr int32_t kNasQueue = 3;
  const int32_t leftover = MDX_get_msgQ_id(kNasQueue);
  if (leftover != -1) MDX_msgQ_delete(leftover);
  mdx_state.nas_queue_id = MDX_msgQ_create(kNasQueue, kQueueDepth, kNasElementRoom);
  return mdx_state.nas_queue_id != -1;
}

void create_queues() {
  const bool created = create_client_queue(2, &mdx_state.req_queue_id) &&
                       create_client_queue(1, &mdx_state.rsp_queue_id) && create_nas_queue();
  if (!created) MDX_TRACE(kSource, MDX_TRACE_ERROR, "Error: create msg queue failed\n");
}

/// @return false when the process can't go on
bool start_up() {
  if (make_pid_folder()) write_pid_file();
  clear_stores();
  MDX_event_init(kEventMask);
  mdx_state.ring_head = 0;
  mdx_state.ring_tail = 0;
  create_queues();
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "main(): before KRP_MSG_Init\n");
  if (KRP_MSG_Init(kModule) != 0) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "KRP_MSG_Init failed!\n");
  }
  mdx_start_msgproc_thread();
  if (KRP_NOTIFYCLT_Init(kNotifyClient) != 0) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "KRP_NOTIFYCLT_Init failed!\n");
    return false;
  }
  KRP_UTIL_DropAndroidRootPrivileges();
  mdx_state.main_task_id = MDX_task_getid();
  return true;
}

void wait_wm_ready() {
  while (mdx_register_nas_channel() != 1) MDX_sleep(kChannelRetryMs);
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "wait_wm_ready: device is ready!\n");
}

void raise_ready_flag() {
  const int flag = make_file(kReadyFlag);
  if (flag < 0) {
    dprintf(STDOUT_FILENO, "mdx create ready flag file failed.\n");
  } else {
    close(flag);
  }
  KRP_UTIL_RemoveAndroidWPerm(kReadyFlag, "664");
}

int32_t init_pass(int* retcode) {
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "mdx state machine: enter AT_INIT_S!\n");
  wait_wm_ready();
  const int32_t done = mdx_cmee(retcode);
  if (done == -1) MDX_TRACE(kSource, MDX_TRACE_ERROR, "Error:mdx_cmee failed, ret=%d\n", done);
  mdx_notify_krp_datacard_inserted();
  raise_ready_flag();
  return AT_IDLE_S;
}

int32_t idle_pass() {
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "mdx state machine: enter AT_IDLE_S!\n");
  if (mdx_state.ring_head != mdx_state.ring_tail) {
    const int32_t value = mdx_ring_pop();
    if (value == kPendingClient) return AT_PROCESS_CLIENT_S;
    if (value == kPendingNas) return AT_PROCESS_NAS_S;
  }
  uint32_t bits = 0;
  if (MDX_event_recv(kEventMask, kNoTimeout, &bits) == 0) {
    MDX_TRACE(kSource, MDX_TRACE_ERROR, "Error: Receive the event failed!\n");
    return AT_IDLE_S;
  }
  for (const pending_t& pending : kPending) {
    if ((bits & pending.bit) != 0) mdx_ring_push(pending.ring_value);
  }
  return AT_IDLE_S;
}

int32_t client_pass(int* retcode) {
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "mdx state machine: enter AT_PROCESS_CLIENT_S!\n");
  while (MDX_msgQex_num(mdx_state.req_queue_id) > 0) {
    *retcode = -1;
    process_msg_queue(retcode);
  }
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "AT_PROCESS_CLIENT_S ----->AT_IDLE_S\n");
  return AT_IDLE_S;
}

int32_t nas_pass(int* retcode) {
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "mdx state machine: enter AT_PROCESS_NAS_S!\n");
  // An exchange may have read what the bit was raised for.
  if (MDX_msgQ_num(mdx_state.nas_queue_id) > 0) process_nas_queue(retcode);
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "AT_PROCESS_NAS_S -->AT_IDLE_S\n");
  return AT_IDLE_S;
}

}  // namespace

void mdx_ring_push(int32_t value) {
  for (int32_t i = mdx_state.ring_tail; i != mdx_state.ring_head; i = (i + 1) % kStateRingSize) {
    if (mdx_state.state_ring[i] == value) return;
  }
  if (mdx_state.ring_head < 0) return;
  const int32_t next = (mdx_state.ring_head + 1) % kStateRingSize;
  if (next == mdx_state.ring_tail) return;
  mdx_state.state_ring[mdx_state.ring_head] = value;
  mdx_state.ring_head = next;
}

int32_t mdx_ring_pop() {
  const int32_t value = mdx_state.state_ring[mdx_state.ring_tail];
  mdx_state.ring_tail = (mdx_state.ring_tail + 1) % kStateRingSize;
  return value;
}

int32_t mdx_state_pass(int32_t state) {
  int retcode = 0;
  // The console reads the state from its own thread.
  __atomic_store_n(&mdx_state.at_state, state, __ATOMIC_RELAXED);
  switch (state) {
    case AT_INIT_S:
      return init_pass(&retcode);
    case AT_IDLE_S:
      return idle_pass();
    case AT_PROCESS_CLIENT_S:
      return client_pass(&retcode);
    case AT_PROCESS_NAS_S:
      return nas_pass(&retcode);
    default:
      MDX_TRACE(kSource, MDX_TRACE_FLOW, "mdx state machine is default, go to AT_IDLE_S!\n");
      return AT_IDLE_S;
  }
}

void mdx_notify_krp_datacard_inserted() {
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "mdx_notify_krp_datacard_inserted(): enter\n");
  KRP_MSG_SendSimpleMsg(kServiceCms, CMS_MSG_DATACARD_INSERTED, 0);
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "mdx_notify_krp_datacard_inserted(): leave\n");
}

void mdx_exit() {
  MDX_msgQex_delete(mdx_state.req_queue_id);
  MDX_msgQex_delete(mdx_state.rsp_queue_id);
  MDX_msgQ_delete(mdx_state.nas_queue_id);
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "MdxGate message queue destoried!\n");
  if (mdx_state.msgproc_thread != 0) pthread_join(mdx_state.msgproc_thread, nullptr);
  mdx_state.msgproc_thread = 0;
  MDX_TRACE(kSource, MDX_TRACE_FLOW, "MdxGate exit!\n");
}

int main() {
  mdx_state_init();
  if (!start_up()) return -1;
  int32_t state = AT_INIT_S;
  for (;;) state = mdx_state_pass(state);
}
