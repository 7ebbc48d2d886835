// SPDX-License-Identifier: Apache-2.0

// A queue can be removed by its owner, by who made it, and by who holds CAP_SYS_ADMIN, which is too
// much for this server to be given. But root becomes the owner for the length of one call.

#include "platform/linux/queue_key.h"

#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "platform/linux/identity.h"
#include "platform/linux/monotonic.h"
#include "wire/border.h"

#ifndef MSG_STAT_ANY
#define MSG_STAT_ANY 13
#endif

namespace {

constexpr uint64_t kPatienceMs = 5000;
constexpr int kIndexBits = 0x7fff;  // of a kernel id: its place in the table of queues
constexpr mode_t kQueueMode = 0660;

/// Changes this thread's user alone; the C library's function would change all of them.
bool act_as(uid_t user) {
  constexpr auto kStays = static_cast<uid_t>(-1);
#ifdef SYS_setresuid32
  return syscall(SYS_setresuid32, kStays, user, kStays) == 0;
#else
  return syscall(SYS_setresuid, kStays, user, kStays) == 0;
#endif
}

/// Depth and rights of a new queue.
bool set_up(int32_t id, int32_t bytes) {
  msqid_ds status{};
  if (msgctl(id, IPC_STAT, &status) != 0) return false;
  const mdx_identity_t& identity = mdx_identity();
  const uid_t own_user = status.msg_perm.uid;
  const gid_t own_group = status.msg_perm.gid;
  status.msg_qbytes = static_cast<msglen_t>(bytes);
  status.msg_perm.mode = kQueueMode;
  if (identity.has_group) status.msg_perm.gid = identity.group;
  if (identity.has_user && geteuid() == 0) status.msg_perm.uid = identity.user;
  if (msgctl(id, IPC_SET, &status) == 0) return true;
  // Ids that this world does not know are refused; depth and mode still count.
  status.msg_perm.uid = own_user;
  status.msg_perm.gid = own_group;
  return msgctl(id, IPC_SET, &status) == 0;
}

int32_t make(int32_t number, int32_t bytes) {
  const int32_t id = msgget(kMdxQueueKey + number, IPC_CREAT | IPC_EXCL | 0600);
  if (id < 0 || set_up(id, bytes)) return id;
  const int error = errno;
  msgctl(id, IPC_RMID, nullptr);
  errno = error;
  return -1;
}

}  // namespace

int queue_key_remove(int32_t kernel_id) {
  if (msgctl(kernel_id, IPC_RMID, nullptr) == 0) return 0;
  msqid_ds status{};
  if (errno != EPERM || geteuid() != 0) return -1;
  if (msgctl(kernel_id & kIndexBits, MSG_STAT_ANY, &status) != kernel_id ||
      !act_as(status.msg_perm.uid)) {
    errno = EPERM;
    return -1;
  }
  const int removed = msgctl(kernel_id, IPC_RMID, nullptr);
  const int error = errno;
  act_as(0);
  errno = error;
  return removed;
}

int32_t queue_key_take(int32_t number, int32_t bytes) {
  const uint64_t deadline = monotonic_ms() + kPatienceMs;
  for (;;) {
    const int32_t id = make(number, bytes);
    if (id >= 0 || errno != EEXIST) return id;
    const int32_t foreign = msgget(kMdxQueueKey + number, 0);
    const bool removed =
        foreign < 0 || queue_key_remove(foreign) == 0 || errno == EIDRM || errno == EINVAL;
    if (removed && monotonic_ms() < deadline) continue;
    errno = EEXIST;
    return -1;
  }
}
