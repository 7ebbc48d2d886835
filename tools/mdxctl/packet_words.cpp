// SPDX-License-Identifier: Apache-2.0

// The row is found by destination, type and payload length together. A packet of another length
// than its event is known with is named, and its bytes are shown as they are.

#include "tools/mdxctl/packet_words.h"

#include <cctype>
#include <cstring>
#include <utility>

#include "tools/mdxctl/packet_table.h"

using nlohmann::ordered_json;

namespace {

bool is_of_row(const mdx_packet_t& packet, const packet_row_t& row) {
  if (packet.kind != row.kind || packet.type != row.type) return false;
  switch (packet.kind) {
    case MDX_KIND_SERVICE:
      return std::strcmp(packet.to, row.to) == 0;
    case MDX_KIND_NOTIFICATION:
      return packet.module == static_cast<uint32_t>(row.number);
    default:
      return packet.a == row.number;
  }
}

/// The packet's row, or one of its name where no length fits, or nullptr.
const packet_row_t* find_row(const mdx_packet_t& packet) {
  const packet_row_t* named = nullptr;
  for (const packet_row_t& row : packet_table()) {
    if (!is_of_row(packet, row)) continue;
    if (packet.length == row.length) return &row;
    named = &row;
  }
  return named;
}

std::string destination_of(const mdx_packet_t& packet) {
  if (packet.kind != MDX_KIND_NOTIFICATION) return packet.to;
  const char* name = module_name(packet.module);
  return name != nullptr ? name : "module " + std::to_string(packet.module);
}

/// A text may hold zero bytes, so it ends behind the last other byte of its field.
std::string text_of(const char* bytes, size_t size) {
  while (size > 0 && bytes[size - 1] == '\0') --size;
  return {bytes, size};
}

uint64_t number_of(const char* bytes, size_t size) {
  uint64_t number = 0;
  for (size_t i = size; i > 0; --i) number = number << 8 | static_cast<unsigned char>(bytes[i - 1]);
  return number;
}

ordered_json value_of(const char* payload, const value_row_t& row) {
  const char* bytes = payload + row.offset;
  if (row.kind == VALUE_TEXT) return text_of(bytes, row.size);
  const uint64_t number = number_of(bytes, row.size);
  if (row.kind == VALUE_SIGNED) return static_cast<int32_t>(number);
  return number;
}

std::string hex_of(const void* bytes, size_t size) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string hex;
  for (size_t i = 0; i < size; ++i) {
    const auto byte = static_cast<const unsigned char*>(bytes)[i];
    hex += kDigits[byte >> 4];
    hex += kDigits[byte & 15];
  }
  return hex;
}

/// In quotes, on one line, nothing in it that a terminal acts on.
std::string quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isprint(byte) != 0 && c != '"' && c != '\\') {
      quoted += c;
    } else {
      quoted += "\\x" + hex_of(&c, 1);
    }
  }
  return quoted + '"';
}

const char* kind_name(uint32_t kind) {
  switch (kind) {
    case MDX_KIND_SERVICE:
      return "service";
    case MDX_KIND_NOTIFICATION:
      return "notification";
    case MDX_KIND_VOICE:
      return "voice";
    default:
      return "unknown";
  }
}

}  // namespace

packet_words_t packet_words(const mdx_packet_t& packet) {
  packet_words_t words;
  words.destination = destination_of(packet);
  const packet_row_t* row = find_row(packet);
  if (row != nullptr) words.event = row->name;
  const bool known = row != nullptr && row->length == packet.length;
  if (known && row->a != nullptr) words.values.push_back({row->a, packet.a, ""});
  if (known && row->b != nullptr) words.values.push_back({row->b, packet.b, ""});
  if (!known) {
    words.values = {{"a", packet.a, ""}, {"b", packet.b, ""}};
    words.payload = hex_of(packet.payload, packet.length);
    return words;
  }
  for (const value_row_t& value : row->values) {
    words.values.push_back(
        {value.name, value_of(static_cast<const char*>(packet.payload), value), value.unit});
  }
  return words;
}

std::string packet_line(const mdx_packet_t& packet) {
  const packet_words_t words = packet_words(packet);
  std::string line = words.destination + ' ';
  line += words.event.empty()
              ? std::string(kind_name(packet.kind)) + ' ' + std::to_string(packet.type)
              : words.event;
  for (const named_value_t& value : words.values) {
    const bool text = value.value.is_string();
    line += ' ' + value.name + '=';
    line += text ? quoted(value.value.get<std::string>()) : value.value.dump();
    if (!value.unit.empty()) line += ' ' + value.unit;
  }
  if (!words.payload.empty()) line += " payload=" + words.payload;
  if (packet.lost > 0) line += " (behind " + std::to_string(packet.lost) + " lost)";
  return line;
}

ordered_json packet_json(const mdx_packet_t& packet) {
  const packet_words_t words = packet_words(packet);
  ordered_json fields = ordered_json::object();
  for (const named_value_t& value : words.values) fields[value.name] = value.value;
  ordered_json object = {{"kind", kind_name(packet.kind)}, {"destination", words.destination}};
  if (packet.kind == MDX_KIND_NOTIFICATION) object["module"] = packet.module;
  if (words.event.empty()) {
    object["event"] = nullptr;
  } else {
    object["event"] = words.event;
  }
  object["type"] = packet.type;
  if (packet.kind == MDX_KIND_VOICE) object["voice_type"] = packet.a;
  object["lost"] = packet.lost;
  object["fields"] = std::move(fields);
  if (!words.payload.empty()) object["payload"] = words.payload;
  return object;
}
