// SPDX-License-Identifier: Apache-2.0

// Requests that end with the one who made them.
//
// A signal that ends mdxctl takes the request back first: a command that waits for its turn would
// be run later, and nobody would know.
#pragma once

#include <functional>
#include <string>

#include "client/mdxclient.h"

/// Has something done before a signal ends the program, when the request was taken back and its
/// handle is closed; null: nothing any more.
void before_signal_ends(std::function<void()> act);

/// Each as the function of the library, but for the signals that end programs (SIGINT, SIGTERM,
/// SIGHUP, SIGQUIT): then it says what became of the request, and the program ends by the signal.
/// `tick`, where there is one, is called about once a second meanwhile.
int send_command(mdx_client_t* client, const std::string& command, const mdx_options_t& options,
                 mdx_result_t* result, const std::function<void()>& tick = nullptr);
int send_message(mdx_client_t* client, const std::string& head, const std::string& pdu,
                 const mdx_options_t& options, mdx_result_t* result);
int fetch_report(mdx_client_t* client, int32_t report, mdx_result_t* result);
