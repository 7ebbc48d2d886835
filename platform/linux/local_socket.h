// SPDX-License-Identifier: Apache-2.0

// Listening sockets of this machine: the console's and the hub's.
#pragma once

#include <sys/types.h>

#include "platform/linux/complaint.h"

/// Makes a Unix socket that listens at `path`; nobody without the rights in `mode` ever gets in.
/// One that is for a group is for the clients' group.
/// @param type  SOCK_STREAM or SOCK_SEQPACKET, with SOCK_NONBLOCK where accept must not wait
/// @param told  what has been traced of this path
/// @return a descriptor, or -1 after a trace
int local_socket_listen(const char* path, int type, mode_t mode, complaint* told);
