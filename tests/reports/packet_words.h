// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

/// The packets of the journal that the library has no name or no layout for, or that no row of
/// docs/wire-formats.md tells to come with `literal`.
std::vector<std::string> unexplained_packets(const std::string& literal);
