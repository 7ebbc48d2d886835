// SPDX-License-Identifier: Apache-2.0

// What mdxctl's exit code says, to people and scripts.
#pragma once

#include "client/mdxclient.h"

enum exit_code_t : int {
  EXIT_OK = 0,
  EXIT_MODEM_ERROR = 1,
  EXIT_USAGE = 2,
  EXIT_NO_ANSWER = 3,
  EXIT_NO_SERVER = 4,
  EXIT_REFUSED = 5,
};

/// Stands at the end of every --help.
inline constexpr char kExitCodeHelp[] =
    "Exit codes:\n"
    "  0  the modem answered OK or CONNECT; watch: ended by Ctrl-C or --count;\n"
    "     console, state, stats: the server answered\n"
    "  1  the modem answered with any other result, COMMAND NOT SUPPORT included;\n"
    "     state NAME: the modem has told nothing of it\n"
    "  2  wrong usage, or a command that can never be served\n"
    "  3  no answer in time, or a message that was not confirmed\n"
    "  4  no server running, or it died meanwhile\n"
    "  5  the server refused the request, had no place for a receiver, or could not\n"
    "     write to the modem; access was denied; standard output could not be written";

/// The exit code for a call of the library that failed.
exit_code_t exit_code_of_error(int error);

/// The exit code for an answer.
exit_code_t exit_code_of_result(const mdx_result_t& result);
