// SPDX-License-Identifier: Apache-2.0

// Packets in words. Destination, type and payload length together find a packet's row; where no
// length fits, the packet keeps its name and its payload is bytes: a later server may tell more.

#include <cstring>

#include "client/mdxclient.h"
#include "client/packet_table.h"

namespace {

constexpr size_t kFirstPacketSize = offsetof(mdx_packet_t, payload) + sizeof(mdx_packet_t::payload);
constexpr size_t kFirstFieldSize = offsetof(mdx_field_t, length) + sizeof(mdx_field_t::length);

bool is_usable(const mdx_packet_t* packet) {
  return packet != nullptr && packet->size >= kFirstPacketSize &&
         (packet->payload != nullptr || packet->length == 0);
}

bool is_named_by(const packet_row_t& row, const mdx_packet_t& packet) {
  if (packet.kind != row.kind || packet.type != row.type) return false;
  switch (packet.kind) {
    case MDX_KIND_SERVICE:
      return std::strncmp(packet.to, row.to, sizeof(packet.to)) == 0;
    case MDX_KIND_NOTIFICATION:
      return packet.module == static_cast<uint32_t>(row.number);
    default:
      return packet.a == row.number;
  }
}

/// The packet's row, or one of its name where no length fits, or null.
const packet_row_t* find_row(const mdx_packet_t& packet) {
  const packet_row_t* named = nullptr;
  for (const packet_row_t& row : packet_rows()) {
    if (!is_named_by(row, packet)) continue;
    if (packet.length == row.length) return &row;
    named = &row;
  }
  return named;
}

template <typename Number>
Number read_as(const char* bytes) {
  Number number;
  std::memcpy(&number, bytes, sizeof(number));
  return number;
}

uint64_t read_unsigned(const char* bytes, size_t width) {
  switch (width) {
    case sizeof(uint8_t):
      return read_as<uint8_t>(bytes);
    case sizeof(uint16_t):
      return read_as<uint16_t>(bytes);
    case sizeof(uint32_t):
      return read_as<uint32_t>(bytes);
    default:
      return read_as<uint64_t>(bytes);
  }
}

/// A text may hold zero bytes, so it ends behind the last other byte of its room.
size_t text_length(const char* text, size_t room) {
  while (room > 0 && text[room - 1] == '\0') --room;
  return room;
}

void read_value(const field_row_t& row, const char* bytes, mdx_field_t* field) {
  switch (row.kind) {
    case MDX_FIELD_NUMBER:
      field->number = read_as<int32_t>(bytes);
      return;
    case MDX_FIELD_UNSIGNED:
      field->unsigned_number = read_unsigned(bytes, row.width);
      return;
    default:
      field->data = bytes;
      field->length = static_cast<uint32_t>(text_length(bytes, row.width));
  }
}

bool read_header_value(const char* name, int32_t value, mdx_field_t* field) {
  field->kind = MDX_FIELD_NUMBER;
  field->name = name;
  field->unit = "";
  field->number = value;
  return true;
}

bool read_payload_value(const packet_row_t& packet_row, const void* payload, uint32_t index,
                        mdx_field_t* field) {
  for (const field_row_t& row : field_rows()) {
    if (row.payload != packet_row.payload || index-- != 0) continue;
    field->kind = row.kind;
    field->name = row.name;
    field->unit = unit_name(row.unit);
    read_value(row, static_cast<const char*>(payload) + row.offset, field);
    return true;
  }
  return false;
}

bool read_bytes(const mdx_packet_t& packet, uint32_t index, mdx_field_t* field) {
  field->kind = MDX_FIELD_BYTES;
  field->name = "payload";
  field->unit = "";
  field->data = packet.payload;
  field->length = packet.length;
  return index == 0;
}

bool read_field(const mdx_packet_t& packet, uint32_t index, mdx_field_t* field) {
  const packet_row_t* row = find_row(packet);
  if (row == nullptr || row->length != packet.length) return read_bytes(packet, index, field);
  if (row->a[0] != '\0' && index-- == 0) return read_header_value(row->a, packet.a, field);
  if (row->b[0] != '\0' && index-- == 0) return read_header_value(row->b, packet.b, field);
  return read_payload_value(*row, packet.payload, index, field);
}

}  // namespace

const char* mdx_packet_name(const mdx_packet_t* packet) {
  const packet_row_t* row = is_usable(packet) ? find_row(*packet) : nullptr;
  return row == nullptr ? nullptr : row->name;
}

const char* mdx_known_packet(uint32_t index) {
  return index < packet_rows().size() ? packet_rows()[index].name : nullptr;
}

int mdx_packet_field(const mdx_packet_t* packet, uint32_t index, mdx_field_t* field) {
  if (!is_usable(packet) || field == nullptr || field->size < kFirstFieldSize) {
    return MDX_ERR_ARGUMENT;
  }
  mdx_field_t filled = MDX_FIELD_INIT;
  filled.size = field->size;
  if (!read_field(*packet, index, &filled)) return MDX_ERR_ARGUMENT;
  std::memcpy(field, &filled, field->size < sizeof(filled) ? field->size : sizeof(filled));
  return MDX_OK;
}
