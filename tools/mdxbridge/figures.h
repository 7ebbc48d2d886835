// SPDX-License-Identifier: Apache-2.0

// Figures of others, such as mdxctl stats --prometheus --output FILE, to publish with the bridge's
// own: the server tells them to root alone.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace mdxbridge {

/// Adds each value of a text in Prometheus' format by its name, labels included. What is no such
/// line is passed over.
void add_figures_of(std::string_view text, nlohmann::ordered_json* object);

/// The same with a file. One that is not there, or is older than ten minutes, adds nothing.
void add_figures(const std::string& path, nlohmann::ordered_json* object);

}  // namespace mdxbridge
