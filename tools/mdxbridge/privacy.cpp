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

// A name stands for all that begin with it. Raw access to the SIM may be all of it, and
// +CGAUTH? tells a password.
constexpr row_t kCommands[] = {
  {"+CMGL",  kMessages  }, {"+CMGR",   kMessages  }, {"^HCMGL",  kMessages  },
  {"^HCMGR", kMessages  }, {"+CMSS",   kMessages  }, {"+CNMA",    kMessages  }, {"+CUSD",   kUssd      },
  {"+CPBR",  kNumbers   }, {"+CPBF",   kNumbers   }, {"+CNUM",    kNumbers   }, {"+CLCC",   kNumbers   },
  {"+CSCA",  kNumbers   }, {"+CCFC",   kNumbers   }, {"^CPBR",    kNumbers   }, {"+CGSN",   kIdentities},
  {"+GSN",   kIdentities}, {"+CIMI",   kIdentities}, {"+CCID",    kIdentities}, {"+ICCID",  kIdentities},
  {"+QCCID", kIdentities}, {"^ICCID",  kIdentities}, {"^SN",      kIdentities}, {"+EGMR",   kIdentities},
  {"+CRSM",  kUnknown   }, {"+CSIM",   kUnknown   }, {"+CGLA",    kUnknown   }, {"+CRLA",   kUnknown   },
  {"+CSVM",  kNumbers   }, {"+CGAUTH", kUnknown   },
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

constexpr size_t kShortestIdentity = 14;
constexpr size_t kShortestNumber = 7;

/// Stars in the place of so many digits in a row.
void star_digits(size_t begin, size_t end, size_t shortest, std::string* text) {
  size_t digits = 0;
  for (size_t i = begin; i <= end; ++i) {
    if (i < end && std::isdigit(static_cast<unsigned char>((*text)[i])) != 0) {
      ++digits;
      continue;
    }
    if (digits >= shortest) text->replace(i - digits, digits, digits, '*');
    digits = 0;
  }
}

void star_quoted(size_t begin, size_t end, std::string* text) {
  bool quoted = false;
  for (size_t i = begin; i < end; ++i) {
    char& c = (*text)[i];
    if (c == '"') {
      quoted = !quoted;
    } else if (quoted && c != '\r') {
      c = '*';
    }
  }
}

/// Whether a line of an answer has a name, and it is not one of the command's.
bool is_foreign(std::string_view line, const std::vector<std::string>& prefixes) {
  constexpr std::string_view kSigns = "+^$%#*";
  const size_t colon = line.find(':');
  if (line.empty() || kSigns.find(line.front()) == std::string_view::npos ||
      colon == std::string_view::npos) {
    return false;
  }
  return std::find(prefixes.begin(), prefixes.end(), in_capitals(line.substr(0, colon + 1))) ==
         prefixes.end();
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

std::string published_answer(std::string text, const std::vector<std::string>& prefixes,
                             const open_kinds_t& open) {
  if (!is_open(kIdentities, open)) star_digits(0, text.size(), kShortestIdentity, &text);
  if (is_open(kUnknown, open)) return text;
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find('\n', begin), text.size());
    if (is_foreign(std::string_view(text).substr(begin, end - begin), prefixes)) {
      star_quoted(begin, end, &text);
      star_digits(begin, end, kShortestNumber, &text);
    }
    begin = end + 1;
  }
  return text;
}

}  // namespace mdxbridge
