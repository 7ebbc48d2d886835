// SPDX-License-Identifier: Apache-2.0

// mdxctl status: is there a server, does the modem answer, is anything piling up.
//
// A member of the group sees most of it; what only the console tells (version, uptime) is left out
// for users who may not ask it.

#include <chrono>
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>

#include "tools/mdxctl/answer.h"
#include "tools/mdxctl/client_session.h"
#include "tools/mdxctl/commands.h"
#include "tools/mdxctl/exit_codes.h"
#include "tools/mdxctl/known_states.h"
#include "tools/mdxctl/output.h"
#include "tools/mdxctl/platform_stats.h"
#include "tools/mdxctl/request.h"
#include "tools/mdxctl/server_queues.h"
#include "tools/words/answer_fields.h"
#include "tools/words/duration.h"
#include "tools/words/refusal.h"
#include "wire/border.h"

using nlohmann::ordered_json;

namespace {

constexpr int32_t kModemWaitS = 2;

struct status_t {
  exit_code_t code = EXIT_OK;
  std::string error;           ///< why the server cannot be used, else empty
  bool access_denied = false;  ///< by this user; whether one is there is not to be seen
  std::string modem;           ///< what it answered, or why it did not; empty without a server
  double modem_seconds = 0;
  std::string sim;  ///< such as "READY" or "SIM PIN", empty where the modem does not say
  std::optional<platform_stats_t> stats;
  std::optional<queue_depth_t> requests;
  std::optional<queue_depth_t> answers;
};

/// A server that has its modem is merely busy.
std::string why_no_turn() {
  modem_link_t link{};
  if (fetch_link(&link) != MDX_OK || !link.up) return error_text(MDX_ERR_BUSY);
  const std::optional<queue_depth_t> requests = queue_depth(kMdxRequestQueue);
  return "is there, and works for other clients: " +
         std::to_string(requests ? requests->waiting : 0) + " requests wait; try again";
}

void ask_sim(mdx_client_t* client, status_t* status) {
  mdx_options_t options = MDX_OPTIONS_INIT;
  options.timeout_s = kModemWaitS;
  options.match = "+CPIN:";
  mdx_result_t result = MDX_RESULT_INIT;
  if (send_command(client, "AT+CPIN?", options, &result) != MDX_OK) return;
  if (result.ret_val == MDX_RESULT_OK)
    status->sim = text_in(answer_fields(result.text, "+CPIN:"), 0);
  if (result.ret_val == MDX_RESULT_CME_ERROR) status->sim = result.text;
}

void ask_modem(mdx_client_t* client, status_t* status) {
  mdx_options_t options = MDX_OPTIONS_INIT;
  options.timeout_s = kModemWaitS;
  mdx_result_t result = MDX_RESULT_INIT;
  const auto start = std::chrono::steady_clock::now();
  const int error = send_command(client, "AT", options, &result);
  status->modem_seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (error != MDX_OK) {
    status->code = exit_code_of_error(error);
    status->modem = error == MDX_ERR_BUSY ? why_no_turn() : error_text(error);
    return;
  }
  status->code = exit_code_of_result(result);
  switch (status->code) {
    case EXIT_NO_ANSWER:
      status->modem = "does not answer: check its cable, or reset it";
      break;
    case EXIT_REFUSED:
      status->modem = "is not there: plug it in, and check that /dev/smd6 leads to its AT port";
      break;
    default:
      status->modem = std::string("answers ") + mdx_result_name(result.ret_val);
      ask_sim(client, status);
  }
}

status_t look() {
  status_t status;
  const client_session_t session;
  if (session.error() != MDX_OK) {
    status.code = exit_code_of_error(session.error());
    status.error = error_text(session.error());
    status.access_denied = session.error() == MDX_ERR_ACCESS;
    return status;
  }
  status.requests = queue_depth(kMdxRequestQueue);
  status.answers = queue_depth(kMdxResponseQueue);
  if (platform_stats_t stats; fetch_stats(&stats) == MDX_OK) status.stats = stats;
  ask_modem(session.client(), &status);
  return status;
}

ordered_json queue_json(const std::optional<queue_depth_t>& depth) {
  if (!depth) return nullptr;
  return {{"waiting", depth->waiting}, {"room", depth->room}};
}

ordered_json status_json(const status_t& status) {
  const bool up = status.error.empty();
  ordered_json object = {{"server", {{"up", up}}}, {"modem", nullptr}};
  if (status.access_denied) object["server"]["up"] = nullptr;
  if (!up) object["server"]["error"] = status.error;
  if (up) {
    object["modem"] = {{"answers", status.code == EXIT_OK},
                       {"state", status.modem},
                       {"seconds", status.modem_seconds},
                       {"sim", status.sim.empty() ? ordered_json() : ordered_json(status.sim)}};
  }
  object["server"]["uptime_seconds"] = nullptr;
  if (status.stats) object["server"]["uptime_seconds"] = status.stats->value("uptime_seconds");
  object["queues"] = {{"requests", queue_json(status.requests)},
                      {"answers", queue_json(status.answers)}};
  object["versions"] = {{"server", nullptr}, {"mdxctl", MDXGATE_VERSION}};
  if (status.stats) object["versions"]["server"] = status.stats->version;
  return object;
}

void line(const char* name, const std::string& text) {
  std::cout << std::left << std::setw(9) << name << text << '\n';
}

std::string depth_text(const std::optional<queue_depth_t>& depth) {
  if (!depth) return "not to be seen";
  return std::to_string(depth->waiting) + " of " + std::to_string(depth->room) + " waiting";
}

void show(const status_t& status) {
  if (!status.error.empty()) {
    line("server", status.error);
    return line("mdxctl", MDXGATE_VERSION);
  }
  std::string server = "up";
  if (status.stats) {
    server += " for " + duration_text(status.stats->value("uptime_seconds")) + ", version " +
              status.stats->version;
  }
  line("server", server);
  std::string modem = status.modem;
  if (status.code == EXIT_OK) {
    modem += ", in " + std::to_string(static_cast<int>(status.modem_seconds * 1000)) + " ms";
  }
  line("modem", modem);
  if (status.sim == "SIM PIN") {
    line("SIM", "asks for its PIN: mdxctl sim unlock");
  } else if (!status.sim.empty()) {
    line("SIM", status.sim == "READY" ? "ready" : harmless_line(refusal_with_words(status.sim)));
  }
  line("requests", depth_text(status.requests));
  line("answers", depth_text(status.answers));
  line("mdxctl", MDXGATE_VERSION);
}

}  // namespace

int run_status(const status_arguments_t& arguments) {
  const status_t status = look();
  if (arguments.json) {
    std::cout << status_json(status).dump() << std::endl;
  } else {
    show(status);
    std::cout << std::flush;
  }
  return status.code;
}
