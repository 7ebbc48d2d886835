// SPDX-License-Identifier: Apache-2.0

// Finds what is personal in a PDU, and writes stand-ins over it in place.
//
// A field that claims more octets than there are ends it: who reads on behind it takes one thing
// for another, and then the whole line is for its caller to mask blindly.
#include "tools/mdxtap/pdu_mask.h"

#include <algorithm>
#include <cstdint>

#include "tools/line/octets.h"

namespace mdxtap {
namespace {

using mdxline::Octets;

constexpr uint8_t kTypeMask = 0x03;
constexpr uint8_t kSubmit = 1;
constexpr uint8_t kReportOrCommand = 2;
constexpr uint8_t kHasHeader = 0x40;
constexpr uint8_t kNameAddress = 0x50;
constexpr size_t kMostCentreOctets = 11;
constexpr size_t kMostAddressDigits = 20;
constexpr size_t kTimeOctets = 7;
constexpr size_t kBroadcastHeader = 6;

enum class Alphabet { kSeptets, kOctets, kUcs2 };

// 3GPP TS 23.038, 4: the data coding scheme. What is compressed is octets.
Alphabet alphabet_of(uint8_t coding) {
  const unsigned group = coding >> 4U;
  if (group == 0x0E) return Alphabet::kUcs2;
  if (group == 0x0F) return (coding & 0x04U) != 0 ? Alphabet::kOctets : Alphabet::kSeptets;
  if (group >= 0x08) return Alphabet::kSeptets;
  if ((coding & 0x20U) != 0) return Alphabet::kOctets;
  if ((coding & 0x0CU) == 0x08) return Alphabet::kUcs2;
  return (coding & 0x0CU) == 0 ? Alphabet::kSeptets : Alphabet::kOctets;
}

// The same of a broadcast (5): its first groups name languages.
Alphabet broadcast_alphabet_of(uint8_t coding) {
  const unsigned group = coding >> 4U;
  if (group == 1) return (coding & 0x0FU) == 1 ? Alphabet::kUcs2 : Alphabet::kSeptets;
  return group < 4 ? Alphabet::kSeptets : alphabet_of(coding);
}

char septet_at(const Octets& octets, size_t bit) {
  unsigned bits = octets[bit / 8];
  if (bit % 8 > 1) bits |= static_cast<unsigned>(octets[bit / 8 + 1]) << 8U;
  return static_cast<char>((bits >> (bit % 8)) & 0x7FU);
}

void put_septet(Octets& octets, size_t bit, char septet) {
  for (size_t i = 0; i < 7; ++i) {
    const size_t at = bit + i;
    const auto mask = static_cast<uint8_t>(1U << (at % 8));
    const bool set = (static_cast<unsigned char>(septet) >> i & 1U) != 0;
    octets[at / 8] = static_cast<uint8_t>(set ? octets[at / 8] | mask : octets[at / 8] & ~mask);
  }
}

class PduMask {
 public:
  PduMask(const StandIn& stand_in, Octets octets)
      : stand_in_(stand_in), octets_(std::move(octets)) {}

  // Each takes a field off the front; nothing more once one did not fit.

  uint8_t octet() {
    if (!fits(1)) return 0;
    return octets_[at_++];
  }

  void skip(size_t count) {
    if (fits(count)) at_ += count;
  }

  // The service centre's length counts octets, with the type.
  void centre() {
    const size_t length = octet();
    if (length > kMostCentreOctets) sound_ = false;
    if (length < 2 || !fits(length)) return skip(length);
    const uint8_t type = octet();
    digits(type, (length - 1) * 2);
  }

  void address() {
    const size_t length = octet();
    const uint8_t type = octet();
    if (length > kMostAddressDigits) sound_ = false;
    if ((type & 0x70U) == kNameAddress) {
      name(length);
    } else {
      digits(type, length);
    }
  }

  // The length counts septets or octets; a header stands in front of the text and stays.
  void user_data(Alphabet alphabet, bool has_header) {
    const size_t length = octet();
    const size_t header = has_header && fits(1) ? octets_[at_] + 1U : 0;
    const bool septets = alphabet == Alphabet::kSeptets;
    const size_t size = septets ? (length * 7 + 7) / 8 : length;
    if (!fits(size) || header > size) {
      sound_ = false;
      return;
    }
    if (septets) {
      text_septets((header * 8 + 6) / 7, length);
    } else {
      const std::string text(octets_.begin() + position(at_ + header),
                             octets_.begin() + position(at_ + size));
      const bool ucs2 = alphabet == Alphabet::kUcs2;
      const std::string shown = ucs2 ? stand_in_.ucs2(text) : stand_in_.octets(text);
      std::copy(shown.begin(), shown.end(), octets_.begin() + position(at_ + header));
    }
    skip(size);
  }

  // All that is left, in septets.
  void page(Alphabet alphabet) {
    if (alphabet == Alphabet::kSeptets) return text_septets(0, (octets_.size() - at_) * 8 / 7);
    const std::string text(octets_.begin() + position(at_), octets_.end());
    const std::string shown = stand_in_.ucs2(text);
    std::copy(shown.begin(), shown.end(), octets_.begin() + position(at_));
  }

  [[nodiscard]] bool at_end() const { return at_ == octets_.size(); }
  [[nodiscard]] bool sound() const { return sound_; }
  [[nodiscard]] const Octets& octets() const { return octets_; }

 private:
  static std::ptrdiff_t position(size_t at) { return static_cast<std::ptrdiff_t>(at); }

  bool fits(size_t count) {
    if (octets_.size() - at_ < count) sound_ = false;
    return sound_;
  }

  // Half octets, swapped. 10 to 14 are signs, 15 fills up; they stay.
  void digits(uint8_t, size_t count) {
    const size_t size = (count + 1) / 2;
    if (!fits(size)) return;
    constexpr std::string_view kDigits = "0123456789*#abcF";
    std::string number;
    for (size_t i = 0; i < size * 2; ++i) number += kDigits[half(at_ * 2 + i)];
    const std::string shown = stand_in_.number(number);
    for (size_t i = 0; i < shown.size(); ++i) {
      put_half(at_ * 2 + i, static_cast<uint8_t>(kDigits.find(shown[i])));
    }
    at_ += size;
  }

  void name(size_t half_octets) {
    const size_t size = (half_octets + 1) / 2;
    if (!fits(size)) return;
    text_septets(0, half_octets * 4 / 7);
    at_ += size;
  }

  void text_septets(size_t first, size_t end) {
    std::string text;
    for (size_t i = first; i < end; ++i) text += septet_at(octets_, at_ * 8 + i * 7);
    const bool digits_alone = !text.empty() && text.find_first_not_of("0123456789+*#") == text.npos;
    const std::string shown = digits_alone ? stand_in_.number(text) : stand_in_.septets(text);
    for (size_t i = first; i < end; ++i) put_septet(octets_, at_ * 8 + i * 7, shown[i - first]);
  }

  [[nodiscard]] uint8_t half(size_t at) const {
    return at % 2 == 0 ? octets_[at / 2] & 0x0FU : octets_[at / 2] >> 4U;
  }
  void put_half(size_t at, uint8_t value) {
    uint8_t& octet = octets_[at / 2];
    const unsigned kept = at % 2 == 0 ? octet & 0xF0U : octet & 0x0FU;
    const unsigned put = at % 2 == 0 ? value : value * 16U;
    octet = static_cast<uint8_t>(kept | put);
  }

  const StandIn& stand_in_;
  Octets octets_;
  size_t at_ = 0;
  bool sound_ = true;
};

void mask_submit(PduMask& pdu, uint8_t type) {
  pdu.skip(1);  // reference
  pdu.address();
  pdu.skip(1);  // protocol
  const uint8_t coding = pdu.octet();
  const unsigned validity = (type >> 3U) & 0x03U;
  if (validity == 2) pdu.skip(1);
  if (validity == 1 || validity == 3) pdu.skip(kTimeOctets);
  pdu.user_data(alphabet_of(coding), (type & kHasHeader) != 0);
}

void mask_deliver(PduMask& pdu, uint8_t type) {
  pdu.address();
  pdu.skip(1);
  const uint8_t coding = pdu.octet();
  pdu.skip(kTimeOctets);
  pdu.user_data(alphabet_of(coding), (type & kHasHeader) != 0);
}

void mask_command(PduMask& pdu) {
  pdu.skip(4);  // reference, protocol, what to do, with which message
  pdu.address();
  pdu.user_data(Alphabet::kOctets, false);
}

void mask_status_report(PduMask& pdu, uint8_t type) {
  pdu.skip(1);
  pdu.address();
  pdu.skip(2 * kTimeOctets + 1);  // sent, done, how
  if (pdu.at_end()) return;
  const uint8_t present = pdu.octet();
  if ((present & 0x01U) != 0) pdu.skip(1);
  const uint8_t coding = (present & 0x02U) != 0 ? pdu.octet() : uint8_t{0};
  if ((present & 0x04U) != 0) pdu.user_data(alphabet_of(coding), (type & kHasHeader) != 0);
}

std::optional<std::string> in_case_of(std::string_view hex, const PduMask& pdu) {
  if (!pdu.sound() || !pdu.at_end()) return std::nullopt;
  std::string shown = mdxline::to_hex(pdu.octets());
  for (size_t i = 0; i < shown.size(); ++i) {
    if (hex.find_first_of("abcdef") == hex.npos) break;
    if (shown[i] >= 'A') shown[i] = static_cast<char>(shown[i] + 'a' - 'A');
  }
  return shown;
}

}  // namespace

std::optional<std::string> mask_pdu(const StandIn& stand_in, std::string_view hex, bool from_host) {
  std::optional<Octets> octets = mdxline::from_hex(hex);
  if (!octets) return std::nullopt;
  PduMask pdu(stand_in, *std::move(octets));
  pdu.centre();
  const uint8_t type = pdu.octet();
  if ((type & kTypeMask) == kSubmit) {
    mask_submit(pdu, type);
  } else if ((type & kTypeMask) != kReportOrCommand) {
    mask_deliver(pdu, type);
  } else if (from_host) {
    mask_command(pdu);
  } else {
    mask_status_report(pdu, type);
  }
  return in_case_of(hex, pdu);
}

std::optional<std::string> mask_broadcast(const StandIn& stand_in, std::string_view hex) {
  std::optional<Octets> octets = mdxline::from_hex(hex);
  if (!octets || octets->size() <= kBroadcastHeader) return std::nullopt;
  const uint8_t coding = (*octets)[4];
  PduMask pdu(stand_in, *std::move(octets));
  pdu.skip(kBroadcastHeader);
  pdu.page(broadcast_alphabet_of(coding));
  pdu.skip(pdu.octets().size() - kBroadcastHeader);
  return in_case_of(hex, pdu);
}

}  // namespace mdxtap
