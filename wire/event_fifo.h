// SPDX-License-Identifier: Apache-2.0

// An event set as other processes see it: a FIFO that takes four bytes a raise.
//
// Both sides of the process border include this file: the platform, which raises at clients, and
// the client library, which raises at the server. A FIFO without a reader belongs to a dead task.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

/// Room for the path of any task's FIFO, its NUL included.
constexpr size_t kEventPathSize = 48;

/// The group raises, and cannot read another's raises away.
constexpr mode_t kEventMode = 0620;

/// Room for the name of any PID namespace, its NUL included.
constexpr size_t kPidNamespaceSize = 32;

/// Reads which PID namespace a symbolic link names, such as "pid:[4026531836]".
/// @return false, with errno, when there is no such link
bool read_pid_namespace(const char* link, char (&name)[kPidNamespaceSize]);

/// Writes the path of a client's FIFO to `path`.
void event_fifo_path(int32_t task_id, char (&path)[kEventPathSize]);

/// Makes a FIFO anew and opens it for reading, non-blocking; it never reports end of file. One of
/// the same user's that an earlier task of that number left behind is replaced.
/// @return a descriptor, or -1 with errno: EPERM, EEXIST or EISDIR when something of somebody
///         else's bears the name
int event_fifo_create(const char* path, mode_t mode = kEventMode);

/// Opens a FIFO for raising. A symbolic link or anything that is no FIFO is refused with EINVAL.
/// @return a descriptor, which polls as POLLERR as soon as the task has died; or -1 with errno:
///         ENXIO when its task is dead, ENOENT when there is none
int event_fifo_open(const char* path);

/// Raises bits. A full pipe counts as raised only for bits the reader is bound to look at anyway.
/// @return 0; EAGAIN when the pipe is full, EPIPE when the task has died (no SIGPIPE comes)
int event_fifo_raise(int fd, uint32_t bits);

/// Takes all raises waiting in the pipe, without waiting for one; of one who writes without pause,
/// a pipe's full.
/// @return the bits, 0 when there was none; all 32 when the pipe may have been full or held
///         something else than raises, since any raise may have been lost in it then
/// @param take_ticket  is given each ticket (border.h) in their order, the first thousand or so;
///                     it counts as a raise of kMdxEventRequest
uint32_t event_fifo_take(int fd, void (*take_ticket)(uint32_t ticket) = nullptr);
