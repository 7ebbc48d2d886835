// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxbridge/place.h"

#include <grp.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <thread>
#include <vector>

#include "tools/mdxbridge/hash.h"
#include "tools/mdxbridge/journal.h"

namespace mdxbridge {

namespace {

constexpr char kGroup[] = "mdxgate";

struct address_t {
  sockaddr_un name{};
  socklen_t length = 0;

  const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&name); }
};

address_t address_of(const std::string& name) {
  const std::string text = "mdxbridge " + hex_of(hash_of(name));
  address_t address;
  address.name.sun_family = AF_UNIX;
  const size_t size = text.copy(address.name.sun_path + 1, sizeof(address.name.sun_path) - 1);
  address.length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + size);
  return address;
}

int new_socket() { return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); }

bool has_group(int fd, gid_t first) {
  const group* entry = getgrnam(kGroup);
  if (entry == nullptr) return false;
  constexpr size_t kMost = 65536;  // of Linux
  std::vector<gid_t> groups(kMost);
  auto size = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
  if (getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size) != 0) size = 0;
  groups.resize(size / sizeof(gid_t));
  groups.push_back(first);
  return std::find(groups.begin(), groups.end(), entry->gr_gid) != groups.end();
}

/// @param caller  connected to the holder, if `known`
bool is_bridge(int caller, bool known) {
  ucred holder{};
  socklen_t size = sizeof(holder);
  known = known && getsockopt(caller, SOL_SOCKET, SO_PEERCRED, &holder, &size) == 0;
  if (known && (holder.uid == 0 || holder.uid == getuid() || has_group(caller, holder.gid))) {
    return true;
  }
  journal((known ? "user " + std::to_string(holder.uid) : std::string("somebody")) +
          ", whom the server does not serve, has the name by which a second bridge with this ID "
          "would be found on this machine: going on without it");
  return false;
}

}  // namespace

place_t::place_t(const std::string& name) : fd_(new_socket()) {
  const address_t address = address_of(name);
  constexpr int kTries = 20;
  constexpr std::chrono::milliseconds kPause{50};
  for (int i = 0; bind(fd_, address.get(), address.length) != 0; ++i) {
    if (errno != EADDRINUSE) return;
    const int caller = new_socket();
    const bool known = connect(caller, address.get(), address.length) == 0;
    // The holder went just now, or has not yet come to listen.
    const bool again = !known && errno == ECONNREFUSED && i < kTries;
    if (!again) anothers_ = is_bridge(caller, known);
    close(caller);
    if (!again) return;
    std::this_thread::sleep_for(kPause);
  }
  listen(fd_, SOMAXCONN);
}

place_t::~place_t() { close(fd_); }

void place_t::let_go_of_callers() const {
  constexpr int kAtOnce = 64;
  for (int i = 0; i < kAtOnce; ++i) {
    const int caller = accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (caller < 0) return;
    close(caller);
  }
}

}  // namespace mdxbridge
