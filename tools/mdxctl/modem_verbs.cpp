// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxctl/modem_verbs.h"

namespace {

constexpr char kEachQuestion[] = "how long the modem may take for each question (10)";

void add_signal(CLI::App& app, signal_arguments_t& arguments, int& code) {
  CLI::App* signal = add_command(app, "signal", "Show how strong the signal is, in dBm and dB.",
                                 [&] { code = run_signal(arguments); });
  signal->add_flag("--watch", arguments.watch,
                   "a line more each time the modem reports a change, until Ctrl-C");
  add_timeout(signal, arguments.timeout_s, kEachQuestion);
  signal->add_flag("--json", arguments.json,
                   "one object: technology, rssi_dbm, rscp_dbm, ecio_db, rsrp_dbm, rsrq_db, "
                   "sinr_db; null for what is not told");
}

void add_network(CLI::App& app, network_arguments_t& arguments, int& code) {
  CLI::App* network = add_command(
      app, "network", "Show the operator and the registration, with area, cell and technology.",
      [&] { code = run_network(arguments); });
  network->add_flag("--scan", arguments.scan,
                    "search for all networks: minutes in which no other command is served");
  add_timeout(network, arguments.timeout_s,
              "how long the modem may take for each question (10; --scan 240)");
  network->add_flag("--json", arguments.json,
                    "one object: operator, technology, selection, registration; with --scan: "
                    "networks");
}

void add_sim(CLI::App& app, sim_arguments_t& arguments, sim_unlock_arguments_t& unlock_arguments,
             int& code) {
  CLI::App* sim = app.add_subcommand(
      "sim", "Show the SIM card's state, numbers and tries left; sim unlock gives its PIN.");
  add_timeout(sim, arguments.timeout_s, kEachQuestion);
  sim->add_flag("--json", arguments.json,
                "one object: state, iccid, imsi, numbers, pin_tries_left, puk_tries_left");
  CLI::App* unlock =
      add_command(*sim, "unlock", "Give the card its PIN, which is asked for and not shown.",
                  [&] { code = run_sim_unlock(unlock_arguments); });
  with_name(unlock->add_option("--pin-file", unlock_arguments.pin_file,
                               "read the PIN from the first line of FILE; - is standard input"))
      ->type_name("FILE");
  unlock->add_flag("--last-try", unlock_arguments.last_try,
                   "also when a wrong PIN would lock the card, or nobody knows");
  add_timeout(unlock, unlock_arguments.timeout_s, kEachQuestion);
  unlock->add_flag("--json", unlock_arguments.json, "one object: state, or error");
  sim->footer(unlock->get_footer());
  sim->callback([sim, &arguments, &code] {
    if (sim->get_subcommands().empty()) code = run_sim(arguments);
  });
}

void add_modem(CLI::App& app, modem_arguments_t& arguments, int& code) {
  CLI::App* modem = app.add_subcommand(
      "modem", "Show maker, model, revision, IMEI and capabilities; modem reset restarts it.");
  add_timeout(modem, arguments.timeout_s, kEachQuestion);
  modem->add_flag("--json", arguments.json,
                  "one object: maker, model, revision, imei, capabilities");
  CLI::App* reset = add_command(*modem, "reset", "Restart the modem; asks first.",
                                [&] { code = run_modem_reset(arguments); });
  reset->add_flag("--yes", arguments.yes, "do not ask");
  reset->add_flag("--json", arguments.json, "one object: restarted, confirmed, or error");
  modem->footer(reset->get_footer());
  modem->callback([modem, &arguments, &code] {
    if (modem->get_subcommands().empty()) code = run_modem(arguments);
  });
}

void add_ussd(CLI::App& app, ussd_arguments_t& arguments, int& code) {
  CLI::App* ussd = add_command(
      app, "ussd",
      "Send a USSD code, such as *100#, and show what the network says.\nWhere it wants a reply, "
      "that is asked for on a terminal.",
      [&] { code = run_ussd(arguments); });
  CLI::Option* typed = ussd->add_option("code", arguments.code, "the code, such as *100#");
  ussd->add_option("--reply", arguments.replies,
                   "the reply to what the network asks; again for a further one")
      ->type_name("TEXT")
      ->expected(1)
      ->allow_extra_args(false)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  ussd->add_flag("--cancel", arguments.cancel, "end a dialogue that somebody left open")
      ->excludes(typed);
  add_timeout(ussd, arguments.timeout_s, "how long the network may take for each answer (60)");
  ussd->add_flag("--json", arguments.json, "one object: code, steps (text, state), error");
}

void add_wait_for(CLI::App& app, wait_arguments_t& arguments, int& code) {
  CLI::App* wait = add_command(
      app, "wait",
      "Wait until the modem answers, its SIM card is ready, it is registered, or a message comes: "
      "exit code 0, or 3.",
      [&] { code = run_wait(arguments); });
  wait->add_option("what", arguments.what, "what is waited for")
      ->required()
      ->check(CLI::IsMember({"modem", "sim", "registered", "sms"}));
  add_timeout(wait, arguments.timeout_s, "how long at most (for good)");
  wait->add_flag("--json", arguments.json, "one object: what, met, seconds, error");
}

void add_init(CLI::App& app, init_arguments_t& arguments, int& code) {
  CLI::App* init = add_command(
      app, "init",
      "Set the modem up: run a file of AT commands, one a line.\n# begins a remark, ? stands in "
      "front of a command that may fail, @30 in front of one that has 30 seconds.",
      [&] { code = run_init(arguments); });
  with_name(init->add_option("file", arguments.file, "the file; - is standard input"))->required();
  init->add_flag("--follow", arguments.follow, "each time the modem comes back, until Ctrl-C");
  add_timeout(init, arguments.timeout_s, "how long a command without @ may take (10)");
}

}  // namespace

void add_modem_verbs(CLI::App& app, modem_verbs_t& arguments, int& code) {
  add_signal(app, arguments.signal, code);
  add_network(app, arguments.network, code);
  add_sim(app, arguments.sim, arguments.sim_unlock, code);
  add_modem(app, arguments.modem, code);
  add_ussd(app, arguments.ussd, code);
  add_wait_for(app, arguments.wait, code);
  add_init(app, arguments.init, code);
}
