// SPDX-License-Identifier: Apache-2.0

// A serial modem that minds its input byte by byte, one command after the other, in its own time.
//
// Every command, message and answer bears the tag of the client it is for, so that nothing can be
// mixed up unseen. Answers come late or never, prompts take whatever comes for the message's text.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "tests/simulation/broken_rule.h"

namespace simulation {

/// "T100000" and up.
constexpr size_t kTagSize = 7;
inline std::string tag_of(int32_t client) { return 'T' + std::to_string(client); }
/// All tags in a text.
std::vector<std::string> tags_in(std::string_view text);

/// When the modem has said what, by tag or word.
struct said_t {
  std::map<std::string, uint64_t> answers;  ///< the first result for a tag
  std::map<std::string, uint64_t> lines;    ///< that belong to nobody
  std::vector<uint64_t> about_a_call;       ///< words
};

class modem : public std::enable_shared_from_this<modem> {
 public:
  /// @param keeps_echo  nobody asks it to change it: it may be as late as it likes, if it has one
  modem(uint32_t seed, bool keeps_echo, std::string* output, said_t* said);

  /// Bytes from the server.
  void take(std::string_view bytes);
  /// Forgets all it was asked, and starts anew.
  void reset();
  /// Says a whole line by itself, but for a second not in the middle of an echo.
  void say_line(const std::string& line, int waits_left = 100);

 private:
  using script_t = std::vector<std::pair<uint32_t, std::string>>;  ///< pauses and texts

  size_t below(size_t limit) { return random_() % limit; }
  bool chance(size_t one_in) { return below(one_in) == 0; }
  void later(uint32_t after, std::function<void()> happens);
  void work();
  void take_command_byte(char byte);
  void erase();
  void take_message_byte(char byte);
  void run(const std::string& line);
  void prompt();
  void end_message(bool sent);
  void answer(const std::string& tag, const std::string& name, bool dials = false);
  void play(const script_t& script, size_t at, const std::string& tag);
  std::string result(const std::string& tag, bool dials);
  bool has_known_echo() const { return keeps_echo_ && echoed_commands_ >= 2; }
  uint32_t delay();
  uint32_t bounded(uint32_t pause) const;

  std::mt19937 random_;
  const bool keeps_echo_;
  std::string& output_;
  said_t& said_;
  bool has_echo_ = chance(2);
  const bool keeps_early_text_ = chance(2);  ///< what is typed in front of a prompt
  const bool answers_escapes_ = !chance(4);
  const bool repeats_escapes_ = chance(2);
  uint32_t life_ = 0;
  bool is_busy_ = false;
  bool has_prompt_ = false;
  int echoed_commands_ = 0;  ///< without a break
  uint64_t latest_ = 0;      ///< for prompts, and for answers when the echo is of no help
  struct byte_t {
    char byte;
    uint64_t came;
  };
  std::deque<byte_t> input_;
  std::string line_;
  std::string message_;
  std::string head_;  ///< the tag of the message
};

}  // namespace simulation
