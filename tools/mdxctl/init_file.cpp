// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxctl/init_file.h"

#include <charconv>
#include <optional>

#include "tools/words/collection.h"
#include "tools/words/mistakes.h"

namespace {

constexpr char kBlanks[] = " \t\r";
constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
constexpr int32_t kLongestTimeoutS = 1000000;

std::string trimmed(const std::string& text) {
  const size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string::npos) return "";
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

/// Takes "@30" off the front. @return false when a number is missing there
bool take_timeout(std::string* text, int32_t* timeout_s) {
  if (!text->starts_with('@')) return true;
  const char* end = text->data() + text->size();
  const auto [rest, error] = std::from_chars(text->data() + 1, end, *timeout_s);
  const bool good = error == std::errc() && *timeout_s > 0 && *timeout_s <= kLongestTimeoutS &&
                    rest != end && (*rest == ' ' || *rest == '\t');
  *text = trimmed(std::string(rest, end));
  return good;
}

std::string mistake_in(const std::string& command) {
  const collection_t collection = collection_for(command, true);
  mdx_options_t options = MDX_OPTIONS_INIT;
  options.transparent = collection.transparent ? 1 : 0;
  const std::string mistake = command_mistake(command, options, kOnCommandLine);
  if (!mistake.empty()) return mistake;
  return mutes_results(command) ? kMutesResults : "";
}

}  // namespace

init_file_t read_init_file(std::istream& file, int32_t timeout_s) {
  init_file_t read;
  size_t number = 0;
  for (std::string line; std::getline(file, line);) {
    if (++number == 1 && line.starts_with(kByteOrderMark)) line.erase(0, kByteOrderMark.size());
    init_command_t command{number, trimmed(line), false, timeout_s};
    if (command.command.empty() || command.command.starts_with('#')) continue;
    if (command.command.starts_with('?')) {
      command.may_fail = true;
      command.command = trimmed(command.command.substr(1));
    }
    const std::string where = "line " + std::to_string(number) + ": ";
    if (!take_timeout(&command.command, &command.timeout_s)) {
      read.mistakes.push_back(where + "behind @ stand seconds and a blank, such as @30 AT+COPS=0");
      continue;
    }
    const std::string mistake = mistake_in(command.command);
    if (!mistake.empty()) {
      read.mistakes.push_back(where + mistake);
    } else {
      read.commands.push_back(command);
    }
  }
  return read;
}
