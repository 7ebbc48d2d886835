// SPDX-License-Identifier: Apache-2.0

// Binds a socket so that its mode is never wider than asked, whatever the umask says.

#include "platform/linux/local_socket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/linux/identity.h"
#include "platform/mdx_platform.h"

namespace {

constexpr int kBacklog = 16;

bool bind_and_listen(int fd, const char* path, mode_t mode) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const int length = snprintf(address.sun_path, sizeof(address.sun_path), "%s", path);
  if (static_cast<size_t>(length) >= sizeof(address.sun_path)) return false;
  // The socket's mode goes over to the path; the chmod gives back what the umask took.
  if (fchmod(fd, mode) != 0 ||
      bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
    return false;
  if ((mode & S_IRWXG) != 0) identity_give_to_group(path);
  return chmod(path, mode) == 0 && listen(fd, kBacklog) == 0;
}

}  // namespace

int local_socket_listen(const char* path, int type, mode_t mode, complaint* told) {
  const int fd = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
  const bool listens = fd >= 0 && bind_and_listen(fd, path, mode);
  const int error = listens ? 0 : errno;
  if (told->is_news(error)) {
    MDX_TRACE(MDX_FROM_PLATFORM, MDX_TRACE_ERROR, "nobody can connect to %s: %s\n", path,
              strerror(error));
  }
  if (listens) return fd;
  if (fd >= 0) close(fd);
  return -1;
}
