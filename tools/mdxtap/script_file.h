// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

namespace mdxtap {

/// Why no script can be written there; empty when one can.
std::string script_obstacle(const std::string& path);

/// Puts a script in the place of the one that is there, whole or not at all. A secret one is
/// readable by its owner alone. Returns 0 or an errno value; EEXIST for what is no file.
int write_script_file(const std::string& path, const std::string& script, bool secret);

}  // namespace mdxtap
