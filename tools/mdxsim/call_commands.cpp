// SPDX-License-Identifier: Apache-2.0

// Calls as far as reports go, and USSD: 3GPP TS 27.007, 6 and 7.15.
#include "tools/mdxsim/call_commands.h"

#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/mdxsim/modem_commands.h"

namespace mdxsim {
namespace {

using Form = AtCommand::Form;

constexpr Time kUssdTime{800};
constexpr Time kAlertingAfter{300};
constexpr Time kConnectedAfter{1000};
constexpr Time kRingEvery{3000};
constexpr int kMostRings = 8;

// Who hung up or was called in the meantime must not be connected: `serial` tells.
void progress(LivingModem& modem, int serial, Call::State state) {
  std::optional<Call>& call = modem.state.call;
  if (!call || call->serial != serial) return;
  call->state = state;
  if (state == Call::State::kAlerting) return modem.report("^CONF:1");
  call->connected = modem.now();
  modem.report("^CONN:1,0");
}

// Rings until somebody answers, hangs up, or the caller has had enough.
void ring(LivingModem& modem, int serial, int left) {
  std::optional<Call>& call = modem.state.call;
  if (!call || call->serial != serial || call->state != Call::State::kIncoming) return;
  if (left == 0) {
    call.reset();
    return modem.report("NO CARRIER");
  }
  modem.report(modem.state.ring_extended == 1 ? "+CRING: VOICE" : "RING");
  if (modem.state.caller_shown == 1) {
    modem.report("+CLIP: " + dialled_number(call->number) + ",,,,0");
  }
  modem.later(kRingEvery, [serial, left](LivingModem& m) { ring(m, serial, left - 1); });
}

// The menu behind *101#: what it says at its first level, and to each answer there.
constexpr std::string_view kBalance = "Your balance is 12.50 EUR.";
constexpr std::string_view kMenu = "1 Balance\n2 Data left\n0 End";

void say_ussd(LivingModem& modem, int mode, std::string_view text) {
  std::string line = "+CUSD: " + std::to_string(mode);
  if (!text.empty()) line += "," + quoted(shown_text(modem.state, text)) + ",15";
  modem.later(kUssdTime, [line](LivingModem& m) { m.report(line); });
}

void serve_ussd(LivingModem& modem, const std::string& code) {
  int& level = modem.state.ussd_level;
  if (code == "*100#") return say_ussd(modem, 0, kBalance);
  if (code == "*101#") {
    level = 1;
    return say_ussd(modem, 1, kMenu);
  }
  if (level == 1 && code == "1") {
    level = 0;
    return say_ussd(modem, 0, kBalance);
  }
  if (level == 1 && code == "2") {
    level = 0;
    return say_ussd(modem, 0, "1.5 GB are left.");
  }
  const bool ended = level == 1 && code == "0";
  level = 0;
  say_ussd(modem, ended ? 2 : 4, "");
}

// *99# or *99***<cid>#
Result dial_packet_data(LivingModem& modem, const std::string& number) {
  ModemState& state = modem.state;
  const size_t stars = number.rfind('*');
  const std::optional<int> cid =
      stars == 0 ? 1 : parse_number(number.substr(stars + 1, number.size() - stars - 2));
  if (!state.registered || !state.attached || !cid || !state.contexts.contains(*cid)) {
    return {Result::Kind::kNoCarrier};
  }
  end_data_call(state);
  state.dialled_context = *cid;
  state.contexts[*cid].active = true;
  return {Result::Kind::kConnect};
}

}  // namespace

void let_call_in(LivingModem& modem) {
  if (modem.state.call || !modem.state.registered) return;
  const int serial = ++modem.state.last_call;
  modem.state.call = Call{serial, Call::State::kIncoming, std::string(kOtherNumber), Time{0}, true};
  ring(modem, serial, kMostRings);
}

void end_data_call(ModemState& state) {
  const auto dialled = state.contexts.find(std::exchange(state.dialled_context, 0));
  if (dialled != state.contexts.end()) dialled->second.active = false;
}

// ATD+49123; is a voice call; ATD*99# opens the packet data connection. The terminal goes on taking
// commands behind CONNECT: the data take another way, as in a device with a network interface.
Result dial(LivingModem& modem, const AtCommand& command) {
  std::string number = command.value;
  if (number.starts_with('T') || number.starts_with('P')) number.erase(0, 1);  // tones or pulses
  if (number.starts_with("*99") && number.ends_with("#")) return dial_packet_data(modem, number);
  if (number.empty() ||
      number.find_first_not_of("0123456789*#+ABCDTPabcdtp,") != std::string::npos) {
    return kError;
  }
  if (modem.state.call) return kNotAllowed;
  if (!modem.state.registered) return {Result::Kind::kNoCarrier};
  const int serial = ++modem.state.last_call;
  modem.state.call = Call{serial, Call::State::kDialing, number, Time{0}, false};
  modem.later(Time{1}, [](LivingModem& m) { m.report("^ORIG:1,0"); });
  modem.later(kAlertingAfter,
              [serial](LivingModem& m) { progress(m, serial, Call::State::kAlerting); });
  modem.later(kConnectedAfter,
              [serial](LivingModem& m) { progress(m, serial, Call::State::kActive); });
  return kOk;
}

Result hang_up(LivingModem& modem, const AtCommand&) {
  end_data_call(modem.state);
  if (!modem.state.call) return kOk;
  const Call call = *modem.state.call;
  modem.state.call.reset();
  const bool was_connected = call.state == Call::State::kActive;
  const auto seconds = was_connected ? (modem.now() - call.connected).count() / 1000 : Time::rep{0};
  const std::string line = "^CEND:1," + std::to_string(seconds) + ",104,16";
  modem.later(Time{1}, [line](LivingModem& m) { m.report(line); });
  return kOk;
}

Result answer_call(LivingModem& modem, const AtCommand&) {
  std::optional<Call>& call = modem.state.call;
  if (!call || call->state != Call::State::kIncoming) return {Result::Kind::kNoCarrier};
  call->state = Call::State::kActive;
  call->connected = modem.now();
  modem.later(Time{1}, [](LivingModem& m) { m.report("^CONN:1,0"); });
  return kOk;
}

Result caller_identity(LivingModem& modem, const AtCommand& command) {
  int& shown = modem.state.caller_shown;
  return number_setting(modem, command, shown, 1, std::to_string(shown) + ",1");
}

Result extended_ring(LivingModem& modem, const AtCommand& command) {
  return number_setting(modem, command, modem.state.ring_extended, 1);
}

Result current_calls(LivingModem& modem, const AtCommand& command) {
  if (command.form == Form::kTest || !modem.state.call) return kOk;
  const Call& call = *modem.state.call;
  return say_text(modem, command,
                  std::string("+CLCC: 1,") + (call.incoming ? "1," : "0,") +
                      std::to_string(static_cast<int>(call.state)) + ",0,0," +
                      dialled_number(call.number));
}

// +CUSD=1,"*100#"[,15]: the network's word comes after the OK. *101# opens a menu.
Result ussd(LivingModem& modem, const AtCommand& command) {
  ModemState& state = modem.state;
  if (command.form == Form::kTest) {
    modem.say("+CUSD: (0-2)");
    return kOk;
  }
  if (command.form == Form::kRead) {
    modem.say("+CUSD: " + std::to_string(state.ussd_reports));
    return kOk;
  }
  const std::vector<std::string> parameters = split_parameters(command.value);
  const std::optional<int> mode = parse_number(parameter(parameters, 0));
  if (!mode || *mode > 2) return kIncorrectParameters;
  if (*mode < 2) state.ussd_reports = *mode;
  if (*mode == 2) state.ussd_level = 0;
  if (*mode == 2 || parameter(parameters, 1).empty()) return kOk;
  const std::string code = read_text(state, parameter(parameters, 1));
  if (code.find_first_not_of("0123456789*#") != std::string::npos) return kIncorrectParameters;
  if (!state.registered) return kNoNetworkService;
  serve_ussd(modem, code);
  return kOk;
}

}  // namespace mdxsim
