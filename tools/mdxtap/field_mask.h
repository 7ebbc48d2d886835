// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "tools/mdxtap/mask_table.h"
#include "tools/mdxtap/stand_in.h"

namespace mdxtap {

/// Where a parameter stands in a line, without quotes and the blanks around.
struct Span {
  size_t begin;
  size_t size;
  bool quoted;
};

/// Those between `begin` and `end`, which commas outside quotes part; at least one.
std::vector<Span> parameters_of(std::string_view line, size_t begin, size_t end);

/// A length of a PDU, which stands where text mode has a number.
bool is_length(std::string_view value, bool quoted);

// Each replaces what is personal between `begin` and `end`; the line keeps its length.

void mask_fields(const StandIn& stand_in, std::string& line, size_t begin, size_t end,
                 const MaskRow& row, bool command);

/// What is personal by its look: long numbers, numbers behind a "+", octets, positions.
void mask_conspicuous(const StandIn& stand_in, std::string& line, size_t begin, size_t end,
                      bool imsi);

/// The same, and what stands in quotes, all runs of digits from `shortest` on, and octets twice as
/// long: for commands and reports that nobody knows.
void mask_unknown(const StandIn& stand_in, std::string& line, size_t begin, size_t end,
                  size_t shortest, bool imsi);

/// +CUSD: the text may hold quotes and commas. `open` tells that it goes on behind the line end; it
/// may be null.
void mask_ussd(const StandIn& stand_in, std::string& line, size_t begin, size_t end, bool* open);

/// ATD: a code that opens a data connection is nobody's number.
void mask_dialled(const StandIn& stand_in, std::string& line, size_t begin, size_t end);

/// "$GPRMC,...*5C": the checksum becomes that of what stands there then.
void mask_sentence(const StandIn& stand_in, std::string& line);

/// IMEI, IMSI or ICCID, which may be filled up with an F; another word becomes a word.
std::string mask_identity(const StandIn& stand_in, std::string_view value, bool imsi);

}  // namespace mdxtap
