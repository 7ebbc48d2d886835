// SPDX-License-Identifier: Apache-2.0

// Lets the server live through random worlds until the time is up or a rule is broken.
//
// simulation [--lines] [--seed N] [--seconds S]: worlds N, N + 1 ... of a day each until so many
// seconds have passed; one world without. Each seed has a world whose modem speaks in ready-made
// deliveries and one with the platform's own channel; --lines: the second alone.

#include <getopt.h>

#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>

#include "tests/simulation/line_world.h"
#include "tests/simulation/world.h"

namespace {

constexpr uint64_t kHours = 24;

bool survives(uint32_t seed, bool lines_only, simulation::counts_t* counts) {
  try {
    if (!lines_only) simulation::live(seed, kHours, counts);
    counts->line_replies += simulation::live_on_a_line(seed, kHours);
    return true;
  } catch (const simulation::broken_rule& broken) {
    printf("broken rule: %s\nreplay: simulation --seed %" PRIu32 "\n", broken.what(), seed);
    return false;
  }
}

}  // namespace

int main(int argc, char** argv) {
  auto first = static_cast<uint32_t>(std::chrono::system_clock::now().time_since_epoch().count());
  double seconds = 0;
  bool lines_only = false;
  const option options[] = {{"seed", required_argument, nullptr, 's'},
                            {"seconds", required_argument, nullptr, 't'},
                            {"lines", no_argument, nullptr, 'l'},
                            {}};
  for (int o = 0; (o = getopt_long(argc, argv, "", options, nullptr)) != -1;) {
    if (o == 's') first = static_cast<uint32_t>(strtoul(optarg, nullptr, 10));
    if (o == 't') seconds = strtod(optarg, nullptr);
    if (o == 'l') lines_only = true;
    if (o == '?') return 2;
  }

  simulation::counts_t counts;
  uint32_t seed = first;
  const auto begin = std::chrono::steady_clock::now();
  double passed = 0;
  do {
    if (!survives(seed++, lines_only, &counts)) return 1;
    passed = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  } while (passed < seconds);
  printf("seeds %" PRIu32 " to %" PRIu32 ", a day each: %" PRIu64 " requests, %" PRIu64
         " replies, %" PRIu64 " deliveries, %" PRIu64 " reports handled; on a line %" PRIu64
         " replies\n",
         first, seed - 1, counts.requests, counts.replies, counts.deliveries, counts.reports,
         counts.line_replies);
  return 0;
}
