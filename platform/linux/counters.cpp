// SPDX-License-Identifier: Apache-2.0

// Names and values of the platform's counters.

#include "platform/linux/counters.h"

#include <pthread.h>
#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <type_traits>

#include "platform/joined_texts.h"

namespace {

struct counter_row_t {
  mdx_counter_t counter;
  const char* name;
};

// clang-format off
constexpr counter_row_t counter_table[] = {
    {COUNT_DELIVERIES,             "deliveries"},
    {COUNT_DELIVERY_BYTES,         "delivery_bytes"},
    {COUNT_DELIVERIES_HELD,        "deliveries_held"},
    {COUNT_DELIVERIES_CUT,         "deliveries_cut"},
    {COUNT_ECHOES_DROPPED,         "echoes_dropped"},
    {COUNT_LINES_DROPPED,          "lines_dropped"},
    {COUNT_ANSWERS_TOO_LONG,       "answers_too_long"},
    {COUNT_LATE_ANSWERS_ABSORBED,  "late_answers_absorbed"},
    {COUNT_PATIENCE_RAN_OUT,       "patience_ran_out"},
    {COUNT_PROMPTS_ESCAPED,        "prompts_escaped"},
    {COUNT_CHANNEL_SENDS,          "channel_sends"},
    {COUNT_CHANNEL_SEND_BYTES,     "channel_send_bytes"},
    {COUNT_CHANNEL_SENDS_FAILED,   "channel_sends_failed"},
    {COUNT_CHANNEL_OPENED,         "channel_opened"},
    {COUNT_CHANNEL_REOPENED,       "channel_reopened"},
    {COUNT_CHANNEL_CLOSED,         "channel_closed"},
    {COUNT_REQUESTS,               "requests"},
    {COUNT_REQUESTS_MISSIZED,      "requests_missized"},
    {COUNT_REQUESTS_OF_THE_DEAD,   "requests_of_the_dead"},
    {COUNT_ANSWERS,                "answers"},
    {COUNT_COMMANDS,               "commands"},
    {COUNT_COMMAND_MICROSECONDS,   "command_microseconds"},
    {COUNT_COMMAND_MICROSECONDS_MAX, "command_microseconds_max"},
    {COUNT_ANSWERS_DROPPED_DEAD,   "answers_dropped_dead"},
    {COUNT_ANSWERS_DROPPED_UNREAD, "answers_dropped_unread"},
    {COUNT_ANSWERS_REFUSED,        "answers_refused"},
    {COUNT_NAS_QUEUE_REFUSED,      "nas_queue_refused"},
    {COUNT_RAISES_FAILED,          "raises_failed"},
    {COUNT_NAMES_MISSING,          "names_missing"},
    {COUNT_TASK_NAMES_REFUSED,     "task_names_refused"},
    {COUNT_RECEIVERS,              "receivers"},
    {COUNT_RECEIVERS_REFUSED,      "receivers_refused"},
    {COUNT_RECEIVERS_DISPLACED,    "receivers_displaced"},
    {COUNT_RECEIVERS_SILENT,       "receivers_silent"},
    {COUNT_PACKETS_SENT,           "packets_sent"},
    {COUNT_PACKETS_LOST,           "packets_lost"},
    {COUNT_PACKETS_RECEIVED,       "packets_received"},
    {COUNT_PACKETS_REFUSED,        "packets_refused"},
    {COUNT_UNINSTALLS_REFUSED,     "uninstalls_refused"},
    {COUNT_CONSOLE_COMMANDS,       "console_commands"},
    {COUNT_CONSOLE_DROPPED,        "console_dropped"},
    {COUNT_TRACES_LOST,            "traces_lost"},
};
// clang-format on

constexpr auto names_by_counter = [] {
  std::array<const char*, COUNT_COUNTERS> names = {};
  for (const counter_row_t& row : counter_table) names[row.counter] = row.name;
  return names;
}();
static_assert(std::size(counter_table) == COUNT_COUNTERS);
static_assert(std::find(names_by_counter.begin(), names_by_counter.end(), nullptr) ==
              names_by_counter.end());
constexpr auto joined_names = join_texts<names_by_counter>();

constinit pthread_mutex_t counting = PTHREAD_MUTEX_INITIALIZER;

// std::atomic<uint64_t> for a processor that changes 32 bits at once, such as 32-bit MIPS: there
// the compiler's own would need libatomic.
class locked_count {
 public:
  void fetch_add(uint64_t amount, std::memory_order) {
    pthread_mutex_lock(&counting);
    value_ += amount;
    pthread_mutex_unlock(&counting);
  }
  void store(uint64_t value, std::memory_order) {
    pthread_mutex_lock(&counting);
    value_ = value;
    pthread_mutex_unlock(&counting);
  }
  uint64_t load(std::memory_order) const {
    pthread_mutex_lock(&counting);
    const uint64_t value = value_;
    pthread_mutex_unlock(&counting);
    return value;
  }

 private:
  uint64_t value_ = 0;
};

using count_t =
    std::conditional_t<ATOMIC_LLONG_LOCK_FREE == 2, std::atomic<uint64_t>, locked_count>;
constinit count_t counters[COUNT_COUNTERS];

}  // namespace

void counter_add(mdx_counter_t counter, uint64_t amount) {
  counters[counter].fetch_add(amount, std::memory_order_relaxed);
}

void counter_raise_to(mdx_counter_t counter, uint64_t value) {
  if (counter_value(counter) < value) counters[counter].store(value, std::memory_order_relaxed);
}

uint64_t counter_value(mdx_counter_t counter) {
  return counters[counter].load(std::memory_order_relaxed);
}

const char* counter_name(mdx_counter_t counter) {
  const char* name = joined_names.data();
  for (uint32_t i = 0; i < counter; ++i) name += strlen(name) + 1;
  return name;
}
