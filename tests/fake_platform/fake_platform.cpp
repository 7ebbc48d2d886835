// SPDX-License-Identifier: Apache-2.0

// The contract of platform/mdx_platform.h over one in-memory world: see the header for how it
// behaves.
#include "tests/fake_platform/fake_platform.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <deque>
#include <map>

#include "tests/fake_platform/fake_files.h"

std::atomic<uint32_t> mdx_trace_mask{MDX_TRACE_ERROR | MDX_TRACE_MISSING};

namespace fake {

std::vector<entry> journal;
std::function<void(const std::string&)> on_write;
faults fail;
line* the_line = nullptr;

namespace {

struct queue {
  size_t depth;
  size_t element_size;
  std::deque<std::string> elements;
};

struct answer_t {
  std::string start;
  script deliveries;
};

// Ids are the queue's number times 100: an id taken for a number, or the other way, is found out.
constexpr int32_t kIdPerNumber = 100;

struct world {
  uint64_t now = 0;
  std::multimap<uint64_t, std::function<void()>> timetable;
  std::map<int32_t, queue> queues;
  std::deque<answer_t> answers;
  std::deque<std::string> undelivered;
  mdx_receive_function_t receive = nullptr;
  void (*msg_procedure)(const void*) = nullptr;
  uint32_t pending_bits = 0;
  int32_t bindings = 0;
  bool unregistered = false;
};
world the_world;

// Filled before main, and not to be reset.
struct {
  const char* module;
  const mdx_debug_command_t* commands;
  int32_t count;
} constinit console_module = {};
std::string console_output;

bool spend(int32_t& fault) {
  if (fault <= 0) return false;
  --fault;
  return true;
}

entry& record(kind what, std::string name, std::string text = {}) {
  journal.push_back(
      {.what = what, .at = the_world.now, .name = std::move(name), .text = std::move(text)});
  return journal.back();
}

std::string format_text(const char* format, va_list values) {
  char text[4096];
  vsnprintf(text, sizeof text, format, values);
  return text;
}

std::string bytes(const void* data, size_t length) {
  return data == nullptr ? std::string() : std::string(static_cast<const char*>(data), length);
}

void offer_deliveries() {
  while (the_world.receive != nullptr && !the_world.undelivered.empty()) {
    const std::string next = the_world.undelivered.front();
    if (fail.deliveries > 0) {
      --fail.deliveries;
      fail.allocations = 1;
    }
    if (the_world.receive(0, next.data(), static_cast<uint32_t>(next.size())) != 0) return;
    the_world.undelivered.pop_front();
  }
}

// Lets the next thing on the timetable happen if its time is not past `until`.
bool step(uint64_t until) {
  offer_deliveries();
  const auto next = the_world.timetable.begin();
  if (next == the_world.timetable.end() || next->first > until) return false;
  the_world.now = std::max(the_world.now, next->first);
  const auto happens = std::move(next->second);
  the_world.timetable.erase(next);
  happens();
  offer_deliveries();
  return true;
}

// The same in a wait of the server's.
bool wait_step(uint64_t until) {
  if (the_line == nullptr) return step(until);
  if (the_world.now >= until) return false;
  the_line->wait(until);
  return true;
}

queue* find_queue(int32_t id) {
  const auto found = the_world.queues.find(id);
  return found == the_world.queues.end() ? nullptr : &found->second;
}

int32_t create_queue(const char* call, int32_t number, int32_t depth, int32_t size) {
  record(kind::CALL, call,
         std::to_string(number) + " " + std::to_string(depth) + " " + std::to_string(size));
  if (fail.queue_create == number) return -1;
  const int32_t id = number * kIdPerNumber;
  the_world.queues[id] = {static_cast<size_t>(depth), static_cast<size_t>(size), {}};
  return id;
}

void delete_queue(const char* call, int32_t id) {
  record(kind::CALL, call, std::to_string(id / kIdPerNumber));
  the_world.queues.erase(id);
}

int32_t count_queue(int32_t id) {
  const queue* q = find_queue(id);
  return q == nullptr ? 0 : static_cast<int32_t>(q->elements.size());
}

int32_t send_to_modem(int32_t channel, const char* data, uint32_t length) {
  const std::string sent = bytes(data, length);
  if (channel != 6 || the_world.unregistered || spend(fail.write)) {
    record(kind::WRITE_FAILED, "write failed", sent);
    return -1;
  }
  record(kind::WRITE, "write", sent);
  const auto fits = [&](const answer_t& a) { return sent.starts_with(a.start); };
  const auto found = std::find_if(the_world.answers.begin(), the_world.answers.end(), fits);
  if (found != the_world.answers.end()) {
    const script deliveries = std::move(found->deliveries);
    the_world.answers.erase(found);
    deliver(deliveries);
  } else if (on_write) {
    on_write(sent);
  }
  return 0;
}

}  // namespace

// ---------------------------------------------------------------------------------------------------
// What a test sees
// ---------------------------------------------------------------------------------------------------

std::string entry::line() const {
  const auto packet = [this](std::string head) {
    for (const char byte : text) {
      const auto value = static_cast<uint8_t>(byte);
      head += "0123456789abcdef"[value >> 4];
      head += "0123456789abcdef"[value & 15];
    }
    return head;
  };
  switch (what) {
    case kind::TRACE:
      return "trace " + std::to_string(level) + " " + name + ": " + text;
    case kind::SERVICE:
      return packet(name + " " + std::to_string(type) + " ");
    case kind::NOTIFICATION:
      return packet("notify " + std::to_string(module) + " " + std::to_string(type) + " " +
                    std::to_string(a) + " " + std::to_string(b) + " ");
    case kind::VOICE:
      return packet("voice " + std::to_string(module) + " " + std::to_string(type) + " ");
    case kind::REPLY:
      return "reply " + std::to_string(as<at_msg_t>().seq);
    case kind::RAISE:
      return "raise " + std::to_string(a) + " " + std::to_string(type);
    case kind::SLEEP:
      return "sleep " + std::to_string(type);
    case kind::REQUEST:
      return "request " + std::to_string(as<at_msg_t>().seq);
    case kind::SILENCE:
      return "silence " + std::to_string(a);
    default:
      return text.empty() ? name : name + " " + text;
  }
}

namespace {
std::vector<entry> select(const std::function<bool(const entry&)>& wanted) {
  std::vector<entry> found;
  std::copy_if(journal.begin(), journal.end(), std::back_inserter(found), wanted);
  return found;
}
}  // namespace

std::vector<entry> entries(kind what) {
  return select([what](const entry& e) { return e.what == what; });
}
std::vector<entry> packets() { return select(&entry::is_packet); }

std::vector<std::string> lines(const std::vector<kind>& kinds) {
  std::vector<std::string> found;
  for (const entry& e : journal)
    if (std::find(kinds.begin(), kinds.end(), e.what) != kinds.end()) found.push_back(e.line());
  return found;
}

std::vector<std::string> traces(uint32_t level) {
  std::vector<std::string> found;
  for (const entry& e : entries(kind::TRACE))
    if (level == 0 || e.level == level) found.push_back(e.text);
  return found;
}

std::vector<std::string> writes() {
  std::vector<std::string> found;
  for (const entry& e : entries(kind::WRITE)) found.push_back(e.text);
  return found;
}

std::vector<at_msg_t> replies() {
  std::vector<at_msg_t> found;
  for (const entry& e : entries(kind::REPLY)) found.push_back(e.as<at_msg_t>());
  return found;
}

void reset(uint32_t clock) {
  the_world = world{};
  the_world.now = clock;
  journal.clear();
  on_write = nullptr;
  fail = faults{};
  files::reset();
  mdx_trace_mask = ~0u;
}

uint64_t now() { return the_world.now; }

void at(uint32_t after, std::function<void()> happens) {
  the_world.timetable.emplace(the_world.now + after, std::move(happens));
}

void pass(uint64_t until) {
  if (step(until)) return;
  if (until == UINT64_MAX) throw end_of_world{};
  the_world.now = std::max(the_world.now, until);
}

void deliver(const script& deliveries) {
  for (const delivery& d : deliveries)
    at(d.after, [bytes = d.bytes] { the_world.undelivered.push_back(bytes); });
}

void answer(std::string_view start, const script& deliveries) {
  the_world.answers.push_back({std::string(start), deliveries});
}

void request(const at_msg_t& msg, uint32_t after) {
  at(after, [msg] {
    queue* q = find_queue(2 * kIdPerNumber);
    if (q == nullptr || q->elements.size() >= q->depth) {
      record(kind::CALL, "refused", std::to_string(msg.seq));
      return;
    }
    q->elements.push_back(bytes(&msg, sizeof msg));
    the_world.pending_bits |= 1;
  });
}

void bus_message(uint32_t type, uint32_t length) {
  alignas(uint32_t) char packet[40] = {};
  std::memcpy(packet, &type, sizeof type);
  std::memcpy(packet + 36, &length, sizeof length);
  if (the_world.msg_procedure != nullptr) the_world.msg_procedure(packet);
}

std::string console(std::string_view module, std::string_view command) {
  console_output.clear();
  if (console_module.module == nullptr || module != console_module.module) return "no such module";
  const auto* end = console_module.commands + console_module.count;
  const auto* row = std::find_if(console_module.commands, end,
                                 [&](const mdx_debug_command_t& c) { return command == c.name; });
  if (row == end) return "no such command";
  row->handler();
  return console_output;
}

}  // namespace fake

using namespace fake;

// ---------------------------------------------------------------------------------------------------
// Queues and time
// ---------------------------------------------------------------------------------------------------

int32_t MDX_get_msgQ_id(int32_t number) {
  record(kind::CALL, "MDX_get_msgQ_id", std::to_string(number));
  const bool left = fail.queues_left.find(std::to_string(number)) != std::string::npos;
  return left ? number * kIdPerNumber : -1;
}

int32_t MDX_msgQex_create(int32_t number, int32_t depth, int32_t size) {
  return create_queue("MDX_msgQex_create", number, depth, size);
}
int32_t MDX_msgQ_create(int32_t number, int32_t depth, int32_t size) {
  return create_queue("MDX_msgQ_create", number, depth, size);
}
void MDX_msgQex_delete(int32_t id) { delete_queue("MDX_msgQex_delete", id); }
void MDX_msgQ_delete(int32_t id) { delete_queue("MDX_msgQ_delete", id); }
int32_t MDX_msgQex_num(int32_t id) {
  const bool is_hidden =
      the_line != nullptr && id == 2 * kIdPerNumber && !the_line->shows_requests();
  return is_hidden ? 0 : count_queue(id);
}
int32_t MDX_msgQ_num(int32_t id) { return count_queue(id); }

int32_t MDX_msgQ_send(int32_t id, const void* data, uint32_t size, int32_t) {
  queue* q = find_queue(id);
  if (q == nullptr || spend(fail.nas_send) || size > q->element_size) return 0;
  if (q->elements.size() >= q->depth) return 0;
  q->elements.push_back(bytes(data, size));
  return 1;
}

int32_t MDX_msgQ_recv(int32_t id, void* buffer, uint32_t size, int32_t wait_ms) {
  const uint64_t deadline = the_world.now + static_cast<uint64_t>(std::max(wait_ms, 0));
  queue* q = find_queue(id);
  offer_deliveries();
  const auto may_come = [] {
    return the_line == nullptr || (the_line->has_client() && the_line->may_answer());
  };
  while ((q == nullptr || q->elements.empty()) && may_come() && wait_step(deadline)) {
  }
  if (q == nullptr || q->elements.empty()) {
    if (may_come()) the_world.now = deadline;
    record(kind::SILENCE, "silence").a = wait_ms;
    return -1;
  }
  const std::string element = q->elements.front();
  q->elements.pop_front();
  record(kind::DELIVERY, "delivery", element).a = wait_ms;
  const size_t taken = std::min<size_t>(size, element.size());
  std::memcpy(buffer, element.data(), taken);
  return static_cast<int32_t>(taken);
}

int32_t read_from_msgqueue(int32_t id, void* msg, int32_t type, int* retcode) {
  queue* q = find_queue(id);
  if (spend(fail.request_read)) return *retcode = EIO, -1;
  if (q == nullptr) return *retcode = EINVAL, -1;
  if (q->elements.empty() || type != 0) return *retcode = ENOMSG, -1;
  const std::string element = q->elements.front();
  q->elements.pop_front();
  int32_t client = 0;
  std::memcpy(&client, element.data(), sizeof(client));
  if (the_line != nullptr && !the_line->begins_request(client)) return *retcode = EOWNERDEAD, -1;
  std::memcpy(msg, element.data(), sizeof(at_msg_t));
  record(kind::REQUEST, "request", element);
  return 0;
}

// A client that is answered reads at once: what is sent here never fills the queue.
int32_t send_to_msgqueue(int32_t id, const void* msg, int* retcode) {
  if (find_queue(id) == nullptr) return *retcode = EINVAL, -1;
  if (spend(fail.reply_send)) return *retcode = EAGAIN, -1;
  if (the_line != nullptr && !the_line->has_client()) {
    record(kind::CALL, "reply dropped");
    return 0;
  }
  record(kind::REPLY, "reply", bytes(msg, sizeof(at_msg_t)));
  return 0;
}

uint32_t MDX_elapse() { return static_cast<uint32_t>(the_world.now); }

void MDX_sleep(uint32_t milliseconds) {
  record(kind::SLEEP, "sleep").type = milliseconds;
  const uint64_t deadline = the_world.now + milliseconds;
  while (step(deadline)) {
  }
  the_world.now = deadline;
}

// ---------------------------------------------------------------------------------------------------
// Tasks and events
// ---------------------------------------------------------------------------------------------------

void MDX_event_init(uint32_t mask) { record(kind::CALL, "MDX_event_init", std::to_string(mask)); }

int32_t MDX_task_getid() { return kMainTask; }

int32_t MDX_event_send(int32_t task_id, uint32_t bits) {
  entry& raise = record(kind::RAISE, "raise");
  raise.a = task_id;
  raise.type = bits;
  if (task_id != kMainTask) return 0;
  the_world.pending_bits |= bits;
  return 1;
}

int32_t MDX_event_recv(uint32_t mask, int32_t wait_ms, uint32_t* bits) {
  if (spend(fail.event_recv)) return 0;
  const uint64_t deadline =
      wait_ms < 0 ? UINT64_MAX : the_world.now + static_cast<uint64_t>(wait_ms);
  offer_deliveries();
  while ((the_world.pending_bits & mask) == 0 && wait_step(deadline)) {
  }
  if ((the_world.pending_bits & mask) == 0) {
    if (wait_ms < 0) throw end_of_world{};
    the_world.now = deadline;
    return 0;
  }
  while (step(the_world.now)) {  // what comes at the same time is reported together
  }
  *bits = the_world.pending_bits & mask;
  the_world.pending_bits &= ~mask;
  return 1;
}

pthread_t MDX_pthread_create(int, int, int, void (*)(), int) {
  record(kind::CALL, "MDX_pthread_create");
  return files::kThread;
}

// ---------------------------------------------------------------------------------------------------
// Message bus, notifications, voice
// ---------------------------------------------------------------------------------------------------

int32_t KRP_MSG_Init(const char* module) {
  record(kind::CALL, "KRP_MSG_Init", module);
  return fail.msg_init ? -1 : 0;
}

void KRP_MSG_RegisterMsgProc(void (*procedure)(const void*)) {
  record(kind::CALL, "KRP_MSG_RegisterMsgProc");
  the_world.msg_procedure = procedure;
}

void KRP_MSG_DefaultMsgProc(const void*) { record(kind::CALL, "KRP_MSG_DefaultMsgProc"); }

void KRP_UTIL_SockBaseStart(int32_t value) {
  record(kind::CALL, "KRP_UTIL_SockBaseStart", std::to_string(value));
}

int32_t KRP_MSG_SendMsgData(const char* service, uint32_t type, const void* data, uint32_t length) {
  record(kind::SERVICE, service, bytes(data, length)).type = type;
  return 0;
}

int32_t KRP_MSG_SendSimpleMsg(const char* service, uint32_t type, int32_t) {
  return KRP_MSG_SendMsgData(service, type, nullptr, 0);
}

int32_t KRP_NOTIFYCLT_Init(int32_t value) {
  record(kind::CALL, "KRP_NOTIFYCLT_Init", std::to_string(value));
  return fail.notify_init ? -1 : 0;
}

int32_t MDX_post_notify(int32_t module, int32_t event, int32_t a, int32_t b) {
  return MDX_post_notify_ex(module, event, nullptr, 0, a, b);
}

int32_t MDX_post_notify_ex(int32_t module, int32_t event, const void* data, uint32_t length,
                           int32_t a, int32_t b) {
  entry& packet = record(kind::NOTIFICATION, "notify", bytes(data, length));
  packet.module = module;
  packet.type = static_cast<uint32_t>(event);
  packet.a = a;
  packet.b = b;
  return 0;
}

int32_t KRP_UTIL_SendMsgToVoice2(int32_t message, int32_t type, int32_t, const void* data,
                                 uint32_t length) {
  entry& packet = record(kind::VOICE, "voice", bytes(data, length));
  packet.module = message;
  packet.type = static_cast<uint32_t>(type);
  return 0;
}

// ---------------------------------------------------------------------------------------------------
// Modem channel, traces, console, rights
// ---------------------------------------------------------------------------------------------------

int32_t Q7_APP_RegCallBack(int32_t channel, mdx_receive_function_t receive,
                           mdx_send_function_t* send) {
  record(kind::CALL, "Q7_APP_RegCallBack", std::to_string(channel));
  if (the_line != nullptr) return the_line->bind(channel, receive, send);
  if (++the_world.bindings <= fail.bind_attempts) return 0;
  the_world.receive = receive;
  *send = send_to_modem;
  return 0;
}

void Q7_App_Ungister() {
  record(kind::CALL, "Q7_App_Ungister");
  the_world.unregistered = true;
}

void KRP_TRACE_PrintInfo(const char* source, int, int, const char*, uint32_t level,
                         const char* format, ...) {
  va_list values;
  va_start(values, format);
  record(kind::TRACE, source, format_text(format, values)).level = level;
  va_end(values);
}

void mdx_trace(uint32_t place, const char* format, ...) {
  const uint32_t level = place & 0xff;
  if ((mdx_trace_mask & level) == 0) return;
  va_list values;
  va_start(values, format);
  record(kind::TRACE, mdx_trace_source_name(place >> 8 & 0xff), format_text(format, values)).level =
      level;
  va_end(values);
}

void mlog_print(const char* module, int32_t, const char* text) {
  record(kind::CALL, "mlog_print", std::string(module) + " " + text);
}

void KRP_Debug_RegModCmds(const char* module, const mdx_debug_command_t* commands, int32_t count) {
  console_module = {module, commands, count};
}

void KRP_Debug_Print(const char* format, ...) {
  va_list values;
  va_start(values, format);
  console_output += format_text(format, values);
  va_end(values);
}

void KRP_UTIL_RemoveAndroidWPerm(const char* path, const char* mode) {
  record(kind::CALL, "KRP_UTIL_RemoveAndroidWPerm", std::string(path) + " " + mode);
}

void KRP_UTIL_DropAndroidRootPrivileges() {
  record(kind::CALL, "KRP_UTIL_DropAndroidRootPrivileges");
}
