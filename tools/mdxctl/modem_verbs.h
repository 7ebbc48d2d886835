// SPDX-License-Identifier: Apache-2.0

// The options of the verbs about the modem: signal, network, sim, modem, ussd, wait, init.
#pragma once

#include "tools/mdxctl/commands.h"
#include "tools/mdxctl/subcommand.h"

struct modem_verbs_t {
  signal_arguments_t signal;
  network_arguments_t network;
  sim_arguments_t sim;
  sim_unlock_arguments_t sim_unlock;
  modem_arguments_t modem;
  ussd_arguments_t ussd;
  wait_arguments_t wait;
  init_arguments_t init;
};

/// @param arguments  outlive the parsing
void add_modem_verbs(CLI::App& app, modem_verbs_t& arguments, int& code);
