// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "tools/line/at_line.h"
#include "tools/mdxsim/living_modem.h"

namespace mdxsim {

/// Ends the packet data connection that was dialled, if there is one.
void end_data_call(ModemState& state);

/// Somebody calls, unless a call is under way.
void let_call_in(LivingModem& modem);

// Handlers of commands, in the sense of modem_commands.h.

Result dial(LivingModem& modem, const AtCommand& command);
Result answer_call(LivingModem& modem, const AtCommand& command);
Result hang_up(LivingModem& modem, const AtCommand& command);
Result caller_identity(LivingModem& modem, const AtCommand& command);
Result extended_ring(LivingModem& modem, const AtCommand& command);
Result current_calls(LivingModem& modem, const AtCommand& command);
Result ussd(LivingModem& modem, const AtCommand& command);

}  // namespace mdxsim
