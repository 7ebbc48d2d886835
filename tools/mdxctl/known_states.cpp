// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxctl/known_states.h"

#include <functional>
#include <iostream>
#include <string_view>

#include "tools/mdxctl/output.h"
#include "tools/words/duration.h"
#include "tools/words/packet_text.h"
#include "tools/words/state_words.h"
#include "tools/words/time_text.h"

namespace {

/// It is told at once; a busy machine may take its time.
constexpr int32_t kServerPatienceMs = 10000;

bool is_link(const mdx_packet_t& packet) {
  return packet.kind == MDX_KIND_SERVICE && std::string_view(packet.to) == MDX_SERVICE_LINK;
}

/// Takes the packets that were told before, up to that of the link, which is the last.
int take_remembered(mdx_subscription_t* subscription, modem_link_t* link,
                    const std::function<void(const mdx_packet_t&)>& take) {
  mdx_packet_t packet = MDX_PACKET_INIT;
  for (;;) {
    const int error = mdx_next_packet(subscription, kServerPatienceMs, &packet);
    if (error != MDX_OK) return error;
    if (packet.remembered == 0) return MDX_ERR_TIMEOUT;  // they come at once, or not at all
    if (is_link(packet)) break;
    take(packet);
  }
  *link = {packet.type == MDX_LINK_UP, packet.age_s};
  return MDX_OK;
}

int fetch(const char* service, modem_link_t* link,
          const std::function<void(const mdx_packet_t&)>& take) {
  mdx_subscribe_options_t options = MDX_SUBSCRIBE_OPTIONS_INIT;
  options.service = service;
  options.last = 1;
  mdx_subscription_t* subscription = nullptr;
  int error = mdx_subscribe_with(&subscription, &options);
  if (error == MDX_OK) error = take_remembered(subscription, link, take);
  mdx_unsubscribe(subscription);
  return error;
}

}  // namespace

int fetch_link(modem_link_t* link) {
  return fetch(MDX_SERVICE_LINK, link, [](const mdx_packet_t&) {});
}

int fetch_states(modem_link_t* link, std::vector<known_state_t>* states) {
  return fetch(MDX_EVERYTHING, link, [&](const mdx_packet_t& packet) {
    const std::string name = packet_name(packet);
    states->push_back({std::string(state_word(name)), name, packet_values(packet), packet.age_s,
                       packet_json(packet)});
  });
}

bool is_current(const known_state_t& state, const modem_link_t& link) {
  return link.up && state.age_s <= link.age_s;
}

nlohmann::ordered_json link_json(const modem_link_t& link) {
  return {{"up", link.up}, {"age_s", link.age_s}};
}

std::string link_text(const modem_link_t& link) {
  return std::string("the modem is ") + (link.up ? "there" : "gone") + " since " +
         past_time_text(link.age_s) + ", " + duration_text(link.age_s) + " ago";
}

void warn_if_gone(const modem_link_t& link) {
  if (link.up) return;
  tell(link_text(link) + "; what it told before may no longer be true");
}
