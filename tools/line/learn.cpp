// SPDX-License-Identifier: Apache-2.0

// Understands a recording.
//
// A modem's bytes say neither which command they answer nor whether they answer one. So they are
// read as a host reads them: what stands between a command and its result is the answer, but for
// the echo and for whole reports that came as reads of their own; the rest was said by itself.
#include "tools/line/learn.h"

#include <algorithm>
#include <cctype>
#include <deque>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/line/at_line.h"
#include "tools/line/escape.h"
#include "tools/line/result_line.h"

namespace mdxline {
namespace {

using Time = SessionTime;

constexpr Time kStep{50};         // between lines without times
constexpr Time kPipelined{1000};  // commands that follow sooner wait for each other's answers
constexpr Time kSlow{500};        // an answer that takes longer is told to
constexpr Time kRounded{100};
constexpr Time kBelongs{10000};  // a report of a command's name to that command
constexpr Time kTogether{20};    // reads that may be one
constexpr size_t kEvenly = 3;    // reports that make an interval
constexpr size_t kMostPipelined = 256;
constexpr char kCtrlZ = '\x1a';
constexpr char kEscape = '\x1b';
constexpr std::string_view kCallReports[] = {"^ORIG", "^CONF", "^CONN", "^CEND", "+COLP"};
constexpr std::string_view kCallEnds[] = {"NO CARRIER", "BUSY", "NO ANSWER"};

struct Piece {
  bool from_host;
  std::string bytes;
  Time at;
};

struct Asked {
  std::string text;  // as a rule names it, unescaped
  bool is_body = false;
  Time at{0};
  std::string typed;   // the beginning of its echo, which came before the command was whole
  std::string answer;  // what came behind that, without the echo once that is known
  size_t line = 0;     // where in it the last line begins, which has not ended
  size_t heard = 0;    // up to where that has been looked through
  bool prompted = false;
  bool complete = false;
  std::optional<bool> echoed;
  bool named = false;        // its echo has come at some time
  bool interrupted = false;  // by a report
  Time took{0};
  std::vector<std::pair<Time, std::string>> reports;  // behind the result, that are its own
};

struct Said {
  Time at;
  std::string text;
};

bool follows_line_end(std::string_view text) { return text.empty() || text.back() == '\n'; }

std::string capitals(std::string_view text) {
  std::string result;
  for (const char c : text)
    result += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return result;
}

// The session's steps with times that never go back; reads that came at once are one.
std::vector<Piece> pieces_of(const Session& session) {
  std::vector<Piece> pieces;
  Time now{0};
  Time shift{0};
  bool timed = false;
  for (const SessionStep& step : session.steps) {
    const bool first = pieces.empty();
    if (!step.at) now += first ? Time{0} : kStep;
    if (step.at && *step.at + shift < now) shift = now - *step.at + kStep;
    if (step.at) now = *step.at + shift;
    timed = step.at.has_value();
    const bool again = !first && pieces.back().from_host == step.from_host;
    const bool torn =
        again && !step.from_host &&
        ((timed && now - pieces.back().at < kTogether && !follows_line_end(pieces.back().bytes)) ||
         (!timed && !follows_line_end(pieces.back().bytes) &&
          !pieces.back().bytes.ends_with("> ")));
    if (torn) {
      pieces.back().bytes += step.bytes;
    } else {
      pieces.push_back({step.from_host, step.bytes, now});
    }
  }
  return pieces;
}

// Where the first result ends, behind its line end; npos when there is none, and `begin` is where
// the last line begins, `heard` its end so far. A lone digit is one behind a CR (ATV0).
size_t end_of_result(std::string_view text, size_t& begin, size_t& heard) {
  while (begin < text.size()) {
    const size_t end = text.find_first_of("\r\n", std::max(begin, heard));
    if (end == text.npos) {
      heard = text.size();
      return text.npos;
    }
    const std::string_view line = text.substr(begin, end - begin);
    const bool digit = line.size() == 1 && line[0] >= '0' && line[0] <= '8' && text[end] == '\r' &&
                       text.substr(end + 1, 1) != "\n";
    if (digit) return end + 1;
    if (is_result(line)) return text.substr(end, 2) == "\r\n" ? end + 2 : end + 1;
    begin = end + 1;
  }
  return text.npos;
}

size_t end_of_result(std::string_view text) {
  size_t begin = 0;
  size_t heard = 0;
  return end_of_result(text, begin, heard);
}

// Whole lines between CR LF, all with names.
std::vector<std::string_view> named_lines(std::string_view text) {
  std::vector<std::string_view> names;
  while (!text.empty()) {
    if (text.starts_with("\r\n")) {
      text.remove_prefix(2);
      continue;
    }
    const size_t end = text.find("\r\n");
    const std::string_view name = report_name(text.substr(0, end));
    if (name.empty() || end == text.npos) return {};
    names.push_back(name);
    text.remove_prefix(end + 2);
  }
  return names;
}

bool names_it(const Asked& asked, std::string_view name) {
  const auto commands = split_command_line(asked.text);
  return commands && std::any_of(commands->begin(), commands->end(),
                                 [name](const AtCommand& c) { return c.name == name; });
}

bool is_call(const Asked& asked) {
  const auto commands = split_command_line(asked.text);
  return commands && std::any_of(commands->begin(), commands->end(), [](const AtCommand& c) {
           return c.name == "D" || c.name == "A" || c.name == "H" || c.name == "+CHUP";
         });
}

bool belongs_to(const Asked& asked, std::string_view text) {
  if (asked.is_body) return false;
  const auto names = named_lines(text);
  const auto own = [&](std::string_view name) {
    const bool call =
        std::find(std::begin(kCallReports), std::end(kCallReports), name) != std::end(kCallReports);
    return names_it(asked, name) || (call && is_call(asked));
  };
  if (!names.empty()) return std::all_of(names.begin(), names.end(), own);
  return is_call(asked) && std::any_of(std::begin(kCallEnds), std::end(kCallEnds), [&](auto end) {
           return text == "\r\n" + std::string(end) + "\r\n";
         });
}

class Listener {
 public:
  void hear(const Piece& piece) {
    if (piece.from_host) return from_host(piece);
    from_modem(piece.bytes, piece.at);
  }

  void end() { give_up(); }

  std::vector<Asked> asked;
  std::vector<Said> said;

 private:
  void from_host(const Piece& piece) {
    for (const char c : piece.bytes) {
      if (writes_) {
        take_body(c, piece.at);
      } else if (c == '\r') {
        if (!line_.empty()) ask(std::exchange(line_, {}), false, piece.at);
      } else if (c == '\b') {
        if (!line_.empty()) line_.pop_back();
        typed_.resize(std::min(typed_.size(), line_.size()));
      } else if (static_cast<unsigned char>(c) >= ' ') {
        line_ += c;
      }
    }
  }

  void take_body(char c, Time at) {
    if (c == kCtrlZ || c == kEscape) {
      writes_ = false;
      const std::string body = std::exchange(line_, {});
      ask(c == kCtrlZ ? "pdu " + body : "", true, at);
    } else if (static_cast<unsigned char>(c) >= ' ') {
      line_ += c;
    }
  }

  void ask(std::string text, bool is_body, Time at) {
    const bool waits = !open_.empty() && open_.size() < kMostPipelined &&
                       at - open_.back().at < kPipelined && open_.front().answer.empty();
    if (!waits) give_up();
    Asked asked_now;
    asked_now.text = std::move(text);
    asked_now.typed = std::exchange(typed_, {});
    asked_now.is_body = is_body;
    asked_now.at = at;
    open_.push_back(std::move(asked_now));
  }

  void give_up() {
    while (!open_.empty()) {
      split_echo(open_.front());
      close_front();
    }
  }

  void close_front() {
    asked.push_back(std::move(open_.front()));
    open_.pop_front();
  }

  // What stands in front of the echo was said by itself.
  void split_echo(Asked& now) {
    if (now.echoed || now.is_body) return;
    const std::string rest = now.text.substr(now.typed.size()) + "\r";
    const size_t echo = now.answer.find(rest);
    now.echoed = echo != std::string::npos;
    if (!*now.echoed) return;
    if (echo > 0) said.push_back({now.at, now.answer.substr(0, echo)});
    now.answer.erase(0, echo + rest.size());
    now.line = now.heard = 0;
  }

  // A host that writes byte by byte, as a person does, gets its echo so.
  bool takes_typed_echo(const std::string& text) {
    if (!open_.empty() || writes_ || line_.compare(typed_.size(), text.size(), text) != 0)
      return false;
    typed_ += text;
    return true;
  }

  void from_modem(std::string text, Time at) {
    if (!line_.empty() && takes_typed_echo(text)) return;
    while (!text.empty()) {
      if (open_.empty()) return by_itself(text, at);
      Asked& now = open_.front();
      const auto names = named_lines(text);
      const bool foreign =
          !names.empty() && std::none_of(names.begin(), names.end(), [&](auto name) {
            return names_it(now, name) || name == "+CMGS" || name == "+CMGW" || name == "+CME" ||
                   name == "+CMS";
          });
      if (foreign && end_of_result(text) == text.npos) {
        now.interrupted = true;
        return by_itself(text, at);
      }
      now.answer += std::exchange(text, {});
      if (echoes_later()) {
        text = std::exchange(now.answer, {});  // nobody answers this one any more
        close_front();
        continue;
      }
      if (now.is_body) drop_body_echo(now);
      if (now.answer.find('\r', now.heard) != now.answer.npos) split_echo(now);
      const size_t end = end_of_result(now.answer, now.line, now.heard);
      if (end == now.answer.npos) {
        if (!now.answer.ends_with("> ") || now.is_body) return;
        now.prompted = writes_ = true;
      } else {
        text = now.answer.substr(end);
        now.answer.erase(end);
      }
      now.complete = true;
      now.took = at - now.at;
      close_front();
      since_ = at;
    }
  }

  // Whether what came is the echo of a command behind the one that waits.
  bool echoes_later() {
    Asked& now = open_.front();
    if (now.echoed || open_.size() == 1) return false;
    const auto has_echo = [&now](const Asked& asked_one) {
      return !asked_one.is_body &&
             now.answer.find(asked_one.text + "\r", now.line) != std::string::npos;
    };
    now.named = now.named || has_echo(now);
    return !now.named && std::any_of(open_.begin() + 1, open_.end(), has_echo);
  }

  // A body's echo ends in the Ctrl-Z.
  static void drop_body_echo(Asked& now) {
    const size_t end = now.answer.find_first_of("\x1a\x1b", now.heard);
    if (end == now.answer.npos) return;
    now.answer.erase(0, end + 1);
    now.line = now.heard = 0;
  }

  void by_itself(const std::string& text, Time at) {
    if (text.find_first_not_of("\r\n") == text.npos) return;
    const bool recent =
        !asked.empty() && asked.back().complete && open_.empty() && at - since_ < kBelongs;
    if (recent && belongs_to(asked.back(), text)) {
      asked.back().reports.emplace_back(at - asked.back().at, text);
    } else {
      said.push_back({at, text});
    }
  }

  std::string line_;
  std::string typed_;  // of the line, what has been echoed
  bool writes_ = false;
  std::deque<Asked> open_;
  Time since_{0};
};

// Writing it down

std::string escaped_text(std::string_view bytes) {
  std::string text = escape(bytes);
  std::string result;
  for (size_t i = 0; i < text.size(); ++i) {
    const bool edge = i == 0 || i + 1 == text.size();
    if (text[i] == '|') {
      result += "\\x7c";
    } else if (text[i] == '{') {
      result += "\\x7b";
    } else if (text[i] == ' ' && edge) {
      result += "\\x20";
    } else {
      result += text[i];
    }
  }
  return result;
}

// As lines where it is made of lines, so that people can read it.
std::string script_text(std::string_view bytes) {
  constexpr std::string_view kEnd = "\r\n";
  const std::string raw = "raw " + escaped_text(bytes);
  if (bytes.size() < 5 || !bytes.starts_with(kEnd) || !bytes.ends_with(kEnd)) return raw;
  std::string_view rest = bytes.substr(2, bytes.size() - 4);
  std::string lines;
  while (true) {
    const size_t end = std::min(rest.find("\r\n\r\n"), rest.size());
    if (end == 0) return raw;
    lines += (lines.empty() ? "" : " | ") + escaped_text(rest.substr(0, end));
    if (end == rest.size()) break;
    rest.remove_prefix(end + 4);
  }
  const bool keyword = lines == "prompt" || lines == "nothing" || lines == "living" ||
                       lines == "raw" || lines == "hang-up" || lines.starts_with("raw ") ||
                       lines.starts_with("hang-up ");
  return keyword ? raw : lines;
}

// What a rule hears: blanks and arrows are written so that none of its words is taken for the
// rule's.
std::string script_pattern(std::string_view text) {
  constexpr std::string_view kTaken[] = {" once", " times", " after", " then", " within", "  "};
  const bool words = std::any_of(std::begin(kTaken), std::end(kTaken),
                                 [text](auto word) { return text.find(word) != text.npos; }) ||
                     text.ends_with(' ') || text.starts_with(' ');
  if (text == "pdu") return "\\x70du";    // a command of that name, not a message
  if (text == "pdu ") return "pdu\\x20";  // a message without text
  const size_t word_end = text.starts_with("pdu ") ? 4 : 0;
  std::string result;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '*' || c == '\\') {
      result += '\\';
      result += c;
    } else if (text.substr(i, 2) == "->") {
      result += "\\x2d";
    } else if (c == ' ' && words && i >= word_end) {
      result += "\\x20";
    } else {
      result += c == ' ' ? " " : escape({&c, 1});
    }
  }
  return result;
}

std::string script_time(Time time) {
  const auto count = std::max<Time::rep>(time.count(), 1);
  return count % 1000 == 0 ? std::to_string(count / 1000) + "s" : std::to_string(count) + "ms";
}

std::string answer_of(const Asked& asked) {
  if (asked.prompted) return "prompt";
  return asked.answer.find_first_not_of("\r\n") == std::string::npos ? "nothing"
                                                                     : script_text(asked.answer);
}

struct Rule {
  std::string text;
  std::vector<const Asked*> times;
};

std::vector<Rule> rules_of(const std::vector<Asked>& asked) {
  std::vector<Rule> rules;
  std::map<std::string, size_t> numbers;
  for (const Asked& one : asked) {
    if (one.text.empty()) continue;
    const auto [place, is_new] = numbers.emplace(capitals(one.text), rules.size());
    if (is_new) rules.push_back({one.text, {}});
    rules[place->second].times.push_back(&one);
  }
  return rules;
}

// Whether the modem echoes behind each command, as the next one shows it.
using Echoes = std::map<const Asked*, bool>;

Echoes echoes_behind(const std::vector<Asked>& asked) {
  Echoes echoes;
  std::optional<bool> next;
  for (auto one = asked.rbegin(); one != asked.rend(); ++one) {
    if (next) echoes.emplace(&*one, *next);
    if (one->echoed && !one->is_body) next = one->echoed;
  }
  return echoes;
}

// Only where the command changed it.
std::string echo_change(const Echoes& echoes, const Rule& rule) {
  bool changes = false;
  std::optional<bool> becomes;
  for (const Asked* one : rule.times) {
    const auto behind = echoes.find(one);
    if (behind == echoes.end() || !one->echoed) continue;
    if (becomes && *becomes != behind->second) return "";
    becomes = behind->second;
    changes |= *becomes != *one->echoed;
  }
  if (!changes) return "";
  return *becomes ? " then echo on" : " then echo off";
}

bool same_answer(const Asked& one, const Asked& other) {
  const auto same_text = [](const auto& a, const auto& b) { return a.second == b.second; };
  return answer_of(one) == answer_of(other) &&
         std::equal(one.reports.begin(), one.reports.end(), other.reports.begin(),
                    other.reports.end(), same_text);
}

std::string lines_of(const Echoes& echoes, const Rule& rule) {
  std::string lines;
  const std::string pattern = script_pattern(rule.text);
  const std::string echo = echo_change(echoes, rule);
  for (size_t i = 0; i < rule.times.size();) {
    size_t end = i + 1;
    while (end < rule.times.size() && same_answer(*rule.times[end], *rule.times[i])) ++end;
    const Asked& last = *rule.times[end - 1];
    std::string how;
    if (end < rule.times.size())
      how = end - i == 1 ? " once" : " " + std::to_string(end - i) + " times";
    const Time rounded = (last.took + kRounded / 2) / kRounded * kRounded;
    if (last.complete && (last.interrupted || last.took >= kSlow)) {
      how += " after " + script_time(last.interrupted ? last.took : rounded);
    }
    lines += "on " + pattern + how + echo + " -> " + answer_of(last) + "\n";
    for (const auto& [delay, text] : last.reports) {
      lines += "also after " + script_time(delay) + " -> " + script_text(text) + "\n";
    }
    i = end;
  }
  return lines;
}

// A host will send other messages than the ones that were seen, of which only stand-ins may be
// known.
std::string other_messages(const std::vector<Rule>& rules) {
  std::string heads;
  std::set<std::string> written;
  std::string bodies;
  for (const Rule& rule : rules) {
    const Asked& last = *rule.times.back();
    if (last.is_body) bodies = "on pdu * -> " + answer_of(last) + "\n";
    if (!last.prompted) continue;
    const std::string head = script_pattern(rule.text.substr(0, rule.text.find('='))) + "=*";
    if (written.insert(capitals(head)).second) heads += "on " + head + " -> prompt\n";
  }
  return heads + bodies;
}

// The interval of times that lie evenly; none of fewer than three.
std::optional<Time> interval_of(const std::vector<Time>& times) {
  if (times.size() < kEvenly) return std::nullopt;
  std::vector<Time> gaps;
  for (size_t i = 1; i < times.size(); ++i) gaps.push_back(times[i] - times[i - 1]);
  std::sort(gaps.begin(), gaps.end());
  const Time middle = gaps[gaps.size() / 2];
  const bool even =
      middle >= kRounded && gaps.front() * 5 >= middle * 4 && gaps.back() * 5 <= middle * 6;
  return even ? std::optional(middle) : std::nullopt;
}

// Those of an interval are written where the first one came.
std::string reports_of(const std::vector<Said>& said, Time opened) {
  std::map<std::string_view, std::vector<Time>> times;
  for (const Said& report : said) {
    if (report.at >= opened) times[report.text].push_back(report.at);
  }
  std::map<std::string_view, Time> intervals;
  for (const auto& [text, all] : times) {
    if (const std::optional<Time> interval = interval_of(all)) intervals.emplace(text, *interval);
  }
  std::string lines;
  for (const Said& report : said) {
    if (report.at < opened) continue;
    const auto every = intervals.find(report.text);
    if (every != intervals.end() && report.at != times[report.text].front()) continue;
    lines += every != intervals.end() ? "every " + script_time(every->second)
                                      : "at " + script_time(report.at - opened);
    lines += " report " + script_text(report.text) + "\n";
  }
  return lines;
}

std::string absences_of(const std::vector<SessionRemark>& remarks, Time opened) {
  std::string lines;
  const SessionRemark* gone = nullptr;
  for (const SessionRemark& remark : remarks) {
    if (remark.what == "the modem is gone") gone = &remark;
    if (remark.what != "the modem is there" || gone == nullptr) continue;
    if (gone->at >= opened) {
      lines += "at " + script_time(gone->at - opened) + " hang-up " +
               script_time(remark.at - gone->at) + "\n";
    }
    gone = nullptr;
  }
  return lines;
}

// The scripted modem counts from the first opening; what was said before it, nobody heard.
Time opening_of(const Session& session) {
  for (const SessionRemark& remark : session.remarks) {
    if (remark.what == "the host opened the device") return remark.at;
  }
  return session.steps.front().at.value_or(Time{0});
}

}  // namespace

std::string learn(const Session& session) {
  Listener listener;
  for (const Piece& piece : pieces_of(session)) listener.hear(piece);
  listener.end();

  const std::vector<Asked>& asked = listener.asked;
  const Time opened = opening_of(session);
  const auto first = std::find_if(asked.begin(), asked.end(), [](const Asked& a) {
    return a.echoed && !a.is_body && a.complete;
  });
  std::string script = "# learnt from " + session.name + "\n";
  if (first != asked.end() && !*first->echoed) script += "echo off\n";
  const std::vector<Rule> rules = rules_of(asked);
  const Echoes echoes = echoes_behind(asked);
  for (const Rule& rule : rules) script += lines_of(echoes, rule);
  script += other_messages(rules);
  script += "else ERROR\n";
  script += reports_of(listener.said, opened);
  return script + absences_of(session.remarks, opened);
}

}  // namespace mdxline
