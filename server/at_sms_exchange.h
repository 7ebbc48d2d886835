// SPDX-License-Identifier: Apache-2.0

// Sending or storing a message in PDU mode: command line, prompt, PDU, result.
//
// The client hands over both halves at once, a CR between them and a Ctrl-Z behind.
#pragma once

#include <cstdint>

#include "wire/at_msg.h"

/// @return 0 when the text holds one of the commands that send or store a message, anywhere, in
///         upper case; -1 when it does not or is null. Mind the sense.
int32_t at_cmd_is_smssw(const char* cmd_buf);

/// Plays the dialogue. Blocks, at most twice `timeout` seconds: once for the prompt, once for the
/// answer.
///
/// A text is refused before anything is written when it has no CR, no end mark (a Ctrl-Z that two
/// NUL bytes follow) behind it, or a half that does not fit a command line: a body that lost its
/// Ctrl-Z would leave the modem at its prompt, taking the next client's command for text.
/// @param msg      the record, its texts NUL-terminated; changed in place
/// @param retcode  never null; written by write_to_smd alone
/// @return 0 when the body was answered, `ret_val` telling how; -1 else
int32_t at_send_or_save_msg(at_msg_t* msg, int* retcode);
