// SPDX-License-Identifier: Apache-2.0

// A pipe that nobody reads, or a terminal that somebody has stopped, must not stop the server.
//
// Not to wait is a property of an open file, which others may hold as well: a shell would not
// expect it of its terminal. So the file is opened anew for this process. A socket cannot be; the
// one that systemd gives is this service's own. What can be neither is given up.

#include "platform/linux/standard_output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// Files and null devices take everything at once.
bool may_wait(const struct stat& status) {
  return S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode) ||
         (S_ISCHR(status.st_mode) && isatty(STDOUT_FILENO) != 0);
}

bool make_socket_return() {
  const int flags = fcntl(STDOUT_FILENO, F_GETFL);
  return flags >= 0 && fcntl(STDOUT_FILENO, F_SETFL, flags | O_NONBLOCK) == 0;
}

bool replace_by(const char* path) {
  const int fresh = open(path, O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (fresh < 0) return false;
  const bool replaced = dup3(fresh, STDOUT_FILENO, 0) == STDOUT_FILENO;
  close(fresh);
  return replaced;
}

}  // namespace

void standard_output_never_waits() {
  struct stat status {};
  if (fstat(STDOUT_FILENO, &status) != 0 || !may_wait(status)) return;
  if (S_ISSOCK(status.st_mode) ? make_socket_return() : replace_by("/proc/self/fd/1")) return;
  replace_by("/dev/null");
}
