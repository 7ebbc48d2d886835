// mdxctl console: one line to the server's debug console, and what it prints.

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>

#include "platform/linux/border.h"
#include "tools/mdxctl/commands.h"
#include "tools/mdxctl/exit_codes.h"

namespace {

constexpr int kAnswerWaitMs = 5000;
/// An answer has no end mark: it is over when the console closes, or says no more for this long.
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

int no_console(int system_error) {
  if (system_error == EACCES || system_error == EPERM) {
    std::cerr << "mdxctl: permission denied: only the server's own user may use its console"
              << std::endl;
    return EXIT_REFUSED;
  }
  std::cerr << "mdxctl: " << mdx_strerror(MDX_ERR_NO_SERVER) << std::endl;
  return EXIT_NO_SERVER;
}

/// @return whether anything came
bool print_answer(int fd) {
  bool any = false;
  for (;;) {
    pollfd console = {fd, POLLIN, 0};
    if (poll(&console, 1, any ? kSilenceMs : kAnswerWaitMs) <= 0) return any;
    char text[4096];
    const ssize_t size = read(fd, text, sizeof(text));
    if (size <= 0) return any || size == 0;
    std::cout.write(text, size) << std::flush;
    any = true;
  }
}

}  // namespace

int run_console(const console_arguments_t& arguments) {
  std::string line = arguments.module;
  for (const std::string& word : arguments.words) line += ' ' + word;
  line += '\n';
  const int fd = connect_console();
  if (fd < 0) return no_console(errno);
  const bool sent =
      send(fd, line.data(), line.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(line.size());
  const bool answered = sent && print_answer(fd);
  close(fd);
  if (answered) return EXIT_OK;
  std::cerr << "mdxctl: " << mdx_strerror(sent ? MDX_ERR_TIMEOUT : MDX_ERR_SERVER_GONE)
            << std::endl;
  return sent ? EXIT_NO_ANSWER : EXIT_NO_SERVER;
}
