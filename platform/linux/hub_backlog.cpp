// SPDX-License-Identifier: Apache-2.0

// A ring of bytes: a packet may begin at its end and go on at its beginning.

#include "platform/linux/hub_backlog.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>

bool hub_backlog::append(const mdx_packet_header_t& header, const void* payload) {
  if (ring_ == nullptr) {
    void* fresh = mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (fresh == MAP_FAILED) return false;
    ring_ = static_cast<char*>(fresh);
  }
  put(end_, &header, sizeof(header));
  put(end_ + sizeof(header), payload, header.length);
  end_ += room_for(header.length);
  return true;
}

mdx_packet_header_t hub_backlog::header_at(place_t place) const {
  mdx_packet_header_t header;
  get(place, &header, sizeof(header));
  return header;
}

void hub_backlog::payload_at(place_t place, uint32_t length, void* payload) const {
  get(place + sizeof(mdx_packet_header_t), payload, length);
}

void hub_backlog::clear() {
  oldest_ = end_;
  if (ring_ != nullptr) munmap(ring_, kBytes);
  ring_ = nullptr;
}

void hub_backlog::put(place_t place, const void* data, size_t size) {
  const size_t at = place % kBytes;
  const size_t first = std::min(size, kBytes - at);
  if (first != 0) memcpy(ring_ + at, data, first);
  if (first != size) memcpy(ring_, static_cast<const char*>(data) + first, size - first);
}

void hub_backlog::get(place_t place, void* data, size_t size) const {
  const size_t at = place % kBytes;
  const size_t first = std::min(size, kBytes - at);
  memcpy(data, ring_ + at, first);
  if (first != size) memcpy(static_cast<char*>(data) + first, ring_, size - first);
}
