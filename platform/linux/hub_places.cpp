// SPDX-License-Identifier: Apache-2.0

#include "platform/linux/hub_places.h"

namespace {

size_t places_of(uid_t user, const hub_place_t* places, size_t count) {
  size_t held = 0;
  for (size_t i = 0; i < count; ++i) held += places[i].user == user ? 1 : 0;
  return held;
}

}  // namespace

size_t place_to_give_up(const hub_place_t* places, size_t count, uid_t newcomer) {
  size_t most = places_of(newcomer, places, count) + 1;
  size_t given = count;
  for (size_t i = 0; i < count; ++i) {
    const size_t held = places_of(places[i].user, places, count);
    if (held < most || (held == most && given == count)) continue;
    if (held == most && places[i].number < places[given].number) continue;
    most = held;
    given = i;
  }
  return given;
}
