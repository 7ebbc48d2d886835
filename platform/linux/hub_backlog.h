// SPDX-License-Identifier: Apache-2.0

// Packets that some receiver had no room for yet, in the order in which they were sent.
//
// There is one for all receivers: who falls behind notes its place in it. It has a limit, which
// pushes out the oldest packets, and takes memory only while somebody is behind.
#pragma once

#include <cstddef>
#include <cstdint>

#include "wire/border.h"

class hub_backlog {
 public:
  static constexpr size_t kBytes = 1024 * 1024;

  /// Grows from packet to packet, and is never used again.
  using place_t = uint64_t;
  place_t oldest() const { return oldest_; }
  place_t end() const { return end_; }

  /// Whether a packet fits behind the others. `length` as in its header.
  bool has_room(uint32_t length) const { return end_ - oldest_ + room_for(length) <= kBytes; }
  /// There is one.
  void forget_oldest() { oldest_ = behind(oldest_); }
  /// Adds a packet, for which there is room.
  /// @return false when the system has no memory for the first one
  bool append(const mdx_packet_header_t& header, const void* payload);

  /// A packet that has not been forgotten.
  mdx_packet_header_t header_at(place_t place) const;
  /// Copies the `length` bytes behind its header.
  void payload_at(place_t place, uint32_t length, void* payload) const;
  place_t behind(place_t place) const { return place + room_for(header_at(place).length); }

  /// Forgets all, and gives the memory back.
  void clear();

 private:
  static constexpr size_t room_for(uint32_t length) {
    return (sizeof(mdx_packet_header_t) + length + 7) / 8 * 8;
  }
  void put(place_t place, const void* data, size_t size);
  void get(place_t place, void* data, size_t size) const;

  char* ring_ = nullptr;
  place_t oldest_ = 0;
  place_t end_ = 0;
};
