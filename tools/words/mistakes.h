// SPDX-License-Identifier: Apache-2.0

// What is wrong with a command that can never be served, named to the one who gave it.
#pragma once

#include <string>
#include <string_view>

#include "client/mdxclient.h"

/// How a message is sent from where the command was given.
struct message_words_t {
  const char* text;  ///< a text, such as "mdxctl sms send NUMBER TEXT"
  const char* pdu;   ///< a PDU, without head and PDU
};
inline constexpr message_words_t kOnCommandLine = {"mdxctl sms send NUMBER TEXT", "mdxctl sms-pdu"};
inline constexpr message_words_t kInShell = {"sms NUMBER TEXT", "pdu"};

/// For a command line whose answers no match string keeps together.
inline constexpr char kMixedReports[] =
    "the parts' answers look like reports of different names, and would be lost: send each by "
    "itself";
/// For a command that mutes_results.
inline constexpr char kMutesResults[] =
    "the modem would no longer say OK or ERROR, or not in a way that is understood here, and "
    "everybody's commands would time out";

/// Whether `command` takes away the results that end every answer, also within a line: turned off
/// (ATV0, ATQ1), with other characters for the ends of lines (ATS3, S4, S5 with another value than
/// the usual one), at another speed or in other characters (+IPR, +ICF), or in a multiplexer's
/// frames (+CMUX).
bool mutes_results(std::string_view command);

/// @return one sentence that says what is wrong and what to do; empty when nothing is
std::string command_mistake(const std::string& command, const mdx_options_t& options,
                            const message_words_t& words);
std::string message_mistake(const std::string& head, const std::string& pdu,
                            const mdx_options_t& options, const message_words_t& words);
