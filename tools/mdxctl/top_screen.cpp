// SPDX-License-Identifier: Apache-2.0

// From top to bottom: fixed lines of figures; the signal's plot; reports and receivers, which share
// what lines are left. Each part gets a window of the screen as rows from and to, and what does not
// fit is left out.

#include "tools/mdxctl/top_screen.h"

#include <langinfo.h>
#include <ncurses.h>
#include <sys/ioctl.h>
#include <term.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cstring>
#include <string>

#include "tools/mdxctl/server_queues.h"
#include "tools/words/duration.h"
#include "tools/words/time_text.h"
#include "wire/border.h"

#undef columns  // a macro of term.h

namespace {

constexpr int kSmallestLines = 10;
constexpr int kSmallestColumns = 40;
constexpr int kStrongestDbm = -51;
constexpr int kWeakestDbm = -113;
constexpr int kPlotLabel = 6;  // columns for the scale

std::string format(const char* pattern, auto... values) {
  char text[256];
  snprintf(text, sizeof(text), pattern, values...);
  return text;
}

/// At the line's beginning; cut at the right edge.
void put(int row, const std::string& text, attr_t attributes = A_NORMAL) {
  if (row < 0 || row >= LINES) return;
  attrset(attributes);
  mvaddnstr(row, 0, text.c_str(), COLS);
  attrset(A_NORMAL);
}

void heading(int row, std::string text) {
  text.resize(std::max(text.size(), static_cast<size_t>(COLS)), ' ');
  put(row, text, A_REVERSE);
}

std::string depth(int32_t queue) {
  const auto depth = queue_depth(queue);
  if (!depth) return "?";
  return std::to_string(depth->waiting) + '/' + std::to_string(depth->room);
}

std::string gone_text(double since, double now) {
  return duration_text(static_cast<uint64_t>(std::max(0.0, now - since)));
}

std::string modem_text(const top_model_t& model, double now) {
  if (model.gone_since()) return "gone for " + gone_text(*model.gone_since(), now);
  return model.stats().value("channel_open") != 0 ? "open" : "gone";
}

/// What the modem told before it went is not the signal now.
std::string signal_text(const top_model_t& model, double now) {
  const bool known = !model.signal().empty() && model.signal().back();
  if (known) return std::to_string(*model.signal().back()) + " dBm";
  if (!model.gone_since()) return "not known";
  std::string text = "the modem is gone";
  if (model.last_signal()) {
    text += "; " + std::to_string(*model.last_signal()) + " dBm at least " +
            gone_text(*model.gone_since(), now) + " ago";
  }
  return text;
}

void draw_title(const top_model_t& model, double now) {
  const platform_stats_t& stats = model.stats();
  const std::string text = model.failure().empty()
                               ? format("mdxgate %s  up %s  %s  modem %s", stats.version.c_str(),
                                        duration_text(stats.value("uptime_seconds")).c_str(),
                                        model.state().c_str(), modem_text(model, now).c_str())
                               : "mdxgate: " + model.failure();
  heading(0, text);
  const std::string clock = time_text(false).substr(0, 8);
  if (static_cast<int>(text.size() + clock.size()) + 2 > COLS) return;
  attrset(A_REVERSE);
  mvaddstr(0, COLS - static_cast<int>(clock.size()), clock.c_str());
  attrset(A_NORMAL);
}

void draw_figures(const top_model_t& model) {
  const platform_stats_t& stats = model.stats();
  const auto value = [&](const char* name) {
    return static_cast<unsigned long long>(stats.value(name));
  };
  put(1, format("commands  %-9llu %6.1f/s   latency %.1f ms, mean %.1f, worst %.1f",
                value("commands"), model.rate("commands"), model.latency_now(),
                model.latency_mean(), model.latency_worst()));
  put(2, format("requests  %-9llu %6.1f/s   answers dropped %llu, refused %llu", value("requests"),
                model.rate("requests"),
                value("answers_dropped_dead") + value("answers_dropped_unread"),
                value("answers_refused")));
  put(3, format("modem     %-9llu %6.1f/s   deliveries; held %llu, cut %llu, sends failed %llu",
                value("deliveries"), model.rate("deliveries"), value("deliveries_held"),
                value("deliveries_cut"), value("channel_sends_failed")));
  put(4, format("packets   %-9llu %6.1f/s   lost %llu", value("packets_sent"),
                model.rate("packets_sent"), value("packets_lost")));
  put(5,
      format("queues    requests %s  answers %s  deliveries %llu", depth(kMdxRequestQueue).c_str(),
             depth(kMdxResponseQueue).c_str(), value("deliveries_waiting")));
}

/// A cell of the plot, filled in eighths, or by halves where the terminal knows no more.
const char* cell(int eighths) {
  static const bool utf8 = std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
  constexpr const char* kBlocks[] = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
  if (utf8) return kBlocks[std::clamp(eighths, 0, 8)];
  return eighths >= 5 ? "#" : eighths >= 1 ? "." : " ";
}

/// The latest at the right edge. `rows` lines stand for -113 to -51 dBm.
void draw_signal(const top_model_t& model, int top, int rows, double now) {
  const auto& signal = model.signal();
  heading(top, "SIGNAL  " + signal_text(model, now));
  const int columns = COLS - kPlotLabel;
  for (int row = 0; row < rows; ++row) {
    const int from_below = rows - 1 - row;
    if (row == 0 || row == rows - 1) {
      put(top + 1 + row, format("%5d", row == 0 ? kStrongestDbm : kWeakestDbm), A_DIM);
    }
    for (int column = 0; column < columns; ++column) {
      const int back = columns - column;
      if (back > static_cast<int>(signal.size())) continue;
      const auto& dbm = signal[signal.size() - static_cast<size_t>(back)];
      if (!dbm) continue;
      const int height =
          std::max(1, (*dbm - kWeakestDbm) * rows * 8 / (kStrongestDbm - kWeakestDbm));
      mvaddstr(top + 1 + row, kPlotLabel + column, cell(height - from_below * 8));
    }
  }
}

void draw_reports(const top_model_t& model, int top, int bottom, double now) {
  if (top >= bottom) return;
  heading(top, "    AGE  COUNT  LAST REPORT OF EACH KIND");
  int row = top + 1;
  for (const last_report_t& report : model.reports()) {
    if (row >= bottom) return;
    const auto age = static_cast<unsigned long long>(std::max(0.0, now - report.at));
    const std::string age_text = age < 1000 ? format("%llu s", age) : format("%llu min", age / 60);
    put(row++,
        format("%7s %6llu  ", age_text.c_str(), static_cast<unsigned long long>(report.count)) +
            report.name + report.line);
  }
}

/// Those that lost most come first: they are what one looks for.
void draw_receivers(const top_model_t& model, int top, int bottom) {
  if (top >= bottom) return;
  std::vector<receiver_stats_t> receivers = model.stats().receivers;
  std::stable_sort(receivers.begin(), receivers.end(),
                   [](const auto& a, const auto& b) { return a.lost > b.lost; });
  heading(top,
          format("PROCESS   USER  RECEIVER          GOT       LOST   of %zu", receivers.size()));
  int row = top + 1;
  for (const receiver_stats_t& receiver : receivers) {
    if (row >= bottom) return;
    put(row++,
        format("%7lld %6lld  %-12s %8llu   %8llu", static_cast<long long>(receiver.process),
               static_cast<long long>(receiver.user), receiver.wants.c_str(),
               static_cast<unsigned long long>(receiver.sent),
               static_cast<unsigned long long>(receiver.lost)),
        receiver.lost > 0 ? A_BOLD : A_NORMAL);
  }
}

/// Lines for the receivers out of those left for both lists: what the reports do not need, and a
/// third if they need all.
int receiver_lines(const top_model_t& model, int left) {
  const int needed = static_cast<int>(model.stats().receivers.size()) + 1;
  const int not_needed = left - static_cast<int>(model.reports().size()) - 1;
  return std::min({left, std::max(needed, 2), std::max({2, left / 3, not_needed})});
}

}  // namespace

bool terminal_is_known() {
  int reason = 0;  // with room for it, setupterm does not end the program
  return setupterm(nullptr, STDOUT_FILENO, &reason) == OK;
}

top_screen_t::top_screen_t() {
  std::setlocale(LC_ALL, "");
  initscr();
  cbreak();
  noecho();
  nonl();
  curs_set(0);
  keypad(stdscr, TRUE);
  nodelay(stdscr, TRUE);
}

top_screen_t::~top_screen_t() { endwin(); }

void top_screen_t::draw(const top_model_t& model, double now) {
  erase();
  if (LINES < kSmallestLines || COLS < kSmallestColumns) {
    put(0, "mdxctl top: the terminal is too small");
    refresh();
    return;
  }
  draw_title(model, now);
  draw_figures(model);
  const int plot_rows = std::clamp((LINES - 14) / 2, 1, 10);
  const int lists = 6 + 1 + plot_rows;
  draw_signal(model, 6, plot_rows, now);
  const int left = LINES - 1 - lists;
  const int receivers = receiver_lines(model, left);
  draw_reports(model, lists, lists + left - receivers, now);
  draw_receivers(model, lists + left - receivers, lists + left);
  put(LINES - 1, "q ends", A_DIM);
  refresh();
}

int top_screen_t::key() { return getch(); }

void top_screen_t::resize() {
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) return;
  resizeterm(size.ws_row, size.ws_col);
  clear();
}

void top_screen_t::rest() { endwin(); }
