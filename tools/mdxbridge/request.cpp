// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxbridge/request.h"

#include <algorithm>
#include <cctype>
#include <cmath>

#include "client/mdxsms.h"
#include "tools/mdxbridge/patterns.h"
#include "tools/mdxbridge/privacy.h"
#include "tools/words/collection.h"
#include "tools/words/mistakes.h"
#include "tools/words/shown_command.h"

namespace mdxbridge {

namespace {

using nlohmann::ordered_json;

constexpr int32_t kLongestTimeoutS = 300;
constexpr int32_t kSmsTimeoutS = 60;
constexpr size_t kShownOfTooLong = 32;
constexpr char kShape[] =
    R"({"command":"AT+CSQ","timeout":10} or {"sms":{"number":"+49...","text":"..."}})";

/// The beginning of a key that somebody sent, as printable text.
std::string shown_key(const std::string& key) {
  constexpr size_t kMost = 32;
  std::string shown;
  for (const char c : key.substr(0, kMost)) shown += c >= ' ' && c < 0x7f ? c : '?';
  return shown;
}

std::string unknown_key(const ordered_json& object, std::initializer_list<std::string_view> known) {
  for (const auto& [key, value] : object.items()) {
    if (std::find(known.begin(), known.end(), key) == known.end()) {
      return "'" + shown_key(key) + "' is not known; a request is " + kShape;
    }
  }
  return "";
}

std::string read_timeout(const ordered_json& object, int32_t* timeout_s) {
  if (!object.contains("timeout")) return "";
  const ordered_json& value = object["timeout"];
  const bool good = value.is_number_integer() && value >= 1 && value <= kLongestTimeoutS;
  if (!good)
    return "timeout is no whole number of seconds from 1 to " + std::to_string(kLongestTimeoutS);
  *timeout_s = value;
  return "";
}

std::string read_text(const ordered_json& object, const char* key, std::string* text) {
  if (!object.contains(key) || !object[key].is_string()) {
    return std::string(key) + " is missing, or no text; a request is " + kShape;
  }
  *text = object[key];
  return "";
}

std::string read_sms(const ordered_json& sms, request_t* request) {
  request->is_sms = true;
  if (!sms.is_object()) return std::string("sms is no object; a request is ") + kShape;
  std::string error = unknown_key(sms, {"number", "text"});
  if (error.empty()) error = read_text(sms, "number", &request->number);
  if (error.empty()) error = read_text(sms, "text", &request->text);
  if (error.empty() && request->text.empty()) error = "the text is empty: nothing was sent";
  return error;
}

std::string read_object(const ordered_json& object, request_t* request) {
  if (!object.is_object()) return std::string("no JSON object; a request is ") + kShape;
  if (std::string error = unknown_key(object, {"command", "timeout", "sms"}); !error.empty())
    return error;
  if (object.contains("command") == object.contains("sms")) {
    return std::string("either command or sms is needed; a request is ") + kShape;
  }
  if (object.contains("sms")) request->timeout_s = kSmsTimeoutS;
  std::string error = read_timeout(object, &request->timeout_s);
  if (!error.empty()) return error;
  if (object.contains("sms")) return read_sms(object["sms"], request);
  return read_text(object, "command", &request->command);
}

std::string command_refusal(const std::string& command, const settings_t& settings) {
  constexpr message_words_t kWords = {R"({"sms":{"number":"+49...","text":"..."}})",
                                      "mdxctl sms-pdu"};
  const collection_t collection = collection_for(command, true);
  mdx_options_t options = MDX_OPTIONS_INIT;
  options.transparent = collection.transparent ? 1 : 0;
  std::string mistake = command_mistake(command, options, kWords);
  if (!mistake.empty()) return mistake;
  if (!allows_command(settings.allow_commands, command)) {
    return "this command is not allowed here: a pattern under allow-command in the bridge's "
           "configuration allows it";
  }
  if (collection.mixed) return kMixedReports;
  if (mutes_results(command)) return kMutesResults;
  const std::string kind = withheld_by_command(command, settings.open);
  if (kind.empty()) return "";
  return "the answer would hold what stays on the device (" + kind + "): open = " + kind +
         " in the bridge's configuration lets it out";
}

std::string sms_refusal(const request_t& request, const settings_t& settings) {
  if (!allows_number(settings.allow_sms, request.number)) {
    return "messages to this number are not allowed here: a pattern under allow-sms in the "
           "bridge's configuration allows them";
  }
  mdx_sms_part_t part = MDX_SMS_PART_INIT;
  const int mistake =
      mdx_sms_encode(request.number.c_str(), request.text.c_str(),
                     static_cast<uint32_t>(request.text.size()), nullptr, 0, &part, nullptr);
  return mistake == MDX_SMS_FINE ? "" : mdx_sms_mistake_text(mistake);
}

/// As far as it may be a name: what is no command may hold a text.
std::string name_in(const std::string& command) {
  constexpr std::string_view kSigns = "+^$%&#*\\_;?=.";
  constexpr size_t kLongest = 48;
  const auto end = std::find_if(command.begin(), command.end(), [&](unsigned char c) {
    return (c >= 0x80 || std::isalnum(c) == 0) &&
           kSigns.find(static_cast<char>(c)) == std::string_view::npos;
  });
  const std::string name(command.begin(), end);
  return name.size() > kLongest || end != command.end() ? name.substr(0, kLongest) + "..." : name;
}

bool begins_with_at(const std::string& command) {
  return command.size() >= 2 && (command[0] | 0x20) == 'a' && (command[1] | 0x20) == 't';
}

/// What is dialled has no = in front of it.
std::string without_numbers(const std::string& command) {
  constexpr size_t kShortest = 3;
  std::string shown;
  for (size_t i = 0; i < command.size();) {
    const size_t end = std::min(command.find_first_not_of("0123456789", i), command.size());
    shown += end - i >= kShortest ? "..." : command.substr(i, end - i);
    if (end < command.size()) shown += command[end];
    i = end + 1;
  }
  return shown;
}

/// What was asked for, for those who ask for more than one thing.
ordered_json begun_object(const request_t& request) {
  if (request.is_sms) return {{"sms", {{"number", request.number}}}};
  if (request.command.size() <= MDX_COMMAND_MAX) return {{"command", request.command}};
  return {{"command", request.command.substr(0, kShownOfTooLong) + "..."}};
}

}  // namespace

std::string request_t::name() const {
  if (is_sms) return "sms";
  return begins_with_at(command) ? without_numbers(name_in(shown_command(command))) : "request";
}

request_t read_request(std::string_view payload, std::string* error) {
  request_t request;
  error->clear();
  if (payload.size() > kLongestRequest) {
    *error = "a request of " + std::to_string(payload.size()) +
             " bytes is too long: " + std::to_string(kLongestRequest) + " are the most";
    return request;
  }
  const ordered_json object = ordered_json::parse(payload, nullptr, false);
  *error = object.is_discarded() ? std::string("no JSON; a request is ") + kShape
                                 : read_object(object, &request);
  if (!error->empty()) return request_t{};
  return request;
}

std::string refusal(const request_t& request, const settings_t& settings) {
  return request.is_sms ? sms_refusal(request, settings)
                        : command_refusal(request.command, settings);
}

ordered_json answer_object(const request_t& request, const mdx_result_t& result,
                           const std::string& text, double seconds) {
  ordered_json object = begun_object(request);
  object["result"] = {{"name", mdx_result_name(result.ret_val)}, {"number", result.ret_val}};
  object["text"] = text;
  object["truncated"] = result.truncated != 0;
  object["seconds"] = std::round(seconds * 1e6) / 1e6;
  return object;
}

ordered_json failure_object(const request_t& request, const std::string& error, bool refused,
                            double seconds) {
  ordered_json object = begun_object(request);
  object["result"] = nullptr;
  object["text"] = "";
  object["seconds"] = std::round(seconds * 1e6) / 1e6;
  if (refused) object["refused"] = true;
  object["error"] = error;
  return object;
}

bool may_answer_at(std::string_view topic, const settings_t& settings) {
  // Brokers end the connection of who publishes to a topic that is too long or too deep for them.
  constexpr size_t kLongest = 256;
  constexpr std::ptrdiff_t kMostLevels = 32;
  if (topic.empty() || topic.size() > kLongest || topic.front() == '$') return false;
  const bool bad = std::any_of(topic.begin(), topic.end(), [](unsigned char c) {
    return c == '+' || c == '#' || c < ' ' || c == 0x7f;
  });
  if (bad || std::count(topic.begin(), topic.end(), '/') >= kMostLevels) return false;
  const std::string own = settings.topic("answer");
  if (topic == own || topic.starts_with(own + '/')) return true;
  return !topic.starts_with(settings.prefix + '/');
}

}  // namespace mdxbridge
