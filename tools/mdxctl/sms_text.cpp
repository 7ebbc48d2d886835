// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxctl/sms_text.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

using nlohmann::ordered_json;

namespace {

constexpr const char* kStates[] = {"unread", "read", "unsent", "sent"};
constexpr const char* kTypes[] = {"received", "outgoing", "report"};
constexpr const char* kAlphabets[] = {"GSM 7-bit", "8-bit", "UCS-2"};
constexpr const char* kFates[] = {"delivered", "trying", "failed"};

bool of_one_message(const mdx_sms_t& a, const mdx_sms_t& b) {
  return a.parts == b.parts && a.reference == b.reference && a.type == b.type &&
         a.alphabet == b.alphabet && std::string(a.number) == b.number;
}

/// Whether an entry is a part of the message that is not there yet.
bool belongs_to(const sms_entry_t& entry, const sms_joined_t& message) {
  if (entry.mistake != MDX_SMS_FINE || message.first().mistake != MDX_SMS_FINE) return false;
  if (entry.sms.parts < 2 || !of_one_message(entry.sms, message.first().sms)) return false;
  return std::none_of(message.entries.begin(), message.entries.end(),
                      [&](const sms_entry_t& other) { return other.sms.part == entry.sms.part; });
}

std::string text_of(const sms_joined_t& message) {
  std::vector<const mdx_sms_t*> parts;
  for (const sms_entry_t& entry : message.entries) parts.push_back(&entry.sms);
  const auto count = static_cast<uint32_t>(parts.size());
  std::string text(mdx_sms_join(parts.data(), count, nullptr, 0) + 1, '\0');
  mdx_sms_join(parts.data(), count, text.data(), text.size());
  text.pop_back();
  return text;
}

std::string data_of(const sms_joined_t& message) {
  std::string hex;
  char digits[3];
  for (const sms_entry_t& entry : message.entries) {
    for (uint32_t i = 0; i < entry.sms.units_length; ++i) {
      std::snprintf(digits, sizeof(digits), "%02X", entry.sms.units[i]);
      hex += digits;
    }
  }
  return hex;
}

std::vector<uint32_t> missing_parts(const sms_joined_t& message) {
  std::vector<uint32_t> missing;
  auto next = message.entries.begin();
  for (uint32_t part = 1; part <= message.first().sms.parts; ++part) {
    if (next != message.entries.end() && next->sms.part == part) {
      ++next;
    } else {
      missing.push_back(part);
    }
  }
  return missing;
}

template <typename Number>
std::string numbers_text(const std::vector<Number>& numbers) {
  std::string text;
  for (const Number number : numbers) text += (text.empty() ? "" : ",") + std::to_string(number);
  return text;
}

std::vector<int> indexes_of(const sms_joined_t& message) {
  std::vector<int> indexes;
  for (const sms_entry_t& entry : message.entries) {
    if (entry.index >= 0) indexes.push_back(entry.index);
  }
  return indexes;
}

/// Unread as long as one of the parts is.
const char* state_of(const sms_joined_t& message) {
  int state = message.first().state;
  for (const sms_entry_t& entry : message.entries) state = std::min(state, entry.state);
  return state == MDX_SMS_STATE_NONE ? nullptr : kStates[state];
}

std::string escaped(unsigned byte) {
  char text[8];
  std::snprintf(text, sizeof(text), "\\x%02x", byte);
  return text;
}

/// Each line indented. Control characters, also those that UTF-8 has past 127, are spelt out.
std::string indented(const std::string& text) {
  std::string lines = "    ";
  for (size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : 0);
    if (byte == '\r' && next == '\n') continue;
    if (byte == 0xc2 && next < 0xa0) {
      lines += escaped(next);
      ++i;
    } else if (byte == '\n') {
      lines += "\n    ";
    } else {
      lines += byte < ' ' || byte == 0x7f ? escaped(byte) : std::string(1, text[i]);
    }
  }
  return lines + '\n';
}

std::string reported(const mdx_sms_t& sms) {
  return "message " + std::to_string(sms.message_reference) + ": " +
         mdx_sms_status_text(sms.status);
}

std::string heading_of(const sms_joined_t& message) {
  const mdx_sms_t& sms = message.first().sms;
  std::string heading = numbers_text(indexes_of(message));
  if (!heading.empty()) heading += "  ";
  if (const char* state = state_of(message)) heading += std::string(state) + "  ";
  if (sms.time_known != 0) heading += sms_time_text(sms.time_s, sms.time_zone_min) + "  ";
  heading += std::string(sms.type == MDX_SMS_DELIVER ? "from " : "to ") + sms.number;
  if (sms.message_class == 0) heading += "  flash";
  if (sms.has_ports != 0) heading += "  for port " + std::to_string(sms.destination_port);
  if (sms.parts > 1 && !message.complete()) {
    heading += "  part " + numbers_text(missing_parts(message)) + " of " +
               std::to_string(sms.parts) + " is missing";
  }
  return heading + '\n';
}

void add_parts(const sms_joined_t& message, ordered_json* object) {
  const mdx_sms_t& sms = message.first().sms;
  if (sms.parts == 0) return;
  (*object)["parts"] = {
      {"reference", sms.reference}, {"count", sms.parts}, {"missing", missing_parts(message)}};
}

ordered_json time_json(int32_t known, int64_t time_s, int32_t zone_min) {
  if (known == 0) return nullptr;
  std::string text = sms_time_text(time_s, zone_min);
  text[text.find(' ')] = 'T';
  text.erase(text.find(' '), 1);
  return text;
}

ordered_json report_json(const mdx_sms_t& sms) {
  return {
      {"message_reference", sms.message_reference},
      {"status", sms.status},
      {"status_text", mdx_sms_status_text(sms.status)},
      {"fate", kFates[mdx_sms_fate(&sms)]},
      {"discharged", time_json(sms.discharged_known, sms.discharged_s, sms.discharged_zone_min)}};
}

void add_content(const sms_joined_t& message, ordered_json* object) {
  const mdx_sms_t& sms = message.first().sms;
  (*object)["alphabet"] = kAlphabets[sms.alphabet];
  (*object)["text"] = text_of(message);
  if (sms.alphabet == MDX_SMS_8_BIT) (*object)["data"] = data_of(message);
  if (sms.message_class >= 0) (*object)["class"] = sms.message_class;
  if (sms.has_ports != 0) {
    (*object)["ports"] = {{"destination", sms.destination_port}, {"source", sms.source_port}};
  }
  add_parts(message, object);
}

}  // namespace

bool sms_joined_t::complete() const {
  return first().sms.parts < 2 || entries.size() == first().sms.parts;
}

sms_entry_t read_entry(const std::string& pdu, uint32_t tpdu_length) {
  sms_entry_t entry;
  entry.pdu = pdu;
  entry.mistake =
      mdx_sms_decode(pdu.data(), static_cast<uint32_t>(pdu.size()), tpdu_length, &entry.sms);
  return entry;
}

std::vector<sms_joined_t> join_entries(const std::vector<sms_entry_t>& entries) {
  std::vector<sms_joined_t> messages;
  for (const sms_entry_t& entry : entries) {
    const auto found =
        std::find_if(messages.begin(), messages.end(),
                     [&](const sms_joined_t& message) { return belongs_to(entry, message); });
    if (found == messages.end()) {
      messages.push_back({{entry}});
      continue;
    }
    const auto behind =
        std::find_if(found->entries.begin(), found->entries.end(),
                     [&](const sms_entry_t& other) { return other.sms.part > entry.sms.part; });
    found->entries.insert(behind, entry);
  }
  return messages;
}

std::string sms_time_text(int64_t time_s, int32_t zone_min) {
  const std::time_t local = time_s + int64_t{zone_min} * 60;
  std::tm parts{};
  gmtime_r(&local, &parts);
  char text[48];
  const size_t length = std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S ", &parts);
  const int zone = std::abs(zone_min);
  std::snprintf(text + length, sizeof(text) - length, "%c%02d:%02d", zone_min < 0 ? '-' : '+',
                zone / 60, zone % 60);
  return text;
}

std::string sms_lines(const sms_joined_t& message) {
  const sms_entry_t& first = message.first();
  if (first.mistake != MDX_SMS_FINE) {
    const std::string index = first.index < 0 ? "" : std::to_string(first.index) + "  ";
    return index + "unreadable: " + mdx_sms_mistake_text(first.mistake) + '\n' +
           indented(first.pdu);
  }
  const std::string heading = heading_of(message);
  if (first.sms.type == MDX_SMS_STATUS_REPORT) return heading + indented(reported(first.sms));
  if (first.sms.alphabet == MDX_SMS_8_BIT) return heading + indented("data " + data_of(message));
  return heading + indented(text_of(message));
}

ordered_json sms_json(const sms_joined_t& message) {
  const sms_entry_t& first = message.first();
  const mdx_sms_t& sms = first.sms;
  const char* state = state_of(message);
  ordered_json object = {{"numbers", indexes_of(message)},
                         {"state", state != nullptr ? ordered_json(state) : ordered_json()}};
  if (first.mistake != MDX_SMS_FINE) {
    object.update({{"error", mdx_sms_mistake_text(first.mistake)}, {"pdu", first.pdu}});
    return object;
  }
  object["type"] = kTypes[sms.type];
  object["number"] = sms.number;
  object["time"] = time_json(sms.time_known, sms.time_s, sms.time_zone_min);
  if (sms.service_centre[0] != '\0') object["service_centre"] = sms.service_centre;
  if (sms.type == MDX_SMS_STATUS_REPORT) {
    object.update(report_json(sms));
  } else {
    add_content(message, &object);
  }
  return object;
}
