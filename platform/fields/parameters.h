// SPDX-License-Identifier: Apache-2.0

// From a line to its parameters: where they start, where each ends, what belongs to its value.
//
// A modem puts blanks anywhere, quotes around anything or around nothing, and forgets to close
// them. The values point into the text they were read from; nothing is copied and nothing read
// behind its NUL.
#pragma once

#include <cstddef>
#include <string_view>

/// The parameters of one line, in their order.
struct parameter_list_t {
  /// As many as the longest report has that anyone reads, and some. What follows is not read.
  static constexpr size_t kMost = 12;

  std::string_view values[kMost];
  size_t count = 0;
  std::string_view pdu;  ///< what stands on the next line, where the report has a PDU there

  void add(std::string_view value) {
    if (count < kMost) values[count++] = value;
  }
  /// The parameter at `index`, empty when the line does not reach it, or no line could.
  std::string_view at(size_t index) const {
    return index < kMost && index < count ? values[index] : std::string_view("");
  }
};

/// Finds `prefix` as a whole name in front of a colon, blanks allowed between them. A longer name
/// that begins with it is passed over.
/// @param text    NUL-terminated
/// @param prefix  not empty
/// @return what stands behind the colon, NUL-terminated; null when there is no such place
const char* find_parameters(const char* text, std::string_view prefix);

/// Readers: each takes what stands behind the colon, NUL-terminated, and adds to an empty list.
using parameter_reader_t = void (*)(const char* text, parameter_list_t& list);

/// Parameters up to the line's end. A comma between quotes belongs to the value, unless the quote
/// is never closed. An empty parameter counts, but for one behind the line's last comma.
void read_parameters(const char* text, parameter_list_t& list);

/// The same, with every comma a border, whatever is quoted.
void read_at_every_comma(const char* text, parameter_list_t& list);

/// Parameters up to the line's end, and the PDU on the line behind it.
void read_with_pdu(const char* text, parameter_list_t& list);

/// A number, then a text that may hold commas, quotes and line ends, then numbers. The text ends
/// where nothing but numbers can follow: at the last such quote if it is quoted, else at the first
/// such comma. A CR alone at the very end is part of a text that no quote ends.
void read_ussd(const char* text, parameter_list_t& list);
