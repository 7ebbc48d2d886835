// SPDX-License-Identifier: Apache-2.0

// A message as the modem takes it.
//
// Both alphabets come down to units, septets or 16-bit words, of which a character takes one or
// two. A part holds so many units, and a character whose units do not all fit begins the next part.
// The text is walked twice: to count, and to fill the part that was asked for.

#include <cstdio>
#include <cstring>

#include "client/mdxsms.h"
#include "client/sms/characters.h"
#include "client/sms/sms_struct.h"

namespace {

constexpr uint32_t kMaxDigits = 20;

// First octet: SMS-SUBMIT, the validity period left to the network.
constexpr uint8_t kSubmit = 0x01;
constexpr uint8_t kReportWanted = 0x20;
constexpr uint8_t kWithHeader = 0x40;  // in front of each of several parts
constexpr uint8_t kInternational = 0x91;
constexpr uint8_t kNational = 0x81;
constexpr uint8_t kClass0 = 0x10;  // of the data coding scheme

struct alphabet_t {
  mdx_sms_alphabet_t name;
  uint8_t coding;  ///< TP-DCS
  uint32_t units;  ///< in a message of one part
  /// In each part of several, behind a header of six octets, and behind one of seven.
  uint32_t units_joined[2];
};
constexpr alphabet_t kGsm = {MDX_SMS_GSM_7_BIT, 0x00, 160, {153, 152}};
constexpr alphabet_t kUcs2 = {MDX_SMS_UCS_2, 0x08, 70, {67, 66}};

/// The units of one character.
/// @return how many, 0 when the alphabet lacks it
int units_of(const alphabet_t& alphabet, char32_t character, uint16_t (&units)[2]) {
  if (alphabet.name == MDX_SMS_GSM_7_BIT) {
    uint8_t septets[2];
    const int count = gsm_septets_of(character, septets);
    for (int i = 0; i < count; ++i) units[i] = septets[i];
    return count;
  }
  if (character <= 0xffff) {
    units[0] = static_cast<uint16_t>(character);
    return 1;
  }
  units[0] = static_cast<uint16_t>(0xd800 + ((character - 0x10000) >> 10));
  units[1] = static_cast<uint16_t>(0xdc00 + ((character - 0x10000) & 0x3ff));
  return 2;
}

/// What is put together of one part.
struct units_t {
  uint16_t values[MDX_SMS_UNITS_MAX];
  uint32_t count;
};

struct walk_t {
  uint32_t units;  ///< of the whole text
  uint32_t parts;  ///< when each holds `capacity`
  bool complete;   ///< the alphabet has all of its characters
};

/// Cuts a text, which is UTF-8, up to a character that the alphabet lacks.
/// @param index   of the part to be filled, and the last one to be looked at
/// @param wanted  gets its units; null for counting only
walk_t walk(const alphabet_t& alphabet, const char* text, uint32_t length, uint32_t capacity,
            uint32_t index = 0, units_t* wanted = nullptr) {
  walk_t walked = {0, 1, true};
  const uint32_t last = wanted != nullptr ? index + 1 : UINT32_MAX;
  uint32_t filled = 0;
  char32_t character = 0;
  const char* end = text + length;
  for (const char* at = text; at < end && walked.complete && walked.parts <= last;) {
    utf8_take(&at, end, &character);
    uint16_t units[2];
    const int count = units_of(alphabet, character, units);
    if (count == 0) walked.complete = false;
    if (filled + static_cast<uint32_t>(count) > capacity) {
      ++walked.parts;
      filled = 0;
    }
    walked.units += static_cast<uint32_t>(count);
    filled += static_cast<uint32_t>(count);
    for (int i = 0; i < count && wanted != nullptr && walked.parts == index + 1; ++i) {
      wanted->values[wanted->count++] = units[i];
    }
  }
  return walked;
}

/// Octets one behind the other. All sizes were checked before.
struct octets_t {
  uint8_t values[MDX_SMS_PDU_MAX] = {};
  uint32_t count = 0;

  void put(uint32_t octet) { values[count++] = static_cast<uint8_t>(octet); }
};

struct number_t {
  uint8_t digits[kMaxDigits];
  uint32_t count;
  bool international;
};

/// The half octet that stands for a dialled character, 0xf for others.
uint8_t half_octet(char c) {
  if (c >= '0' && c <= '9') return static_cast<uint8_t>(c - '0');
  return c == '*' ? 0xa : c == '#' ? 0xb : 0xf;
}

mdx_sms_mistake_t read_number(const char* text, number_t* number, uint32_t* position) {
  *number = {};
  const char* at = text == nullptr ? "" : text;
  while (*at == ' ') ++at;
  number->international = *at == '+';
  if (number->international) ++at;
  for (; *at != '\0'; ++at) {
    if (std::strchr(" -./", *at) != nullptr) continue;
    const uint8_t digit = half_octet(*at);
    *position = static_cast<uint32_t>(at - text);
    if (digit == 0xf) return MDX_SMS_MISTAKE_NUMBER;
    if (number->count < kMaxDigits) number->digits[number->count] = digit;
    ++number->count;
  }
  *position = number->count;
  if (number->count == 0) return MDX_SMS_MISTAKE_NO_NUMBER;
  return number->count > kMaxDigits ? MDX_SMS_MISTAKE_NUMBER_TOO_LONG : MDX_SMS_FINE;
}

mdx_sms_mistake_t check_text(const char* text, uint32_t length, uint32_t* position) {
  if (text == nullptr && length > 0) return MDX_SMS_MISTAKE_NO_TEXT;
  char32_t character = 0;
  const char* at = text;
  while (at < text + length) {
    *position = static_cast<uint32_t>(at - text);
    if (!utf8_take(&at, text + length, &character)) return MDX_SMS_MISTAKE_NOT_UTF_8;
  }
  return MDX_SMS_FINE;
}

/// Length in digits, type of number, digits with the half octets swapped.
void put_address(const number_t& number, octets_t* octets) {
  octets->put(number.count);
  octets->put(number.international ? kInternational : kNational);
  for (uint32_t i = 0; i < number.count; i += 2) {
    const uint32_t second = i + 1 < number.count ? number.digits[i + 1] : 0xf;
    octets->put(number.digits[i] | second << 4);
  }
}

/// How one part is laid out.
struct plan_t {
  const alphabet_t* alphabet;
  uint32_t parts;
  uint32_t index;
  uint32_t reference;
};

/// Information element 0, or 8 for a reference of two octets: concatenated.
void put_header(const plan_t& plan, octets_t* octets) {
  const bool wide = plan.reference > 0xff;
  octets->put(wide ? 6 : 5);
  octets->put(wide ? 8 : 0);
  octets->put(wide ? 4 : 3);
  if (wide) octets->put(plan.reference >> 8);
  octets->put(plan.reference & 0xff);
  octets->put(plan.parts);
  octets->put(plan.index + 1);
}

/// Septets from the lowest bit up, from the bit behind `bits` on.
void put_septets(const units_t& units, uint32_t bits, octets_t* octets) {
  const uint32_t start = octets->count - bits / 8;
  for (uint32_t i = 0; i < units.count; ++i) {
    const uint32_t bit = bits + 7 * i;
    const uint32_t shifted = static_cast<uint32_t>(units.values[i]) << bit % 8;
    uint8_t* octet = octets->values + start + bit / 8;
    octet[0] = static_cast<uint8_t>(octet[0] | (shifted & 0xff));
    if (shifted > 0xff) octet[1] = static_cast<uint8_t>(shifted >> 8);
  }
  octets->count = start + (bits + 7 * units.count + 7) / 8;
}

/// The length as the TPDU states it, in septets or octets with the header; header; units.
void put_user_data(const plan_t& plan, const units_t& units, octets_t* octets) {
  const uint32_t at = octets->count;
  octets->put(0);
  if (plan.parts > 1) put_header(plan, octets);
  const uint32_t header = octets->count - at - 1;
  if (plan.alphabet->name == MDX_SMS_GSM_7_BIT) {
    const uint32_t header_septets = (header * 8 + 6) / 7;
    put_septets(units, header_septets * 7, octets);
    octets->values[at] = static_cast<uint8_t>(header_septets + units.count);
    return;
  }
  for (uint32_t i = 0; i < units.count; ++i) {
    octets->put(units.values[i] >> 8);
    octets->put(units.values[i] & 0xff);
  }
  octets->values[at] = static_cast<uint8_t>(octets->count - at - 1);
}

/// @return octets of the TPDU; the service centre's empty address is in front of it
uint32_t put_submit(const number_t& number, const mdx_sms_options_t& options, const plan_t& plan,
                    const units_t& units, octets_t* octets) {
  octets->put(0);
  octets->put(kSubmit | (options.report != 0 ? kReportWanted : 0u) |
              (plan.parts > 1 ? kWithHeader : 0u));
  octets->put(0);
  put_address(number, octets);
  octets->put(0);
  octets->put(plan.alphabet->coding | (options.flash != 0 ? kClass0 : 0u));
  put_user_data(plan, units, octets);
  return octets->count - 1;
}

void fill(const octets_t& octets, uint32_t tpdu_length, const plan_t& plan, mdx_sms_part_t* part) {
  mdx_sms_part_t filled = MDX_SMS_PART_INIT;
  filled.alphabet = plan.alphabet->name;
  filled.parts = plan.parts;
  filled.tpdu_length = tpdu_length;
  std::snprintf(filled.head, sizeof(filled.head), "AT+CMGS=%u", tpdu_length);
  for (uint32_t i = 0; i < octets.count; ++i) {
    std::snprintf(filled.pdu + size_t{2} * i, 3, "%02X", octets.values[i]);
  }
  give_struct(filled, part);
}

/// Chooses alphabet and number of parts.
mdx_sms_mistake_t plan_parts(const char* text, uint32_t length, plan_t* plan, uint32_t* capacity,
                             uint32_t* position) {
  const bool wide = plan->reference > 0xff;
  plan->alphabet = &kGsm;
  walk_t joined = walk(kGsm, text, length, kGsm.units_joined[wide]);
  if (!joined.complete) {
    plan->alphabet = &kUcs2;
    joined = walk(kUcs2, text, length, kUcs2.units_joined[wide]);
  }
  const bool fits = joined.units <= plan->alphabet->units;
  plan->parts = fits ? 1 : joined.parts;
  *capacity = fits ? plan->alphabet->units : plan->alphabet->units_joined[wide];
  *position = plan->parts;
  if (plan->parts > MDX_SMS_PARTS_MAX) return MDX_SMS_MISTAKE_TOO_MANY_PARTS;
  return plan->index < plan->parts ? MDX_SMS_FINE : MDX_SMS_MISTAKE_NO_SUCH_PART;
}

bool options_usable(const mdx_sms_options_t& options) {
  return options.reference <= 0xffff && (options.flash | options.report | 1) == 1;
}

}  // namespace

int mdx_sms_encode(const char* number, const char* text, uint32_t length,
                   const mdx_sms_options_t* given, uint32_t index, mdx_sms_part_t* part,
                   uint32_t* position) {
  uint32_t unused = 0;
  uint32_t* at = position != nullptr ? position : &unused;
  *at = 0;
  mdx_sms_options_t options = MDX_SMS_OPTIONS_INIT;
  if (!take_struct(given, &options) || !options_usable(options) || !struct_usable(part)) {
    return MDX_SMS_MISTAKE_OPTIONS;
  }
  number_t dialled;
  mdx_sms_mistake_t mistake = read_number(number, &dialled, at);
  if (mistake == MDX_SMS_FINE) mistake = check_text(text, length, at);
  if (mistake != MDX_SMS_FINE) return mistake;
  plan_t plan = {&kGsm, 1, index, options.reference};
  uint32_t capacity = 0;
  mistake = plan_parts(text, length, &plan, &capacity, at);
  if (mistake != MDX_SMS_FINE) return mistake;
  *at = 0;
  units_t units = {};
  walk(*plan.alphabet, text, length, capacity, index, &units);
  octets_t octets;
  fill(octets, put_submit(dialled, options, plan, units, &octets), plan, part);
  return MDX_SMS_FINE;
}

const char* mdx_sms_mistake_text(int mistake) {
  switch (mistake) {
    case MDX_SMS_FINE:
      return "nothing is wrong with the message";
    case MDX_SMS_MISTAKE_OPTIONS:
      return "the options are wrong: start from MDX_SMS_OPTIONS_INIT and MDX_SMS_PART_INIT; a "
             "reference is 65535 at most";
    case MDX_SMS_MISTAKE_NO_NUMBER:
      return "the number has no digits: write it like +4915112345678 or 0151123456";
    case MDX_SMS_MISTAKE_NUMBER:
      return "a number has digits, * and #, a + in front at most, and blanks, hyphens, dots or "
             "slashes between them";
    case MDX_SMS_MISTAKE_NUMBER_TOO_LONG:
      return "the number has more than 20 digits: check it";
    case MDX_SMS_MISTAKE_NO_TEXT:
      return "there is no text";
    case MDX_SMS_MISTAKE_NOT_UTF_8:
      return "the text is not valid UTF-8: use a terminal or file in that encoding";
    case MDX_SMS_MISTAKE_TOO_MANY_PARTS:
      return "the text takes more than 255 parts: send it as several messages";
    case MDX_SMS_MISTAKE_NO_SUCH_PART:
      return "the message has no such part";
    case MDX_SMS_MISTAKE_PDU_DIGITS:
      return "the PDU is not made of pairs of hexadecimal digits";
    case MDX_SMS_MISTAKE_PDU_LENGTH:
      return "the PDU is not as long as the modem said: it may have been torn, read it again";
    case MDX_SMS_MISTAKE_PDU_SHORT:
      return "the PDU ends inside a field: it may have been torn, read it again";
    case MDX_SMS_MISTAKE_PDU_TYPE:
      return "the PDU is of no message that a modem shows";
    case MDX_SMS_MISTAKE_PDU_ADDRESS:
      return "an address in the PDU is longer than addresses are";
    case MDX_SMS_MISTAKE_PDU_TEXT:
      return "text or header in the PDU are longer than there is room in a message";
    default:
      return "unknown mistake: it is no value of mdx_sms_mistake_t";
  }
}
