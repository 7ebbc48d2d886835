// SPDX-License-Identifier: Apache-2.0

// libedit edits one key at a time (EL_UNBUFFERED), so that the shell waits for everything in one
// place. A key that takes more keys, a search or an escape sequence, waits inside libedit: then the
// shell is asked to wait, so that reports go on.

#include "tools/mdxctl/shell_prompt.h"

#include <fcntl.h>
#include <histedit.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <cwctype>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "tools/mdxctl/shell_line.h"

namespace {

char prompt_text[] = "at> ";
constexpr int kPromptWidth = sizeof(prompt_text) - 1;
constexpr int kHistoryLines = 1000;
/// An Esc alone is told from a key that sends a sequence by what does not follow.
constexpr int kSequenceMs = 500;
constexpr char kEscape = '\x1b';

char* prompt_of(EditLine*) { return prompt_text; }

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

/// Text messages have other letters than ASCII, also where nobody has set a locale.
void take_locale() {
  std::setlocale(LC_CTYPE, "");
  if (MB_CUR_MAX == 1) std::setlocale(LC_CTYPE, "C.UTF-8");
}

int terminal_columns() {
  winsize size = {};
  const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return known ? size.ws_col : 80;
}

/// Columns that libedit gives a character; one that cannot be shown stands as ^X.
int width_of(wchar_t character) {
  return std::iswcntrl(static_cast<wint_t>(character)) != 0 ? 2 : std::max(wcwidth(character), 0);
}

/// Rows between the prompt and the place behind `text`.
int rows_below_prompt(const wchar_t* text, const wchar_t* end, int columns) {
  int rows = 0;
  int column = kPromptWidth;
  for (; text < end; ++text) {
    const int width = width_of(*text);
    column += width;
    if (column < columns) continue;
    ++rows;
    column = column == columns ? 0 : width;
  }
  return rows;
}

bool same_letter(char a, char b) {
  return std::toupper(static_cast<unsigned char>(a)) == std::toupper(static_cast<unsigned char>(b));
}

/// What all words begin with, whatever the case, as the first one writes it.
std::string common_beginning(const std::vector<std::string>& words) {
  size_t length = words.front().size();
  for (const std::string& word : words) {
    const auto limit =
        words.front().begin() + static_cast<std::ptrdiff_t>(std::min(length, word.size()));
    const auto differs = std::mismatch(words.front().begin(), limit, word.begin(), same_letter);
    length = static_cast<size_t>(differs.first - words.front().begin());
  }
  return words.front().substr(0, length);
}

}  // namespace

shell_prompt_t::shell_prompt_t(handlers_t handlers)
    : handlers_(std::move(handlers)), history_(history_init()), history_file_(history_path()) {
  take_locale();
  editor_ = el_init("mdxctl", stdin, stdout, stderr);
  HistEvent event = {};
  ::history(history_, &event, H_SETSIZE, kHistoryLines);
  ::history(history_, &event, H_SETUNIQUE, 1);
  read_history();
  set_up_editor();
}

shell_prompt_t::~shell_prompt_t() {
  hide();
  write_history();
  el_end(editor_);
  history_end(history_);
}

void shell_prompt_t::set_up_editor() {
  el_set(editor_, EL_CLIENTDATA, this);
  el_set(editor_, EL_GETCFN, next_character);
  el_set(editor_, EL_PROMPT, prompt_of);
  el_set(editor_, EL_SIGNAL, 0);
  el_set(editor_, EL_EDITOR, "emacs");
  el_set(editor_, EL_HIST, ::history, history_);
  el_set(editor_, EL_ADDFN, "mdx-complete", "Completes the line", complete_line);
  el_set(editor_, EL_ADDFN, "mdx-delete", "Deletes a character, ends an empty line", delete_or_end);
  // clang-format off
  constexpr const char* keys[][2] = {
    {"^I", "mdx-complete"},
    {"^D", "mdx-delete"},
    {"^R", "em-inc-search-prev"},
    {"\\e[1;5C", "em-next-word"},
    {"\\e[1;5D", "ed-prev-word"},
  };
  // clang-format on
  for (const auto& [key, function] : keys) el_set(editor_, EL_BIND, key, function, nullptr);
  el_source(editor_, nullptr);
}

// The file holds the lines as they are, the newest last.

void shell_prompt_t::read_history() {
  std::ifstream file(history_file_);
  HistEvent event = {};
  for (std::string line; std::getline(file, line);) {
    if (!line.empty()) ::history(history_, &event, H_ENTER, line.c_str());
  }
}

void shell_prompt_t::write_history() {
  if (history_file_.empty()) return;
  const std::string fresh = history_file_ + ".new";
  const int fd = open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  std::FILE* file = fd >= 0 ? fdopen(fd, "w") : nullptr;
  if (file == nullptr) return;
  HistEvent event = {};
  int found = ::history(history_, &event, H_LAST);
  for (; found == 0; found = ::history(history_, &event, H_PREV))
    std::fprintf(file, "%s\n", event.str);
  if (std::fclose(file) == 0) std::rename(fresh.c_str(), history_file_.c_str());
}

// Keys

shell_prompt_t& shell_prompt_t::of(EditLine* editor) {
  void* prompt = nullptr;
  el_get(editor, EL_CLIENTDATA, &prompt);
  return *static_cast<shell_prompt_t*>(prompt);
}

bool shell_prompt_t::read_byte(char* byte) {
  const int wait_ms = key_is_escape_ ? kSequenceMs : -1;
  if (bytes_of_key_ > 0 && !handlers_.wait_for_key(wait_ms)) {
    given_up_ = true;
    return false;
  }
  const ssize_t count = read(STDIN_FILENO, byte, 1);
  if (count != 1) {
    ended_ = count == 0 || errno != EINTR;
    return false;
  }
  if (bytes_of_key_++ == 0) key_is_escape_ = *byte == kEscape;
  return true;
}

/// What libedit reads characters with. Bytes that are no text are left out.
int shell_prompt_t::next_character(EditLine* editor, wchar_t* character) {
  std::mbstate_t state = {};
  for (char byte = 0; of(editor).read_byte(&byte);) {
    const size_t used = std::mbrtowc(character, &byte, 1, &state);
    if (used <= 1) return 1;
    if (used == static_cast<size_t>(-1)) state = {};
  }
  return 0;
}

void shell_prompt_t::read_key() {
  const typed_t before = typed();
  bytes_of_key_ = 0;
  key_is_escape_ = given_up_ = false;
  int length = 0;
  const char* line = el_gets(editor_, &length);
  if (ended_) return end();
  if (given_up_) return start_again(before);
  if (line != nullptr && length > 0 && line[length - 1] == '\n') {
    enter({line, static_cast<size_t>(length) - 1});
  }
}

void shell_prompt_t::end() {
  leave();
  std::cout << std::endl;
  handlers_.end();
}

void shell_prompt_t::enter(const std::string& line) {
  leave();
  HistEvent event = {};
  if (!line.empty() && fit_for_history(line)) ::history(history_, &event, H_ENTER, line.c_str());
  handlers_.line(line);
}

unsigned char shell_prompt_t::delete_or_end(EditLine* editor, int) {
  const LineInfo* line = el_line(editor);
  of(editor).ended_ = line->lastchar == line->buffer;
  if (of(editor).ended_) return CC_EOF;
  if (line->cursor == line->lastchar) return CC_ERROR;
  el_cursor(editor, 1);
  el_deletestr(editor, 1);
  return CC_REFRESH;
}

// Completion: all that stands in front of the cursor counts, blanks included. The first key
// completes as far as there is one way to go on, the second shows the ways.

unsigned char shell_prompt_t::complete_line(EditLine* editor, int) { return of(editor).complete(); }

unsigned char shell_prompt_t::complete() {
  const LineInfo* line = el_line(editor_);
  const std::string begin(line->buffer, line->cursor);
  const std::vector<std::string> words = shell_completions(begin);
  if (words.empty()) return CC_ERROR;
  const std::string common = common_beginning(words);
  if (common != begin) {
    el_deletestr(editor_, static_cast<int>(begin.size()));
    el_insertstr(editor_, common.c_str());
  } else if (completed_ == begin && words.size() > 1) {
    offer(words);
  }
  completed_ = common;
  return words.size() > 1 ? CC_REFRESH_BEEP : CC_REFRESH;
}

void shell_prompt_t::offer(const std::vector<std::string>& words) {
  const auto longer = [](const std::string& a, const std::string& b) {
    return a.size() < b.size();
  };
  const size_t width = std::max_element(words.begin(), words.end(), longer)->size() + 2;
  const size_t columns = std::max<size_t>(static_cast<size_t>(terminal_columns()) / width, 1);
  const size_t rows = (words.size() + columns - 1) / columns;
  std::string lines;
  for (size_t row = 0; row < rows; ++row) {
    for (size_t i = row; i < words.size(); i += rows) {
      lines += words[i];
      if (i + rows < words.size()) lines.append(width - words[i].size(), ' ');
    }
    lines += '\n';
  }
  print(lines);
}

// The prompt on the terminal

shell_prompt_t::typed_t shell_prompt_t::typed() const {
  const LineInfoW* line = el_wline(editor_);
  return {{line->buffer, line->lastchar}, static_cast<int>(line->lastchar - line->cursor)};
}

void shell_prompt_t::show() {
  if (shown_) return;
  shown_ = true;
  el_set(editor_, EL_UNBUFFERED, 1);
  if (typed_.text.empty()) return;
  el_winsertstr(editor_, typed_.text.c_str());
  el_cursor(editor_, -typed_.behind_cursor);
  typed_ = {};
  std::cout << '\r' << std::flush;
  el_set(editor_, EL_REFRESH);
}

void shell_prompt_t::leave() {
  el_set(editor_, EL_UNBUFFERED, 0);
  shown_ = false;
}

void shell_prompt_t::hide() {
  if (!shown_) return;
  typed_ = typed();
  wipe();
  leave();
}

void shell_prompt_t::start_again(const typed_t& typed) {
  wipe();
  leave();
  typed_ = typed;
  show();
}

void shell_prompt_t::clear_line() {
  const LineInfo* line = el_line(editor_);
  const std::string typed(line->buffer, line->lastchar);
  if (shown_) {
    wipe();
    std::cout << prompt_text << typed;
  }
  std::cout << "^C" << std::endl;
  leave();
  typed_ = {};
  show();
}

void shell_prompt_t::resize() {
  if (shown_) wipe();
  el_resize(editor_);
  if (shown_) el_set(editor_, EL_REFRESH);
}

/// Takes prompt and line off the screen; the cursor is where the prompt began.
void shell_prompt_t::wipe() {
  const LineInfoW* line = el_wline(editor_);
  const int rows = rows_below_prompt(line->buffer, line->cursor, terminal_columns());
  std::cout << '\r';
  if (rows > 0) std::cout << "\x1b[" << rows << 'A';
  std::cout << "\x1b[J" << std::flush;
}

void shell_prompt_t::print(const std::string& lines) {
  if (shown_) wipe();
  std::cout << lines << std::flush;
  if (shown_) el_set(editor_, EL_REFRESH);
}
