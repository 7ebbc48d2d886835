// SPDX-License-Identifier: Apache-2.0

// Texts are looked up by their field: one that stands in no table is not known, and stays. Commands
// are looked up the other way round, as their owner has allowed each of them; the table holds those
// that a pattern may allow unawares.

#include "tools/mdxbridge/privacy.h"

#include <algorithm>
#include <cctype>
#include <iterator>

#include "tools/words/packet_text.h"

namespace mdxbridge {

namespace {

using nlohmann::ordered_json;

constexpr std::string_view kHarmless;
constexpr std::string_view kMessages = "messages";
constexpr std::string_view kUssd = "ussd";
constexpr std::string_view kNumbers = "numbers";
constexpr std::string_view kIdentities = "identities";
constexpr std::string_view kUnknown = "unknown";
constexpr std::string_view kKinds[] = {kMessages, kUssd, kNumbers, kIdentities, kUnknown};

struct row_t {
  std::string_view name;
  std::string_view kind;
};

// clang-format off
constexpr row_t kFields[] = {
  {"pdu",     kMessages},
  {"cusdStr", kUssd    },
  {"number",  kNumbers },
  {"mem",     kHarmless},  // a message's store, such as SM
  {"mcc",     kHarmless},  // a country
};

// A name stands for all that begin with it. Raw access to the SIM may be all of it.
constexpr row_t kCommands[] = {
  {"+CMGL",  kMessages  }, {"+CMGR",   kMessages  }, {"^HCMGL",  kMessages  },
  {"^HCMGR", kMessages  }, {"+CMSS",   kMessages  }, {"+CNMA",    kMessages  }, {"+CUSD",   kUssd      },
  {"+CPBR",  kNumbers   }, {"+CPBF",   kNumbers   }, {"+CNUM",    kNumbers   }, {"+CLCC",   kNumbers   },
  {"+CSCA",  kNumbers   }, {"+CCFC",   kNumbers   }, {"^CPBR",    kNumbers   }, {"+CGSN",   kIdentities},
  {"+GSN",   kIdentities}, {"+CIMI",   kIdentities}, {"+CCID",    kIdentities}, {"+ICCID",  kIdentities},
  {"+QCCID", kIdentities}, {"^ICCID",  kIdentities}, {"^SN",      kIdentities}, {"+EGMR",   kIdentities},
  {"+CRSM",  kUnknown   }, {"+CSIM",   kUnknown   }, {"+CGLA",    kUnknown   }, {"+CRLA",   kUnknown   },
};
// clang-format on

bool is_open(std::string_view kind, const open_kinds_t& open) {
  return kind == kHarmless || std::find(open.begin(), open.end(), kind) != open.end();
}

std::string_view kind_of_field(std::string_view name) {
  const auto* row = std::find_if(std::begin(kFields), std::end(kFields),
                                 [&](const row_t& r) { return r.name == name; });
  return row == std::end(kFields) ? kUnknown : row->kind;
}

std::string in_capitals(std::string_view text) {
  std::string capitals;
  for (const char c : text) {
    if (c != ' ') capitals += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  }
  return capitals;
}

void withhold(ordered_json* value, std::string_view kind, ordered_json* kinds) {
  *value = nullptr;
  const std::string word(kind);
  if (std::find(kinds->begin(), kinds->end(), word) == kinds->end()) kinds->push_back(word);
}

}  // namespace

bool is_private_kind(std::string_view word) {
  return std::find(std::begin(kKinds), std::end(kKinds), word) != std::end(kKinds);
}

std::string private_kinds(std::string_view separator) {
  std::string all;
  for (const std::string_view kind : kKinds) {
    if (!all.empty()) all += separator;
    all += kind;
  }
  return all;
}

ordered_json published_packet(const mdx_packet_t& packet, const open_kinds_t& open) {
  ordered_json object = packet_json(packet);
  ordered_json withheld = ordered_json::array();
  for (auto& [name, value] : object["fields"].items()) {
    const std::string_view kind = kind_of_field(name);
    if (value.is_string() && !is_open(kind, open)) withhold(&value, kind, &withheld);
  }
  if (object.contains("payload") && !is_open(kUnknown, open)) {
    withhold(&object["payload"], kUnknown, &withheld);
  }
  if (!withheld.empty()) object["withheld"] = withheld;
  return object;
}

std::string withheld_by_command(std::string_view command, const open_kinds_t& open) {
  const std::string line = in_capitals(command);
  for (const row_t& row : kCommands) {
    if (line.find(row.name) != std::string::npos && !is_open(row.kind, open)) {
      return std::string(row.kind);
    }
  }
  return "";
}

std::string published_answer(std::string text, const open_kinds_t& open) {
  constexpr size_t kShortestIdentity = 14;
  if (is_open(kIdentities, open)) return text;
  size_t digits = 0;
  for (size_t i = 0; i <= text.size(); ++i) {
    if (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])) != 0) {
      ++digits;
      continue;
    }
    if (digits >= kShortestIdentity) text.replace(i - digits, digits, digits, '*');
    digits = 0;
  }
  return text;
}

}  // namespace mdxbridge
