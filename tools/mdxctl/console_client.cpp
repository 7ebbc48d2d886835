// SPDX-License-Identifier: Apache-2.0

// The console serves one client at a time and closes behind its answer. Another client may hold it
// for some seconds, so the wait is long at first and short once something has come.

#include "tools/mdxctl/console_client.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "client/mdxclient.h"
#include "wire/border.h"

namespace {

constexpr int kAnswerWaitMs = 5000;
constexpr int kSilenceMs = 500;

int connect_console() {
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un console{};
  console.sun_family = AF_UNIX;
  std::memcpy(console.sun_path, kMdxConsolePath, sizeof(kMdxConsolePath));
  if (connect(fd, reinterpret_cast<const sockaddr*>(&console), sizeof(console)) == 0) return fd;
  const int system_error = errno;
  close(fd);
  errno = system_error;
  return -1;
}

int read_answer(int fd, const std::function<void(const std::string&)>& take) {
  bool any = false;
  for (;;) {
    pollfd console = {fd, POLLIN, 0};
    const int ready = poll(&console, 1, any ? kSilenceMs : kAnswerWaitMs);
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return any ? MDX_OK : MDX_ERR_TIMEOUT;
    char text[4096];
    const ssize_t size = read(fd, text, sizeof(text));
    if (size == 0) return MDX_OK;
    if (size < 0) return any ? MDX_OK : MDX_ERR_SERVER_GONE;
    take(std::string(text, static_cast<size_t>(size)));
    any = true;
  }
}

}  // namespace

int ask_console(const std::string& line, const std::function<void(const std::string&)>& take) {
  const int fd = connect_console();
  if (fd < 0) return errno == EACCES || errno == EPERM ? MDX_ERR_ACCESS : MDX_ERR_NO_SERVER;
  const std::string sent = line + '\n';
  const bool taken =
      send(fd, sent.data(), sent.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(sent.size());
  const int error = taken ? read_answer(fd, take) : MDX_ERR_SERVER_GONE;
  close(fd);
  return error;
}

int ask_console(const std::string& line, std::string* answer) {
  answer->clear();
  const int error = ask_console(line, [answer](const std::string& text) { *answer += text; });
  if (error != MDX_OK) answer->clear();
  return error;
}

std::string console_error_text(int error) {
  switch (error) {
    case MDX_ERR_ACCESS:
      return "permission denied: only root may use the server's console; try sudo";
    case MDX_ERR_TIMEOUT:
      return "the console did not answer: another client may hold it, try again in some seconds";
    default:
      return mdx_strerror(error);
  }
}
