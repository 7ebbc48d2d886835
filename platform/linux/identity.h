// SPDX-License-Identifier: Apache-2.0

// Who may use the server and who it is once it has given up root: group and user `mdxgate`, where
// the device has them.
#pragma once

#include <sys/types.h>

#include <cstddef>

constexpr size_t kMdxMoreGroups = 16;

struct mdx_identity_t {
  bool has_user;
  uid_t user;
  gid_t user_group;  ///< the user's primary group
  bool has_group;    ///< without a group `mdxgate` the user's primary group stands in for it
  gid_t group;
  size_t count;
  gid_t groups[kMdxMoreGroups];  ///< the user's own, and others; of more the first
};

/// Looks both up. Not for threads: the first call is made while the machine is claimed.
/// @return constant, lives for the process
const mdx_identity_t& mdx_identity();

/// The same of two files of the form of /etc/passwd and /etc/group.
mdx_identity_t identity_in(const char* users, const char* groups);

/// Gives what was just made to the clients' group, where there is one and this process may.
void identity_give_to_group(const char* path);
