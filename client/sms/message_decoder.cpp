// SPDX-License-Identifier: Apache-2.0

// A message as the modem shows it.
//
// PDUs come from anybody who knows the number, so nothing in them is believed: each field is read
// from what is left of the octets, and a length that says more ends it.

#include <algorithm>
#include <cstring>

#include "client/mdxsms.h"
#include "client/sms/sms_struct.h"
#include "client/sms/unit_text.h"

namespace {

constexpr uint32_t kMostOctets = 255;  ///< room for what a modem pads a PDU with
constexpr uint32_t kMostTextOctets = 140;
constexpr uint32_t kTypeMask = 0x03;
constexpr uint32_t kHasHeader = 0x40;
constexpr uint32_t kReport = 0x20;
constexpr uint32_t kInternational = 1;
constexpr uint32_t kAlphanumeric = 5;

/// Octets one after the other. Past the end all are 0, and it says so.
struct reader_t {
  uint8_t octets[kMostOctets];
  uint32_t count = 0;
  uint32_t at = 0;
  bool short_of = false;

  uint32_t left() const { return count - at; }
  uint8_t next() {
    short_of = short_of || at >= count;
    return at < count ? octets[at++] : uint8_t{0};
  }
  const uint8_t* take(uint32_t size) {
    const uint8_t* taken = octets + at;
    short_of = short_of || size > left();
    at += std::min(size, left());
    return taken;
  }
};

int digit_of(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

mdx_sms_mistake_t read_hex(const char* pdu, uint32_t length, reader_t* reader) {
  if (pdu == nullptr || length == 0 || length % 2 != 0) return MDX_SMS_MISTAKE_PDU_DIGITS;
  if (length / 2 > kMostOctets) return MDX_SMS_MISTAKE_PDU_LENGTH;
  for (uint32_t i = 0; i < length; i += 2) {
    const int high = digit_of(pdu[i]);
    const int low = digit_of(pdu[i + 1]);
    if (high < 0 || low < 0) return MDX_SMS_MISTAKE_PDU_DIGITS;
    reader->octets[reader->count++] = static_cast<uint8_t>(high << 4 | low);
  }
  return MDX_SMS_FINE;
}

uint8_t septet_at(const uint8_t* octets, uint32_t bit) {
  const uint32_t two = octets[bit / 8] | (bit % 8 > 1 ? uint32_t{octets[bit / 8 + 1]} << 8 : 0u);
  return static_cast<uint8_t>(two >> bit % 8 & 0x7f);
}

template <size_t Size>
void put_digits(const uint8_t* octets, uint32_t digits, bool international, char (&text)[Size]) {
  constexpr char kDialled[] = "0123456789*#abc";  // 15 is no digit
  char* at = text;
  if (international) *at++ = '+';
  for (uint32_t i = 0; i < digits && at < text + Size - 1; ++i) {
    const uint32_t digit = octets[i / 2] >> (i % 2 != 0 ? 4 : 0) & 0xf;
    if (digit < 15) *at++ = kDialled[digit];
  }
  *at = '\0';
}

/// @param digits  half octets, which for a name are four bits of its septets
template <size_t Size>
void put_address(const uint8_t* octets, uint32_t digits, uint32_t type, char (&text)[Size]) {
  const uint32_t kind = type >> 4 & 7;
  if (kind != kAlphanumeric) return put_digits(octets, digits, kind == kInternational, text);
  text_sink_t sink(text, Size);
  unit_reader_t units(&sink);
  for (uint32_t i = 0; i < digits * 4 / 7; ++i) units.take_septet(septet_at(octets, i * 7), 0, 0);
  units.finish();
  sink.end();
}

/// Length in half octets, type, digits.
mdx_sms_mistake_t read_address(reader_t* reader, mdx_sms_t* sms) {
  constexpr uint32_t kMostDigits = 22;  // two more than the standard, and seen
  const uint32_t digits = reader->next();
  const uint32_t type = reader->next();
  if (digits > kMostDigits) return MDX_SMS_MISTAKE_PDU_ADDRESS;
  const uint8_t* octets = reader->take((digits + 1) / 2);
  if (!reader->short_of) put_address(octets, digits, type, sms->number);
  return MDX_SMS_FINE;
}

/// Length in octets with the type, type, digits.
mdx_sms_mistake_t read_service_centre(reader_t* reader, mdx_sms_t* sms) {
  constexpr uint32_t kMostCentreOctets = 12;
  const uint32_t length = reader->next();
  if (length > kMostCentreOctets) return MDX_SMS_MISTAKE_PDU_ADDRESS;
  if (length == 0) return MDX_SMS_FINE;
  const uint8_t* octets = reader->take(length);
  if (reader->short_of) return MDX_SMS_MISTAKE_PDU_SHORT;
  put_digits(octets + 1, (length - 1) * 2, (octets[0] >> 4 & 7) == kInternational,
             sms->service_centre);
  return MDX_SMS_FINE;
}

/// Days since 1970-01-01, in the calendar of today.
int64_t days_of(int64_t year, int64_t month, int64_t day) {
  if (month <= 2) --year;
  const int64_t shifted = month > 2 ? month - 3 : month + 9;  // the year begins in March
  const int64_t of_year = (153 * shifted + 2) / 5 + day - 1;
  return 365 * year + year / 4 - year / 100 + year / 400 + of_year - 719468;
}

/// A time with the zone it was given in.
struct stamp_t {
  int64_t seconds;
  int32_t zone_min;
  int32_t known;
};

/// Half octets swapped: year, month, day, hour, minute, second, quarters of an hour; the sign of
/// these is a bit of their first digit.
stamp_t read_time(reader_t* reader) {
  constexpr uint32_t kDaysOf[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  uint32_t values[7];
  bool known = true;
  for (uint32_t i = 0; i < 7; ++i) {
    const uint8_t octet = reader->next();
    const uint32_t tens = i == 6 ? octet & 7u : octet & 0xfu;
    known = known && tens < 10 && octet >> 4 < 10;
    values[i] = tens * 10 + (octet >> 4);
  }
  const bool behind = !reader->short_of && (reader->octets[reader->at - 1] & 8) != 0;
  const auto [year, month, day, hour, minute, second, quarters] = values;
  known = known && month >= 1 && month <= 12 && day >= 1 && day <= kDaysOf[month - 1] &&
          hour < 24 && minute < 60 && second < 60;
  if (!known || reader->short_of) return {0, 0, 0};
  const int32_t zone = static_cast<int32_t>(quarters) * (behind ? -15 : 15);
  const int64_t local = days_of(2000 + int64_t{year}, month, day) * 86400 + int64_t{hour} * 3600 +
                        int64_t{minute} * 60 + second;
  return {local - int64_t{zone} * 60, zone, 1};
}

void read_centre_time(reader_t* reader, mdx_sms_t* sms) {
  const stamp_t stamp = read_time(reader);
  sms->time_s = stamp.seconds;
  sms->time_zone_min = stamp.zone_min;
  sms->time_known = stamp.known;
}

/// 3GPP TS 23.038, 4: alphabet and class by the coding scheme. What is reserved is 7 bit.
void read_coding(uint32_t coding, mdx_sms_t* sms) {
  const uint32_t group = coding >> 4;
  sms->coding = coding;
  sms->message_class = -1;
  sms->alphabet = MDX_SMS_GSM_7_BIT;
  if (group < 8) {
    const uint32_t alphabet = coding >> 2 & 3;
    const bool compressed = (coding & 0x20) != 0;
    sms->alphabet = compressed || alphabet == 1 ? MDX_SMS_8_BIT
                    : alphabet == 2             ? MDX_SMS_UCS_2
                                                : MDX_SMS_GSM_7_BIT;
    if ((coding & 0x10) != 0) sms->message_class = static_cast<int32_t>(coding & 3);
  } else if (group == 0xe) {
    sms->alphabet = MDX_SMS_UCS_2;
  } else if (group == 0xf) {
    if ((coding & 4) != 0) sms->alphabet = MDX_SMS_8_BIT;
    sms->message_class = static_cast<int32_t>(coding & 3);
  }
}

void read_concatenation(uint32_t reference, uint32_t parts, uint32_t part, mdx_sms_t* sms) {
  if (parts == 0 || part == 0 || part > parts) return;
  sms->reference = reference;
  sms->parts = parts;
  sms->part = part;
}

void read_ports(uint32_t destination, uint32_t source, mdx_sms_t* sms) {
  sms->has_ports = 1;
  sms->destination_port = destination;
  sms->source_port = source;
}

/// An information element; one that is not known, or not of its size, is passed over.
void read_element(uint32_t name, const uint8_t* data, uint32_t size, mdx_sms_t* sms) {
  const auto word = [data](uint32_t at) { return uint32_t{data[at]} << 8 | data[at + 1]; };
  if (name == 0x00 && size == 3) read_concatenation(data[0], data[1], data[2], sms);
  if (name == 0x08 && size == 4) read_concatenation(word(0), data[2], data[3], sms);
  if (name == 0x04 && size == 2) read_ports(data[0], data[1], sms);
  if (name == 0x05 && size == 4) read_ports(word(0), word(2), sms);
  if (name == 0x24 && size == 1) sms->language_single = data[0];
  if (name == 0x25 && size == 1) sms->language_locking = data[0];
}

/// @param size  octets of the header, behind the one that tells this
void read_header(const uint8_t* header, uint32_t size, mdx_sms_t* sms) {
  for (uint32_t at = 0; at + 2 <= size;) {
    const uint32_t name = header[at];
    const uint32_t length = header[at + 1];
    at += 2;
    if (length > size - at) return;
    read_element(name, header + at, length, sms);
    at += length;
  }
}

void put_text(mdx_sms_t* sms) {
  const mdx_sms_t* parts[] = {sms};
  sms->text_length = static_cast<uint32_t>(mdx_sms_join(parts, 1, sms->text, sizeof(sms->text)));
}

/// Length in septets or octets; header and units.
mdx_sms_mistake_t read_user_data(reader_t* reader, bool with_header, mdx_sms_t* sms) {
  const bool septets = sms->alphabet == MDX_SMS_GSM_7_BIT;
  const uint32_t length = reader->next();
  const uint32_t size = septets ? (length * 7 + 7) / 8 : length;
  if (size > kMostTextOctets) return MDX_SMS_MISTAKE_PDU_TEXT;
  const uint8_t* octets = reader->take(size);
  if (reader->short_of) return MDX_SMS_MISTAKE_PDU_SHORT;
  const uint32_t header = with_header && size > 0 ? octets[0] + 1u : 0;
  if (header > size || (with_header && size == 0)) return MDX_SMS_MISTAKE_PDU_TEXT;
  if (header > 0) read_header(octets + 1, header - 1, sms);
  const uint32_t skipped = septets ? (header * 8 + 6) / 7 : header;
  for (uint32_t i = skipped; i < length; ++i) {
    sms->units[sms->units_length++] = septets ? septet_at(octets, i * 7) : octets[i];
  }
  put_text(sms);
  return MDX_SMS_FINE;
}

mdx_sms_mistake_t read_coded_text(reader_t* reader, uint32_t first, mdx_sms_t* sms) {
  return read_user_data(reader, (first & kHasHeader) != 0, sms);
}

mdx_sms_mistake_t read_deliver(reader_t* reader, uint32_t first, mdx_sms_t* sms) {
  sms->report_wanted = (first & kReport) != 0;
  const mdx_sms_mistake_t mistake = read_address(reader, sms);
  if (mistake != MDX_SMS_FINE) return mistake;
  sms->protocol = reader->next();
  read_coding(reader->next(), sms);
  read_centre_time(reader, sms);
  return read_coded_text(reader, first, sms);
}

mdx_sms_mistake_t read_submit(reader_t* reader, uint32_t first, mdx_sms_t* sms) {
  constexpr uint32_t kValiditySizes[] = {0, 7, 1, 7};
  sms->report_wanted = (first & kReport) != 0;
  sms->message_reference = reader->next();
  const mdx_sms_mistake_t mistake = read_address(reader, sms);
  if (mistake != MDX_SMS_FINE) return mistake;
  sms->protocol = reader->next();
  read_coding(reader->next(), sms);
  reader->take(kValiditySizes[first >> 3 & 3]);
  return read_coded_text(reader, first, sms);
}

/// Behind the status there may be a list of what else there is.
mdx_sms_mistake_t read_status_report(reader_t* reader, uint32_t first, mdx_sms_t* sms) {
  sms->message_reference = reader->next();
  const mdx_sms_mistake_t mistake = read_address(reader, sms);
  if (mistake != MDX_SMS_FINE) return mistake;
  read_centre_time(reader, sms);
  const stamp_t discharged = read_time(reader);
  sms->discharged_s = discharged.seconds;
  sms->discharged_zone_min = discharged.zone_min;
  sms->discharged_known = discharged.known;
  sms->status = reader->next();
  if (reader->short_of || reader->left() == 0) return MDX_SMS_FINE;
  const uint32_t also = reader->next();
  if ((also & 1) != 0) sms->protocol = reader->next();
  if ((also & 2) != 0) read_coding(reader->next(), sms);
  return (also & 4) != 0 ? read_coded_text(reader, first, sms) : MDX_SMS_FINE;
}

mdx_sms_mistake_t read_tpdu(reader_t* reader, mdx_sms_t* sms) {
  const uint32_t first = reader->next();
  sms->type = first & kTypeMask;
  const mdx_sms_mistake_t mistake = sms->type == MDX_SMS_DELIVER  ? read_deliver(reader, first, sms)
                                    : sms->type == MDX_SMS_SUBMIT ? read_submit(reader, first, sms)
                                    : sms->type == MDX_SMS_STATUS_REPORT
                                        ? read_status_report(reader, first, sms)
                                        : MDX_SMS_MISTAKE_PDU_TYPE;
  return mistake == MDX_SMS_FINE && reader->short_of ? MDX_SMS_MISTAKE_PDU_SHORT : mistake;
}

}  // namespace

int mdx_sms_decode(const char* pdu, uint32_t length, uint32_t tpdu_length, mdx_sms_t* given) {
  if (!struct_usable(given)) return MDX_SMS_MISTAKE_OPTIONS;
  mdx_sms_t sms = MDX_SMS_INIT;
  sms.message_class = -1;
  reader_t reader;
  mdx_sms_mistake_t mistake = read_hex(pdu, length, &reader);
  if (mistake != MDX_SMS_FINE) return mistake;
  const bool with_centre = tpdu_length == 0 || tpdu_length != reader.count;
  if (with_centre) mistake = read_service_centre(&reader, &sms);
  if (mistake == MDX_SMS_FINE && tpdu_length > reader.left()) mistake = MDX_SMS_MISTAKE_PDU_LENGTH;
  if (mistake == MDX_SMS_FINE) mistake = read_tpdu(&reader, &sms);
  if (mistake == MDX_SMS_FINE) give_struct(sms, given);
  return mistake;
}

size_t mdx_sms_join(const mdx_sms_t* const* parts, uint32_t count, char* text, size_t room) {
  text_sink_t sink(text, text == nullptr ? 0 : room);
  unit_reader_t reader(&sink);
  for (uint32_t p = 0; p < count; ++p) {
    const mdx_sms_t& sms = *parts[p];
    const uint32_t length = std::min(sms.units_length, uint32_t{MDX_SMS_UNITS_MAX});
    const bool septets = sms.alphabet == MDX_SMS_GSM_7_BIT;
    for (uint32_t i = 0; septets && i < length; ++i) {
      reader.take_septet(sms.units[i], sms.language_locking, sms.language_single);
    }
    for (uint32_t i = 0; sms.alphabet == MDX_SMS_UCS_2 && i + 1 < length; i += 2) {
      reader.take_word(static_cast<uint16_t>(sms.units[i] << 8 | sms.units[i + 1]));
    }
  }
  reader.finish();
  return sink.end();
}
