// SPDX-License-Identifier: Apache-2.0

// mdxctl stats: what passed through the server and what it dropped.

#include <iostream>

#include "tools/mdxctl/commands.h"
#include "tools/mdxctl/console_client.h"
#include "tools/mdxctl/exit_codes.h"
#include "tools/mdxctl/platform_stats.h"

int run_stats(const stats_arguments_t& arguments) {
  platform_stats_t stats;
  const int error = fetch_stats(&stats);
  if (error != MDX_OK) {
    std::cerr << "mdxctl: " << console_error_text(error) << std::endl;
    return exit_code_of_error(error);
  }
  if (arguments.json) {
    std::cout << stats_json(stats).dump() << std::endl;
  } else {
    std::cout << (arguments.prometheus ? stats_prometheus(stats) : stats_lines(stats))
              << std::flush;
  }
  return EXIT_OK;
}
