// SPDX-License-Identifier: Apache-2.0

// Asks for the signal once a second and prints all reports meanwhile, on one thread that waits in
// one place: event_loop SECONDS
//
// The same goes with any event loop: it watches two descriptors, the client's and the
// subscription's, and needs no timer for the command's time-out.
#include <mdxclient.h>
#include <poll.h>

#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>

namespace {

using clock_type = std::chrono::steady_clock;

/// @return false when the loop has to end
bool take_answer(mdx_client_t* client) {
  mdx_result_t result = MDX_RESULT_INIT;
  const int error = mdx_finish(client, &result);
  if (error == MDX_ERR_PENDING) return true;
  if (error == MDX_OK) {
    std::printf("answer: %s (%s)\n", result.text, mdx_result_name(result.ret_val));
    return true;
  }
  std::fprintf(stderr, "command: %s\n", mdx_strerror(error));
  return error == MDX_ERR_TIMEOUT || error == MDX_ERR_BUSY;  // the next one may fare better
}

void print_report(const mdx_packet_t& packet) {
  const char* name = mdx_packet_name(&packet);
  std::printf("report: %s", name != nullptr ? name : "unknown");
  mdx_field_t field = MDX_FIELD_INIT;
  for (uint32_t i = 0; mdx_packet_field(&packet, i, &field) == MDX_OK; ++i) {
    if (field.kind == MDX_FIELD_NUMBER) {
      std::printf(" %s=%" PRId64, field.name, field.number);
    } else if (field.kind == MDX_FIELD_UNSIGNED) {
      std::printf(" %s=%" PRIu64 "%s", field.name, field.unsigned_number, field.unit);
    } else {
      std::printf(" %s: %u bytes", field.name, field.length);
    }
  }
  std::putchar('\n');
}

bool take_report(mdx_subscription_t* reports) {
  mdx_packet_t packet = MDX_PACKET_INIT;
  const int error = mdx_next_packet(reports, 0, &packet);
  if (error == MDX_ERR_TIMEOUT) return true;
  if (error != MDX_OK) {
    std::fprintf(stderr, "reports: %s\n", mdx_strerror(error));
    return false;
  }
  print_report(packet);
  return true;
}

bool run(mdx_client_t* client, mdx_subscription_t* reports, int seconds) {
  mdx_options_t options = MDX_OPTIONS_INIT;
  options.timeout_s = 2;
  const auto start = clock_type::now();
  for (int asked = 0;;) {
    const auto left = start + std::chrono::seconds(asked) - clock_type::now();
    auto wait_ms = std::chrono::ceil<std::chrono::milliseconds>(left).count();
    if (wait_ms <= 0) {
      if (asked == seconds) return true;
      // While the last answer is still owed this one is left out.
      const int error = mdx_begin(client, "AT+CSQ", &options);
      if (error != MDX_OK && error != MDX_ERR_PENDING) {
        std::fprintf(stderr, "command: %s\n", mdx_strerror(error));
        return false;
      }
      ++asked;
      wait_ms = 0;
    }
    pollfd fds[] = {{mdx_client_fd(client), POLLIN, 0}, {mdx_subscription_fd(reports), POLLIN, 0}};
    if (poll(fds, 2, static_cast<int>(wait_ms)) < 0) continue;
    if (fds[0].revents != 0 && !take_answer(client)) return false;
    if (fds[1].revents != 0 && !take_report(reports)) return false;
  }
}

}  // namespace

int main(int argc, char** argv) {
  const int seconds = argc == 2 ? std::atoi(argv[1]) : 0;
  if (seconds <= 0) {
    std::fprintf(stderr, "usage: event_loop SECONDS\n");
    return 2;
  }
  mdx_client_t* client = nullptr;
  mdx_subscription_t* reports = nullptr;
  int error = mdx_open(&client);
  if (error == MDX_OK) error = mdx_subscribe(&reports, MDX_EVERYTHING, 0);
  if (error != MDX_OK) std::fprintf(stderr, "%s\n", mdx_strerror(error));
  const bool good = error == MDX_OK && run(client, reports, seconds);
  mdx_unsubscribe(reports);
  mdx_close(client);
  return good ? 0 : 1;
}
