// SPDX-License-Identifier: Apache-2.0

// The server's debug console, asked one line.
#pragma once

#include <functional>
#include <string>

/// Sends `line` (without line end) and hands over the answer as it comes.
/// @return mdx_error_t: MDX_OK, MDX_ERR_NO_SERVER, MDX_ERR_ACCESS, MDX_ERR_SERVER_GONE,
///         MDX_ERR_TIMEOUT
int ask_console(const std::string& line, const std::function<void(const std::string&)>& take);

/// The same, the answer in one piece; empty on failure.
int ask_console(const std::string& line, std::string* answer);

/// `error` of ask_console, and what to do about it.
std::string console_error_text(int error);
