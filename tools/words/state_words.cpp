// SPDX-License-Identifier: Apache-2.0

#include "tools/words/state_words.h"

#include <algorithm>
#include <iterator>

namespace {

struct row_t {
  std::string_view word;
  std::string_view packet;
};

// Rows of a word stand together: they make one line of the help.
// clang-format off
constexpr row_t kRows[] = {
  {"link",        "MDX_LINK_UP"            },
  {"link",        "MDX_LINK_GONE"          },
  {"signal",      "EVT_AT_SIGNAL_LEVEL"    },
  {"signal",      "EVT_AT_HCSQ"            },
  {"network",     "EVT_AT_REG_CHANGE"      },
  {"network",     "EVT_AT_SYS_MODE"        },
  {"network",     "DIALUP_MSG_NET_CHANGE"  },
  {"network",     "EVT_AT_ROAMING_STATUS_0"},
  {"network",     "EVT_AT_ROAMING_STATUS_1"},
  {"network",     "EVT_AT_FREQ_INFO"       },
  {"sim",         "EVT_AT_SIM_STATE_4"     },
  {"sim",         "EVT_AT_SIM_STATE_6"     },
  {"sim",         "EVT_AT_SIM_STATE_9"     },
  {"sim",         "EVT_AT_SIM_STATE_19"    },
  {"sim",         "EVT_AT_SIM_STATE_27"    },
  {"data",        "DIALUP_MSG_V4_UP"       },
  {"data",        "DIALUP_MSG_V4_DOWN"     },
  {"data",        "DIALUP_MSG_V6_UP"       },
  {"data",        "DIALUP_MSG_V6_DOWN"     },
  {"traffic",     "EVT_AT_FLOW_REPORT"     },
  {"traffic",     "CMS_MSG_FLOW_REPORT"    },
  {"time",        "EVT_AT_NETWORK_TIME"    },
  {"temperature", "EVT_AT_MACHINE_TEMP"    },
};
// clang-format on

/// Calls `take(row, first)` for each row; `first` tells whether its word is a new one.
void for_each_row(auto take) {
  std::string_view before;
  for (const row_t& row : kRows) {
    take(row, row.word != before);
    before = row.word;
  }
}

}  // namespace

std::string_view state_word(std::string_view packet_name) {
  for (const row_t& row : kRows) {
    if (row.packet == packet_name) return row.word;
  }
  return "other";
}

bool is_state_name(std::string_view name) {
  return std::any_of(std::begin(kRows), std::end(kRows),
                     [&](const row_t& row) { return row.word == name || row.packet == name; });
}

std::string state_words(std::string_view separator) {
  std::string words;
  for_each_row([&](const row_t& row, bool first) {
    if (first && !words.empty()) words += separator;
    if (first) words += row.word;
  });
  return words;
}

std::string states_help() {
  constexpr size_t kWordColumn = 13;
  constexpr size_t kWidth = 80;
  std::string help;
  size_t used = 0;
  for_each_row([&](const row_t& row, bool first) {
    if (first || used + 1 + row.packet.size() > kWidth) {
      help += (help.empty() ? "  " : "\n  ") + std::string(first ? row.word : "");
      help.append(kWordColumn - (first ? row.word.size() : 0), ' ');
      used = 2 + kWordColumn;
    } else {
      help += ' ';
      ++used;
    }
    help += row.packet;
    used += row.packet.size();
  });
  return help;
}
