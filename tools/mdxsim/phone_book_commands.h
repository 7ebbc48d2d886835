// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "tools/line/at_line.h"
#include "tools/mdxsim/living_modem.h"

namespace mdxsim {

// Handlers of commands, in the sense of modem_commands.h.

Result phone_book_storage(LivingModem& modem, const AtCommand& command);
Result read_phone_book(LivingModem& modem, const AtCommand& command);
Result find_in_phone_book(LivingModem& modem, const AtCommand& command);
Result write_phone_book(LivingModem& modem, const AtCommand& command);
Result own_number(LivingModem& modem, const AtCommand& command);

}  // namespace mdxsim
