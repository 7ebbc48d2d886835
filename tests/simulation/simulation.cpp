// Lets the server live through random worlds until the time is up or a rule is broken.
//
// simulation [--seed N] [--hours H] [--seconds S]: worlds N, N + 1 ... until so many hours of the
// device's time or seconds of ours have passed; one world without either.

#include <getopt.h>

#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>

#include "tests/simulation/world.h"

namespace {

constexpr uint64_t kHoursPerWorld = 24;

bool survives(uint32_t seed, simulation::counts_t* counts) {
  try {
    simulation::live(seed, kHoursPerWorld, counts);
    return true;
  } catch (const simulation::broken_rule& broken) {
    printf("broken rule: %s\nreplay: simulation --seed %" PRIu32 "\n", broken.what(), seed);
    return false;
  }
}

}  // namespace

int main(int argc, char** argv) {
  auto first = static_cast<uint32_t>(std::chrono::system_clock::now().time_since_epoch().count());
  uint64_t hours = 0;
  double seconds = 0;
  const option options[] = {{"seed", required_argument, nullptr, 's'},
                            {"hours", required_argument, nullptr, 'h'},
                            {"seconds", required_argument, nullptr, 't'},
                            {}};
  for (int o = 0; (o = getopt_long(argc, argv, "", options, nullptr)) != -1;) {
    if (o == 's') first = static_cast<uint32_t>(strtoul(optarg, nullptr, 10));
    if (o == 'h') hours = strtoull(optarg, nullptr, 10);
    if (o == 't') seconds = strtod(optarg, nullptr);
    if (o == '?') return 2;
  }

  simulation::counts_t counts;
  uint32_t seed = first;
  const auto begin = std::chrono::steady_clock::now();
  const auto is_over = [&] {
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begin;
    if (seconds > 0 && passed.count() >= seconds) return true;
    return hours > 0 ? counts.hours >= hours : seconds == 0;
  };
  do {
    if (!survives(seed++, &counts)) return 1;
  } while (!is_over());
  printf("seeds %" PRIu32 " to %" PRIu32 ": %" PRIu64 " simulated hours, %" PRIu64
         " requests, %" PRIu64 " replies, %" PRIu64 " time-outs, %" PRIu64 " deliveries, %" PRIu64
         " reports handled\n",
         first, seed - 1, counts.hours, counts.requests, counts.replies, counts.timeouts,
         counts.deliveries, counts.reports);
  return 0;
}
