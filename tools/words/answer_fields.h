// SPDX-License-Identifier: Apache-2.0

// The lines and fields of a modem's answer.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The lines of `text` that begin with `prefix`, such as "+CREG:", each without it.
std::vector<std::string> answer_lines(const std::string& text, std::string_view prefix);

/// The first of them, cut at its commas: blanks and quotes off, nothing between two commas is "".
/// Empty when there is no such line.
std::vector<std::string> answer_fields(const std::string& text, std::string_view prefix);

/// One line, cut at its commas but for those in quotes or in parentheses.
std::vector<std::string> fields_of(std::string_view line);

/// A field that is one number, also a negative one.
std::optional<int> number_in(const std::vector<std::string>& fields, size_t index);
/// A field, "" where the line is shorter.
std::string text_in(const std::vector<std::string>& fields, size_t index);
