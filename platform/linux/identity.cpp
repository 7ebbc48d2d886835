// SPDX-License-Identifier: Apache-2.0

// Looks up user and group once; the lookup may read files that a daemon without rights cannot.

#include "platform/linux/identity.h"

#include <grp.h>
#include <pwd.h>
#ifdef __GLIBC__
#include <nss.h>
#endif

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

#include "wire/border.h"

namespace {

constexpr size_t kLookupSize = 16384;  // the group's member list goes in here

/// User and group stand in /etc/passwd and /etc/group. Other modules of the name service would be
/// mapped for good, 300 kB of them, and crash a statically linked program.
void read_files_only() {
#ifdef __GLIBC__
  __nss_configure_lookup("passwd", "files");
  __nss_configure_lookup("group", "files");
  __nss_configure_lookup("initgroups", "files");
#endif
}

mdx_identity_t look_up() {
  read_files_only();
  mdx_identity_t identity{};
  auto* buffer = static_cast<char*>(malloc(kLookupSize));
  if (buffer == nullptr) return identity;
  passwd user{};
  passwd* found_user = nullptr;
  if (getpwnam_r(kMdxUser, &user, buffer, kLookupSize, &found_user) == 0 && found_user != nullptr) {
    identity.has_user = true;
    identity.user = user.pw_uid;
    identity.user_group = user.pw_gid;
    identity.has_group = true;
    identity.group = user.pw_gid;
  }
  group members{};
  group* found_group = nullptr;
  if (getgrnam_r(kMdxGroup, &members, buffer, kLookupSize, &found_group) == 0 &&
      found_group != nullptr) {
    identity.has_group = true;
    identity.group = members.gr_gid;
  }
  free(buffer);
  return identity;
}

}  // namespace

const mdx_identity_t& mdx_identity() {
  static bool known = false;
  static mdx_identity_t identity;
  if (!known) identity = look_up();
  known = true;
  return identity;
}

void identity_give_to_group(const char* path) {
  const mdx_identity_t& identity = mdx_identity();
  if (!identity.has_group) return;
  // A user of its own who is not in the group keeps what he makes for his own group.
  const bool given = lchown(path, static_cast<uid_t>(-1), identity.group) == 0;
  static_cast<void>(given);
}
