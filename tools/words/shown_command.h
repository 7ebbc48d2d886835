// SPDX-License-Identifier: Apache-2.0

// Commands in messages and logs.
#pragma once

#include <string>

/// What of a command may be shown: without its values, which may hold a PIN or a password.
std::string shown_command(const std::string& command);
