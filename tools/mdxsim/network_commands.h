// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "tools/line/at_line.h"
#include "tools/mdxsim/living_modem.h"

namespace mdxsim {

// Handlers of commands, in the sense of modem_commands.h.

Result circuit_registration(LivingModem& modem, const AtCommand& command);
Result packet_registration(LivingModem& modem, const AtCommand& command);
Result evolved_registration(LivingModem& modem, const AtCommand& command);
Result signal_quality(LivingModem& modem, const AtCommand& command);
Result signal_quality_extended(LivingModem& modem, const AtCommand& command);
Result signal_details(LivingModem& modem, const AtCommand& command);
Result system_information(LivingModem& modem, const AtCommand& command);
Result operator_selection(LivingModem& modem, const AtCommand& command);
Result functionality(LivingModem& modem, const AtCommand& command);
Result packet_attachment(LivingModem& modem, const AtCommand& command);
Result define_context(LivingModem& modem, const AtCommand& command);
Result activate_context(LivingModem& modem, const AtCommand& command);
Result context_address(LivingModem& modem, const AtCommand& command);
Result clock_setting(LivingModem& modem, const AtCommand& command);

}  // namespace mdxsim
