// SPDX-License-Identifier: Apache-2.0

// A handle of the library for the length of a subcommand.
#pragma once

#include "client/mdxclient.h"

class client_session_t {
 public:
  client_session_t() : error_(mdx_open(&client_)) {}
  ~client_session_t() { mdx_close(client_); }
  client_session_t(const client_session_t&) = delete;
  client_session_t& operator=(const client_session_t&) = delete;

  mdx_client_t* client() const { return client_; }
  int error() const { return error_; }

 private:
  mdx_client_t* client_ = nullptr;
  int error_;
};
