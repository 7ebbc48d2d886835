// SPDX-License-Identifier: Apache-2.0

#include "tests/reports/report_journal.h"

#include <algorithm>
#include <iterator>
#include <memory>

#include "server/at_match.h"
#include "server/mdx_state.h"
#include "tests/fake_platform/fake_platform.h"

namespace {

constexpr char kSource[] = "mdx_report_callback";

fake::entry service(const char* name, uint32_t message, const std::string& payload) {
  return {.what = fake::kind::SERVICE, .name = name, .text = payload, .type = message};
}

fake::entry notification(int32_t module, int32_t event) {
  return {.what = fake::kind::NOTIFICATION, .type = static_cast<uint32_t>(event), .module = module};
}

}  // namespace

std::string trace(uint32_t level, const std::string& text) {
  return fake::entry{.what = fake::kind::TRACE, .name = kSource, .text = text, .level = level}
      .line();
}
std::string notify(int32_t module, int32_t event, int32_t a, int32_t b) {
  fake::entry packet = notification(module, event);
  packet.a = a;
  packet.b = b;
  return packet.line();
}
std::string notify(int32_t module, int32_t event, const std::string& payload) {
  fake::entry packet = notification(module, event);
  packet.text = payload;
  return packet.line();
}
std::string dialup(uint32_t message, const std::string& payload) {
  return service("dialup", message, payload).line();
}
std::string cms(uint32_t message, const std::string& payload) {
  return service("cms", message, payload).line();
}
std::string voice(int32_t type, const std::string& payload) {
  return fake::entry{.what = fake::kind::VOICE,
                     .text = payload,
                     .type = static_cast<uint32_t>(type),
                     .module = 8907}
      .line();
}

journal_t journal_now() {
  journal_t out;
  for (const fake::entry& e : fake::journal) {
    if (e.is_packet() || (e.what == fake::kind::TRACE && e.name == kSource))
      out.push_back(e.line());
  }
  return out;
}

journal_t packets_of(const journal_t& journal) {
  journal_t out;
  std::copy_if(journal.begin(), journal.end(), std::back_inserter(out),
               [](const std::string& element) { return !element.starts_with("trace "); });
  return out;
}

journal_t report(std::string_view line, int* index) {
  fake::journal.clear();
  mdx_trace_mask = ~0u;
  // On the heap and of the exact size, so that a byte too far is seen.
  const auto buffer = std::make_unique<char[]>(sizeof(mdx_state.line_buf));
  line.copy(buffer.get(), sizeof(mdx_state.line_buf) - 1);
  at_msg_t msg = {};
  msg.req_type = ACTIVE_REPORT;
  int row = -1;
  int err_code = 0;
  Is_report_msg(&msg, buffer.get(), static_cast<int32_t>(line.size()), &row, &err_code);
  if (index != nullptr) *index = row;
  return journal_now();
}

void restart_dsflow_count() {
  for (int i = 0; i < 10; ++i) {
    if (packets_of(report("^DSFLOWRPT:")).size() > 1) return;
  }
}
