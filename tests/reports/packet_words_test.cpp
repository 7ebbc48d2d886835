// SPDX-License-Identifier: Apache-2.0

// The library's words for packets are those of docs/wire-formats.md.

#include "tests/reports/packet_words.h"

#include <gmock/gmock.h>

#include <fstream>
#include <map>
#include <regex>

#include "client/mdxclient.h"
#include "client/packet_table.h"
#include "tests/fake_platform/fake_platform.h"
#include "wire/destinations.h"

using testing::UnorderedElementsAreArray;

namespace {

using cells_t = std::vector<std::string>;

std::string quoted(const std::string& text) { return '`' + text + '`'; }

/// The rows of all tables in the document. What stands in parentheses is a remark and left out, but
/// for units, and so is what follows a full stop.
std::vector<cells_t> read_rows() {
  static const std::regex remark(R"( \((?!(B|B/s|s|quarter hours)\))[^)]*\)|\. .*)");
  static const std::regex cell(R"( *(.*?) *\|)");
  std::ifstream file(MDX_WIRE_FORMATS);
  std::vector<cells_t> rows;
  for (std::string line; std::getline(file, line);) {
    if (!line.starts_with("| ")) continue;
    cells_t& cells = rows.emplace_back();
    for (std::sregex_iterator i(line.begin() + 1, line.end(), cell), end; i != end; ++i) {
      cells.push_back(std::regex_replace((*i)[1].str(), remark, ""));
    }
  }
  return rows;
}

const std::vector<cells_t>& told_rows() {
  static const std::vector<cells_t> rows = read_rows();
  return rows;
}

bool is_packet(const cells_t& row) {
  static const std::regex name("`[A-Z][A-Z0-9_]+`");
  return row.size() >= 4 && std::regex_match(row[row.size() - 3], name);
}

/// "dialup 166657 `DIALUP_MSG_V4_UP` 8 i32 `cid`, i32 `err_code`"
std::vector<std::string> told_packets() {
  std::map<std::string, std::string> records;
  for (const cells_t& row : told_rows()) {
    if (row.size() == 3) records[row[0]] = row[1] + ' ' + row[2];
  }
  std::vector<std::string> packets;
  for (const cells_t& row : told_rows()) {
    if (!is_packet(row)) continue;
    std::string line = row[0];
    if (row.size() == 5) line += ' ' + std::to_string(std::stoul(row[1], nullptr, 0));
    const auto record = records.find(row.back());
    packets.push_back(line + ' ' + row[row.size() - 3] + ' ' +
                      (record == records.end() ? row.back() : record->second));
  }
  return packets;
}

class list_t {
 public:
  void add(const std::string& item) { text_ += (text_.empty() ? "" : ", ") + item; }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

std::string field_text(const field_row_t& field) {
  const bool is_text = field.kind == MDX_FIELD_TEXT;
  const std::string kind = is_text ? "t" : field.kind == MDX_FIELD_NUMBER ? "i" : "u";
  const std::string unit = unit_name(field.unit);
  return kind + std::to_string(is_text ? field.width : field.width * 8) + ' ' + quoted(field.name) +
         (unit.empty() ? "" : " (" + unit + ')');
}

std::string values_text(const packet_row_t& row) {
  list_t list;
  if (row.a[0] != '\0') list.add(quoted(row.a));
  if (row.b[0] != '\0') list.add(quoted(row.b));
  size_t at = 0;
  for (const field_row_t& field : field_rows()) {
    if (field.payload != row.payload) continue;
    if (field.offset > at) list.add('-' + std::to_string(field.offset - at));
    list.add(field_text(field));
    at = field.offset + field.width;
  }
  if (row.length > at) list.add('-' + std::to_string(row.length - at));
  return (row.length > 0 ? std::to_string(row.length) + ' ' : "") + list.text();
}

std::string packet_text(const packet_row_t& row) {
  std::string key = row.kind == MDX_KIND_SERVICE ? row.to : std::to_string(row.number);
  if (row.kind != MDX_KIND_VOICE) key += ' ' + std::to_string(row.type);
  return key + ' ' + quoted(row.name) + ' ' + values_text(row);
}

mdx_packet_t packet_of(const fake::entry& entry) {
  mdx_packet_t packet = MDX_PACKET_INIT;
  packet.kind = MDX_KIND_NOTIFICATION;
  packet.type = entry.type;
  packet.module = static_cast<uint32_t>(entry.module);
  packet.payload = entry.text.data();
  packet.length = static_cast<uint32_t>(entry.text.size());
  entry.name.copy(packet.to, sizeof(packet.to) - 1);
  if (entry.what == fake::kind::SERVICE) packet.kind = MDX_KIND_SERVICE;
  if (entry.what == fake::kind::VOICE) {
    packet.kind = MDX_KIND_VOICE;
    packet.type = VOICE_MSG;
    packet.a = static_cast<int32_t>(entry.type);
  }
  return packet;
}

bool has_layout(const mdx_packet_t& packet) {
  mdx_field_t field = MDX_FIELD_INIT;
  return mdx_packet_field(&packet, 0, &field) != MDX_OK || field.kind != MDX_FIELD_BYTES;
}

bool is_told_with(const std::string& name, const std::string& literal) {
  for (const cells_t& row : told_rows()) {
    if (!is_packet(row) || row[row.size() - 3] != quoted(name)) continue;
    const std::string& comes_with = row[row.size() - 2];
    if (comes_with.find(quoted(literal)) != std::string::npos) return true;
    if (comes_with.find(quoted('^' + literal)) != std::string::npos) return true;
  }
  return false;
}

}  // namespace

std::vector<std::string> unexplained_packets(const std::string& literal) {
  std::vector<std::string> lines;
  for (const fake::entry& entry : fake::packets()) {
    const mdx_packet_t packet = packet_of(entry);
    const char* name = mdx_packet_name(&packet);
    const bool is_named = name != nullptr && is_told_with(name, literal);
    if (!is_named || !has_layout(packet)) lines.push_back(entry.line());
  }
  return lines;
}

TEST(PacketWords, AreThoseOfTheDocument) {
  std::vector<std::string> known;
  for (const packet_row_t& row : packet_rows()) known.push_back(packet_text(row));
  EXPECT_THAT(told_packets(), UnorderedElementsAreArray(known));
}
