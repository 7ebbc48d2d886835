// SPDX-License-Identifier: Apache-2.0

// The bus: what the server tells the rest of the device goes to whoever subscribed to it.
//
// The main thread sends, and never waits. What a receiver has no room for is kept in the backlog,
// and given to it as it reads. When that is full the oldest packets are lost to who is that far
// behind: that is counted, and told with the packet behind them, which is kept.
// The message procedure thread does all the rest, serves the debug console beside it, and it alone
// changes who is in the table of receivers, under the lock that sends hold. There are more who may
// connect than places: who does not say soon what it wants loses its place, and at a full table the
// user with the most.

#include "platform/linux/hub.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "platform/linux/border_watch.h"
#include "platform/linux/claim.h"
#include "platform/linux/console.h"
#include "platform/linux/counters.h"
#include "platform/linux/hub_backlog.h"
#include "platform/linux/hub_places.h"
#include "platform/linux/hub_states.h"
#include "platform/linux/large_buffers.h"
#include "platform/linux/local_socket.h"
#include "platform/linux/monotonic.h"
#include "platform/mdx_platform.h"
#include "wire/border.h"
#include "wire/destinations.h"

namespace {

constexpr int kSendBuffer = 128 * 1024;  // the kernel doubles it
constexpr int kGivenAtOnce = 32;         // packets, with the lock held
constexpr int kGivenInARow = 32;         // times as many, before others are served
constexpr uint32_t kAcceptNapMs = 100;
/// Files that everything but the hub's connections may have open.
constexpr size_t kOtherFiles = 48;
constexpr uint32_t kSubscribeWithinMs = 5000;
constexpr char kVoiceService[] = "voice";
constexpr char kEverything[] = "*";

struct receiver_t {
  int fd = 0;           ///< 0 in a free slot: standard input is nobody's connection
  uint64_t number = 0;  ///< of the connection, as they come
  uint32_t since = 0;   ///< MDX_elapse
  uid_t user = 0;
  bool subscribed = false;
  char name[sizeof(mdx_packet_header_t::to)] = {};  ///< as in the subscription
  uint32_t module = 0;
  uint32_t lost = 0;  ///< packets missed since the last one that it got
  bool is_behind = false;
  hub_backlog::place_t next = 0;  ///< to be given to it, if it is behind
  pid_t process = 0;
  uint64_t sent_ever = 0;
  uint64_t lost_ever = 0;
};

using message_procedure_t = void (*)(const void* packet);

struct packet_t {
  mdx_packet_header_t header;
  char payload[kMdxPayloadMax];
};

constinit std::atomic<int> listener{-1};
constinit char own_name[sizeof(mdx_packet_header_t::to)] = {};
constinit message_procedure_t message_procedure = nullptr;
[[MDX_SELDOM_TOUCHED]] constinit receiver_t receivers[kMaxReceivers];
constinit size_t places_in_use = kMaxReceivers;  ///< of them
constinit uint64_t connections = 0;
constinit complaint told;  ///< why nobody can connect
constinit hub_backlog backlog;
constinit size_t count_behind = 0;  ///< receivers
constinit int wake_fd = -1;         ///< eventfd: somebody has fallen behind
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

void miss(receiver_t& receiver) {
  if (receiver.lost != UINT32_MAX) ++receiver.lost;
  ++receiver.lost_ever;
  counter_add(COUNT_PACKETS_LOST);
}

/// @return false when there is no room for it
bool give(receiver_t& receiver, mdx_packet_header_t header, const void* data) {
  header.lost = receiver.lost;
  if (put_packet(receiver.fd, header, data)) {
    receiver.lost = 0;
    ++receiver.sent_ever;
    counter_add(COUNT_PACKETS_SENT);
    return true;
  }
  if (errno == EAGAIN) return false;
  if (errno != EPIPE && errno != ECONNRESET) miss(receiver);
  return true;
}

void miss_next(receiver_t& receiver) {
  if (wants(receiver, backlog.header_at(receiver.next))) miss(receiver);
  receiver.next = backlog.behind(receiver.next);
}

void keep(const mdx_packet_header_t& header, const void* data) {
  while (!backlog.has_room(header.length)) {
    for (receiver_t& receiver : receivers)
      if (receiver.is_behind && receiver.next == backlog.oldest()) miss_next(receiver);
    backlog.forget_oldest();
  }
  if (backlog.append(header, data)) return;
  for (receiver_t& receiver : receivers)
    if (receiver.is_behind && wants(receiver, header)) miss(receiver);
}

void fall_behind(receiver_t& receiver) {
  receiver.is_behind = true;
  receiver.next = backlog.end();
  ++count_behind;
  const uint64_t one = 1;
  [[maybe_unused]] const ssize_t size = write(wake_fd, &one, sizeof(one));
}

void be_behind_no_more(receiver_t& receiver) {
  if (!receiver.is_behind) return;
  receiver.is_behind = false;
  if (--count_behind == 0) backlog.clear();
}

/// Gives a receiver some of what was kept for it. @return whether it has room for more of that
bool give_some(receiver_t& receiver) {
  [[MDX_SELDOM_TOUCHED]] static constinit char payload[kMdxPayloadMax] = {};
  for (int i = 0; i < kGivenAtOnce && receiver.is_behind; ++i) {
    if (receiver.next == backlog.end()) {
      be_behind_no_more(receiver);
      break;
    }
    const mdx_packet_header_t header = backlog.header_at(receiver.next);
    backlog.payload_at(receiver.next, header.length, payload);
    if (wants(receiver, header) && !give(receiver, header, payload)) return false;
    receiver.next = backlog.behind(receiver.next);
  }
  return receiver.is_behind;
}

void let_catch_up(receiver_t& receiver) {
  bool more = true;
  for (int i = 0; i < kGivenInARow && more; ++i) {
    pthread_mutex_lock(&receivers_lock);
    more = give_some(receiver);
    pthread_mutex_unlock(&receivers_lock);
  }
}

/// What is known already, for one who has just come. That of the link tells everybody that the
/// subscription is noted.
void show_states(const receiver_t& receiver) {
  hub_state_t state;
  for (size_t kind = 0; hub_states_get(kind, &state); ++kind) {
    mdx_packet_header_t as_told = state.header;
    as_told.kind &= ~kMdxPacketRemembered;
    const bool is_link = strcmp(state.header.to, kServiceLink) == 0;
    if (is_link || (state.header.type != 0 && wants(receiver, as_told))) {
      put_packet(receiver.fd, state.header, state.payload);
    }
  }
}

int32_t send_packet(const mdx_packet_header_t& header, const void* data) {
  if (header.length > kMdxPayloadMax || (data == nullptr && header.length != 0)) {
    MDX_TRACE(MDX_FROM_PLATFORM, MDX_TRACE_ERROR, "packet %u with %u bytes refused\n", header.type,
              header.length);
    return -1;
  }
  if (listener.load() < 0) return -1;
  pthread_mutex_lock(&receivers_lock);
  hub_states_keep(header, data);
  bool is_kept = false;
  for (receiver_t& receiver : receivers) {
    if (!wants(receiver, header)) continue;
    if (!receiver.is_behind && give(receiver, header, data)) continue;
    if (!receiver.is_behind) fall_behind(receiver);
    is_kept = true;
  }
  if (is_kept) keep(header, data);
  pthread_mutex_unlock(&receivers_lock);
  return 0;
}

void hang_up(receiver_t& receiver) {
  pthread_mutex_lock(&receivers_lock);
  be_behind_no_more(receiver);
  close(receiver.fd);
  receiver = receiver_t{};
  pthread_mutex_unlock(&receivers_lock);
}

/// Tells a connection why it ends; one that takes nothing any more does without.
void say_farewell(int fd, mdx_farewell_t why, uint32_t lost) {
  mdx_packet_header_t header{};
  header.kind = MDX_PACKET_FAREWELL;
  header.type = why;
  header.lost = lost;
  put_packet(fd, header, nullptr);
}

/// Makes a slot of the full table free. Not inlined: else the caller, which waits most of the time,
/// would have the room for `places` on its stack all that time.
/// @return the slot, nullptr when nobody gives way to this user
[[gnu::noinline, gnu::cold]] receiver_t* make_slot(uid_t user) {
  hub_place_t places[kMaxReceivers];
  for (size_t i = 0; i < places_in_use; ++i) places[i] = {receivers[i].user, receivers[i].number};
  const size_t given_up = place_to_give_up(places, places_in_use, user);
  if (given_up == places_in_use) return nullptr;
  receiver_t& receiver = receivers[given_up];
  MDX_DROP(COUNT_RECEIVERS_DISPLACED, MDX_TRACE_ERROR,
           "a receiver of user %u gives way to one of user %u\n", receiver.user, user);
  pthread_mutex_lock(&receivers_lock);
  while (receiver.is_behind && receiver.next != backlog.end()) miss_next(receiver);
  say_farewell(receiver.fd, MDX_FAREWELL_DISPLACED, receiver.lost);
  pthread_mutex_unlock(&receivers_lock);
  hang_up(receiver);
  return &receiver;
}

/// @return a slot for a connection of this user, nullptr when there is none
receiver_t* find_slot(uid_t user) {
  for (size_t i = 0; i < places_in_use; ++i)
    if (receivers[i].fd == 0) return &receivers[i];
  return make_slot(user);
}

/// Receivers must not take the files that the server needs for its clients.
void limit_places() {
  const size_t files = open_files_allowed();
  if (files >= kMaxReceivers + kOtherFiles) return;
  places_in_use = files > kOtherFiles ? files - kOtherFiles : 1;
  MDX_TRACE(MDX_FROM_PLATFORM, MDX_TRACE_MISSING,
            "%zu receivers may connect, not %zu: only %zu files may be open\n", places_in_use,
            kMaxReceivers, files);
}

void accept_receiver() {
  const int fd = accept4(listener.load(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (fd < 0) {
    if (errno == EMFILE || errno == ENFILE || errno == ENOMEM) MDX_sleep(kAcceptNapMs);
    return;
  }
  ucred peer{};
  socklen_t size = sizeof(peer);
  const bool known = getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0;
  receiver_t* slot = known ? find_slot(peer.uid) : nullptr;
  if (slot == nullptr) {
    MDX_DROP(COUNT_RECEIVERS_REFUSED, MDX_TRACE_ERROR, "receiver of user %u refused: all %zu\n",
             peer.uid, places_in_use);
    say_farewell(fd, MDX_FAREWELL_FULL, 0);
    close(fd);
    return;
  }
  setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof(kSendBuffer));
  pthread_mutex_lock(&receivers_lock);
  slot->fd = fd;
  slot->number = ++connections;
  slot->since = MDX_elapse();
  slot->user = peer.uid;
  slot->process = peer.pid;
  pthread_mutex_unlock(&receivers_lock);
}

/// How long a connection may still be silent, -1 for ever.
int patience_ms(const receiver_t& receiver, uint32_t now) {
  if (receiver.fd == 0 || receiver.subscribed) return -1;
  const uint32_t silent = now - receiver.since;
  return silent < kSubscribeWithinMs ? static_cast<int>(kSubscribeWithinMs - silent) : 0;
}

/// How long to wait until somebody has been silent for too long, -1 for ever.
int next_silence_ms() {
  const uint32_t now = MDX_elapse();
  int soonest = -1;
  for (const receiver_t& receiver : receivers) {
    const int left = patience_ms(receiver, now);
    if (left >= 0 && (soonest < 0 || left < soonest)) soonest = left;
  }
  return soonest;
}

void hang_up_the_silent() {
  const uint32_t now = MDX_elapse();
  for (receiver_t& receiver : receivers) {
    if (patience_ms(receiver, now) != 0) continue;
    MDX_DROP(COUNT_RECEIVERS_SILENT, MDX_TRACE_MISSING,
             "a connection of user %u did not subscribe\n", receiver.user);
    say_farewell(receiver.fd, MDX_FAREWELL_SILENT, 0);
    hang_up(receiver);
  }
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
  if (header.type == SERVER_MSG_UNINSTALL && receiver.user != 0 && receiver.user != geteuid()) {
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
  [[MDX_SELDOM_TOUCHED]] static constinit packet_t packet{};
  const ssize_t size = recv(receiver.fd, &packet, sizeof(packet), MSG_DONTWAIT | MSG_TRUNC);
  if (size < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (size <= 0) return hang_up(receiver);
  serve_packet(receiver, packet, static_cast<size_t>(size));
}

void serve_receiver(receiver_t& receiver, short revents) {
  if ((revents & ~POLLOUT) != 0) take_packet(receiver);
  if ((revents & POLLOUT) != 0) let_catch_up(receiver);
}

/// One round: whoever has something, or room for something, is served once.
/// @return false when waiting fails
bool dispatch_once() {
  constexpr nfds_t kOthers = 4;
  pollfd waiting[kMaxReceivers + kOthers] = {{listener.load(), POLLIN, 0},
                                             {border_watch_fd(), POLLIN, 0},
                                             {wake_fd, POLLIN, 0},
                                             {console_fd(), POLLIN, 0}};
  receiver_t* waiting_for[kMaxReceivers + kOthers];
  nfds_t count = kOthers;
  pthread_mutex_lock(&receivers_lock);
  for (receiver_t& receiver : receivers) {
    if (receiver.fd == 0) continue;
    waiting_for[count] = &receiver;
    const int events = receiver.is_behind ? POLLIN | POLLOUT : POLLIN;
    waiting[count++] = {receiver.fd, static_cast<short>(events), 0};
  }
  pthread_mutex_unlock(&receivers_lock);
  const int silence_ms = sooner_ms(next_silence_ms(), console_wait_ms());
  const int wait_ms = sooner_ms(border_watch_wait_ms(), silence_ms);
  if (poll(waiting, count, wait_ms) < 0) return errno == EINTR;
  if (waiting[2].revents != 0) {
    uint64_t wakes = 0;
    [[maybe_unused]] const ssize_t size = read(wake_fd, &wakes, sizeof(wakes));
  }
  for (nfds_t i = kOthers; i < count; ++i)
    if (waiting[i].revents != 0) serve_receiver(*waiting_for[i], waiting[i].revents);
  hang_up_the_silent();
  console_look(waiting[3].revents != 0);
  if ((waiting[0].revents & POLLIN) != 0) accept_receiver();
  return (waiting[0].revents & (POLLERR | POLLNVAL)) == 0;
}

}  // namespace

bool hub_restore() {
  if (access(kMdxHubPath, F_OK) == 0) return true;
  const int fresh = local_socket_listen(kMdxHubPath, SOCK_SEQPACKET | SOCK_NONBLOCK, 0660, &told);
  if (fresh < 0) return false;
  close(listener.exchange(fresh));
  MDX_TRACE(MDX_FROM_PLATFORM, MDX_TRACE_ERROR, "%s was removed: made again\n", kMdxHubPath);
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
  if (listener.load() >= 0) return 0;
  hub_states_begin();
  limit_places();
  wake_fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  listener = local_socket_listen(kMdxHubPath, SOCK_SEQPACKET | SOCK_NONBLOCK, 0660, &told);
  return listener.load() >= 0 ? 0 : -1;
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
  if (listener.load() < 0) return;
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

int32_t KRP_NOTIFYCLT_Init(int32_t) { return listener.load() >= 0 ? 0 : -1; }

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
