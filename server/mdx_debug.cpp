// SPDX-License-Identifier: Apache-2.0

// Looks in from another thread at what the main thread goes on writing: the state is one atomic
// word, the two records are snapshots.

#include "server/mdx_debug.h"

#include <cstring>
#include <iterator>

#include "platform/mdx_platform.h"
#include "server/mdx_state.h"

namespace {

constexpr char kRule[] = "--------------------------------------------------------------\r\n";

// clang-format off
constexpr mdx_debug_command_t debug_cmd_table[] = {
    {"help",   mdx_debug_help  },
    {"state",  mdx_debug_state },
    {"dialog", mdx_debug_dialog},
};

constexpr const char* kStateNames[] = {
    "AT_INIT_S",
    "AT_IDLE_S",
    "AT_PROCESS_CLIENT_S",
    "AT_PROCESS_NAS_S",
};
// clang-format on

const char* state_name() {
  const auto state = static_cast<uint32_t>(__atomic_load_n(&mdx_state.at_state, __ATOMIC_RELAXED));
  return state < std::size(kStateNames) ? kStateNames[state] : "";
}

/// Length of a text that may fill its store without a NUL.
int length_within(const char* text, size_t size) { return static_cast<int>(strnlen(text, size)); }

__attribute__((constructor)) void mdx_debug_register() {
  KRP_Debug_RegModCmds("display", debug_cmd_table, std::size(debug_cmd_table));
}

}  // namespace

int32_t mdx_debug_help() {
  KRP_Debug_Print(kRule);
  KRP_Debug_Print("This cms module is used for display mdxgate status \r\n");
  KRP_Debug_Print(kRule);
  return 0;
}

int32_t mdx_debug_state() {
  KRP_Debug_Print(kRule);
  KRP_Debug_Print("MdxGate state machine state is [%s].\r\n", state_name());
  KRP_Debug_Print(kRule);
  return 0;
}

int32_t mdx_debug_dialog() {
  const at_msg_t sent = mdx_state.last_client_msg.load();
  const at_msg_t received = mdx_state.last_nas_msg.load();
  const char* command = sent.snd_rcv_msg.smsg;
  const char* line = received.snd_rcv_msg.rmsg;
  KRP_Debug_Print(kRule);
  KRP_Debug_Print("MdxGate last sent data is: [%.*s].\r\n", length_within(command, kCommandSize),
                  command);
  KRP_Debug_Print("MdxGate last received data is: [%.*s].\r\n",
                  length_within(line, MAX_ATCMD_REPORT_SIZE), line);
  KRP_Debug_Print(kRule);
  return 0;
}
