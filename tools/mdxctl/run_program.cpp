// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxctl/run_program.h"

#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

namespace {

/// The text as a file of its own, which no program can refuse to read.
int file_with(const std::string& text) {
  const int fd = memfd_create("report", MFD_CLOEXEC);
  if (fd < 0) return -1;
  for (size_t written = 0; written < text.size();) {
    const ssize_t size = write(fd, text.data() + written, text.size() - written);
    if (size <= 0) break;
    written += static_cast<size_t>(size);
  }
  lseek(fd, 0, SEEK_SET);
  return fd;
}

/// Ours with MDX_REPORT set.
std::vector<char*> environment_with(std::string* report) {
  std::vector<char*> variables;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    if (std::strncmp(*variable, "MDX_REPORT=", 11) != 0) variables.push_back(*variable);
  }
  variables.push_back(report->data());
  variables.push_back(nullptr);
  return variables;
}

int spawn(const std::string& program, int input, char* const* environment, pid_t* child) {
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_adddup2(&files, input, STDIN_FILENO);
  // The signals that we wait for are the program's own again.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
  std::string name = program;
  char* arguments[] = {name.data(), nullptr};
  const int error =
      posix_spawnp(child, program.c_str(), &files, &attributes, arguments, environment);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&files);
  return error;
}

/// @return false when it was told to end, because of a signal
bool wait_for_end(pid_t child, int stop_fd) {
  const int fd = static_cast<int>(syscall(SYS_pidfd_open, child, 0));
  if (fd < 0) return true;  // an old kernel: signals wait for the program
  pollfd fds[] = {{fd, POLLIN, 0}, {stop_fd, POLLIN, 0}};
  while (poll(fds, std::size(fds), -1) < 0 && errno == EINTR) continue;
  close(fd);
  if (fds[0].revents != 0) return true;
  kill(child, SIGTERM);
  return false;
}

}  // namespace

program_end_t run_program(const std::string& program, const std::string& report,
                          const std::string& input, int stop_fd) {
  program_end_t end;
  const int file = file_with(input);
  std::string variable = "MDX_REPORT=" + report;
  pid_t child = 0;
  const int error =
      file < 0 ? errno : spawn(program, file, environment_with(&variable).data(), &child);
  if (file >= 0) close(file);
  if (error != 0) {
    end.error = program + " cannot be run: " + std::strerror(error);
    return end;
  }
  end.started = true;
  end.interrupted = !wait_for_end(child, stop_fd);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  if (WIFSIGNALED(status) && !end.interrupted)
    end.error = program + " was ended by signal " + std::to_string(WTERMSIG(status));
  if (WIFEXITED(status) && WEXITSTATUS(status) != 0)
    end.error = program + " ended with " + std::to_string(WEXITSTATUS(status));
  return end;
}
