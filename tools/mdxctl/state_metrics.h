// SPDX-License-Identifier: Apache-2.0

// What the modem told last, for a monitoring system.
#pragma once

#include <string>
#include <vector>

#include "tools/mdxctl/known_states.h"

/// In the text exposition format: the modem's link, and each state's values and age. A number is
/// the value; a text stands in a label.
std::string states_prometheus(const modem_link_t& link, const std::vector<known_state_t>& states);
