// SPDX-License-Identifier: Apache-2.0

// The bus: what the server tells the rest of the device goes to whoever subscribed to it.
//
// The main thread sends, and never waits: a receiver whose buffer is full gets the CPU a few times,
// once; what the buffer does not take then is counted and told to it with the next packet it gets.
// The message procedure thread does all the rest, and it alone changes the table of receivers,
// under the lock that sends hold.

#include "platform/linux/hub.h"

#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "platform/linux/border_watch.h"
#include "platform/linux/counters.h"
#include "platform/linux/hub_states.h"
#include "platform/linux/local_socket.h"
#include "platform/mdx_platform.h"
#include "wire/border.h"

namespace {

constexpr uint32_t kMaxPayload = 8192;
constexpr int kSendBuffer = 128 * 1024;  // the kernel doubles it
constexpr int kTurns = 8;                // of the CPU that a receiver gets which has kept up so far
constexpr uint32_t kAcceptNapMs = 100;
constexpr uint32_t kUninstall = 0x8805;
constexpr char kVoiceService[] = "voice";
constexpr char kEverything[] = "*";

struct receiver_t {
  int fd = 0;  ///< 0 in a free slot: standard input is nobody's connection
  uid_t user = 0;
  bool subscribed = false;
  char name[sizeof(mdx_packet_header_t::to)] = {};  ///< as in the subscription
  uint32_t module = 0;
  uint32_t lost = 0;  ///< packets missed since the last one that it got
  pid_t process = 0;
  uint64_t sent_ever = 0;
  uint64_t lost_ever = 0;
};

using message_procedure_t = void (*)(const void* packet);

struct packet_t {
  mdx_packet_header_t header;
  char payload[kMaxPayload];
};

constinit std::atomic<int> listener{-1};
constinit char own_name[sizeof(mdx_packet_header_t::to)] = {};
constinit message_procedure_t message_procedure = nullptr;
constinit receiver_t receivers[kMaxReceivers];
pthread_mutex_t receivers_lock = PTHREAD_MUTEX_INITIALIZER;

/// A service's name as packets hold it. @return false when it does not fit
bool set_name(char (&to)[sizeof(mdx_packet_header_t::to)], const char* name) {
  memset(to, 0, sizeof(to));
  if (name == nullptr || name[0] == '\0' || strnlen(name, sizeof(to)) == sizeof(to)) return false;
  memcpy(to, name, strlen(name));
  return true;
}

bool wants(const receiver_t& receiver, const mdx_packet_header_t& header) {
  if (receiver.fd == 0 || !receiver.subscribed) return false;
  if (strcmp(receiver.name, kEverything) == 0) return true;
  if (receiver.name[0] == '\0')
    return header.kind == MDX_PACKET_NOTIFICATION && header.module == receiver.module;
  return header.kind != MDX_PACKET_NOTIFICATION && strcmp(receiver.name, header.to) == 0;
}

/// @return whether the receiver's buffer took it; else errno tells why not
bool put_packet(int fd, const mdx_packet_header_t& header, const void* data) {
  iovec pieces[] = {{const_cast<mdx_packet_header_t*>(&header), sizeof(header)},
                    {const_cast<void*>(data), header.length}};
  msghdr message{};
  message.msg_iov = pieces;
  message.msg_iovlen = std::size(pieces);
  return sendmsg(fd, &message, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0;
}

void send_to_receiver(receiver_t& receiver, mdx_packet_header_t header, const void* data) {
  header.lost = receiver.lost;
  bool sent = put_packet(receiver.fd, header, data);
  for (int turn = 0; !sent && errno == EAGAIN && receiver.lost == 0 && turn < kTurns; ++turn) {
    sched_yield();
    sent = put_packet(receiver.fd, header, data);
  }
  if (sent) {
    receiver.lost = 0;
    ++receiver.sent_ever;
    counter_add(COUNT_PACKETS_SENT);
  } else if (errno != EPIPE && errno != ECONNRESET) {
    if (receiver.lost != UINT32_MAX) ++receiver.lost;
    ++receiver.lost_ever;
    counter_add(COUNT_PACKETS_LOST);
  }
}

/// What is known already, for one who has just come.
void show_states(const receiver_t& receiver) {
  hub_state_t state;
  for (size_t kind = 0; hub_states_get(kind, &state); ++kind) {
    mdx_packet_header_t as_told = state.header;
    as_told.kind &= ~kMdxPacketRemembered;
    if (state.header.type != 0 && wants(receiver, as_told)) {
      put_packet(receiver.fd, state.header, state.payload);
    }
  }
}

int32_t send_packet(const mdx_packet_header_t& header, const void* data) {
  if (header.length > kMaxPayload || (data == nullptr && header.length != 0)) {
    MDX_TRACE("platform", MDX_TRACE_ERROR, "packet %u with %u bytes refused\n", header.type,
              header.length);
    return -1;
  }
  if (listener < 0) return -1;
  pthread_mutex_lock(&receivers_lock);
  hub_states_keep(header, data);
  for (receiver_t& receiver : receivers)
    if (wants(receiver, header)) send_to_receiver(receiver, header, data);
  pthread_mutex_unlock(&receivers_lock);
  return 0;
}

void hang_up(receiver_t& receiver) {
  pthread_mutex_lock(&receivers_lock);
  close(receiver.fd);
  receiver = receiver_t{};
  pthread_mutex_unlock(&receivers_lock);
}

void accept_receiver() {
  const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (fd < 0) {
    if (errno == EMFILE || errno == ENFILE || errno == ENOMEM) MDX_sleep(kAcceptNapMs);
    return;
  }
  receiver_t* slot = std::find_if(std::begin(receivers), std::end(receivers),
                                  [](const receiver_t& receiver) { return receiver.fd == 0; });
  ucred peer{};
  socklen_t size = sizeof(peer);
  if (slot == std::end(receivers) || getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
    MDX_DROP(COUNT_RECEIVERS_REFUSED, MDX_TRACE_ERROR, "receiver refused: there are %zu\n",
             kMaxReceivers);
    close(fd);
    return;
  }
  setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof(kSendBuffer));
  pthread_mutex_lock(&receivers_lock);
  slot->fd = fd;
  slot->user = peer.uid;
  slot->process = peer.pid;
  pthread_mutex_unlock(&receivers_lock);
}

void subscribe(receiver_t& receiver, const mdx_packet_header_t& header) {
  if (receiver.subscribed) {
    MDX_DROP(COUNT_PACKETS_REFUSED, MDX_TRACE_ERROR, "second subscription dropped\n");
    return;
  }
  pthread_mutex_lock(&receivers_lock);
  memcpy(receiver.name, header.to, sizeof(receiver.name));
  receiver.module = header.module;
  receiver.subscribed = true;
  if (header.a == kMdxSubscribeWithStates) show_states(receiver);
  pthread_mutex_unlock(&receivers_lock);
  counter_add(COUNT_RECEIVERS);
}

void take_service_message(const receiver_t& receiver, const packet_t& packet) {
  const mdx_packet_header_t& header = packet.header;
  if (message_procedure == nullptr || strcmp(header.to, own_name) != 0)
    return KRP_MSG_DefaultMsgProc(&packet);
  if (header.type == kUninstall && receiver.user != 0 && receiver.user != geteuid()) {
    MDX_DROP(COUNT_UNINSTALLS_REFUSED, MDX_TRACE_ERROR, "uninstall message of user %u dropped\n",
             receiver.user);
    return;
  }
  counter_add(COUNT_PACKETS_RECEIVED);
  message_procedure(&packet);
}

/// Does what a receiver's packet of `bytes` bytes says; `packet` holds no more of them than fit.
void serve_packet(receiver_t& receiver, const packet_t& packet, size_t bytes) {
  const mdx_packet_header_t& header = packet.header;
  if (bytes < sizeof(header) || bytes > sizeof(packet) || header.length != bytes - sizeof(header) ||
      header.to[sizeof(header.to) - 1] != '\0' || header.kind > MDX_PACKET_SERVICE) {
    MDX_DROP(COUNT_PACKETS_REFUSED, MDX_TRACE_ERROR, "malformed packet of %zu bytes dropped\n",
             bytes);
    return;
  }
  if (header.kind == MDX_PACKET_SUBSCRIPTION) return subscribe(receiver, header);
  take_service_message(receiver, packet);
}

/// Takes the next packet of a receiver that has one, or has gone.
void take_packet(receiver_t& receiver) {
  static constinit packet_t packet{};
  const ssize_t size = recv(receiver.fd, &packet, sizeof(packet), MSG_DONTWAIT | MSG_TRUNC);
  if (size < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (size <= 0) return hang_up(receiver);
  serve_packet(receiver, packet, static_cast<size_t>(size));
}

/// One round: whoever has something is served once. @return false when waiting fails
bool dispatch_once() {
  pollfd waiting[kMaxReceivers + 2];
  receiver_t* waiting_for[kMaxReceivers + 2];
  nfds_t count = 0;
  waiting[count++] = {listener, POLLIN, 0};
  waiting[count++] = {border_watch_fd(), POLLIN, 0};
  for (receiver_t& receiver : receivers) {
    if (receiver.fd == 0) continue;
    waiting_for[count] = &receiver;
    waiting[count++] = {receiver.fd, POLLIN, 0};
  }
  if (poll(waiting, count, border_watch_wait_ms()) < 0) return errno == EINTR;
  for (nfds_t i = 2; i < count; ++i)
    if (waiting[i].revents != 0) take_packet(*waiting_for[i]);
  if ((waiting[0].revents & POLLIN) != 0) accept_receiver();
  return (waiting[0].revents & (POLLERR | POLLNVAL)) == 0;
}

}  // namespace

bool hub_restore() {
  if (access(kMdxHubPath, F_OK) == 0) return true;
  const int fresh = local_socket_listen(kMdxHubPath, SOCK_SEQPACKET | SOCK_NONBLOCK, 0660);
  if (fresh < 0) return false;
  close(listener.exchange(fresh));
  MDX_TRACE("platform", MDX_TRACE_ERROR, "%s was removed: made again\n", kMdxHubPath);
  return true;
}

size_t hub_receivers(hub_receiver_t* list, size_t room) {
  size_t count = 0;
  pthread_mutex_lock(&receivers_lock);
  for (const receiver_t& receiver : receivers) {
    if (receiver.fd == 0 || !receiver.subscribed || count == room) continue;
    hub_receiver_t& entry = list[count++];
    entry = {receiver.process, receiver.user,      {},
             receiver.module,  receiver.sent_ever, receiver.lost_ever};
    memcpy(entry.name, receiver.name, sizeof(entry.name));
  }
  pthread_mutex_unlock(&receivers_lock);
  return count;
}

int32_t KRP_MSG_Init(const char* module) {
  if (!set_name(own_name, module)) return -1;
  if (listener >= 0) return 0;
  hub_states_begin();
  listener = local_socket_listen(kMdxHubPath, SOCK_SEQPACKET | SOCK_NONBLOCK, 0660);
  return listener >= 0 ? 0 : -1;
}

void KRP_MSG_RegisterMsgProc(void (*procedure)(const void* packet)) {
  message_procedure = procedure;
}

void KRP_MSG_DefaultMsgProc(const void* packet) {
  if (packet == nullptr) return;
  mdx_packet_header_t header;
  memcpy(&header, packet, sizeof(header));
  MDX_DROP(COUNT_PACKETS_REFUSED, MDX_TRACE_MISSING, "message %x is for nobody here\n",
           header.type);
}

void KRP_UTIL_SockBaseStart(int32_t) {
  if (listener < 0) return;
  border_watch_begin();
  while (dispatch_once()) border_watch_look();
}

int32_t KRP_MSG_SendMsgData(const char* service, uint32_t type, const void* data, uint32_t length) {
  mdx_packet_header_t header{};
  if (!set_name(header.to, service)) return -1;
  header.type = type;
  header.kind = MDX_PACKET_SERVICE;
  header.length = length;
  return send_packet(header, data);
}

int32_t KRP_MSG_SendSimpleMsg(const char* service, uint32_t type, int32_t) {
  return KRP_MSG_SendMsgData(service, type, nullptr, 0);
}

int32_t KRP_NOTIFYCLT_Init(int32_t) { return listener >= 0 ? 0 : -1; }

int32_t MDX_post_notify(int32_t module, int32_t event, int32_t a, int32_t b) {
  return MDX_post_notify_ex(module, event, nullptr, 0, a, b);
}

int32_t MDX_post_notify_ex(int32_t module, int32_t event, const void* data, uint32_t length,
                           int32_t a, int32_t b) {
  mdx_packet_header_t header{};
  header.type = static_cast<uint32_t>(event);
  header.kind = MDX_PACKET_NOTIFICATION;
  header.module = static_cast<uint32_t>(module);
  header.a = a;
  header.b = b;
  header.length = length;
  return send_packet(header, data);
}

int32_t KRP_UTIL_SendMsgToVoice2(int32_t message, int32_t type, int32_t, const void* data,
                                 uint32_t length) {
  mdx_packet_header_t header{};
  set_name(header.to, kVoiceService);
  header.type = static_cast<uint32_t>(message);
  header.kind = MDX_PACKET_VOICE;
  header.a = type;
  header.length = length;
  return send_packet(header, data);
}
