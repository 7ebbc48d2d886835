// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/mdxsim/modem.h"

namespace mdxsim {

/// A JUnit report, as CI servers read it: a test for each finding, and one for the whole, which
/// fails with `fault`.
std::string junit_report(const std::string& name, const std::vector<Finding>& findings,
                         const std::optional<std::string>& fault, double seconds);

}  // namespace mdxsim
