// SPDX-License-Identifier: Apache-2.0

// A modem's bytes to the assembler of deliveries. A tilde and the byte behind it stand for what
// happens between bytes: something is sent, time passes, the link is lost or opened, the server
// waits no longer.

#include "platform/linux/delivery.h"
#include "fuzz/fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::input input(data, size);
  delivery_assembler assembler;
  uint64_t now = 1000;
  const auto hand_over = [&](bool more_waiting) {
    for (;;) {
      const std::string_view delivery = assembler.next(now, more_waiting);
      if (delivery.empty()) return;
      fuzz::require(delivery.size() <= kDeliveryMaxBytes);
      assembler.taken();
    }
  };
  const auto look = [&] {
    hand_over(false);
    const delivery_assembler::step_t step = assembler.step(now);
    if (step == delivery_assembler::step_t::escape) assembler.debt().escaped(now);
    if (step == delivery_assembler::step_t::clean) assembler.debt().settled();
  };
  while (!input.empty()) {
    const std::string said = input.piece('~');
    for (size_t used = 0; used < said.size();) {
      used += assembler.received(said.data() + used, said.size() - used, now);
      hand_over(used < said.size());
    }
    const uint8_t what = input.byte();
    const std::string sent = what % 3 == 0 ? input.piece('\r') + '\r' : "";
    if (what % 3 == 0) assembler.sent(sent.data(), sent.size());
    if (what % 3 == 1) now += what;
    if (what == 2) assembler.link_lost();
    if (what == 5) assembler.debt().opened(now, {1, 0, 0});
    if (what == 8) assembler.debt().exchange_ended(true);
    look();
    if (assembler.due() == delivery_assembler::kNever) continue;
    now = std::max(now, assembler.due());
    for (int looks = 0; assembler.due() <= now; ++looks) {
      fuzz::require(looks < 100);
      look();
    }
  }
  return 0;
}
