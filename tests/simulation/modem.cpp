// SPDX-License-Identifier: Apache-2.0

#include "tests/simulation/modem.h"

#include <algorithm>
#include <utility>

#include "tests/fake_platform/fake_platform.h"

namespace simulation {
namespace {

constexpr char kCtrlZ = 0x1a;
constexpr char kEscape = 0x1b;
/// A modem without echo is never later than this behind the end of an exchange.
constexpr uint32_t kLateMs = 4900;

std::string upper(std::string text) {
  for (char& c : text) c = static_cast<char>(toupper(c));
  return text;
}

bool holds(const std::string& text, std::string_view word) { return text.find(word) != text.npos; }

}  // namespace

std::vector<std::string> tags_in(std::string_view text) {
  std::vector<std::string> tags;
  for (size_t at = text.find('T'); at != text.npos; at = text.find('T', at + 1)) {
    const std::string_view digits = text.substr(at + 1, kTagSize - 1);
    if (digits.size() == kTagSize - 1 && digits.find_first_not_of("0123456789") == digits.npos)
      tags.emplace_back(text.substr(at, kTagSize));
  }
  return tags;
}

modem::modem(uint32_t seed, bool keeps_echo, std::string* output, said_t* said)
    : random_(seed), keeps_echo_(keeps_echo), output_(*output), said_(*said) {}

void modem::take(std::string_view bytes) {
  for (const char byte : bytes) input_.push_back({byte, fake::now()});
  work();
}

void modem::reset() {
  ++life_;
  is_busy_ = has_prompt_ = false;
  echoed_commands_ = 0;
  input_.clear();
  line_.clear();
}

void modem::say_line(const std::string& line, int waits_left) {
  if (line_.empty() || !has_echo_ || waits_left == 0) {
    output_ += "\r\n" + line + "\r\n";
    if (line.starts_with("NO CARRIER")) said_.about_a_call.push_back(fake::now());
    if (line.starts_with("RDY")) said_.lines[line] = fake::now();
    return;
  }
  fake::at(10, [self = weak_from_this(), line, waits_left] {
    if (const auto alive = self.lock()) alive->say_line(line, waits_left - 1);
  });
}

/// Unless it is another modem by then.
void modem::later(uint32_t after, std::function<void()> happens) {
  fake::at(after, [self = weak_from_this(), life = life_, happens = std::move(happens)] {
    const auto alive = self.lock();
    if (alive && alive->life_ == life) happens();
  });
}

void modem::work() {
  while (!is_busy_ && !input_.empty()) {
    const auto [byte, came] = input_.front();
    input_.pop_front();
    latest_ = came + kLateMs;
    has_prompt_ ? take_message_byte(byte) : take_command_byte(byte);
  }
}

void modem::take_command_byte(char byte) {
  if (byte == '\b') return erase();
  if (has_echo_) output_ += byte;
  if (byte != '\r') {
    if (byte >= ' ') line_ += byte;
    return;
  }
  echoed_commands_ = has_echo_ ? echoed_commands_ + 1 : 0;
  run(std::exchange(line_, ""));
}

void modem::erase() {
  if (line_.empty()) return;
  line_.pop_back();
  if (has_echo_) output_ += "\b \b";
}

void modem::run(const std::string& line) {
  const std::string command = upper(line);
  const std::vector<std::string> tags = tags_in(line);
  const std::string tag = tags.empty() ? "" : tags[0];
  if (std::any_of(tags.begin(), tags.end(), [&](const std::string& t) { return t != tag; }))
    throw broken_rule("one command of two: " + line);
  if (!command.starts_with("AT")) return;
  if (command.find("AT", 2) != command.npos) throw broken_rule("behind half a command: " + line);
  if (command.starts_with("ATE")) {
    has_echo_ = command[3] == '1';
    echoed_commands_ = 0;
  }
  is_busy_ = true;
  if (!holds(command, "+CMGS")) return answer(tag, "+OWN: ", command.starts_with("ATD"));
  head_ = tag;
  const bool is_refused = chance(8) || fake::now() >= latest_;
  if (is_refused) return play({{bounded(delay()), "\r\n+CMS ERROR: " + tag + "\r\n"}}, 0, tag);
  later(bounded(delay()), [this] { prompt(); });
}

void modem::prompt() {
  output_ += "\r\n> ";
  is_busy_ = false;
  has_prompt_ = true;
  message_.clear();
  if (!keeps_early_text_) input_.clear();
  work();
}

void modem::take_message_byte(char byte) {
  if (has_echo_ && (byte != kEscape || repeats_escapes_)) output_ += byte;
  message_ += byte;
  if (byte == '\r') output_ += "\r\n> ";
  if (byte == kCtrlZ || byte == kEscape) end_message(byte == kCtrlZ);
}

void modem::end_message(bool sent) {
  if (holds(message_, "AT+CMEE")) throw broken_rule("a message took the set-up: " + message_);
  for (const std::string& tag : tags_in(message_)) {
    if (tag != head_) throw broken_rule("the message of " + head_ + " took " + message_);
  }
  has_prompt_ = false;
  is_busy_ = true;
  if (sent) return answer(head_, "+CMGS: ");
  later(static_cast<uint32_t>(below(900)), [this] {
    if (answers_escapes_) output_ += chance(2) ? "\r\nOK\r\n" : "\r\n+CMS ERROR: 500\r\n";
    is_busy_ = false;
    work();
  });
}

/// Lines of all kinds, with pauses, and a result.
void modem::answer(const std::string& tag, const std::string& name, bool dials) {
  script_t script;
  if (!chance(5)) {
    script.emplace_back(delay(), "\r\n" + name + tag + "\r\n");
    const std::string lines[] = {"text " + tag, "+CMGL: 1,," + tag + "\r\n0791" + tag};
    for (size_t more = chance(3) ? 1 + below(3) : 0; more > 0; --more)
      script.emplace_back(chance(2) ? 0 : below(350), "\r\n" + lines[below(2)] + "\r\n");
  }
  script.emplace_back(chance(10) ? delay() : below(20), "\r\n" + result(tag, dials) + "\r\n");
  if (chance(15)) script.resize(below(script.size()));
  play(script, 0, tag);
}

std::string modem::result(const std::string& tag, bool dials) {
  if (dials && chance(2)) return "NO CARRIER";
  if (chance(20)) return "ERROR";
  return chance(8) ? "+CME ERROR: " + tag : "OK";
}

void modem::play(const script_t& script, size_t at, const std::string& tag) {
  if (at == script.size()) {
    is_busy_ = false;
    return work();
  }
  const uint32_t pause = has_known_echo() ? script[at].first : bounded(script[at].first);
  later(pause, [this, script, at, tag] {
    output_ += script[at].second;
    const std::string& line = script[at].second;
    if (holds(line, "OK\r\n") || holds(line, "ERROR") || holds(line, "NO CARRIER"))
      said_.answers.emplace(tag, fake::now());
    play(script, at + 1, tag);
  });
}

/// Mostly short; else longer than a client waits, or than anybody does.
uint32_t modem::delay() {
  const size_t longest = chance(10) ? chance(3) ? 40000 : kLateMs : 80;
  return static_cast<uint32_t>(below(longest));
}

uint32_t modem::bounded(uint32_t pause) const {
  const uint64_t left = latest_ > fake::now() ? latest_ - fake::now() : 0;
  return static_cast<uint32_t>(std::min<uint64_t>(pause, left));
}

}  // namespace simulation
