// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <fstream>
#include <string>

namespace mdxline {

/// Opens a file of text. Throws std::invalid_argument, which says what is in the way.
std::ifstream open_to_read(const std::string& path);

/// Whether a file can be written there, new or not. Touches nothing.
bool is_writable(const std::string& path);

}  // namespace mdxline
