// SPDX-License-Identifier: Apache-2.0

// mdxctl state: what the modem told last of each kind of state, and how long ago.

#include <algorithm>
#include <iomanip>
#include <iostream>

#include "client/mdxclient.h"
#include "tools/mdxctl/answer.h"
#include "tools/mdxctl/commands.h"
#include "tools/mdxctl/exit_codes.h"
#include "tools/mdxctl/known_states.h"
#include "tools/mdxctl/output.h"
#include "tools/words/duration.h"
#include "tools/words/state_words.h"

using nlohmann::ordered_json;

namespace {

constexpr char kLinkWord[] = "link";
constexpr int kWordWidth = 13;

void print(const ordered_json& object) {
  std::cout << object.dump(-1, ' ', false, ordered_json::error_handler_t::replace) << std::endl;
}

int fail(int error, bool json) {
  const std::string reason = error == MDX_ERR_TIMEOUT
                                 ? "the server does not tell what it remembers: it is busy, or "
                                   "older than mdxctl; see: mdxctl status"
                                 : error_text(error);
  if (json) print({{"modem", nullptr}, {"states", ordered_json::object()}, {"error", reason}});
  tell(reason);
  return exit_code_of_error(error);
}

void show_line(const std::string& word, const std::string& text) {
  std::cout << std::left << std::setw(kWordWidth) << word << text << '\n';
}

void show(const std::vector<known_state_t>& states, const modem_link_t& link, bool with_link) {
  if (with_link) show_line(kLinkWord, link_text(link));
  for (const known_state_t& state : states) {
    const bool of_before = link.up && !is_current(state, link);
    show_line(state.word, state.name + state.values + ", " + duration_text(state.age_s) + " ago" +
                              (of_before ? ", before the modem came back" : ""));
  }
  std::cout << std::flush;
  if (!with_link) warn_if_gone(link);
}

void show_json(const std::vector<known_state_t>& states, const modem_link_t& link) {
  ordered_json objects = ordered_json::object();
  for (const known_state_t& state : states) {
    ordered_json& object = objects[state.name];
    object = {{"state", state.word}, {"current", is_current(state, link)}};
    object.update(state.object);
  }
  print({{"modem", link_json(link)}, {"states", objects}});
}

}  // namespace

int run_state(const state_arguments_t& arguments) {
  modem_link_t link;
  std::vector<known_state_t> states;
  const int error = fetch_states(&link, &states);
  if (error != MDX_OK) return fail(error, arguments.json);

  const std::string& wanted = arguments.name;
  const bool with_link = wanted.empty() || state_word(wanted) == kLinkWord || wanted == kLinkWord;
  std::erase_if(states, [&](const known_state_t& state) {
    return !wanted.empty() && state.word != wanted && state.name != wanted;
  });
  std::stable_sort(states.begin(), states.end(),
                   [](const auto& one, const auto& other) { return one.word < other.word; });
  arguments.json ? show_json(states, link) : show(states, link, with_link);
  if (!states.empty() || with_link) return EXIT_OK;
  tell("the modem has told nothing of it since the server started");
  return EXIT_MODEM_ERROR;
}
