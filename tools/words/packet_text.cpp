// SPDX-License-Identifier: Apache-2.0

// The library names what it knows. Of any other packet the two values of its header are shown, and
// its payload in hexadecimal digits.

#include "tools/words/packet_text.h"

#include <cctype>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/words/duration.h"
#include "tools/words/signal_levels.h"

using nlohmann::ordered_json;

namespace {

template <typename Take>
void for_each_field(const mdx_packet_t& packet, Take take) {
  mdx_field_t field = MDX_FIELD_INIT;
  for (uint32_t i = 0; mdx_packet_field(&packet, i, &field) == MDX_OK; ++i) take(field);
}

std::string destination_of(const mdx_packet_t& packet) {
  if (packet.kind != MDX_KIND_NOTIFICATION) return packet.to;
  const char* name = mdx_module_name(packet.module);
  return name != nullptr ? name : "module " + std::to_string(packet.module);
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

std::string bytes_of(const mdx_field_t& field) {
  return {static_cast<const char*>(field.data), field.length};
}

std::string hex_of(const std::string& bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string hex;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    hex += {kDigits[byte >> 4], kDigits[byte & 15]};
  }
  return hex;
}

/// In quotes, on one line, nothing in it that a terminal acts on.
std::string quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    const bool shown = std::isprint(static_cast<unsigned char>(c)) != 0 && c != '"' && c != '\\';
    quoted += shown ? std::string(1, c) : "\\x" + hex_of({c});
  }
  return quoted + '"';
}

std::string value_text(const mdx_field_t& field) {
  switch (field.kind) {
    case MDX_FIELD_NUMBER:
      return std::to_string(field.number);
    case MDX_FIELD_UNSIGNED:
      return std::to_string(field.unsigned_number);
    case MDX_FIELD_TEXT:
      return quoted(bytes_of(field));
    default:
      return hex_of(bytes_of(field));
  }
}

std::string field_text(const mdx_packet_t& packet, const mdx_field_t& field) {
  std::string text;
  if (field.kind == MDX_FIELD_BYTES) {
    text = " a=" + std::to_string(packet.a) + " b=" + std::to_string(packet.b);
    if (field.length == 0) return text;
  }
  text += std::string(" ") + field.name + '=' + value_text(field);
  if (field.unit[0] != '\0') text += std::string(" ") + field.unit;
  return text;
}

/// What its name says, for those who do not know it.
const char* link_words(const mdx_packet_t& packet) {
  if (packet.kind != MDX_KIND_SERVICE || std::string_view(packet.to) != MDX_SERVICE_LINK) return "";
  switch (packet.type) {
    case MDX_LINK_UP:
      return " the modem is there";
    case MDX_LINK_GONE:
      return " the modem is gone";
    default:
      return "";
  }
}

ordered_json value_json(const mdx_field_t& field) {
  switch (field.kind) {
    case MDX_FIELD_NUMBER:
      return field.number;
    case MDX_FIELD_UNSIGNED:
      return field.unsigned_number;
    case MDX_FIELD_TEXT:
      return bytes_of(field);
    default:
      return hex_of(bytes_of(field));
  }
}

void add_fields(const mdx_packet_t& packet, ordered_json* object) {
  (*object)["fields"] = ordered_json::object();
  for_each_field(packet, [&](const mdx_field_t& field) {
    if (field.kind != MDX_FIELD_BYTES) {
      (*object)["fields"][field.name] = value_json(field);
      return;
    }
    (*object)["fields"] = {{"a", packet.a}, {"b", packet.b}};
    if (field.length > 0) (*object)[field.name] = value_json(field);
  });
}

/// Levels in dBm where the fields have a modem's codes for them.
void add_signal(ordered_json* object) {
  const ordered_json& fields = (*object)["fields"];
  if ((*object)["event"] != "EVT_AT_HCSQ" || !fields.contains("sysmode")) return;
  std::vector<int> codes;
  for (const auto& [name, value] : fields.items()) {
    if (name != "sysmode") codes.push_back(value.get<int>());
  }
  (*object)["signal"] = levels_json(levels_of_report(fields["sysmode"].get<int>(), codes));
}

}  // namespace

std::string packet_name(const mdx_packet_t& packet) {
  const char* name = mdx_packet_name(&packet);
  if (name != nullptr) return name;
  return std::string(kind_name(packet.kind)) + ' ' + std::to_string(packet.type);
}

std::string packet_heading(const mdx_packet_t& packet) {
  return destination_of(packet) + ' ' + packet_name(packet);
}

std::string packet_values(const mdx_packet_t& packet) {
  std::string values = link_words(packet);
  for_each_field(packet, [&](const mdx_field_t& field) { values += field_text(packet, field); });
  return values;
}

std::string packet_line(const mdx_packet_t& packet) {
  std::string line = packet_heading(packet) + packet_values(packet);
  if (packet.lost > 0) line += " (behind " + std::to_string(packet.lost) + " lost)";
  if (packet.remembered != 0) line += " (told " + duration_text(packet.age_s) + " ago)";
  return line;
}

ordered_json packet_json(const mdx_packet_t& packet) {
  ordered_json object = {{"kind", kind_name(packet.kind)}, {"destination", destination_of(packet)}};
  if (packet.kind == MDX_KIND_NOTIFICATION) object["module"] = packet.module;
  const char* name = mdx_packet_name(&packet);
  object["event"] = name != nullptr ? ordered_json(name) : ordered_json(nullptr);
  object["type"] = packet.type;
  if (packet.kind == MDX_KIND_VOICE) object["voice_type"] = packet.a;
  object["lost"] = packet.lost;
  if (packet.remembered != 0) object["remembered"] = true;
  if (packet.remembered != 0) object["age_s"] = packet.age_s;
  add_fields(packet, &object);
  add_signal(&object);
  return object;
}
