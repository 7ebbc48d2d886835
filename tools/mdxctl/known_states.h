// SPDX-License-Identifier: Apache-2.0

// What the server remembers of what the modem told. The modem is not asked.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "client/mdxclient.h"

/// Whether the modem is there, and for how long.
struct modem_link_t {
  bool up;
  uint32_t age_s;
};

struct known_state_t {
  std::string word;    ///< such as "signal"
  std::string name;    ///< the packet's
  std::string values;  ///< in words, one blank in front
  uint32_t age_s;
  nlohmann::ordered_json object;  ///< as packet_json
};

/// @return mdx_error_t; MDX_ERR_TIMEOUT when the server does not tell, as an older one
int fetch_link(modem_link_t* link);
int fetch_states(modem_link_t* link, std::vector<known_state_t>* states);

/// Whether the modem has been there ever since the state was told.
bool is_current(const known_state_t& state, const modem_link_t& link);

/// "up", "age_s".
nlohmann::ordered_json link_json(const modem_link_t& link);

/// "the modem is gone since 14:03:12, 3 min 20 s ago", or the same of one that is there.
std::string link_text(const modem_link_t& link);

/// Says so on standard error when the modem is gone: what follows is old.
void warn_if_gone(const modem_link_t& link);
