#include "tests/reports/report_journal.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>

#include "channel/mdx_register.h"
#include "server/at_match.h"
#include "server/mdx_state.h"
#include "server/nas_request.h"
#include "tests/fake_platform/fake_platform.h"

static_assert(std::endian::native == std::endian::little);

namespace {

template <class Integer>
std::string image(Integer value) {
  return {reinterpret_cast<const char*>(&value), sizeof(value)};
}

std::string hex(const std::string& payload) {
  std::string out = "[";
  out += std::to_string(payload.size());
  out += "] ";
  for (const char c : payload) {
    const auto byte = static_cast<uint8_t>(c);
    out += "0123456789abcdef"[byte >> 4];
    out += "0123456789abcdef"[byte & 15];
  }
  return out;
}

std::string notification(int32_t module, uint32_t event, int32_t a, int32_t b,
                         const std::string& payload) {
  return "notify " + std::to_string(module) + " " + std::to_string(event) + " " + hex(payload) +
         " a " + std::to_string(a) + " b " + std::to_string(b);
}

std::string service(const std::string& name, uint32_t message, const std::string& payload) {
  return name + " " + std::to_string(message) + " " + hex(payload);
}

bool is_trace(const std::string& element) { return element.starts_with("trace "); }

}  // namespace

std::string trace(uint32_t level, const std::string& text) {
  return "trace " + std::to_string(level) + " " + text;
}
std::string notify(int32_t module, int32_t event, int32_t a, int32_t b) {
  return notification(module, static_cast<uint32_t>(event), a, b, "");
}
std::string notify(int32_t module, int32_t event, const std::string& payload) {
  return notification(module, static_cast<uint32_t>(event), 0, 0, payload);
}
std::string dialup(uint32_t message, const std::string& payload) {
  return service("dialup", message, payload);
}
std::string cms(uint32_t message, const std::string& payload) {
  return service("cms", message, payload);
}
std::string voice(int32_t type, const std::string& payload) {
  return "voice 8907 " + std::to_string(type) + " " + hex(payload);
}

std::string words(std::initializer_list<int64_t> values) {
  std::string out;
  for (const int64_t value : values) out += image(static_cast<uint32_t>(value));
  return out;
}
std::string longs(std::initializer_list<uint64_t> values) {
  std::string out;
  for (const uint64_t value : values) out += image(value);
  return out;
}
std::string half(uint16_t value) { return image(value); }
std::string bytes(std::initializer_list<uint8_t> values) { return {values.begin(), values.end()}; }
std::string text(std::string_view value, size_t size) {
  std::string out(value);
  out.resize(size);
  return out;
}
std::string zeros(size_t size) { return std::string(size, '\0'); }

journal_t journal_now() {
  journal_t out;
  for (const fake::entry& e : fake::journal) {
    if (e.what == fake::kind::TRACE && e.name == "mdx_report_callback") {
      out.push_back(trace(e.level, e.text));
    } else if (e.what == fake::kind::NOTIFICATION) {
      out.push_back(notification(e.module, e.type, e.a, e.b, e.text));
    } else if (e.what == fake::kind::SERVICE) {
      out.push_back(service(e.name, e.type, e.text));
    } else if (e.what == fake::kind::VOICE) {
      out.push_back("voice " + std::to_string(e.module) + " " + std::to_string(e.type) + " " +
                    hex(e.text));
    }
  }
  return out;
}

journal_t packets_of(const journal_t& journal) {
  journal_t out;
  std::remove_copy_if(journal.begin(), journal.end(), std::back_inserter(out), is_trace);
  return out;
}

journal_t shapes_of(const journal_t& journal) {
  journal_t out = packets_of(journal);
  for (std::string& packet : out) packet.erase(packet.find(']') + 1);
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

journal_t deliver(std::string_view line) {
  fake::reset();
  mdx_state.main_task_id = fake::kMainTask;
  mdx_state.nas_queue_id = MDX_msgQ_create(3, 10, 1516);
  const std::string delivery = "\r\n" + std::string(line) + "\r\n";
  mdx_get_data_from_nas(0, delivery.data(), static_cast<uint32_t>(delivery.size()));
  int retcode = 0;
  process_nas_queue(&retcode);
  return journal_now();
}

void restart_dsflow_count() {
  for (int i = 0; i < 10; ++i) {
    if (packets_of(report("^DSFLOWRPT:")).size() > 1) return;
  }
}
