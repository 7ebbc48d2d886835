// SPDX-License-Identifier: Apache-2.0

// The commands of 3GPP TS 27.005: messages on the card, and those that are sent.
#include "tools/mdxsim/message_commands.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "tools/mdxsim/message_store.h"
#include "tools/mdxsim/modem_commands.h"

namespace mdxsim {
namespace {

using Form = AtCommand::Form;
using Kind = Result::Kind;

constexpr Result kMessageNotAllowed{Kind::kCmsError, 302};
constexpr Result kInvalidPduParameter{Kind::kCmsError, 304};
constexpr Result kInvalidTextParameter{Kind::kCmsError, 305};
constexpr Result kInvalidMemoryIndex{Kind::kCmsError, 321};
constexpr Result kNothingToAcknowledge{Kind::kCmsError, 340};
constexpr Result kMemoryFull{Kind::kCmsError, 322};

constexpr int kLongestTpdu = 164;

// The message that a body makes: in PDU mode the body, in text mode one for `number`. Empty if
// invalid.
std::string pdu_from_body(const LivingModem& modem, std::string body, int length,
                          const std::string& number) {
  if (modem.state.message_format == 1) return submit_pdu(number, read_text(modem.state, body));
  std::erase_if(body, [](char c) { return c == '\r' || c == '\n' || c == ' '; });
  return tpdu_length(body) == length ? body : std::string();
}

using MessageUse = Result (*)(LivingModem& modem, const std::string& pdu);

// +CMGS=22 and +CMGW=22 in PDU mode, +CMGS="+49123" in text mode; then the prompt and the body.
Result take_message(LivingModem& modem, const AtCommand& command, MessageUse use) {
  if (command.form == Form::kTest) return kOk;
  const bool text_mode = modem.state.message_format == 1;
  const std::string given = parameter(split_parameters(command.value), 0);
  const std::string first = text_mode ? read_text(modem.state, given) : given;
  const std::optional<int> length = parse_number(first);
  if (text_mode) {
    const std::string digits = first.substr(first.starts_with('+') ? 1 : 0);
    if (digits.empty() || digits.size() > 20 ||
        digits.find_first_not_of("0123456789") != std::string::npos) {
      return kInvalidTextParameter;
    }
  } else if (!length || *length < 1 || *length > kLongestTpdu) {
    return kInvalidPduParameter;
  }
  modem.ask_for_message([use, first, length](LivingModem& m, const std::string& body) {
    const std::string pdu = pdu_from_body(m, body, length.value_or(0), first);
    return pdu.empty() ? kInvalidPduParameter : use(m, pdu);
  });
  return {Result::Kind::kPrompt};
}

constexpr std::string_view kStateNames[] = {"REC UNREAD", "REC READ", "STO UNSENT", "STO SENT"};
constexpr int kAllMessages = 4;

// What +CSDH=1 adds to a heading: types, first octet, protocol, coding, service centre, length.
std::string details_of(const LivingModem& modem, const MessageText& shown) {
  if (modem.state.message_details == 0) return "";
  return std::string(shown.number.starts_with('+') ? ",145," : ",129,") +
         std::to_string(shown.type) + ",0," + std::to_string(shown.coding) + "," +
         shown_number(modem.state, modem.state.service_centre) + "," + std::to_string(shown.length);
}

// Number, name and time, and what follows the line.
std::string heading_and_text(const LivingModem& modem, const MessageText& shown) {
  return quoted(shown_text(modem.state, shown.number)) + "," +
         (shown.time.empty() ? "" : "," + quoted(shown.time)) + details_of(modem, shown) + "\r\n" +
         (shown.plain ? shown_text(modem.state, shown.text) : shown.text);
}

// Header and body of a message behind "+CMGR: " or "+CMGL: <index>,".
std::string message_lines(const LivingModem& modem, const StoredMessage& message) {
  const auto state = static_cast<size_t>(message.state);
  if (modem.state.message_format == 0) {
    return std::to_string(state) + ",," + std::to_string(tpdu_length(message.pdu)) + "\r\n" +
           message.pdu;
  }
  return quoted(kStateNames[state]) + "," + heading_and_text(modem, read_pdu(message.pdu));
}

void mark_read(StoredMessage& message) {
  if (message.state == MessageState::kReceivedUnread) message.state = MessageState::kReceivedRead;
}

// The state that +CMGL asks for, a number in PDU mode and a word in text mode; -1 when it is
// neither.
int listed_state(const std::string& asked, bool text_mode) {
  if (asked.empty()) return 0;
  if (!text_mode) {
    const std::optional<int> number = parse_number(asked);
    return number && *number <= kAllMessages ? *number : -1;
  }
  if (asked == "ALL") return kAllMessages;
  const auto* found = std::find(std::begin(kStateNames), std::end(kStateNames), asked);
  return found == std::end(kStateNames) ? -1 : static_cast<int>(found - std::begin(kStateNames));
}

}  // namespace

Result send_message(LivingModem& modem, const AtCommand& command) {
  if (!modem.state.registered) return {Kind::kCmsError, 331};
  return take_message(modem, command, [](LivingModem& m, const std::string& pdu) {
    // Who writes to its own number gets it back.
    if (read_pdu(pdu).number == kOwnNumber) {
      m.deliver_later(delivered_pdu(kOwnNumber, clock_text(m), pdu));
    }
    m.state.message_reference = (m.state.message_reference + 1) % 256;
    m.say("+CMGS: " + std::to_string(m.state.message_reference));
    if (asks_for_status_report(pdu)) {
      m.deliver_later(status_report_pdu(pdu, m.state.message_reference, clock_text(m)));
    }
    return kOk;
  });
}

Result write_message(LivingModem& modem, const AtCommand& command) {
  return take_message(modem, command, [](LivingModem& m, const std::string& pdu) {
    const int index = m.state.store.add({MessageState::kStoredUnsent, pdu});
    if (index < 0) return kMemoryFull;
    m.say("+CMGW: " + std::to_string(index));
    return kOk;
  });
}

Result read_message(LivingModem& modem, const AtCommand& command) {
  if (command.form == Form::kTest) return kOk;
  auto& messages = modem.state.store.messages();
  const std::optional<int> index = parse_number(parameter(split_parameters(command.value), 0));
  const auto found = index ? messages.find(*index) : messages.end();
  if (found == messages.end()) return kInvalidMemoryIndex;
  modem.say("+CMGR: " + message_lines(modem, found->second));
  mark_read(found->second);
  return kOk;
}

Result list_messages(LivingModem& modem, const AtCommand& command) {
  const bool text_mode = modem.state.message_format == 1;
  if (command.form == Form::kTest) {
    modem.say(text_mode ? "+CMGL: (\"REC UNREAD\",\"REC READ\",\"STO UNSENT\",\"STO SENT\",\"ALL\")"
                        : "+CMGL: (0-4)");
    return kOk;
  }
  const int wanted = listed_state(parameter(split_parameters(command.value), 0), text_mode);
  if (wanted < 0) return text_mode ? kInvalidTextParameter : kInvalidPduParameter;
  std::string lines;
  for (auto& [index, message] : modem.state.store.messages()) {
    if (wanted != kAllMessages && static_cast<int>(message.state) != wanted) continue;
    if (!lines.empty()) lines += "\r\n";
    lines += "+CMGL: " + std::to_string(index) + "," + message_lines(modem, message);
    mark_read(message);
  }
  if (!lines.empty()) modem.say(lines);
  return kOk;
}

// +CMGD=<index>[,<flag>]: without a flag that one; 1 the read ones, 2 and the sent, 3 and the
// unsent, 4 all, whatever the index.
Result delete_messages(LivingModem& modem, const AtCommand& command) {
  auto& messages = modem.state.store.messages();
  if (command.form == Form::kTest) {
    std::string indexes;
    for (const auto& [index, message] : messages) {
      indexes += (indexes.empty() ? "" : ",") + std::to_string(index);
    }
    modem.say("+CMGD: (" + indexes + "),(0-4)");
    return kOk;
  }
  const std::vector<std::string> parameters = split_parameters(command.value);
  const std::optional<int> index = parse_number(parameter(parameters, 0));
  const std::optional<int> flag =
      parameters.size() > 1 ? parse_number(parameters[1]) : std::optional<int>(0);
  if (!index || !flag || *flag > 4) return kInvalidMemoryIndex;
  if (*flag == 0) return messages.erase(*index) == 1 ? kOk : kInvalidMemoryIndex;
  std::erase_if(messages, [&](const auto& entry) {
    const MessageState state = entry.second.state;
    if (state == MessageState::kReceivedUnread) return *flag == 4;
    if (state == MessageState::kStoredSent) return *flag >= 2;
    return state == MessageState::kReceivedRead || *flag >= 3;
  });
  return kOk;
}

Result message_memory(LivingModem& modem, const AtCommand& command) {
  if (command.form == Form::kTest) {
    modem.say("+CPMS: (\"SM\"),(\"SM\"),(\"SM\")");
    return kOk;
  }
  const std::vector<std::string> memories = split_parameters(command.value);
  if (command.form == Form::kSet && std::any_of(memories.begin(), memories.end(),
                                                [](const auto& name) { return name != "SM"; })) {
    return kMessageNotAllowed;
  }
  const std::string fill = std::to_string(modem.state.store.messages().size()) + "," +
                           std::to_string(MessageStore::kCapacity);
  const std::string memory = (command.form == Form::kRead ? "\"SM\"," : "") + fill;
  modem.say("+CPMS: " + memory + "," + memory + "," + memory);
  return kOk;
}

namespace {

// A message that the host gets as it is; in phase 2+ it has to acknowledge it.
void hand_over(LivingModem& modem, const std::string& line) {
  modem.state.unacknowledged += modem.state.message_service;
  modem.report(line);
}

// What became of a message; shown as a PDU, whatever the format.
void let_status_report_in(LivingModem& modem, const std::string& pdu) {
  const ModemState& state = modem.state;
  if (state.news_mode == 0 || state.news_delivered == 0) return;
  if (state.news_delivered == 1) {
    return hand_over(modem, "+CDS: " + std::to_string(tpdu_length(pdu)) + "\r\n" + pdu);
  }
  const int index = modem.state.store.add({MessageState::kReceivedUnread, pdu});
  if (index < 0) return modem.report("^SMMEMFULL: \"SM\"");
  modem.report("+CDSI: \"SM\"," + std::to_string(index));
}

}  // namespace

void let_message_in(LivingModem& modem, const std::string& pdu) {
  const ModemState& state = modem.state;
  if (!state.registered || pdu.empty()) return;
  if (is_status_report(pdu)) return let_status_report_in(modem, pdu);
  const bool told = state.news_mode != 0;
  if (state.news_messages == 2 && told) {
    const std::string line = state.message_format == 1
                                 ? heading_and_text(modem, read_pdu(pdu))
                                 : "," + std::to_string(tpdu_length(pdu)) + "\r\n" + pdu;
    return hand_over(modem, "+CMT: " + line);
  }
  const int index = modem.state.store.add({MessageState::kReceivedUnread, pdu});
  if (index < 0) return modem.report("^SMMEMFULL: \"SM\"");
  if (state.news_messages != 0 && told) modem.report("+CMTI: \"SM\"," + std::to_string(index));
}

// +CNMI=<mode>,<messages>,<broadcasts>,<status reports>,<buffer>: those that are left out stay.
Result message_news(LivingModem& modem, const AtCommand& command) {
  ModemState& state = modem.state;
  int* const settings[] = {&state.news_mode, &state.news_messages, &state.news_broadcasts,
                           &state.news_delivered, &state.news_buffer};
  constexpr int kHighest[] = {2, 3, 3, 2, 1};
  if (command.form == Form::kTest) {
    modem.say("+CNMI: (0-2),(0-3),(0-3),(0-2),(0,1)");
    return kOk;
  }
  if (command.form == Form::kRead) {
    std::string values;
    for (const int* value : settings)
      values += (values.empty() ? "" : ",") + std::to_string(*value);
    modem.say("+CNMI: " + values);
    return kOk;
  }
  const std::vector<std::string> given = split_parameters(command.value);
  if (command.form != Form::kSet || given.size() > std::size(settings)) return kMessageNotAllowed;
  std::vector<int> wanted;
  for (size_t i = 0; i < given.size(); ++i) {
    const std::optional<int> number = given[i].empty() ? *settings[i] : parse_number(given[i]);
    if (!number || *number > kHighest[i]) return kMessageNotAllowed;
    wanted.push_back(*number);
  }
  for (size_t i = 0; i < wanted.size(); ++i) *settings[i] = wanted[i];
  return kOk;
}

Result message_details(LivingModem& modem, const AtCommand& command) {
  return number_setting(modem, command, modem.state.message_details, 1);
}

// +CSMS=0: messages can be received, sent and broadcast.
Result message_service(LivingModem& modem, const AtCommand& command) {
  int& service = modem.state.message_service;
  const Result result =
      number_setting(modem, command, service, 1, std::to_string(service) + ",1,1,1");
  if (command.form == Form::kSet && result.kind == Kind::kOk) modem.say("+CSMS: 1,1,1");
  return result;
}

Result acknowledge_message(LivingModem& modem, const AtCommand& command) {
  if (command.form == Form::kTest) return kOk;
  if (modem.state.unacknowledged == 0) return kNothingToAcknowledge;
  --modem.state.unacknowledged;
  return kOk;
}

// +CSCA="+15550199"[,145]
Result service_centre(LivingModem& modem, const AtCommand& command) {
  if (command.form == Form::kTest) return kOk;
  if (command.form == Form::kRead) {
    modem.say("+CSCA: " + shown_number(modem.state, modem.state.service_centre));
    return kOk;
  }
  const std::vector<std::string> parameters = split_parameters(command.value);
  std::string number = read_text(modem.state, parameter(parameters, 0));
  if (parameter(parameters, 1) == "145" && !number.starts_with('+')) number.insert(0, 1, '+');
  const bool digits =
      number.find_first_not_of("0123456789", number.starts_with('+') ? 1 : 0) == number.npos;
  if (command.form != Form::kSet || number.size() < 2 || number.size() > 21 || !digits) {
    return kInvalidTextParameter;
  }
  modem.state.service_centre = number;
  return kOk;
}

}  // namespace mdxsim
