// SPDX-License-Identifier: Apache-2.0

// mdxctl sms list, read, delete: the messages that the modem keeps.

#include <unistd.h>

#include <iostream>

#include "tools/mdxctl/output.h"
#include "tools/mdxctl/sms_commands.h"
#include "tools/mdxctl/sms_store.h"

using nlohmann::ordered_json;

namespace {

constexpr int32_t kTimeoutS = 10;

void print(const ordered_json& object) {
  std::cout << object.dump(-1, ' ', false, ordered_json::error_handler_t::replace) << std::endl;
}

/// What came of a verb.
struct outcome_t {
  std::string memory;
  std::vector<sms_entry_t> entries;
  std::vector<int> deleted;
  std::vector<std::string> errors;
  exit_code_t code = EXIT_OK;
};

/// Runs a verb; what it cannot have becomes an error beside what it had by then.
template <typename Verb>
outcome_t run(const std::optional<int32_t>& timeout_s, Verb verb) {
  outcome_t outcome;
  try {
    sms_store_t store(timeout_s.value_or(kTimeoutS));
    try {
      verb(store, &outcome);
      outcome.memory = store.memory();
    } catch (const sms_failure_t& failure) {
      outcome.errors.push_back(failure.what());
      outcome.code = failure.code();
    }
    outcome.errors.insert(outcome.errors.begin(), store.errors().begin(), store.errors().end());
  } catch (const sms_failure_t& failure) {
    outcome.errors.push_back(failure.what());
    outcome.code = failure.code();
  }
  if (!outcome.errors.empty() && outcome.code == EXIT_OK) outcome.code = EXIT_MODEM_ERROR;
  return outcome;
}

int show_errors(const outcome_t& outcome) {
  for (const std::string& error : outcome.errors) tell(error);
  return outcome.code;
}

int show_messages(const outcome_t& outcome, bool json) {
  const std::vector<sms_joined_t> messages = join_entries(outcome.entries);
  if (json) {
    ordered_json object = {{"memory", outcome.memory}, {"messages", ordered_json::array()}};
    for (const sms_joined_t& message : messages) object["messages"].push_back(sms_json(message));
    if (!outcome.errors.empty()) object["errors"] = outcome.errors;
    print(object);
  } else {
    for (const sms_joined_t& message : messages) std::cout << sms_lines(message);
    std::cout << std::flush;
    if (messages.empty() && outcome.errors.empty()) std::cerr << "no messages" << std::endl;
  }
  return show_errors(outcome);
}

bool wanted(const sms_entry_t& entry, const sms_list_arguments_t& arguments) {
  if (arguments.all) return true;
  if (arguments.sent) return entry.state == MDX_SMS_SENT;
  if (arguments.unread) return entry.state == MDX_SMS_UNREAD;
  return entry.state == MDX_SMS_UNREAD || entry.state == MDX_SMS_READ;
}

/// @return false when the person at the terminal says no
bool confirmed(const sms_delete_arguments_t& arguments) {
  std::string what = arguments.all    ? "all messages, unread and unsent ones too"
                     : arguments.read ? "all messages that were read"
                                      : "message";
  for (const uint32_t number : arguments.numbers) what += ' ' + std::to_string(number);
  std::cerr << "Delete " << what << "? [y/N] " << std::flush;
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

}  // namespace

int run_sms_list(const sms_list_arguments_t& arguments) {
  outcome_t outcome = run(arguments.timeout_s, [&](sms_store_t& store, outcome_t* out) {
    if (arguments.sent) return store.read_state(MDX_SMS_SENT, &out->entries);
    store.read_all(&out->entries);
  });
  std::erase_if(outcome.entries, [&](const auto& entry) { return !wanted(entry, arguments); });
  return show_messages(outcome, arguments.json);
}

int run_sms_read(const sms_read_arguments_t& arguments) {
  const outcome_t outcome = run(arguments.timeout_s, [&](sms_store_t& store, outcome_t* out) {
    for (const uint32_t number : arguments.numbers) {
      const size_t errors = store.errors().size();
      sms_entry_t entry;
      if (store.read(static_cast<int>(number), &entry)) {
        out->entries.push_back(entry);
      } else if (store.errors().size() == errors) {
        out->errors.push_back("there is no message " + std::to_string(number) +
                              ": see mdxctl sms list --all");
      }
    }
  });
  return show_messages(outcome, arguments.json);
}

int run_sms_delete(const sms_delete_arguments_t& arguments) {
  const bool many = arguments.all || arguments.read;
  if (!many && arguments.numbers.empty()) {
    tell("which messages? Give their numbers, --read or --all");
    return EXIT_USAGE;
  }
  const bool asks = !arguments.yes && isatty(STDIN_FILENO) != 0;
  if (many && !arguments.yes && !asks) {
    tell("nothing was deleted: there is no terminal to ask on; say --yes");
    return EXIT_USAGE;
  }
  if (asks && !confirmed(arguments)) {
    std::cerr << "nothing was deleted" << std::endl;
    return EXIT_OK;
  }
  const outcome_t outcome = run(arguments.timeout_s, [&](sms_store_t& store, outcome_t* out) {
    if (many) store.remove_all(arguments.all ? 4 : 1);
    for (const uint32_t number : arguments.numbers) {
      store.remove(static_cast<int>(number));
      out->deleted.push_back(static_cast<int>(number));
    }
  });
  if (arguments.json) {
    ordered_json object = {{"memory", outcome.memory}, {"deleted", outcome.deleted}};
    if (many) object["deleted"] = arguments.all ? "all" : "read";
    if (!outcome.errors.empty()) object["errors"] = outcome.errors;
    print(object);
  }
  return show_errors(outcome);
}
