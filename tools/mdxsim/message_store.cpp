// SPDX-License-Identifier: Apache-2.0

// Keeps messages as PDUs, and reads and makes as much of a PDU as text mode needs: 3GPP TS 23.040,
// the 7-bit alphabet of 23.038 as far as it is ASCII.
#include "tools/mdxsim/message_store.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <utility>

#include "tools/line/octets.h"

namespace mdxsim {
namespace {

using namespace mdxline;

constexpr size_t kMostCharacters = 160;
constexpr uint8_t kInternational = 0x91;
constexpr uint8_t kNational = 0x81;
constexpr size_t kTimeOctets = 7;
constexpr uint8_t kStatusReport = 0x02;
constexpr uint8_t kNoMoreMessages = 0x04;

// What the alphabets share, but for "@" and "$" which only sit elsewhere.
uint8_t to_gsm(char c) {
  if (c == '@') return 0;
  if (c == '$') return 2;
  const bool elsewhere = std::string_view("[\\]^_`{|}~").find(c) != std::string_view::npos;
  const bool shared = c == '\n' || c == '\r' || (c >= ' ' && c <= 'z' && !elsewhere);
  return static_cast<uint8_t>(shared ? c : '?');
}

char from_gsm(uint8_t septet) {
  if (septet == 0) return '@';
  if (septet == 2) return '$';
  const char c = static_cast<char>(septet);
  return to_gsm(c) == septet ? c : '?';
}

// Reads octets one after the other; past the end all are 0.
class OctetReader {
 public:
  explicit OctetReader(Octets octets) : octets_(std::move(octets)) {}

  uint8_t next() { return at_ < octets_.size() ? octets_[at_++] : uint8_t{0}; }
  void skip(size_t count) { at_ = std::min(at_ + count, octets_.size()); }
  Octets rest() const {
    return {octets_.begin() + static_cast<std::ptrdiff_t>(at_), octets_.end()};
  }

  // Half octets swapped, the length counts digits.
  std::string address() {
    const size_t digits = next();
    std::string number = next() == kInternational ? "+" : "";
    const size_t first = number.size();
    for (size_t i = 0; i < (digits + 1) / 2; ++i) {
      const uint8_t pair = next();
      number += static_cast<char>('0' + (pair & 0x0FU));
      number += static_cast<char>('0' + (pair >> 4U));
    }
    number.resize(first + digits);
    return number;
  }

 private:
  Octets octets_;
  size_t at_ = 0;
};

}  // namespace

int MessageStore::add(StoredMessage message) {
  for (int index = 1; index <= kCapacity; ++index) {
    if (messages_.try_emplace(index, std::move(message)).second) return index;
  }
  return -1;
}

int tpdu_length(std::string_view pdu_hex) {
  const std::optional<Octets> octets = from_hex(pdu_hex);
  if (!octets || octets->empty()) return -1;
  const size_t centre = 1U + octets->front();
  return octets->size() < centre ? -1 : static_cast<int>(octets->size() - centre);
}

std::string to_septets(std::string_view text) {
  std::string septets;
  for (const char c : text) septets += static_cast<char>(to_gsm(c));
  return septets;
}

std::string from_septets(std::string_view septets) {
  std::string text;
  for (const char septet : septets) text += from_gsm(static_cast<uint8_t>(septet));
  return text;
}

namespace {

// Digits, half octets swapped, behind their number and type.
void put_address(Octets& octets, std::string_view number) {
  const bool international = number.starts_with('+');
  if (international) number.remove_prefix(1);
  octets.push_back(static_cast<uint8_t>(number.size()));
  octets.push_back(international ? kInternational : kNational);
  for (size_t i = 0; i < number.size(); i += 2) {
    const int high = i + 1 < number.size() ? number[i + 1] - '0' : 0x0F;
    octets.push_back(static_cast<uint8_t>(high * 16 + (number[i] - '0')));
  }
}

// yy/MM/dd,hh:mm:ss+zz: pairs of digits, swapped.
void put_time(Octets& octets, std::string_view clock) {
  for (size_t i = 0; i + 1 < clock.size(); i += 3) {
    octets.push_back(static_cast<uint8_t>((clock[i + 1] - '0') * 16 + (clock[i] - '0')));
  }
}

std::string time_of(OctetReader& reader) {
  constexpr std::string_view kSigns = "//,::+";
  std::string text;
  for (size_t i = 0; i < kTimeOctets; ++i) {
    const uint8_t pair = reader.next();
    text += static_cast<char>('0' + (pair & 0x0FU));
    text += static_cast<char>('0' + (pair >> 4U));
    if (i < kSigns.size()) text += kSigns[i];
  }
  return text;
}

std::string deliver(std::string_view number, std::string_view clock, uint8_t header, uint8_t coding,
                    size_t length, const Octets& user_data) {
  Octets octets{0, static_cast<uint8_t>(kNoMoreMessages | header)};
  put_address(octets, number);
  octets.insert(octets.end(), {0, coding});
  put_time(octets, clock);
  octets.push_back(static_cast<uint8_t>(length));
  octets.insert(octets.end(), user_data.begin(), user_data.end());
  return to_hex(octets);
}

}  // namespace

std::string submit_pdu(std::string_view number, std::string_view text) {
  text = text.substr(0, kMostCharacters);
  Octets octets{0, 0x01, 0};
  put_address(octets, number);
  octets.insert(octets.end(), {0, 0, static_cast<uint8_t>(text.size())});
  const Octets packed = pack_septets(to_septets(text));
  octets.insert(octets.end(), packed.begin(), packed.end());
  return to_hex(octets);
}

std::string deliver_pdu(std::string_view number, std::string_view clock, std::string_view text) {
  text = text.substr(0, kMostCharacters);
  return deliver(number, clock, 0, 0, text.size(), pack_septets(to_septets(text)));
}

// Where the user data of a submitted one begins: behind its length.
std::string delivered_pdu(std::string_view number, std::string_view clock,
                          std::string_view submitted_hex) {
  OctetReader reader(from_hex(submitted_hex).value_or(Octets{}));
  reader.skip(reader.next());
  const uint8_t type = reader.next();
  reader.skip(1);
  static_cast<void>(reader.address());
  reader.skip(1);
  const uint8_t coding = reader.next();
  const unsigned validity = (type >> 3U) & 0x03U;
  reader.skip(validity == 2 ? 1 : validity == 0 ? 0 : kTimeOctets);
  if ((type & 0x03U) != 1 || reader.rest().empty()) return {};
  const size_t length = reader.next();  // of an empty text nothing stands behind it
  return deliver(number, clock, type & 0x40U, coding, length, reader.rest());
}

std::string status_report_pdu(std::string_view submitted_hex, int reference,
                              std::string_view clock) {
  Octets octets{0, kStatusReport | kNoMoreMessages, static_cast<uint8_t>(reference)};
  put_address(octets, read_pdu(submitted_hex).number);
  put_time(octets, clock);
  put_time(octets, clock);
  octets.push_back(0);  // it was received
  return to_hex(octets);
}

bool is_status_report(std::string_view pdu_hex) {
  return (read_pdu(pdu_hex).type & 0x03U) == kStatusReport;
}

bool asks_for_status_report(std::string_view submitted_hex) {
  return (read_pdu(submitted_hex).type & 0x20U) != 0;
}

MessageText read_pdu(std::string_view pdu_hex) {
  OctetReader reader(from_hex(pdu_hex).value_or(Octets{}));
  reader.skip(reader.next());  // service centre
  MessageText message;
  message.type = reader.next();
  const bool submitted = (message.type & 0x03U) == 1;
  if (submitted) reader.skip(1);  // message reference
  message.number = reader.address();
  reader.skip(1);  // protocol
  message.coding = reader.next();
  const unsigned validity = (message.type >> 3U) & 0x03U;
  if (!submitted) message.time = time_of(reader);
  if (submitted && (validity == 1 || validity == 3)) reader.skip(kTimeOctets);
  if (submitted && validity == 2) reader.skip(1);
  message.length = reader.next();
  message.plain = message.coding == 0 && (message.type & 0x40U) == 0;
  message.text = message.plain ? from_septets(unpack_septets(reader.rest(), message.length))
                               : to_hex(reader.rest());
  return message;
}

}  // namespace mdxsim
