// SPDX-License-Identifier: Apache-2.0

// What a world throws when the server, or what stands below it, did what must never be.
#pragma once

#include <stdexcept>

namespace simulation {

struct broken_rule : std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace simulation
