// SPDX-License-Identifier: Apache-2.0

// What comes from the broker: bytes of anybody who may write to this device's command topic.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "client/mdxclient.h"
#include "tools/mdxbridge/settings.h"

namespace mdxbridge {

/// A request that is longer is not read.
inline constexpr size_t kLongestRequest = 16384;

struct request_t {
  std::string command;  ///< empty for a message
  std::string number;   ///< of a message
  std::string text;     ///< UTF-8
  int32_t timeout_s = 10;
  bool is_sms = false;

  /// In a log: without values, numbers and texts.
  std::string name() const;
};

/// Reads {"command":"AT+CSQ","timeout":10} or {"sms":{"number":"+49…","text":"…"}}.
/// @param error  what is wrong and what to do; empty when nothing is
request_t read_request(std::string_view payload, std::string* error);

/// Why the request may not be run here, whoever asks; empty when it may.
std::string refusal(const request_t& request, const settings_t& settings);

/// An answer in the words of mdxctl at --json.
nlohmann::ordered_json answer_object(const request_t& request, const mdx_result_t& result,
                                     const std::string& text, double seconds);

/// For a request that has no answer.
/// @param refused  it was not, and will not be, run
nlohmann::ordered_json failure_object(const request_t& request, const std::string& error,
                                      bool refused, double seconds = 0);

/// A topic that the sender of a request may have its answer at: below this device's own, or outside
/// the prefix, and nothing that brokers do not take. Otherwise a device would write to the topics
/// of others, in the sender's place.
bool may_answer_at(std::string_view topic, const settings_t& settings);

}  // namespace mdxbridge
