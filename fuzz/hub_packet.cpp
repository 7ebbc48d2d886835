// SPDX-License-Identifier: Apache-2.0

// Packets that receivers send to the hub, one after the other: two bytes of length before each.
//
// The hub's source is part of this target, because what takes a packet apart is nobody's business
// outside.

#include "fuzz/fuzz.h"
#include "platform/linux/hub.cpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::input input(data, size);
  mdx_trace_mask = 0;
  set_name(own_name, "mdxgate");
  message_procedure = [](const void* packet) {
    const mdx_packet_header_t& header = static_cast<const packet_t*>(packet)->header;
    fuzz::require(header.length <= kMdxPayloadMax && std::strcmp(header.to, own_name) == 0);
    fuzz::require(header.type != SERVER_MSG_UNINSTALL);
  };
  receiver_t receiver;
  receiver.user = geteuid() + 1;  // may send anything but the uninstall message
  while (!input.empty()) {
    const size_t length = input.byte() * 256U + input.byte();
    static packet_t packet;
    const std::string bytes = input.take(length);
    bytes.copy(reinterpret_cast<char*>(&packet), sizeof(packet));
    serve_packet(receiver, packet, bytes.size());
    fuzz::require(receiver.name[sizeof(receiver.name) - 1] == '\0');
  }
  return 0;
}
