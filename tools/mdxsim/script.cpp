// SPDX-License-Identifier: Apache-2.0

// Reads the scripts of a modem that is made up for a test.
//
// They are written in a hurry by people who know AT commands and not this program: a line that is
// not understood must tell what is allowed, and a rule that can never apply is a mistake.
#include "tools/mdxsim/script.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <regex>
#include <stdexcept>
#include <utility>

#include "tools/line/at_line.h"
#include "tools/line/escape.h"

namespace mdxsim {
namespace {

using Kind = Action::Kind;
using Parts = std::smatch;

// std::regex goes deeper with each character, so answers are kept away from it.
constexpr size_t kLongestHead = 4096;
constexpr size_t kLongestLine = 65536;
constexpr std::string_view kArrow = " -> ";
constexpr size_t kShown = 40;  // of what is wrong
constexpr std::string_view kRaw = "raw ";

struct Statement {
  const char* word;
  const char* rest;  // what may follow the word, a regular expression
  const char* form;  // the same for people
  void (*read)(Script&, const Parts&, const std::string& answer, int line);
  bool has_answer = false;  // behind an arrow
};

[[noreturn]] void refuse(const std::string& problem) { throw std::invalid_argument(problem); }

std::string_view trimmed(std::string_view text) {
  const size_t first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

Time time_of(const std::string& text) {
  static const std::regex kTime("([1-9][0-9]{0,7})(ms|s|min)");
  Parts parts;
  if (!std::regex_match(text, parts, kTime)) {
    refuse("'" + text + "' is no time; a time is 300ms, 5s or 2min, and not 0");
  }
  const Time::rep unit = parts[2] == "ms" ? 1 : parts[2] == "s" ? 1000 : 60000;
  return Time{std::stol(parts[1]) * unit};
}

unsigned percent_of(const std::string& text) {
  static const std::regex kPercent("([1-9][0-9]?|100)%");
  Parts parts;
  if (!std::regex_match(text, parts, kPercent)) {
    refuse("'" + text + "' is no share; a share is 1% to 100%");
  }
  return static_cast<unsigned>(std::stoul(parts[1]));
}

int count_of(const std::string& digits) {
  const auto count = parse_number(digits);
  if (!count || *count == 0) refuse("'" + digits + "' is no count; a count is 1 to 99999999");
  return *count;
}

Action text_action(const std::string& text) {
  if (text == "raw") refuse("'raw' needs BYTES behind it");
  std::mt19937 random;
  static_cast<void>(spoken(text, random));  // throws where the text is wrong
  return {Kind::kText, text, Time{0}};
}

// "report TEXT" or "hang-up TIME".
Action happening(const std::string& text) {
  const size_t blank = std::min(text.find(' '), text.size());
  const std::string word = text.substr(0, blank);
  const std::string rest(trimmed(std::string_view(text).substr(blank)));
  if (word == "hang-up") return {Kind::kHangUp, {}, time_of(rest)};
  if (word == "report") return text_action(rest);
  refuse("'" + word + "' does not happen by itself; it is report TEXT or hang-up TIME");
}

Action answer_of(const std::string& text) {
  if (text == "prompt") return {Kind::kPrompt, {}, Time{0}};
  if (text == "nothing") return {Kind::kNothing, {}, Time{0}};
  if (text == "living") return {Kind::kLiving, {}, Time{0}};
  if (text == "hang-up") refuse("'hang-up' needs a TIME behind it, such as hang-up 3s");
  return text.starts_with("hang-up ") ? happening(text) : text_action(text);
}

// Words of the line that have lost what belongs behind them would be heard as a part of the
// command.
void refuse_loose_word(const std::string& command) {
  for (const std::string_view word : {"after", "then", "times", "within"}) {
    const bool last = command.ends_with(" " + std::string(word));
    if (last)
      refuse("'" + std::string(word) +
             "' stands alone; a blank in front of it that is meant is \\x20");
  }
  if (command == "pdu") refuse("'pdu' needs a BODY behind it; pdu * is any");
}

void read_on(Script& script, const Parts& parts, const std::string& answer, int line) {
  refuse_loose_word(parts[1]);
  Rule rule{pattern_of(parts[1].str()), -1, Time{0}, std::nullopt, answer_of(answer), line, {}};
  if (parts[2] == "once") rule.left = 1;
  if (parts[3].matched) rule.left = count_of(parts[3]);
  if (parts[4].matched) rule.after = time_of(parts[4]);
  if (parts[5].matched) rule.echo = parts[5] == "on";
  if (rule.answer.kind == Kind::kLiving && (parts[4].matched || parts[5].matched)) {
    refuse("the living modem answers in its own way; leave out 'after' and 'then'");
  }
  if (rule.answer.kind == Kind::kLiving && rule.pattern.starts_with("pdu ")) {
    refuse("the living modem takes only messages that it asked for; they need no line");
  }
  for (const Rule& earlier : script.rules) {
    if (earlier.left < 0 && matches(earlier.pattern, rule.pattern)) {
      refuse("this never applies: line " + std::to_string(earlier.line) + " takes " +
             written_pattern(rule.pattern) +
             "; put it above, or give that line 'once' or '3 times'");
    }
  }
  script.rules.push_back(std::move(rule));
}

void read_also(Script& script, const Parts& parts, const std::string& answer, int) {
  if (script.rules.empty()) refuse("'also' adds to the 'on' line above it, and there is none");
  const Action action = answer_of(answer);
  if (action.kind != Kind::kText) refuse("what is said besides is a text");
  script.rules.back().additions.push_back(
      {parts[1].matched ? time_of(parts[1]) : Time{0}, action.text});
}

void read_else(Script& script, const Parts& parts, const std::string&, int) {
  if (std::exchange(script.has_else, true)) refuse("there is an else line above");
  script.otherwise = answer_of(parts[1]);
}

void read_expect(Script& script, const Parts& parts, const std::string&, int line) {
  const bool never = parts[1] == "no";
  refuse_loose_word(parts[2]);
  Expectation expected{pattern_of(parts[2].str()), never ? 0 : 1, std::nullopt, line};
  if (!never && parts[1].matched) expected.count = count_of(parts[1]);
  if (parts[3].matched) expected.within = time_of(parts[3]);
  if (never && expected.within) refuse("what may not come may never come; leave out 'within'");
  script.expectations.push_back(std::move(expected));
}

void read_every(Script& script, const Parts& parts, const std::string&, int) {
  const Time interval = time_of(parts[1]);
  script.events.push_back({interval, interval, happening(parts[2])});
}

void read_at(Script& script, const Parts& parts, const std::string&, int) {
  script.events.push_back({time_of(parts[1]), Time{0}, happening(parts[2])});
}

void read_fault(Script& script, const Parts& parts, const std::string&, int) {
  const std::string value = parts[2];
  if (parts[1] == "delay") {
    script.delay = time_of(value);
  } else if (parts[1] == "drop") {
    script.drop_percent = percent_of(value);
  } else if (parts[1] == "garbage") {
    script.garbage_percent = percent_of(value);
  } else if (value == "byte" || value == "random") {
    script.cut = value;
  } else {
    refuse("'" + value + "' is no cut; a cut is byte or random");
  }
}

void read_echo(Script& script, const Parts& parts, const std::string&, int) {
  script.echo = parts[1] == "on";
}

void read_end(Script& script, const Parts& parts, const std::string&, int) {
  if (parts[2].matched && script.end_after) refuse("there is an 'end after' line above");
  if (parts[2].matched) script.end_after = time_of(parts[2]);
  script.end_when_expected |= !parts[2].matched;
}

constexpr const char* kHead =
    "(.+?)(?: +(once|([0-9]+) times))?(?: +after +(\\S+))?(?: +then +echo +(on|off))? *";

// clang-format off
constexpr Statement kStatements[] = {
    {"on",     kHead, "on COMMAND [once | N times] [after TIME] [then echo on | off] -> ANSWER",
                                                                                   read_on,   true},
    {"also",   "(?:after +(\\S+))? *",    "also [after TIME] -> TEXT",              read_also, true},
    {"else",   "(.+)",                               "else ANSWER",                read_else  },
    {"expect", "(?:(no|[0-9]+) +)?(.+?)(?: +within +(\\S+))?",
               "expect [no | N] COMMAND [within TIME]",                            read_expect},
    {"every",  "(\\S+) +(.+)",      "every TIME report TEXT or every TIME hang-up TIME", read_every},
    {"at",     "(\\S+) +(.+)",      "at TIME report TEXT or at TIME hang-up TIME", read_at    },
    {"fault",  "(delay|cut|drop|garbage) +(\\S+)",
               "fault delay TIME, fault cut byte, fault cut random, fault drop N% or fault garbage N%",
                                                                                   read_fault },
    {"echo",   "(on|off)",                           "echo on or echo off",        read_echo  },
    {"end",    "(when +expected|after +(\\S+))",     "end when expected or end after TIME", read_end},
};
// clang-format on

void read_line(Script& script, const std::string& line, int number) {
  const size_t blank = std::min(line.find(' '), line.size());
  const std::string word = line.substr(0, blank);
  std::string head(trimmed(std::string_view(line).substr(blank)));
  const auto* statement =
      std::find_if(std::begin(kStatements), std::end(kStatements),
                   [&word](const Statement& known) { return word == known.word; });
  if (statement == std::end(kStatements)) {
    std::string words;
    for (const Statement& known : kStatements) words += std::string(known.word) + ", ";
    refuse("'" + escape(word.substr(0, kShown)) + "' begins no line; a line begins with " + words +
           "or # for a remark");
  }
  std::string answer;
  if (statement->has_answer) {
    head.insert(0, 1, ' ');  // so that an arrow may stand at its front
    const size_t arrow = std::min(head.find(kArrow), head.size());
    answer = trimmed(std::string_view(head).substr(std::min(arrow + kArrow.size(), head.size())));
    head = trimmed(std::string_view(head).substr(0, arrow));
  }
  const bool too_long = line.size() > kLongestLine || head.size() > kLongestHead;
  if (too_long) {
    const size_t most = line.size() > kLongestLine ? kLongestLine : kLongestHead;
    refuse("the line is too long; it may have " + std::to_string(most) + " characters");
  }
  Parts parts;
  const bool understood = std::regex_match(head, parts, std::regex(statement->rest));
  if (!understood || (statement->has_answer && answer.empty())) {
    refuse("this is not understood; it is written: " + std::string(statement->form));
  }
  statement->read(script, parts, answer, number);
}

char capital(char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); }

bool is_same(char pattern, char c) {
  return (pattern == kStar ? '*' : capital(pattern)) == capital(c);
}

std::string with_ranges_drawn(std::string_view text, std::mt19937& random) {
  std::string drawn;
  for (size_t brace = 0; (brace = text.find('{')) != std::string_view::npos;) {
    drawn += text.substr(0, brace);
    text.remove_prefix(brace + 1);
    const std::string_view range = text.substr(0, text.find('}'));
    const size_t dots = std::min(range.find(".."), range.size());
    const auto lowest = parse_number(range.substr(0, dots));
    const auto highest = parse_number(range.substr(std::min(dots + 2, range.size())));
    if (range.size() == text.size() || !lowest || !highest || *lowest > *highest) {
      refuse("a { begins a range such as {10..30}; the character itself is \\x7b");
    }
    // Not std::uniform_int_distribution: a seed is to mean the same with every standard library.
    const auto choices = static_cast<unsigned>(*highest - *lowest + 1);
    drawn += std::to_string(*lowest + static_cast<int>(random() % choices));
    text.remove_prefix(range.size() + 1);
  }
  return drawn += text;
}

}  // namespace

std::string pattern_of(std::string_view written) {
  std::string pattern;
  while (!written.empty()) {
    const size_t slash = std::min(written.find("\\*"), written.size());
    size_t pairs = slash;
    while (pairs > 0 && written[pairs - 1] == '\\') --pairs;
    const bool star = slash < written.size() && (slash - pairs) % 2 == 0;
    const size_t end = star ? slash : std::min(slash + 2, written.size());
    pattern += unescape(written.substr(0, end));
    if (star) pattern += kStar;
    written.remove_prefix(star ? slash + 2 : end);
  }
  return pattern;
}

std::string written_pattern(std::string_view pattern) {
  std::string written;
  for (const char c : pattern) written += c == kStar ? "\\*" : escape({&c, 1});
  return written;
}

bool matches(std::string_view pattern, std::string_view text) {
  size_t p = 0;
  size_t t = 0;
  size_t star = std::string_view::npos;  // the last one passed, and what it covers up to now
  size_t covered = 0;
  while (t < text.size()) {
    if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      covered = t;
    } else if (p < pattern.size() && is_same(pattern[p], text[t])) {
      ++p;
      ++t;
    } else if (star != std::string_view::npos) {
      p = star + 1;
      t = ++covered;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', p) == std::string_view::npos;
}

std::string spoken(std::string_view text, std::mt19937& random) {
  if (text.starts_with(kRaw)) {
    return unescape(with_ranges_drawn(text.substr(kRaw.size()), random));
  }
  std::string bytes;
  while (true) {
    const size_t bar = text.find('|');
    const std::string_view line = trimmed(text.substr(0, bar));
    if (line.empty()) refuse("a line of the text is empty; between two | stands a line");
    bytes += "\r\n" + unescape(with_ranges_drawn(line, random)) + "\r\n";
    if (bar == std::string_view::npos) return bytes;
    text.remove_prefix(bar + 1);
  }
}

Script parse_script(std::istream& text, std::string name) {
  Script script;
  script.name = std::move(name);
  int number = 0;
  const auto at_line = [&](const char* problem) {
    return std::invalid_argument(script.name + ":" + std::to_string(number) + ": " + problem);
  };
  bool empty = true;
  for (std::string line; std::getline(text, line);) {
    ++number;
    std::replace_if(
        line.begin(), line.end(), [](char c) { return c == '\t' || c == '\r'; }, ' ');
    const std::string statement(trimmed(line));
    if (statement.empty() || statement.front() == '#') continue;
    empty = false;
    try {
      read_line(script, statement, number);
    } catch (const std::invalid_argument& problem) {
      throw at_line(problem.what());
    }
  }
  if (empty) throw at_line("the script is empty");
  const bool awaits = std::any_of(script.expectations.begin(), script.expectations.end(),
                                  [](const Expectation& expected) { return !expected.met(); });
  if (script.end_when_expected && !awaits)
    throw at_line("'end when expected' needs an expect line");
  return script;
}

}  // namespace mdxsim
