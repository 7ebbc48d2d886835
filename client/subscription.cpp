// SPDX-License-Identifier: Apache-2.0

// A receiver at the hub: one subscription goes out, packets come in.
//
// What is no packet (too short, too long, or its length field lies) is passed over. A receiver that
// waits does so in the read: one call for a packet, where a poll in front makes it three.

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "client/client_handle.h"
#include "client/mdxclient.h"
#include "client/wait_clock.h"
#include "wire/border.h"

namespace {

/// More than a hub's packet needs. Memory that no packet reaches is not taken from the system.
constexpr size_t kPacketRoom = 64 * 1024;
static_assert(kPacketRoom >= sizeof(mdx_packet_header_t) + kMdxPayloadMax);

}  // namespace

struct mdx_subscription {
  int fd;
  int32_t process;                      ///< that made it, and whose waits are the socket's
  int32_t wait_ms;                      ///< how long a read on `fd` waits; 0 for good
  bool refused;                         ///< the hub has said why it hangs up
  alignas(8) char packet[kPacketRoom];  ///< header and payload of the last packet
};

namespace {

/// A hub that does not take connections is as good as none.
constexpr timeval kConnectPatience = {2, 0};
/// The hub notes a subscription at once; a busy machine may take its time.
constexpr int64_t kNotedWithinMs = 10000;
/// A server of an earlier version may have no word for a subscription that it has read.
constexpr int64_t kWordWithinMs = 1000;
/// What a negative time-out waits for, until asked again.
constexpr int64_t kForGoodMs = INT_MAX;

static_assert(sizeof(mdx_packet_t::to) > sizeof(mdx_packet_header_t::to));
static_assert(int(MDX_KIND_SERVICE) == int(MDX_PACKET_SERVICE));
static_assert(int(MDX_KIND_NOTIFICATION) == int(MDX_PACKET_NOTIFICATION));
static_assert(int(MDX_KIND_VOICE) == int(MDX_PACKET_VOICE));
constexpr size_t kFirstSize = offsetof(mdx_packet_t, payload) + sizeof(mdx_packet_t::payload);
constexpr size_t kFirstOptionsSize =
    offsetof(mdx_subscribe_options_t, last) + sizeof(mdx_subscribe_options_t::last);

int error_of(int system_error) {
  switch (system_error) {
    case ENOENT:
    case ECONNREFUSED:
    case EAGAIN:
    case EPIPE:
    case ECONNRESET:
      return MDX_ERR_NO_SERVER;
    case EACCES:
    case EPERM:
      return MDX_ERR_ACCESS;
    case EUSERS:
      return MDX_ERR_REFUSED;
    default:
      return MDX_ERR_SYSTEM;
  }
}

bool is_farewell(const void* packet, ssize_t size) {
  mdx_packet_header_t header;
  if (size < static_cast<ssize_t>(sizeof(header))) return false;
  std::memcpy(&header, packet, sizeof(header));
  return header.kind == MDX_PACKET_FAREWELL;
}

/// Whether a hub that has hung up already said that it has no place. The first read may tell of the
/// hanging up only.
bool was_refused(int fd) {
  mdx_packet_header_t header;
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (is_farewell(&header, recv(fd, &header, sizeof(header), MSG_DONTWAIT))) return true;
  }
  return false;
}

/// @return false when the options cannot be a subscription
bool fill_request(const mdx_subscribe_options_t* options, mdx_packet_header_t* request) {
  constexpr mdx_subscribe_options_t kDefaults = MDX_SUBSCRIBE_OPTIONS_INIT;
  if (options == nullptr) options = &kDefaults;
  if (options->size < kFirstOptionsSize || options->service == nullptr) return false;
  const size_t length = std::strlen(options->service);
  if (length >= sizeof(request->to)) return false;
  request->kind = MDX_PACKET_SUBSCRIPTION;
  std::memcpy(request->to, options->service, length);
  if (length == 0) request->module = options->module;
  request->a = kMdxSubscribeWithStates;  // also because their last one tells that it is noted
  return true;
}

/// Connects and sends the subscription.
/// @return a descriptor, or -1 with errno
int join_hub(const mdx_packet_header_t& subscription) {
  const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &kConnectPatience, sizeof(kConnectPatience));
  sockaddr_un hub{};
  hub.sun_family = AF_UNIX;
  std::memcpy(hub.sun_path, kMdxHubPath, sizeof(kMdxHubPath));
  int done = 0;
  do {
    done = connect(fd, reinterpret_cast<const sockaddr*>(&hub), sizeof(hub));
  } while (done != 0 && errno == EINTR);
  ssize_t sent = -1;
  while (done == 0 && sent < 0) {
    sent = send(fd, &subscription, sizeof(subscription), MSG_NOSIGNAL);
    if (sent < 0 && errno != EINTR) break;
  }
  if (sent == static_cast<ssize_t>(sizeof(subscription))) return fd;
  const int system_error = done == 0 && was_refused(fd) ? EUSERS : errno;
  close(fd);
  errno = system_error;
  return -1;
}

/// Whether the hub has taken all that was sent to it.
bool has_read(int fd) {
  int unread = 0;
  return ioctl(fd, TIOCOUTQ, &unread) == 0 && unread == 0;
}

/// Looks for the hub's first word.
/// @param keep_states  false: what was told before is taken off the socket
/// @return MDX_OK when the subscription is noted, MDX_ERR_PENDING when there is no word yet
int find_word(int fd, bool keep_states) {
  for (;;) {
    mdx_packet_header_t header{};
    const ssize_t size = recv(fd, &header, sizeof(header), MSG_PEEK | MSG_DONTWAIT);
    if (size < 0 && (errno == EINTR || errno == ECONNRESET)) continue;
    if (size < 0) return errno == EAGAIN ? MDX_ERR_PENDING : MDX_ERR_SYSTEM;
    if (size == 0) return MDX_ERR_NO_SERVER;
    if (is_farewell(&header, size)) return MDX_ERR_REFUSED;
    if (keep_states || (header.kind & kMdxPacketRemembered) == 0) return MDX_OK;
    recv(fd, &header, sizeof(header), MSG_DONTWAIT);
    if (std::strcmp(header.to, MDX_SERVICE_LINK) == 0) return MDX_OK;
  }
}

/// Waits until the hub has noted the subscription. It tells what it knows at that moment, of the
/// link at least, and nothing earlier.
int await_noted(int fd, bool keep_states) {
  const int64_t deadline = now_ms() + kNotedWithinMs;
  for (;;) {
    const bool was_read = has_read(fd);
    pollfd hub = {fd, POLLIN, 0};
    const int ready = poll_until(&hub, 1, std::min(deadline, now_ms() + kWordWithinMs));
    if (ready < 0) return MDX_ERR_SYSTEM;
    const int word = ready == 0 ? MDX_ERR_PENDING : find_word(fd, keep_states);
    if (word != MDX_ERR_PENDING) return word;
    if (ready == 0 && was_read) return MDX_OK;
    if (now_ms() >= deadline) return MDX_ERR_BUSY;
  }
}

/// Has a read on the socket wait so long, negative for good. How long is a property of the socket,
/// so a forked child leaves it alone: its parent would wait as long.
/// @return whether it does
bool set_wait(mdx_subscription_t* subscription, int32_t timeout_ms) {
  if (subscription->process != client_own_process()) return false;
  const int32_t wait_ms = std::max(timeout_ms, 0);
  if (subscription->wait_ms == wait_ms) return true;
  const timeval wait = {wait_ms / 1000, wait_ms % 1000 * 1000};
  if (setsockopt(subscription->fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof(wait)) != 0) return false;
  subscription->wait_ms = wait_ms;
  return true;
}

/// Reads the next datagram.
/// @param flags  MSG_DONTWAIT, or 0 to wait as long as the socket does, or until a signal comes
/// @return its size, whatever the room; 0 when the server is lost, -1 when there is none, -2 on
///         another failure
ssize_t read_datagram(mdx_subscription_t* subscription, int flags) {
  for (;;) {
    const ssize_t size =
        recv(subscription->fd, subscription->packet, kPacketRoom, flags | MSG_TRUNC);
    if (size >= 0) return size;
    if (errno == ECONNRESET) continue;  // what was sent before is still there
    return errno == EAGAIN || errno == EINTR ? -1 : -2;
  }
}

/// @return whether the datagram of `size` bytes is a packet; `packet` is filled then
bool read_packet(const mdx_subscription_t* subscription, size_t size, mdx_packet_t* packet) {
  mdx_packet_header_t header;
  if (size < sizeof(header) || size > kPacketRoom) return false;
  std::memcpy(&header, subscription->packet, sizeof(header));
  if (header.length != size - sizeof(header)) return false;

  mdx_packet_t filled = MDX_PACKET_INIT;
  filled.size = packet->size;
  filled.type = header.type;
  filled.remembered = (header.kind & kMdxPacketRemembered) != 0 ? 1 : 0;
  filled.kind = header.kind & ~kMdxPacketRemembered;
  std::memcpy(filled.to, header.to, sizeof(header.to));
  filled.lost = filled.remembered != 0 ? 0 : header.lost;
  filled.age_s = filled.remembered != 0 ? header.lost : 0;
  filled.module = header.module;
  filled.a = header.a;
  filled.b = header.b;
  filled.length = header.length;
  filled.payload = subscription->packet + sizeof(header);
  std::memcpy(packet, &filled, packet->size < sizeof(filled) ? packet->size : sizeof(filled));
  return true;
}
static_assert(sizeof(mdx_packet_header_t) % 8 == 0);  // keeps the payload as aligned as the buffer

}  // namespace

int mdx_subscribe(mdx_subscription_t** subscription, const char* service, uint32_t module) {
  mdx_subscribe_options_t options = MDX_SUBSCRIBE_OPTIONS_INIT;
  options.service = service;
  options.module = module;
  return mdx_subscribe_with(subscription, &options);
}

int mdx_subscribe_with(mdx_subscription_t** subscription, const mdx_subscribe_options_t* options) {
  if (subscription == nullptr) return MDX_ERR_ARGUMENT;
  *subscription = nullptr;
  mdx_packet_header_t request{};
  if (!fill_request(options, &request)) return MDX_ERR_ARGUMENT;

  auto* opened = static_cast<mdx_subscription_t*>(std::malloc(sizeof(mdx_subscription_t)));
  if (opened == nullptr) return MDX_ERR_SYSTEM;
  opened->process = client_own_process();
  opened->wait_ms = 0;
  opened->refused = false;
  opened->fd = join_hub(request);
  if (opened->fd < 0) {
    const int system_error = errno;
    std::free(opened);
    errno = system_error;
    return error_of(system_error);
  }
  const bool keep_states = options != nullptr && options->last != 0;
  if (const int error = await_noted(opened->fd, keep_states); error != MDX_OK) {
    mdx_unsubscribe(opened);
    return error;
  }
  *subscription = opened;
  return MDX_OK;
}

int mdx_subscription_fd(const mdx_subscription_t* subscription) {
  return subscription == nullptr ? -1 : subscription->fd;
}

int mdx_next_packet(mdx_subscription_t* subscription, int32_t timeout_ms, mdx_packet_t* packet) {
  if (subscription == nullptr || packet == nullptr || packet->size < kFirstSize) {
    return MDX_ERR_ARGUMENT;
  }
  const int64_t deadline = now_ms() + timeout_ms;
  const bool waits = timeout_ms != 0 && set_wait(subscription, timeout_ms);
  for (int flags = waits ? 0 : MSG_DONTWAIT;; flags = MSG_DONTWAIT) {
    if (subscription->refused) return MDX_ERR_REFUSED;
    const ssize_t size = read_datagram(subscription, flags);
    subscription->refused = is_farewell(subscription->packet, size);
    if (subscription->refused) continue;
    if (size > 0 && read_packet(subscription, static_cast<size_t>(size), packet)) return MDX_OK;
    if (size > 0) continue;
    if (size == 0) return MDX_ERR_SERVER_GONE;
    if (size == -2) return MDX_ERR_SYSTEM;
    if (timeout_ms >= 0 && now_ms() >= deadline) return MDX_ERR_TIMEOUT;
    pollfd hub = {subscription->fd, POLLIN, 0};
    if (poll_until(&hub, 1, timeout_ms < 0 ? now_ms() + kForGoodMs : deadline) < 0)
      return MDX_ERR_SYSTEM;
  }
}

void mdx_unsubscribe(mdx_subscription_t* subscription) {
  if (subscription == nullptr) return;
  close(subscription->fd);
  std::free(subscription);
}
