// SPDX-License-Identifier: Apache-2.0

// mdxctl stats: what passed through the server and what it dropped.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>

#include "tools/mdxctl/answer.h"
#include "tools/mdxctl/commands.h"
#include "tools/mdxctl/console_client.h"
#include "tools/mdxctl/exit_codes.h"
#include "tools/mdxctl/known_states.h"
#include "tools/mdxctl/output.h"
#include "tools/mdxctl/platform_stats.h"
#include "tools/mdxctl/state_metrics.h"

namespace {

/// A server that does not tell its states leaves them out.
std::string metrics(const platform_stats_t& stats) {
  modem_link_t link{};
  std::vector<known_state_t> states;
  const int error = fetch_states(&link, &states);
  if (error == MDX_OK) return stats_prometheus(stats) + states_prometheus(link, states);
  tell("the modem's state is left out: " + error_text(error));
  return stats_prometheus(stats);
}

/// Who reads the file meanwhile sees all of the old or all of the new.
int replace_file(const std::string& path, const std::string& text) {
  const std::string fresh = path + ".new";
  std::ofstream file(fresh, std::ios::trunc);
  file << text << std::flush;
  file.close();
  if (file && std::rename(fresh.c_str(), path.c_str()) == 0) return EXIT_OK;
  tell(path + " cannot be written: " + std::strerror(errno));
  std::remove(fresh.c_str());
  return EXIT_REFUSED;
}

}  // namespace

int run_stats(const stats_arguments_t& arguments) {
  platform_stats_t stats;
  const int error = fetch_stats(&stats);
  if (error != MDX_OK) {
    tell(console_error_text(error));
    return exit_code_of_error(error);
  }
  if (!arguments.output.empty()) return replace_file(arguments.output, metrics(stats));
  if (arguments.json) {
    std::cout << stats_json(stats).dump() << std::endl;
  } else {
    std::cout << (arguments.prometheus ? metrics(stats) : stats_lines(stats)) << std::flush;
  }
  return EXIT_OK;
}
