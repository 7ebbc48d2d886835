// SPDX-License-Identifier: Apache-2.0

// Plays a script.
//
// Whatever the script leaves open is the living modem's, so a line of the host is first kept here
// until it is known whose it is. A message goes on to whoever asked for it, but a rule for it comes
// first.
#include "tools/mdxsim/scripted_modem.h"

#include <algorithm>
#include <utility>

#include "tools/line/escape.h"

namespace mdxsim {
namespace {

using Kind = Action::Kind;

constexpr char kBackspace = '\b';
constexpr char kEscape = '\x1b';
constexpr char kCtrlZ = '\x1a';
constexpr size_t kBacklogLimit = 16 * 1024;
constexpr size_t kLongestLine = 4096;
constexpr size_t kLongestNoise = 16;
constexpr std::string_view kPrompt = "\r\n> ";

}  // namespace

ScriptedModem::ScriptedModem(Script script, LivingOptions options)
    : script_(std::move(script)),
      living_options_(std::move(options)),
      living_({}),
      random_(living_options_.seed) {
  living_options_.answer_delay = script_.delay;
  living_options_.report_interval = Time{0};
  power_on();
}

void ScriptedModem::power_on() {
  living_ = LivingModem(living_options_);
  living_.state.echo = script_.echo;
}

void ScriptedModem::attached(Time now) {
  now_ = now;
  attached_ = true;
  if (!opened_) opened_ = now;
  living_.attached(now);
  if (const Rule* rule = hear("open")) answer(*rule, "");
}

void ScriptedModem::detached(Time now) {
  now_ = now;
  attached_ = false;
  prompted_ = false;
  outbox_.clear();
  line_.clear();
  living_.detached(now);
}

void ScriptedModem::receive(std::string_view bytes, Time now) {
  now_ = now;
  for (const char c : bytes) {
    if (prompted_ || living_.takes_message()) {
      take_message_byte(c);
    } else {
      take_command_byte(c);
    }
  }
  judge();
}

void ScriptedModem::take_command_byte(char c) {
  if (c == '\r') return run_line(std::exchange(line_, {}));
  if (c == kBackspace) {
    if (!line_.empty()) line_.pop_back();
  } else if (static_cast<unsigned char>(c) >= ' ' && line_.size() < kLongestLine) {
    line_ += c;
  }
}

void ScriptedModem::run_line(const std::string& line) {
  if (line.empty()) return;
  const std::string sent = line + '\r';
  if (const Rule* rule = hear(line)) return answer(*rule, sent);
  if (matches("AT*", line)) return answer(script_.otherwise, Time{0}, sent);
}

void ScriptedModem::take_message_byte(char c) {
  if (c != kCtrlZ && c != kEscape) {
    if (!prompted_) living_.receive({&c, 1}, now_);
    if (static_cast<unsigned char>(c) >= ' ' && line_.size() < kLongestLine) line_ += c;
    return;
  }
  const std::string body = std::exchange(line_, {});
  const bool prompted = std::exchange(prompted_, false);
  const std::string echo = prompted ? body + c : std::string();
  const Rule* rule = c == kCtrlZ ? hear("pdu " + body) : nullptr;
  if (rule != nullptr) {
    living_.drop_message();
    answer(*rule, echo);
  } else if (prompted) {
    answer({Kind::kText, c == kEscape ? "OK" : "ERROR", Time{0}}, Time{0}, echo);
  } else {
    living_.receive({&c, 1}, now_);
  }
}

// Counts what came, and finds the rule for it.
const Rule* ScriptedModem::hear(const std::string& text) {
  heard_ = text;
  for (Expectation& expected : script_.expectations) {
    if (matches(expected.pattern, text)) ++expected.came;
  }
  for (Rule& rule : script_.rules) {
    if (rule.left == 0 || !matches(rule.pattern, text)) continue;
    if (rule.left > 0) --rule.left;
    return &rule;
  }
  return nullptr;
}

void ScriptedModem::answer(const Rule& rule, const std::string& echo) {
  answer(rule.answer, rule.after, echo);
  if (rule.echo) living_.state.echo = *rule.echo;
  for (const Addition& addition : rule.additions) {
    outbox_.put(now_ + addition.after + script_.delay, spoken(addition.text, random_));
  }
}

void ScriptedModem::answer(const Action& action, Time after, const std::string& echo) {
  if (action.kind == Kind::kLiving) return living_.receive(echo, now_);
  if (living_.state.echo && !echo.empty()) outbox_.put(now_, echo);
  const Time due = now_ + after + script_.delay;
  prompted_ = action.kind == Kind::kPrompt;
  if (prompted_) outbox_.put(due, kPrompt);
  if (action.kind == Kind::kText) outbox_.put(due, spoken(action.text, random_));
  if (action.kind == Kind::kHangUp) script_.events.push_back({due - *opened_, Time{0}, action});
}

void ScriptedModem::advance(Time now) {
  now_ = now;
  if (ending_) return;
  living_.advance(now);
  if (back_at_ && now >= *back_at_) {
    back_at_.reset();
    power_on();
  }
  if (opened_) {
    for (Event& event : script_.events) {
      if (now < *opened_ + event.due) continue;
      happen(event.action);
      event.due = event.interval > Time{0} ? now - *opened_ + event.interval : Time::max();
    }
    std::erase_if(script_.events, [](const Event& event) { return event.due == Time::max(); });
  }
  judge();
}

void ScriptedModem::happen(const Action& action) {
  if (action.kind == Kind::kHangUp) {
    if (!back_at_) back_at_ = now_ + action.duration;
  } else if (attached_ && accepts_input()) {
    outbox_.put(now_, spoken(action.text, random_));
  }
}

std::string ScriptedModem::transmit(Time now) {
  now_ = now;
  if (ending_) return {};
  std::string delivery;
  do {
    delivery = outbox_.take(now);
    if (delivery.empty()) delivery = living_.transmit(now);
  } while (!delivery.empty() && happens_with(script_.drop_percent));
  if (!delivery.empty() && happens_with(script_.garbage_percent)) delivery.insert(0, noise());
  judge();
  return delivery;
}

bool ScriptedModem::happens_with(unsigned percent) {
  return percent > 0 && random_() % 100 < percent;
}

std::string ScriptedModem::noise() {
  std::string bytes(1 + random_() % kLongestNoise, '\0');
  std::generate(bytes.begin(), bytes.end(), [this] { return static_cast<char>(random_() % 256); });
  return bytes;
}

// A host that never opens the device has as much time, from the start.
void ScriptedModem::judge() {
  if (ending_) return;
  const Time passed = now_ - opened_.value_or(Time{0});
  for (const Expectation& expected : script_.expectations) {
    const bool forbidden = expected.count == 0 && expected.came > 0;
    const bool too_late = !expected.met() && expected.within && passed >= *expected.within;
    if (forbidden || too_late) {
      ending_ = Ending{false, complaint(expected)};
      return;
    }
  }
  const Expectation* absent = missing();
  const bool over = script_.end_after && passed >= *script_.end_after;
  if (over && absent != nullptr) {
    ending_ = Ending{false, complaint(*absent)};
  } else if (over || (script_.end_when_expected && absent == nullptr && quiet())) {
    ending_ = Ending{true, script_.name + ": played, nothing is missing"};
  }
}

// The answer to what was expected last is to be heard before the end.
bool ScriptedModem::quiet() const {
  return outbox_.size() == 0 && !living_.next_due() && !prompted_ && !living_.takes_message();
}

const Expectation* ScriptedModem::missing() const {
  const auto& all = script_.expectations;
  const auto found = std::find_if_not(all.begin(), all.end(), [](auto& e) { return e.met(); });
  return found == all.end() ? nullptr : &*found;
}

std::string ScriptedModem::complaint(const Expectation& expected) const {
  const auto times = [](int count) {
    return count == 1 ? "once" : std::to_string(count) + " times";
  };
  const std::string wanted = expected.count == 0 ? "never" : times(expected.count);
  const std::string got =
      expected.came == 0 ? "it did not come" : "it came " + times(expected.came);
  const std::string last = heard_.empty() ? "nothing was heard" : "heard last: " + escape(heard_);
  return script_.name + ":" + std::to_string(expected.line) + ": " +
         written_pattern(expected.pattern) + " is expected " + wanted + ", " + got + "; " + last;
}

std::optional<Time> ScriptedModem::next_due() const {
  std::optional<Time> next = living_.next_due();
  const auto consider = [&next](std::optional<Time> due) {
    if (due) next = next ? std::min(*next, *due) : *due;
  };
  const Time start = opened_.value_or(Time{0});
  consider(outbox_.next_due());
  consider(back_at_);
  if (script_.end_after) consider(start + *script_.end_after);
  for (const Event& event : script_.events) {
    if (opened_) consider(start + event.due);
  }
  for (const Expectation& expected : script_.expectations) {
    if (expected.within && !expected.met()) consider(start + *expected.within);
  }
  return next;
}

bool ScriptedModem::accepts_input() const {
  return outbox_.size() < kBacklogLimit && living_.accepts_input();
}

std::vector<Finding> ScriptedModem::findings() const {
  std::vector<Finding> all;
  for (const Expectation& expected : script_.expectations) {
    const bool never = expected.count == 0;
    const std::string count = never ? "no " : std::to_string(expected.count) + " ";
    Finding finding{"expect " + count + written_pattern(expected.pattern), std::nullopt};
    if (never ? expected.came > 0 : !expected.met()) finding.fault = complaint(expected);
    all.push_back(std::move(finding));
  }
  return all;
}

std::optional<std::string> ScriptedModem::unfinished() const {
  const Expectation* absent = missing();
  return absent == nullptr ? std::nullopt : std::optional(complaint(*absent));
}

}  // namespace mdxsim
