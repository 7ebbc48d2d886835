// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxctl/server_queues.h"

#include <sys/ipc.h>
#include <sys/msg.h>

#include "wire/border.h"

std::optional<queue_depth_t> queue_depth(int32_t number) {
  msqid_ds status{};
  const int queue = msgget(kMdxQueueKey + number, 0);
  if (queue < 0 || msgctl(queue, IPC_STAT, &status) != 0) return std::nullopt;
  return queue_depth_t{status.msg_qnum, status.msg_qbytes / kMdxRecordSize};
}
