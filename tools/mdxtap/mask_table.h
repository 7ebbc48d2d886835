// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace mdxtap {

/// What a parameter holds, and so how its stand-in is made.
enum class Holds : uint8_t {
  kNothing,    ///< ends a row's list
  kWords,      ///< a number, a name, a text, a code such as *100#
  kRecipient,  ///< a number in text mode, a length of up to three digits in PDU mode
  kHeading,    ///< of a message: all in quotes but times and states
  kSecret,     ///< PIN, password, user name
  kCell,       ///< area and cell, in hexadecimal, of two digits or more in quotes, three without
  kCellAmong,  ///< the same among other measurements: four digits or more
  kIdentity,   ///< IMEI, IMSI, ICCID
  kPosition,   ///< numbers with four digits or more behind the point
  kAddress,    ///< IP
  kSimFile,    ///< hexadecimal content of a file on the SIM
  kApdu,       ///< a command to the SIM, or its answer
};

struct Field {
  uint8_t parameter;  ///< from 1
  Holds holds = Holds::kNothing;
  bool and_rest = false;  ///< all parameters behind it, too; of kWords those in quotes
};

/// What follows the line itself.
enum class Follows : uint8_t { kNothing, kMessage, kBroadcast };

struct MaskRow {
  std::string_view name;  ///< "+CMGS", "D"
  enum class Side : uint8_t { kCommand, kAnswer, kBoth } side;
  Field fields[3];  ///< none: kept as it is, whatever it looks like
  Follows follows = Follows::kNothing;
};

/// All rows, for showing them.
const std::vector<MaskRow>& mask_rows();

/// The row of a name in capitals: null when there is none for that side.
const MaskRow* find_mask_row(std::string_view name, bool command);

/// Whether a name without a row has values that stay, long numbers and what is quoted, too.
bool is_kept(std::string_view name);

/// Whether a name of a row, or one that is kept, begins so.
bool begins_known_name(std::string_view text);

/// What a field holds, for people.
std::string_view name_of(Holds holds);

}  // namespace mdxtap
