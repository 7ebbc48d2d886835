// SPDX-License-Identifier: Apache-2.0

// AT+CMGL shows all messages of a state in one answer, of which 1499 bytes arrive. What did not is
// read by its number, three to a line, which always fits: a PDU has 352 digits at most. How many
// messages there are is known from AT+CPMS?. They mostly stand side by side; where they do not,
// AT+CMGD=? tells, which many modems answer with a list, or one place after the other is tried.
//
// Listing marks unread messages as read. So those that were read are listed before them: when all
// of these arrived, what did not arrive of the others was unread.

#include "tools/mdxctl/sms_store.h"

#include <algorithm>
#include <iostream>
#include <optional>
#include <sstream>
#include <utility>

#include "tools/mdxctl/answer.h"
#include "tools/mdxctl/output.h"
#include "tools/mdxctl/request.h"
#include "tools/words/refusal.h"

namespace {

constexpr size_t kGroup = 3;
/// More are not listed: the modem would send them all, slowly perhaps, for the few that arrive.
constexpr int kListedAtMost = 60;
constexpr int kMostPlaces = 10000;
/// The server keeps the line so long, and a little longer, for an answer that did not come in time.
constexpr int32_t kLateAnswerS = 7;
constexpr int kTriesForTorn = 3;
constexpr int kNoSuchMessage = 321;

std::optional<int> number_of(const std::string& text) {
  if (text.empty() || text.size() > 9) return std::nullopt;
  if (text.find_first_not_of("0123456789") != std::string::npos) return std::nullopt;
  return std::stoi(text);
}

std::string line_behind(const std::string& answer, const std::string& name) {
  const size_t at = answer.rfind(name, 0) == 0 ? 0 : answer.find("\n" + name);
  if (at == std::string::npos) return "";
  const size_t start = answer.find(name, at) + name.size();
  return answer.substr(start, answer.find_first_of("\r\n", start) - start);
}

/// The numbers in "(1,2,5-7),(0-4)" up to the first closing bracket.
/// @param exact  set to whether each stood there by itself
std::vector<int> listed_numbers(const std::string& line, bool* exact) {
  std::vector<int> numbers;
  *exact = true;
  const size_t begin = line.find('(');
  if (begin == std::string::npos) return numbers;
  std::istringstream items(line.substr(begin + 1, line.find(')') - begin - 1));
  for (std::string item; std::getline(items, item, ',');) {
    const size_t dash = item.find('-');
    const std::optional<int> first = number_of(item.substr(0, dash));
    const std::optional<int> last =
        dash == std::string::npos ? first : number_of(item.substr(dash + 1));
    if (!first || !last || *last - *first > kMostPlaces) continue;
    if (*last != *first) *exact = false;
    for (int i = *first; i <= *last; ++i) numbers.push_back(i);
  }
  return numbers;
}

sms_entry_t entry_of(const mdx_sms_stored_t& stored, int index) {
  sms_entry_t entry = read_entry(std::string(stored.pdu, stored.pdu_length), stored.tpdu_length);
  entry.index = index;
  entry.state = stored.state;
  return entry;
}

/// Whether a state is a word, such as "REC READ".
bool is_in_text_mode(const std::string& answer) {
  return answer.find("\"REC ") != std::string::npos || answer.find("\"STO ") != std::string::npos;
}

/// What stands in an answer. Of a state that there is not, MDX_SMS_STATE_NONE.
std::vector<mdx_sms_stored_t> stored_in(const std::string& answer) {
  std::vector<mdx_sms_stored_t> all;
  mdx_sms_stored_t stored = MDX_SMS_STORED_INIT;
  const auto length = static_cast<uint32_t>(answer.size());
  for (uint32_t i = 0; mdx_sms_stored_at(answer.data(), length, i, &stored) == MDX_OK; ++i) {
    if (stored.state == MDX_SMS_STATE_NONE && is_in_text_mode(answer)) {
      throw sms_failure_t(EXIT_MODEM_ERROR,
                          "somebody put the modem into text mode meanwhile: try again");
    }
    all.push_back(stored);
  }
  return all;
}

bool is_torn(int mistake) {
  return mistake == MDX_SMS_MISTAKE_PDU_DIGITS || mistake == MDX_SMS_MISTAKE_PDU_LENGTH ||
         mistake == MDX_SMS_MISTAKE_PDU_SHORT;
}

bool is_whole(const sms_entry_t& entry) {
  return entry.state != MDX_SMS_STATE_NONE && !is_torn(entry.mistake);
}

/// Whether a modem that said this may mean that the place is empty. Most say +CMS ERROR: 321, some
/// ERROR or +CME ERROR: 21 or 22.
bool may_be_empty(const sms_answer_t& answer) {
  const int32_t number =
      mdx_sms_error_number(answer.text.data(), static_cast<uint32_t>(answer.text.size()));
  return number == kNoSuchMessage || answer.ret_val == MDX_RESULT_ERROR ||
         answer.text.find("+CME ERROR: 21") != std::string::npos ||
         answer.text.find("+CME ERROR: 22") != std::string::npos;
}

std::string group_command(const std::vector<int>& places, size_t at, size_t count) {
  std::string command = "AT";
  for (size_t i = at; i < at + count; ++i) {
    command += (i == at ? "+CMGR=" : ";+CMGR=") + std::to_string(places[i]);
  }
  return command;
}

}  // namespace

std::string refusal_text(int32_t ret_val, const std::string& text) {
  const int32_t number = mdx_sms_error_number(text.data(), static_cast<uint32_t>(text.size()));
  if (const char* meaning = mdx_sms_error_text(number)) {
    return "the modem said +CMS ERROR: " + std::to_string(number) + ", " + meaning;
  }
  std::string said = mdx_result_name(ret_val);
  const std::string name = said + ":";
  if (const std::string rest = line_behind(text, name); !rest.empty()) {
    const std::string numbered = name + rest;
    said = refusal_with_words(numbered);
    if (said != numbered) return "the modem said " + said;
  }
  return "the modem said " + said + ": check SIM and network with mdxctl at AT+CPIN? and AT+CREG?";
}

std::vector<std::string> values_behind(const std::string& answer, const std::string& name) {
  std::vector<std::string> values;
  std::istringstream items(line_behind(answer, name));
  for (std::string item; std::getline(items, item, ',');) {
    std::erase_if(item, [](char c) { return c == ' ' || c == '"'; });
    values.push_back(item);
  }
  return values;
}

sms_store_t::sms_store_t(int32_t timeout_s) : timeout_s_(timeout_s) {
  if (session_.error() != MDX_OK) {
    throw sms_failure_t(exit_code_of_error(session_.error()), error_text(session_.error()));
  }
  // The server works for no handle that is closed, so a new one does not wait for the old one's
  // answer.
  before_signal_ends([this] {
    const client_session_t fresh;
    put_back(fresh.client());
  });
  const std::vector<std::string> mode = values_behind(ask("AT+CMGF?").text, "+CMGF:");
  if (mode.empty() || mode[0] != "1") return;
  put_back_later("AT+CMGF=1");
  get("AT+CMGF=0");
}

sms_store_t::~sms_store_t() {
  before_signal_ends(nullptr);
  put_back(client());
}

void sms_store_t::put_back_later(const std::string& command) { put_back_.push_back(command); }

void sms_store_t::put_back(mdx_client_t* client) {
  mdx_options_t options = MDX_OPTIONS_INIT;
  while (!put_back_.empty()) {
    mdx_result_t result = MDX_RESULT_INIT;
    const std::string command = put_back_.back();
    put_back_.pop_back();
    const int error = mdx_send(client, command.c_str(), &options, &result);
    if (error == MDX_OK && result.ret_val == MDX_RESULT_OK) continue;
    tell("the modem could not be put back with " + command + ": do it by hand");
  }
}

sms_answer_t sms_store_t::ask(const std::string& command) {
  mdx_options_t options = MDX_OPTIONS_INIT;
  options.timeout_s = timeout_s_;
  options.transparent = 1;
  if (answer_is_late_) options.wait_s = timeout_s_ + kLateAnswerS;
  mdx_result_t result = MDX_RESULT_INIT;
  const int error = send_command(client(), command, options, &result);
  if (error != MDX_OK) throw sms_failure_t(exit_code_of_error(error), error_text(error));
  const exit_code_t code = exit_code_of_result(result);
  if (code == EXIT_NO_ANSWER) {
    throw sms_failure_t(code, "the modem did not answer " + command + " within " +
                                  std::to_string(timeout_s_) + " s: allow more with --timeout");
  }
  if (code == EXIT_REFUSED) {
    throw sms_failure_t(code,
                        "the server could not write to the modem: check that it is plugged "
                        "in with: mdxctl status");
  }
  return {result.ret_val, std::string(result.text, result.length), result.truncated != 0};
}

std::string sms_store_t::get(const std::string& command) {
  const sms_answer_t answer = ask(command);
  if (answer.ok()) return answer.text;
  throw sms_failure_t(EXIT_MODEM_ERROR, command + ": " + refusal_text(answer.ret_val, answer.text));
}

const std::string& sms_store_t::memory() {
  if (memory_.empty()) look_at_memory();
  return memory_;
}

// +CPMS: "SM",5,50,"SM",5,50,"SM",5,50
sms_store_t::fill_t sms_store_t::look_at_memory() {
  const sms_answer_t answer = ask("AT+CPMS?");
  const bool numbered = answer.text.find("ERROR:") != std::string::npos;
  if (!answer.ok() && numbered) refusal_ = refusal_text(answer.ret_val, answer.text);
  const std::vector<std::string> values = values_behind(answer.text, "+CPMS:");
  if (values.empty()) return {-1, -1};
  memory_ = values[0];
  if (values.size() < 3) return {-1, -1};
  return {number_of(values[1]).value_or(-1), number_of(values[2]).value_or(-1)};
}

void sms_store_t::use_memory(const std::string& name) {
  const std::string before = memory();
  if (name == before) return;
  get("AT+CPMS=\"" + name + "\"");
  if (put_back_.empty() || put_back_.back().rfind("AT+CPMS", 0) != 0) {
    put_back_later("AT+CPMS=\"" + before + "\"");
  }
  memory_ = name;
}

/// Where messages may stand.
std::vector<int> sms_store_t::places(const fill_t& fill) {
  bool exact = false;
  std::vector<int> listed = listed_numbers(line_behind(ask("AT+CMGD=?").text, "+CMGD:"), &exact);
  const auto enough = static_cast<size_t>(std::max(fill.used, 1));
  if (listed.size() >= enough && (exact || fill.used >= 0)) return listed;
  if ((fill.used < 0 || fill.total < 0) && !refusal_.empty()) {
    throw sms_failure_t(EXIT_MODEM_ERROR, refusal_);
  }
  if (fill.used < 0 || fill.total < 0) {
    throw sms_failure_t(EXIT_MODEM_ERROR,
                        "the modem tells neither with AT+CPMS? nor with AT+CMGD=? where messages "
                        "are: read them by their numbers with: mdxctl sms read");
  }
  std::vector<int> all(static_cast<size_t>(std::min(fill.total, kMostPlaces)) + 1);
  for (size_t i = 0; i < all.size(); ++i) all[i] = static_cast<int>(i);
  return all;
}

void sms_store_t::add_error(int index, const std::string& text) {
  const std::string error = "message " + std::to_string(index) + text;
  if (std::find(errors_.begin(), errors_.end(), error) == errors_.end()) errors_.push_back(error);
}

bool sms_store_t::read(int index, sms_entry_t* entry) {
  for (int left = kTriesForTorn; left > 0; --left) {
    const sms_answer_t answer = ask("AT+CMGR=" + std::to_string(index));
    const std::vector<mdx_sms_stored_t> stored = stored_in(answer.text);
    if (!answer.ok() && !may_be_empty(answer)) {
      if (!guesses_) add_error(index, ": " + refusal_text(answer.ret_val, answer.text));
      return false;
    }
    const bool empty = stored.empty() || (stored[0].state != MDX_SMS_STATE_NONE &&
                                          stored[0].pdu_length == 0 && stored[0].tpdu_length == 0);
    if (!answer.ok() || empty) return false;
    if (stored[0].state == MDX_SMS_STATE_NONE) {
      add_error(index,
                " is passed over: the modem tells a state of it that there is not; mdxctl at "
                "AT+CMGR=" +
                    std::to_string(index) + " shows it as it is");
      return false;
    }
    *entry = entry_of(stored[0], index);
    if (!is_torn(entry->mistake)) break;
  }
  return true;
}

/// Reads from places[at] on.
/// @return how many places are done with
size_t sms_store_t::read_group(const std::vector<int>& places, size_t at,
                               std::vector<sms_entry_t>* entries) {
  const size_t count = groups_ ? std::min(kGroup, places.size() - at) : 1;
  const auto read_alone = [&](int index) {
    sms_entry_t entry;
    if (read(index, &entry)) entries->push_back(entry);
  };
  if (count == 1) {
    read_alone(places[at]);
    return 1;
  }
  const sms_answer_t answer = ask(group_command(places, at, count));
  const std::vector<mdx_sms_stored_t> stored = stored_in(answer.text);
  if (answer.truncated || stored.size() > count || (answer.ok() && stored.size() < count)) {
    for (size_t i = 0; i < count; ++i) read_alone(places[at + i]);
    return count;
  }
  for (size_t i = 0; i < stored.size(); ++i) {
    entries->push_back(entry_of(stored[i], places[at + i]));
    if (is_whole(entries->back())) continue;
    entries->pop_back();
    read_alone(places[at + i]);
  }
  if (answer.ok()) return count;
  const size_t before = entries->size();
  if (!may_be_empty(answer) || stored.empty()) read_alone(places[at + stored.size()]);
  // What can be read alone but not in front of others: the modem takes one command a line.
  if (stored.empty() && entries->size() > before) groups_ = false;
  return stored.size() + 1;
}

bool sms_store_t::has_all(const fill_t& fill, const std::vector<sms_entry_t>& entries) const {
  return fill.used >= 0 && entries.size() + errors_.size() >= static_cast<size_t>(fill.used);
}

/// Reads places until all messages were found.
void sms_store_t::read_places(const std::vector<int>& places, const fill_t& fill,
                              std::vector<sms_entry_t>* entries) {
  for (size_t at = 0; at < places.size() && !has_all(fill, *entries);) {
    const size_t before = entries->size() + errors_.size();
    const size_t done = read_group(places, at, entries);
    if (guesses_ && entries->size() + errors_.size() - before < done) return;
    at += done;
  }
}

/// Reads by their numbers the messages that are not among the entries: those that stand side by
/// side from the first place on, then the others.
void sms_store_t::read_others(const fill_t& fill, std::vector<sms_entry_t>* entries) {
  const auto is_known = [&](int place) {
    return std::any_of(entries->begin(), entries->end(),
                       [place](const sms_entry_t& entry) { return entry.index == place; });
  };
  std::vector<int> lowest;
  const int used = std::min(fill.used, kMostPlaces);
  for (int place = 1, left = used - static_cast<int>(entries->size()); left > 0; ++place) {
    if (is_known(place)) continue;
    lowest.push_back(place);
    --left;
  }
  guesses_ = true;
  read_places(lowest, fill, entries);
  guesses_ = false;
  if (has_all(fill, *entries)) return;
  std::vector<int> others = places(fill);
  std::erase_if(others, is_known);
  read_places(others, fill, entries);
}

sms_store_t::listing_t sms_store_t::list(int state) {
  sms_answer_t answer{};
  try {
    answer = ask("AT+CMGL=" + std::to_string(state));
  } catch (const sms_failure_t& failure) {
    if (failure.code() != EXIT_NO_ANSWER) throw;
    answer_is_late_ = true;
    return {{}, false};
  }
  listing_t listing{{}, answer.ok() && !answer.truncated};
  for (const mdx_sms_stored_t& stored : stored_in(answer.text)) {
    sms_entry_t entry = entry_of(stored, stored.index);
    const bool whole = is_whole(entry) && entry.index >= 0;
    if (!whole || entry.state != state) listing.all = false;
    if (whole) listing.entries.push_back(std::move(entry));
  }
  return listing;
}

void sms_store_t::read_all(std::vector<sms_entry_t>* entries) {
  const fill_t fill = look_at_memory();
  listing_t listing{{}, false};
  if (fill.used > 0 && fill.used <= kListedAtMost) listing = list(MDX_SMS_READ);
  *entries = std::move(listing.entries);
  const bool know_the_read = listing.all;
  if (know_the_read) {
    for (sms_entry_t& entry : list(MDX_SMS_UNREAD).entries) entries->push_back(std::move(entry));
  }
  const size_t listed = entries->size();
  if (!has_all(fill, *entries)) read_others(fill, entries);
  for (size_t i = listed; know_the_read && i < entries->size(); ++i) {
    if ((*entries)[i].state == MDX_SMS_READ) (*entries)[i].state = MDX_SMS_UNREAD;
  }
  std::stable_sort(entries->begin(), entries->end(),
                   [](const auto& one, const auto& other) { return one.index < other.index; });
  if (fill.used < 0 || has_all(fill, *entries)) return;
  errors_.push_back("the modem counts " + std::to_string(fill.used) + " messages, and " +
                    std::to_string(entries->size() + errors_.size()) + " were found");
}

void sms_store_t::read_state(int state, std::vector<sms_entry_t>* entries) {
  listing_t listing = list(state);
  if (listing.all) {
    *entries = std::move(listing.entries);
    return;
  }
  read_all(entries);
  std::erase_if(*entries, [state](const sms_entry_t& entry) { return entry.state != state; });
}

void sms_store_t::remove(int index) { get("AT+CMGD=" + std::to_string(index)); }

// The index counts for nothing beside the kind, but some modems want one that is there.
void sms_store_t::remove_all(int kinds) {
  if (ask("AT+CMGD=1," + std::to_string(kinds)).ok()) return;
  std::vector<sms_entry_t> entries;
  read_all(&entries);
  for (const sms_entry_t& entry : entries) {
    if (kinds == 4 || entry.state == MDX_SMS_READ) remove(entry.index);
  }
}
