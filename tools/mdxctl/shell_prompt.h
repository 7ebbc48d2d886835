// SPDX-License-Identifier: Apache-2.0

// A line editor at the bottom of the terminal; what else there is to say scrolls by above it.
#pragma once

#include <functional>
#include <string>
#include <vector>

struct editline;  // of libedit, as is the next
struct history;

/// One at a time. Reads standard input, which is a terminal; the terminal is as it was before while
/// the prompt is hidden, and at the end.
class shell_prompt_t {
 public:
  struct handlers_t {
    /// Gets each line that was entered, with the prompt hidden.
    std::function<void(const std::string& line)> line;
    /// End of file, or the terminal is gone.
    std::function<void()> end;
    /// Waits until standard input has a key, and serves what else comes meanwhile; for keys that
    /// take more keys, such as those of a search. False when something came that ends the editing
    /// of this key, or after `timeout_ms`; a negative one waits for good.
    std::function<bool(int timeout_ms)> wait_for_key;
  };

  /// Reads the history of earlier shells.
  explicit shell_prompt_t(handlers_t handlers);
  ~shell_prompt_t();
  shell_prompt_t(const shell_prompt_t&) = delete;
  shell_prompt_t& operator=(const shell_prompt_t&) = delete;

  void show();
  /// What was typed so far comes back with the next show().
  void hide();
  bool shown() const { return shown_; }

  /// Takes a key that waits on standard input, and those behind it that belong to it.
  void read_key();
  /// Forgets what was typed.
  void clear_line();
  void resize();

  /// Writes whole lines.
  void print(const std::string& lines);

 private:
  struct typed_t {
    std::wstring text;
    int behind_cursor = 0;  ///< characters of it
  };

  static shell_prompt_t& of(struct editline* editor);
  static int next_character(struct editline* editor, wchar_t* character);
  static unsigned char complete_line(struct editline* editor, int key);
  static unsigned char delete_or_end(struct editline* editor, int key);

  void set_up_editor();
  void read_history();
  void write_history();
  bool read_byte(char* byte);
  void enter(const std::string& line);
  void end();
  unsigned char complete();
  void offer(const std::vector<std::string>& words);
  typed_t typed() const;
  void leave();
  void start_again(const typed_t& typed);
  void wipe();

  handlers_t handlers_;
  struct editline* editor_;
  struct history* history_;
  std::string history_file_;
  typed_t typed_;          ///< while the prompt is hidden
  std::string completed_;  ///< what the last completion led to
  int bytes_of_key_ = 0;   ///< taken since read_key() was called
  bool key_is_escape_ = false;
  bool given_up_ = false;  ///< the rest of a key did not come
  bool ended_ = false;
  bool shown_ = false;
};
