// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

namespace mdxtap {

/// Another process that has the terminal open, as "NAME (process 123)"; empty when none is seen.
/// Root sees all, anybody else its own. Who makes pseudo terminals may be the modem behind one.
std::string other_user_of(const std::string& path);

}  // namespace mdxtap
