// SPDX-License-Identifier: Apache-2.0

// What a modem means by the number of its refusal.
#pragma once

#include <string>

/// "+CME ERROR: 10" as "+CME ERROR: 10, no SIM is inserted"; the same of +CMS ERROR. Other texts,
/// and numbers that no standard has, stay as they are.
std::string refusal_with_words(const std::string& text);
