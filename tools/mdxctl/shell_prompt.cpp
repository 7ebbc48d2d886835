// SPDX-License-Identifier: Apache-2.0

// readline knows one terminal and calls back without an argument, so the one prompt is found
// through a static member.

#include "tools/mdxctl/shell_prompt.h"

#include <readline/history.h>
#include <readline/readline.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>

#include "tools/mdxctl/shell_line.h"

namespace {

constexpr char kPrompt[] = "at> ";
constexpr int kHistoryLines = 1000;

/// Where programs keep what is worth keeping but is no setting; empty without a home.
std::string history_path() {
  const char* state = std::getenv("XDG_STATE_HOME");
  const char* home = std::getenv("HOME");
  std::filesystem::path directory;
  if (state != nullptr && state[0] == '/') {
    directory = state;
  } else if (home != nullptr && home[0] == '/') {
    directory = std::filesystem::path(home) / ".local" / "state";
  } else {
    return "";
  }
  std::error_code ignored;
  std::filesystem::create_directories(directory / "mdxctl", ignored);
  return directory / "mdxctl" / "history";
}

char* next_completion(const char* begin, int state) {
  static std::vector<std::string> matches;
  static size_t next = 0;
  if (state == 0) {
    matches = shell_completions(begin);
    next = 0;
  }
  return next < matches.size() ? strdup(matches[next++].c_str()) : nullptr;
}

/// The whole line is completed, blanks included; never to a file's name.
char** complete(const char* begin, int start, int) {
  rl_attempted_completion_over = 1;
  rl_completion_suppress_append = 1;
  return start == 0 ? rl_completion_matches(begin, next_completion) : nullptr;
}

void set_up_readline() {
  rl_readline_name = "mdxctl";
  rl_catch_signals = 0;
  rl_catch_sigwinch = 0;
  rl_attempted_completion_function = complete;
  rl_completer_word_break_characters = "";
  rl_completer_quote_characters = "";
  rl_variable_bind("completion-ignore-case", "on");
}

}  // namespace

shell_prompt_t* shell_prompt_t::self_ = nullptr;

shell_prompt_t::shell_prompt_t(line_handler_t on_line, std::function<void()> on_end)
    : on_line_(std::move(on_line)), on_end_(std::move(on_end)), history_file_(history_path()) {
  self_ = this;
  set_up_readline();
  using_history();
  stifle_history(kHistoryLines);
  if (!history_file_.empty()) read_history(history_file_.c_str());
}

shell_prompt_t::~shell_prompt_t() {
  hide();
  if (!history_file_.empty()) write_history(history_file_.c_str());
  self_ = nullptr;
}

void shell_prompt_t::take_line(char* line) {
  shell_prompt_t& prompt = *self_;
  rl_callback_handler_remove();
  prompt.shown_ = false;
  if (line == nullptr) {
    std::cout << std::endl;
    return prompt.on_end_();
  }
  const std::string entered = line;
  std::free(line);
  const HIST_ENTRY* last = history_get(history_base + history_length - 1);
  const bool repeated = last != nullptr && entered == last->line;
  if (!entered.empty() && !repeated && fit_for_history(entered)) add_history(entered.c_str());
  prompt.on_line_(entered);
}

void shell_prompt_t::show() {
  if (shown_) return;
  shown_ = true;
  rl_callback_handler_install(kPrompt, take_line);
  if (typed_.empty()) return;
  rl_insert_text(typed_.c_str());
  rl_redisplay();
  typed_.clear();
}

void shell_prompt_t::hide() {
  if (!shown_) return;
  typed_ = rl_line_buffer;
  rl_clear_visible_line();
  rl_callback_handler_remove();
  shown_ = false;
}

void shell_prompt_t::read_key() { rl_callback_read_char(); }

void shell_prompt_t::clear_line() {
  rl_callback_handler_remove();
  rl_free_line_state();
  using_history();  // else the line of the history that was on show would be changed
  shown_ = false;
  std::cout << "^C" << std::endl;
  show();
}

void shell_prompt_t::resize() { rl_resize_terminal(); }

void shell_prompt_t::print(const std::string& lines) {
  if (shown_) rl_clear_visible_line();
  std::cout << lines << std::flush;
  if (!shown_) return;
  rl_on_new_line();
  rl_redisplay();
}
