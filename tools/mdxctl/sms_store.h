// SPDX-License-Identifier: Apache-2.0

// The modem's messages, over as few exchanges as it takes.
//
// While one lives the modem is in PDU mode; at its end, or at a signal that ends the program, it is
// put back into the mode and the memory it was found in. What cannot be had is an sms_failure_t.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "client/mdxclient.h"
#include "tools/mdxctl/client_session.h"
#include "tools/mdxctl/exit_codes.h"
#include "tools/mdxctl/sms_text.h"

class sms_failure_t : public std::runtime_error {
 public:
  sms_failure_t(exit_code_t code, const std::string& reason)
      : std::runtime_error(reason), code_(code) {}
  exit_code_t code() const { return code_; }

 private:
  exit_code_t code_;
};

/// What the modem said, as lines with CR LF.
struct sms_answer_t {
  int32_t ret_val;
  std::string text;
  bool truncated;
  bool ok() const { return ret_val == MDX_RESULT_OK; }
};

/// The refusal of a message command in words: number and meaning of +CMS ERROR, and what to do.
std::string refusal_text(int32_t ret_val, const std::string& text);

/// Values behind a name such as "+CPMS:" in an answer, quotes off. None without such a line.
std::vector<std::string> values_behind(const std::string& answer, const std::string& name);

class sms_store_t {
 public:
  /// @param timeout_s  that the modem has for each answer
  explicit sms_store_t(int32_t timeout_s);
  ~sms_store_t();
  sms_store_t(const sms_store_t&) = delete;
  sms_store_t& operator=(const sms_store_t&) = delete;

  mdx_client_t* client() const { return session_.client(); }

  /// Any answer of the modem's.
  sms_answer_t ask(const std::string& command);
  /// One that has to be OK.
  std::string get(const std::string& command);

  /// The memory that is read and deleted from, such as "SM".
  const std::string& memory();
  /// Reads and deletes from another memory from now on.
  void use_memory(const std::string& name);

  /// All messages, in the order of their numbers. When it fails, `entries` has what was read by
  /// then.
  void read_all(std::vector<sms_entry_t>* entries);
  /// Those of one state, without a look at others if they fit into one answer.
  void read_state(int state, std::vector<sms_entry_t>* entries);
  /// @return false when there is no message of that number
  bool read(int index, sms_entry_t* entry);
  void remove(int index);
  /// @param kinds  as AT+CMGD has it: 1 those read, 4 all
  void remove_all(int kinds);

  /// Messages that are there and could not be read, in words.
  const std::vector<std::string>& errors() const { return errors_; }

  /// Has a command sent at the end, to put back what it undoes.
  void put_back_later(const std::string& command);

 private:
  struct fill_t {
    int used;  ///< -1: not known
    int total;
  };
  struct listing_t {
    std::vector<sms_entry_t> entries;
    bool all;  ///< there are no more of that state
  };
  fill_t look_at_memory();
  std::vector<int> places(const fill_t& fill);
  size_t read_group(const std::vector<int>& places, size_t at, std::vector<sms_entry_t>* entries);
  void read_places(const std::vector<int>& places, const fill_t& fill,
                   std::vector<sms_entry_t>* entries);
  bool has_all(const fill_t& fill, const std::vector<sms_entry_t>& entries) const;
  void read_others(const fill_t& fill, std::vector<sms_entry_t>* entries);
  /// Those of one state, as far as one answer has them.
  listing_t list(int state);
  void add_error(int index, const std::string& text);
  void put_back(mdx_client_t* client);

  int32_t timeout_s_;
  client_session_t session_;
  std::string memory_;
  std::string refusal_;  ///< why the modem does not tell its memory, where it says so
  std::vector<std::string> put_back_;
  std::vector<std::string> errors_;
  bool answer_is_late_ = false;  ///< a listing's, which may come yet
  bool groups_ = true;           ///< the modem takes several commands in a line
  bool guesses_ = false;         ///< where messages are: one that is not there is no error
};
