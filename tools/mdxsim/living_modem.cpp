// SPDX-License-Identifier: Apache-2.0

// A small modem that lives by itself.
//
// Whatever comes in, it must come to an end with it: lines and messages of any length, control
// bytes, a host that closes in the middle of a dialogue, or one that never reads.
#include "tools/mdxsim/living_modem.h"

#include <algorithm>
#include <utility>

#include "tools/mdxsim/call_commands.h"
#include "tools/mdxsim/message_commands.h"
#include "tools/mdxsim/modem_commands.h"

namespace mdxsim {
namespace {

constexpr char kBackspace = '\b';
constexpr char kEscape = '\x1b';
constexpr char kCtrlZ = '\x1a';
constexpr size_t kBacklogLimit = 16 * 1024;
constexpr size_t kLongestLine = 2048;
constexpr size_t kLongestMessage = 2048;
constexpr std::string_view kPrompt = "\r\n> ";
constexpr Time kSearchTime{1000};
constexpr Time kDeliveryTime{1000};
constexpr std::string_view kMessageText = "Hello from Alice";

// What is in the way of a command that needs the SIM; kOk when nothing is.
Result sim_obstacle(const ModemState& state, CommandRow::Needs needs) {
  const bool for_messages = needs == CommandRow::Needs::kSimForMessages;
  if (needs == CommandRow::Needs::kNothing) return kOk;
  if (!state.sim_inserted) {
    return for_messages ? Result{Result::Kind::kCmsError, 310} : kSimNotInserted;
  }
  if (state.pin_needed) {
    const bool by_puk = state.pin_tries == 0;
    if (for_messages) return {Result::Kind::kCmsError, by_puk ? 316 : 311};
    return by_puk ? kPukRequired : kPinRequired;
  }
  return kOk;
}

}  // namespace

LivingModem::LivingModem(LivingOptions options)
    : options_(std::move(options)), random_(options_.seed) {
  state.pin = options_.pin;
  restart();
  state.store.add({MessageState::kReceivedUnread,
                   "07913366003051F5040B913366634081F900005180719120348004D4F29C0E"});
}

// Messages, numbers, PIN and its tries are on the card, and stay.
void LivingModem::restart() {
  ModemState fresh;
  fresh.store = std::move(state.store);
  fresh.phone_book = std::move(state.phone_book);
  fresh.last_call = state.last_call;
  fresh.sim_inserted = options_.sim_inserted;
  fresh.pin = state.pin;
  fresh.pin_needed = !state.pin.empty();
  fresh.pin_tries = state.pin_tries;
  fresh.puk_tries = state.puk_tries;
  state = std::move(fresh);
  state.registered = may_register();
}

bool LivingModem::may_register() const {
  return state.sim_inserted && !state.pin_needed && state.functionality == 1 && !state.deregistered;
}

void LivingModem::follow_network() {
  if (may_register() == (state.registered || state.searching)) return;
  if (!may_register()) {
    state.registered = state.searching = false;
    state.call.reset();
    for (auto& [cid, context] : state.contexts) context.active = false;
    return later(Time{1}, [](LivingModem& modem) { modem.report_registration(); });
  }
  state.searching = true;
  later(kSearchTime, [](LivingModem& modem) {
    if (!modem.state.searching) return;
    modem.state.searching = false;
    modem.state.registered = modem.may_register();
    modem.report_registration();
  });
}

void LivingModem::attached(Time now) {
  now_ = now;
  attached_ = true;
  outbox_.clear();
  busy_until_ = now;
  next_report_ = now + options_.report_interval;
  next_call_ = now + options_.call_interval;
  next_message_ = now + options_.message_interval;
  state.searching = false;
  state.registered = may_register();
}

void LivingModem::detached(Time now) {
  now_ = now;
  attached_ = false;
  outbox_.clear();
  timers_.clear();
  line_.clear();
  skip_cr_ = false;
  message_taker_ = nullptr;
  state.call.reset();
  end_data_call(state);
  state.ussd_level = 0;
}

void LivingModem::receive(std::string_view bytes, Time now) {
  now_ = now;
  if (options_.mute) return;
  for (const char c : bytes) {
    if (std::exchange(skip_cr_, false) && c == '\r') continue;
    if (state.echo) outbox_.put(now_, {&c, 1});
    if (message_taker_) {
      take_message_byte(c);
    } else {
      take_command_byte(c);
    }
  }
}

void LivingModem::take_command_byte(char c) {
  if (c == '\r') return run_line();
  if (c == kBackspace) {
    if (!line_.empty()) line_.pop_back();
  } else if (static_cast<unsigned char>(c) >= ' ' && line_.size() <= kLongestLine) {
    line_ += c;
  }
}

// A host may end all that it writes with a CR: one behind the Ctrl-Z or ESC is none of the modem's.
void LivingModem::take_message_byte(char c) {
  if (c == kCtrlZ || c == kEscape) {
    skip_cr_ = true;
    const auto taker = std::exchange(message_taker_, nullptr);
    const std::string message = std::exchange(line_, {});
    return finish(c == kEscape ? kOk : taker(*this, message));
  }
  if (c == kBackspace) {
    if (!line_.empty()) line_.pop_back();
  } else if (line_.size() <= kLongestMessage) {
    line_ += c;
  }
  if (c == '\r' && state.message_format == 1) send_answer(kPrompt);
}

void LivingModem::run_line() {
  const std::string line = std::exchange(line_, {});
  if (line.size() > kLongestLine) return finish(kError);
  const auto commands = split_command_line(line);
  if (!commands) return;
  Result result = kOk;
  for (const AtCommand& command : *commands) {
    result = run(command);
    if (result.kind != Result::Kind::kOk) break;
  }
  finish(result);
}

Result LivingModem::run(const AtCommand& command) {
  const CommandRow* row = find_command(command.name);
  if (row == nullptr) return kNotSupported;
  const Result obstacle = sim_obstacle(state, row->needs);
  return obstacle.kind == Result::Kind::kOk ? row->handler(*this, command) : obstacle;
}

void LivingModem::finish(Result result) {
  send_answer(std::exchange(answer_, {}) + result_text(result));
}

std::string LivingModem::result_text(Result result) const {
  using Kind = Result::Kind;
  const auto word = [this](std::string_view text, std::string_view digit) {
    return state.verbose ? "\r\n" + std::string(text) + "\r\n" : std::string(digit) + "\r";
  };
  switch (result.kind) {
    case Kind::kOk:
      return word("OK", "0");
    case Kind::kConnect:
      return word("CONNECT 7200000", "1");
    case Kind::kNoCarrier:
      return word("NO CARRIER", "3");
    case Kind::kPrompt:
      return std::string(kPrompt);
    case Kind::kCmsError:
      return "\r\n+CMS ERROR: " + std::to_string(result.number) + "\r\n";
    case Kind::kCmeError:
      if (state.cmee == 1) return "\r\n+CME ERROR: " + std::to_string(result.number) + "\r\n";
      if (state.cmee == 2) {
        return "\r\n+CME ERROR: " + std::string(cme_error_text(result.number)) + "\r\n";
      }
      return word("ERROR", "4");
    case Kind::kError:
      break;
  }
  return word("ERROR", "4");
}

void LivingModem::send_answer(std::string_view text) {
  busy_until_ = std::max(busy_until_, now_) + options_.answer_delay;
  outbox_.put(busy_until_, text);
}

void LivingModem::take_time(Time duration) { busy_until_ = std::max(busy_until_, now_) + duration; }

void LivingModem::say(std::string_view text) {
  answer_ += "\r\n";
  answer_ += text;
  answer_ += "\r\n";
}

void LivingModem::report(std::string_view text) {
  if (!attached_ || !accepts_input()) return;
  outbox_.put(now_, "\r\n" + std::string(text) + "\r\n");
}

void LivingModem::later(Time delay, std::function<void(LivingModem&)> action) {
  timers_.emplace(std::max(now_, busy_until_) + delay, std::move(action));
}

void LivingModem::deliver_later(std::string pdu) {
  deliveries_.emplace(std::max(now_, busy_until_) + kDeliveryTime, std::move(pdu));
}

void LivingModem::ask_for_message(std::function<Result(LivingModem&, const std::string&)> taker) {
  message_taker_ = std::move(taker);
}

void LivingModem::drop_message() {
  message_taker_ = nullptr;
  line_.clear();
}

void LivingModem::advance(Time now) {
  now_ = now;
  while (!timers_.empty() && timers_.begin()->first <= now) {
    const auto action = std::move(timers_.begin()->second);
    timers_.erase(timers_.begin());
    action(*this);
  }
  while (!deliveries_.empty() && deliveries_.begin()->first <= now) {
    const std::string pdu = std::move(deliveries_.begin()->second);
    deliveries_.erase(deliveries_.begin());
    let_message_in(*this, pdu);
  }
  if (attached_) let_come_in();
  if (!attached_ || options_.report_interval == Time{0} || now < next_report_) return;
  report_by_itself();
  next_report_ = now + options_.report_interval;
}

void LivingModem::let_come_in() {
  if (options_.call_interval > Time{0} && now_ >= next_call_) {
    next_call_ = now_ + options_.call_interval;
    let_call_in(*this);
  }
  if (options_.message_interval > Time{0} && now_ >= next_message_) {
    next_message_ = now_ + options_.message_interval;
    let_message_in(*this, deliver_pdu(kOtherNumber, clock_text(*this), kMessageText));
  }
}

// Signal, traffic (of a connection that is there) and registration take turns.
void LivingModem::report_by_itself() {
  switch (report_turn_++ % 3) {
    case 0:
      state.rssi = std::clamp(state.rssi + static_cast<int>(random_() % 7) - 3, 1, 31);
      if (state.signal_reports == 0) break;
      report("^RSSI:" + std::to_string(signal_of(state)));
      report(hcsq_line(state));
      break;
    case 1:
      if (!has_packet_data(state)) break;
      state.data_seconds += static_cast<uint32_t>(options_.report_interval.count() / 1000);
      state.sent_bytes += static_cast<uint32_t>(random_() % 65536);
      state.received_bytes += static_cast<uint32_t>(random_() % 524288);
      if (state.signal_reports != 0) report(flow_line(state));
      break;
    default:
      report_registration();
      break;
  }
}

// A network that is there without service is 2.
void LivingModem::report_registration() {
  if (state.srvst_reports != 0) report(state.registered ? "^SRVST:1" : "^SRVST:2");
  if (state.mode_reports != 0) report(state.registered ? "^MODE:5,4" : "^MODE:0,0");
  const auto tell = [this](const char* name, int detail) {
    if (detail != 0) report(registration_line(name, state, detail));
  };
  tell("+CREG: ", state.creg_reports);
  tell("+CGREG: ", state.cgreg_reports);
  tell("+CEREG: ", state.cereg_reports);
}

std::string LivingModem::transmit(Time now) {
  now_ = now;
  return outbox_.take(now);
}

std::optional<Time> LivingModem::next_due() const {
  std::optional<Time> next = outbox_.next_due();
  const auto consider = [&next](Time due) { next = next ? std::min(*next, due) : due; };
  if (!timers_.empty()) consider(timers_.begin()->first);
  if (!deliveries_.empty()) consider(deliveries_.begin()->first);
  if (attached_ && options_.report_interval > Time{0}) consider(next_report_);
  if (attached_ && options_.call_interval > Time{0}) consider(next_call_);
  if (attached_ && options_.message_interval > Time{0}) consider(next_message_);
  return next;
}

bool LivingModem::accepts_input() const { return outbox_.size() < kBacklogLimit; }

}  // namespace mdxsim
