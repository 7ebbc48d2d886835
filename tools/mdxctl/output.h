// SPDX-License-Identifier: Apache-2.0

// Standard output: what comes from outside does not move a terminal's cursor, and what could not be
// written is told.
#pragma once

#include <string>

/// With LF alone at line ends, the last one too, and nothing else in it that a terminal acts on.
std::string harmless_lines(const std::string& text);

/// The same for one line, without its end.
std::string harmless_line(const std::string& line);

/// `text` with a terminal on standard output: as harmless_lines. Else as it is.
std::string for_output(const std::string& text);

/// Tells people something on standard error, as "mdxctl: TEXT". What the modem said may be in it.
void tell(const std::string& text);

/// Flushes standard output. Says so, once, when something did not get there.
/// @return whether all did
bool output_written();
