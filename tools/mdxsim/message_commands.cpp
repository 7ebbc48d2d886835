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
constexpr Result kMemoryFull{Kind::kCmsError, 322};

constexpr int kLongestTpdu = 164;

// The message that a body makes: in PDU mode the body, in text mode one for `number`. Empty if
// invalid.
std::string pdu_from_body(const LivingModem& modem, std::string body, int length,
                          const std::string& number) {
  if (modem.state.message_format == 1) return submit_pdu(number, body);
  std::erase_if(body, [](char c) { return c == '\r' || c == '\n' || c == ' '; });
  return tpdu_length(body) == length ? body : std::string();
}

using MessageUse = Result (*)(LivingModem& modem, const std::string& pdu);

// +CMGS=22 and +CMGW=22 in PDU mode, +CMGS="+49123" in text mode; then the prompt and the body.
Result take_message(LivingModem& modem, const AtCommand& command, MessageUse use) {
  if (command.form == Form::kTest) return kOk;
  const std::string first = parameter(split_parameters(command.value), 0);
  const bool text_mode = modem.state.message_format == 1;
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

// Header and body of a message behind "+CMGR: " or "+CMGL: <index>,".
std::string message_lines(const StoredMessage& message, bool text_mode) {
  const auto state = static_cast<size_t>(message.state);
  if (!text_mode) {
    return std::to_string(state) + ",," + std::to_string(tpdu_length(message.pdu)) + "\r\n" +
           message.pdu;
  }
  const MessageText shown = read_pdu(message.pdu);
  return quoted(kStateNames[state]) + "," + quoted(shown.number) + ",\r\n" + shown.text;
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
  return take_message(modem, command, [](LivingModem& m, const std::string&) {
    m.state.message_reference = (m.state.message_reference + 1) % 256;
    m.say("+CMGS: " + std::to_string(m.state.message_reference));
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
  modem.say("+CMGR: " + message_lines(found->second, modem.state.message_format == 1));
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
    lines += "+CMGL: " + std::to_string(index) + "," + message_lines(message, text_mode);
    mark_read(message);
  }
  if (!lines.empty()) modem.say(lines);
  return kOk;
}

// +CMGD=<index>[,<flag>]: without a flag that one; 1 the read ones, 2 and the sent, 3 and the
// unsent, 4 all, whatever the index.
Result delete_messages(LivingModem& modem, const AtCommand& command) {
  if (command.form == Form::kTest) return kOk;
  auto& messages = modem.state.store.messages();
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

}  // namespace mdxsim
