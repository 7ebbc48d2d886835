// SPDX-License-Identifier: Apache-2.0

// From root to user `mdxgate`, with one capability held back for one file.
//
// The ready flag is made in a folder that only root may write, after root was given up. So the main
// thread keeps CAP_DAC_OVERRIDE until the flag got its mode; no other thread ever has it. The C
// library carries a change of user to all threads, but a capability belongs to one thread.

#include "platform/linux/privileges.h"

#include <grp.h>
#include <linux/capability.h>
#ifdef __GLIBC__
#include <malloc.h>
#endif
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/linux/identity.h"
#include "platform/linux/record_queue.h"
#include "platform/mdx_platform.h"
#include "wire/border.h"

namespace {

constexpr uint32_t kReadyFlagCapability = 1u << CAP_DAC_OVERRIDE;
constexpr unsigned long kOctal = 8;
constexpr unsigned long kModeBits = 07777;

constinit std::atomic<uint32_t> capability_held{
    0};  ///< a word: not every processor exchanges bytes

/// Leaves the calling thread these capabilities of the first 32, and none else, to use now or
/// later.
bool set_capabilities(uint32_t kept, uint32_t usable) {
  __user_cap_header_struct header{};
  header.version = _LINUX_CAPABILITY_VERSION_3;
  __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3]{};
  data[0].effective = usable;
  data[0].permitted = kept;
  return syscall(SYS_capset, &header, data) == 0;
}

/// Of the process.
void set_attribute(int option, unsigned long value) { prctl(option, value, 0, 0, 0); }

/// @return what was refused, null when the process is the other user now
const char* change_user(const mdx_identity_t& identity) {
  const gid_t group = identity.has_group ? identity.group : identity.user_group;
  if (setgroups(identity.count, identity.groups) != 0) return "its groups";
  if (setresgid(group, group, group) != 0) return "its group";
  if (setresuid(identity.user, identity.user, identity.user) != 0) return "its user id";
  return nullptr;
}

/// The start reads folders and writes files, whose buffers the C library would keep for good.
void give_back_free_heap() {
#ifdef __GLIBC__
  malloc_trim(0);
#endif
}

void drop_root() {
  const mdx_identity_t& identity = mdx_identity();
  if (geteuid() != 0) {
    MDX_TRACE(MDX_FROM_PLATFORM, MDX_TRACE_MISSING, "not started as root: stays user %u\n",
              static_cast<unsigned>(geteuid()));
    return;
  }
  if (!identity.has_user) {
    MDX_TRACE(MDX_FROM_PLATFORM, MDX_TRACE_MISSING, "no user %s: stays root\n", kMdxUser);
    return;
  }
  set_attribute(PR_SET_KEEPCAPS, 1);
  const char* refused = change_user(identity);
  set_attribute(PR_SET_KEEPCAPS, 0);
  if (refused != nullptr) {
    MDX_TRACE(MDX_FROM_PLATFORM, MDX_TRACE_ERROR,
              "cannot become user %s, %s is refused: stays root\n", kMdxUser, refused);
    return;
  }
  capability_held.store(set_capabilities(kReadyFlagCapability, kReadyFlagCapability) ? 1 : 0);
  if (capability_held.load() == 0) {
    MDX_TRACE(MDX_FROM_PLATFORM, MDX_TRACE_ERROR, "capabilities are refused: %s\n",
              strerror(errno));
  }
}

}  // namespace

void privileges_forbid_gain() { set_attribute(PR_SET_NO_NEW_PRIVS, 1); }

void privileges_enter_thread() {
  if (capability_held.load() != 0) set_capabilities(0, 0);
}

void privileges_set_aside() {
  if (capability_held.load() != 0) set_capabilities(kReadyFlagCapability, 0);
}

void privileges_take_up() {
  if (capability_held.load() != 0) set_capabilities(kReadyFlagCapability, kReadyFlagCapability);
}

void KRP_UTIL_DropAndroidRootPrivileges() {
  record_queues_settle();
  drop_root();
  give_back_free_heap();
}

void KRP_UTIL_RemoveAndroidWPerm(const char* path, const char* mode) {
  if (path == nullptr || mode == nullptr) return;
  char* end = nullptr;
  const unsigned long bits = strtoul(mode, &end, kOctal);
  if (end == mode || *end != '\0' || bits > kModeBits) {
    MDX_TRACE(MDX_FROM_PLATFORM, MDX_TRACE_ERROR, "no mode for %s\n", path);
  } else if (chmod(path, static_cast<mode_t>(bits)) != 0) {
    MDX_TRACE(MDX_FROM_PLATFORM, MDX_TRACE_ERROR, "no mode %s for %s: %s\n", mode, path,
              strerror(errno));
  }
  if (capability_held.exchange(0) != 0) set_capabilities(0, 0);
}
