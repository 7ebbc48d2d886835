// SPDX-License-Identifier: Apache-2.0

// A line editor at the bottom of the terminal; what else there is to say scrolls by above it.
#pragma once

#include <functional>
#include <string>

/// One at a time. Reads standard input, which is a terminal; the terminal is as it was before while
/// the prompt is hidden, and at the end.
class shell_prompt_t {
 public:
  using line_handler_t = std::function<void(const std::string& line)>;

  /// Reads the history of earlier shells.
  /// @param on_line  gets each line that was entered, with the prompt hidden
  /// @param on_end   called for end of file
  shell_prompt_t(line_handler_t on_line, std::function<void()> on_end);
  ~shell_prompt_t();
  shell_prompt_t(const shell_prompt_t&) = delete;
  shell_prompt_t& operator=(const shell_prompt_t&) = delete;

  void show();
  /// What was typed so far comes back with the next show().
  void hide();
  bool shown() const { return shown_; }

  /// Takes a key that waits on standard input.
  void read_key();
  /// Forgets what was typed.
  void clear_line();
  void resize();

  /// Writes whole lines.
  void print(const std::string& lines);

 private:
  static void take_line(char* line);

  static shell_prompt_t* self_;
  line_handler_t on_line_;
  std::function<void()> on_end_;
  std::string history_file_;
  std::string typed_;
  bool shown_ = false;
};
