// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "tools/line/at_line.h"
#include "tools/mdxsim/living_modem.h"

namespace mdxsim {

// Handlers of commands, in the sense of modem_commands.h.

Result send_message(LivingModem& modem, const AtCommand& command);
Result write_message(LivingModem& modem, const AtCommand& command);
Result read_message(LivingModem& modem, const AtCommand& command);
Result list_messages(LivingModem& modem, const AtCommand& command);
Result delete_messages(LivingModem& modem, const AtCommand& command);
Result message_memory(LivingModem& modem, const AtCommand& command);
Result message_news(LivingModem& modem, const AtCommand& command);
Result message_details(LivingModem& modem, const AtCommand& command);
Result acknowledge_message(LivingModem& modem, const AtCommand& command);
Result message_service(LivingModem& modem, const AtCommand& command);
Result service_centre(LivingModem& modem, const AtCommand& command);

/// A message comes in: it is stored and told of, or told, as +CNMI says.
void let_message_in(LivingModem& modem, const std::string& pdu);

}  // namespace mdxsim
