// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace mdxsim {

/// Where a stored message stands, in the numbers of 3GPP TS 27.005 +CMGL in PDU mode.
enum class MessageState { kReceivedUnread, kReceivedRead, kStoredUnsent, kStoredSent };

struct StoredMessage {
  MessageState state;
  std::string pdu;  ///< hexadecimal, with the service centre in front
};

/// The messages on the card, by index.
class MessageStore {
 public:
  static constexpr int kCapacity = 50;

  /// Puts it at the lowest free index, which is returned; -1 when the store is full.
  int add(StoredMessage message);

  std::map<int, StoredMessage>& messages() { return messages_; }
  [[nodiscard]] const std::map<int, StoredMessage>& messages() const { return messages_; }

 private:
  std::map<int, StoredMessage> messages_;
};

/// The octets of a PDU without its service centre, as +CMGS and +CMGL count them; -1 when it is not
/// hexadecimal, or is shorter than the service centre's length says.
int tpdu_length(std::string_view pdu_hex);

/// ASCII as characters of the 7-bit alphabet, one a byte, and back; what one of them lacks is "?".
std::string to_septets(std::string_view text);
std::string from_septets(std::string_view septets);

/// A PDU that submits ASCII text in the 7-bit alphabet to `number` (digits, may begin with "+").
/// Text beyond 160 characters is cut; a character that is not the same in both alphabets becomes
/// "?".
std::string submit_pdu(std::string_view number, std::string_view text);

/// A PDU that delivers what another one submits, or text in the 7-bit alphabet, from `number`.
/// `clock` is as +CCLK shows it. Empty when the submitted one is damaged.
std::string deliver_pdu(std::string_view number, std::string_view clock, std::string_view text);
std::string delivered_pdu(std::string_view number, std::string_view clock,
                          std::string_view submitted_hex);

/// A PDU that tells of a submitted one that it was delivered, and whether a PDU is one. `clock` is
/// as above. A submitted one asks for it by its first octet.
std::string status_report_pdu(std::string_view submitted_hex, int reference,
                              std::string_view clock);
bool is_status_report(std::string_view pdu_hex);
bool asks_for_status_report(std::string_view submitted_hex);

/// What text mode shows of a PDU.
struct MessageText {
  std::string number;
  std::string text;    ///< user data in hexadecimal unless `plain`
  bool plain = false;  ///< it is in the 7-bit alphabet
  std::string time;    ///< of a delivered one: yy/MM/dd,hh:mm:ss+zz
  uint8_t type = 0;    ///< its first octet
  uint8_t coding = 0;
  size_t length = 0;  ///< of the user data, in septets or octets
};

/// Reads a submitted or delivered PDU; empty fields where it is damaged.
MessageText read_pdu(std::string_view pdu_hex);

}  // namespace mdxsim
