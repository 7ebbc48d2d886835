// SPDX-License-Identifier: Apache-2.0

// Takes the messages that other programs send to the server, on a thread of its own.
//
// One message is meant for it: the uninstall message, which ends the modem binding.
#pragma once

/// Starts the thread below and keeps its handle.
void mdx_start_msgproc_thread();

/// Life of the message procedure thread. Does not return: ends the thread when the dispatch ends.
void mdx_msgproc_thread();

/// Gets a packet of the bus: message type, 32 bits, at byte 0; length, 32 bits, at byte 36.
void mdx_msgproc(const void* packet);
