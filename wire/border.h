// SPDX-License-Identifier: Apache-2.0

// What other processes see of the platform: paths, queue keys, and the hub's packet.
//
// The client library and the platform both include this file. It is a wire format:
// docs/wire-formats.md describes it for those who write a client in another language.
#pragma once

#include <cstddef>
#include <cstdint>

/// The server's own, mode 0755: nobody else makes a name in it.
inline constexpr char kMdxDirectory[] = "/var/run/mdxgate";
/// Mode 3770, group `mdxgate` if there is one: clients make their event FIFOs in it.
inline constexpr char kMdxTaskDirectory[] = "/var/run/mdxgate/tasks";
/// Symbolic link to the event FIFO of the task that serves queue 2.
inline constexpr char kMdxServerLink[] = "/var/run/mdxgate/queue.2";
/// Symbolic link to "pid:[N]", what /proc/self/ns/pid is to the server. Task ids are one PID
/// namespace's, so a client of another has none that the server knows.
inline constexpr char kMdxPidNamespaceLink[] = "/var/run/mdxgate/pid_namespace";
/// Followed by a task id: the event FIFO of a task of the server, mode 0620. One raise is one write
/// of 4 bytes.
inline constexpr char kMdxEventPrefix[] = "/var/run/mdxgate/event.";
/// Followed by a task id: the event FIFO of a client, mode 0620.
inline constexpr char kMdxTaskPrefix[] = "/var/run/mdxgate/tasks/";
inline constexpr char kMdxHubPath[] = "/var/run/mdxgate/hub";
inline constexpr char kMdxConsolePath[] = "/var/run/mdxgate/console";
/// Followed by the channel number.
inline constexpr char kMdxChannelPrefix[] = "/dev/smd";
inline constexpr char kMdxGroup[] = "mdxgate";
inline constexpr char kMdxUser[] = "mdxgate";

/// System V key of a queue is this plus its number.
constexpr int32_t kMdxQueueKey = 0x4D445800;
constexpr int32_t kMdxResponseQueue = 1;
constexpr int32_t kMdxRequestQueue = 2;
constexpr int32_t kMdxQueueDepth = 10;
constexpr uint32_t kMdxRecordSize = 1600;
/// Message type of a record whose `msg_type` is not positive.
constexpr int32_t kMdxOddMessageType = 0x7fffffff;

constexpr uint32_t kMdxEventRequest = 1;  ///< raised by a client at the server
constexpr uint32_t kMdxEventAnswer = 1;   ///< raised by the server at a client, as the next two
constexpr uint32_t kMdxEventRoom = 2;     ///< the request queue has room: its turn in line has come
constexpr uint32_t kMdxEventLine = 4;     ///< with an answer: others wait for room, so wait in line

/// A raise of a client that waits for room on the request queue, with its task id.
constexpr uint32_t kMdxTicket = 0x80000000;
/// Set in it where the client was told of room, and others were faster: it has waited the longest.
constexpr uint32_t kMdxTicketCalled = 0x40000000;
constexpr uint32_t kMdxTicketTask = 0x3fffffff;

enum mdx_packet_kind_t : uint32_t {
  MDX_PACKET_SUBSCRIPTION = 0,
  MDX_PACKET_SERVICE = 1,
  MDX_PACKET_NOTIFICATION = 2,
  MDX_PACKET_VOICE = 3,
  MDX_PACKET_FAREWELL = 4,  ///< the hub hangs up; `type` says why
};

enum mdx_farewell_t : uint32_t {
  MDX_FAREWELL_FULL = 1,       ///< no place for one more of this user's
  MDX_FAREWELL_SILENT = 2,     ///< no subscription came in time
  MDX_FAREWELL_DISPLACED = 3,  ///< the place went to another user, who had fewer
};

/// In a subscription's `a`: the last packet of each kind that tells a state comes first.
constexpr int32_t kMdxSubscribeWithStates = 1;
/// Set in `kind` of these packets; their `lost` is the age in seconds. That of the service "link"
/// is the last of them, and comes to every such subscription: who has it knows that it is noted.
constexpr uint32_t kMdxPacketRemembered = 0x100;

/// A packet of the hub carries no more bytes behind its header.
constexpr uint32_t kMdxPayloadMax = 8192;

/// Opens each packet of the hub; the payload follows.
struct mdx_packet_header_t {
  uint32_t type;  ///< message type, event number, or 8907 for voice
  uint32_t kind;  ///< mdx_packet_kind_t
  char to[12];    ///< service name, NUL-padded; in a subscription a name, "*" or, by module, empty
  uint32_t lost;  ///< packets that this receiver missed right before this one
  uint32_t module;  ///< notification module
  int32_t a;        ///< first value; for voice the report's type; in a subscription see above
  int32_t b;        ///< second value
  uint32_t length;  ///< payload bytes that follow
};

static_assert(sizeof(mdx_packet_header_t) == 40);
static_assert(offsetof(mdx_packet_header_t, type) == 0);
static_assert(offsetof(mdx_packet_header_t, kind) == 4 && offsetof(mdx_packet_header_t, to) == 8);
static_assert(offsetof(mdx_packet_header_t, lost) == 20);
static_assert(offsetof(mdx_packet_header_t, module) == 24);
static_assert(offsetof(mdx_packet_header_t, a) == 28 && offsetof(mdx_packet_header_t, b) == 32);
static_assert(offsetof(mdx_packet_header_t, length) == 36);
