// SPDX-License-Identifier: Apache-2.0

// What the living modem's commands do.
#include "tools/mdxsim/modem_commands.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <optional>
#include <vector>

#include "tools/mdxsim/message_commands.h"

namespace mdxsim {
namespace {

using Form = AtCommand::Form;

constexpr Time kUssdTime{800};
constexpr Time kAlertingAfter{300};
constexpr Time kConnectedAfter{1000};
constexpr std::string_view kImei = "490154203237518";
constexpr std::string_view kImsi = "001010123456789";

struct Operator {
  std::string_view long_name;
  std::string_view short_name;
  std::string_view numeric;
};
constexpr Operator kHomeOperator{"Example Mobile", "Example", "00101"};
constexpr Operator kOtherOperator{"Other Mobile", "Other", "00102"};

template <typename... Numbers>
std::string formatted(const char* format, Numbers... numbers) {
  std::array<char, 160> text{};
  std::snprintf(text.data(), text.size(), format, numbers...);
  return text.data();
}

// A command that is one number: "=n", "?", "=?". `read` is what stands behind the name when read.
Result number_setting(LivingModem& modem, const AtCommand& command, int& value, int highest,
                      const std::string& read) {
  switch (command.form) {
    case Form::kRead:
      modem.say(command.name + ": " + read);
      return kOk;
    case Form::kTest:
      modem.say(command.name + ": (0-" + std::to_string(highest) + ")");
      return kOk;
    case Form::kSet:
      break;
    case Form::kExecute:
      return kError;
  }
  const std::optional<int> number = parse_number(parameter(split_parameters(command.value), 0));
  if (!number || *number > highest) return kIncorrectParameters;
  value = *number;
  return kOk;
}

Result number_setting(LivingModem& modem, const AtCommand& command, int& value, int highest) {
  return number_setting(modem, command, value, highest, std::to_string(value));
}

// "Yes" or "no" by a basic command's digit; none means 0.
Result flag_setting(const AtCommand& command, bool& flag) {
  if (command.value != "" && command.value != "0" && command.value != "1") return kError;
  flag = command.value == "1";
  return kOk;
}

// A text that is asked for by the plain command and has nothing to test.
Result say_text(LivingModem& modem, const AtCommand& command, std::string_view text) {
  if (command.form == Form::kTest) return kOk;
  if (command.form != Form::kExecute) return kNotAllowed;
  modem.say(text);
  return kOk;
}

// Basic commands.

Result echo(LivingModem& modem, const AtCommand& command) {
  return flag_setting(command, modem.state.echo);
}

Result verbose(LivingModem& modem, const AtCommand& command) {
  return flag_setting(command, modem.state.verbose);
}

// Line settings that a pseudo terminal has no use for.
Result accept(LivingModem&, const AtCommand&) { return kOk; }

Result reset(LivingModem& modem, const AtCommand&) {
  const ModemState fresh;
  modem.state.echo = fresh.echo;
  modem.state.verbose = fresh.verbose;
  modem.state.cmee = fresh.cmee;
  modem.state.message_format = fresh.message_format;
  modem.state.creg_reports = fresh.creg_reports;
  modem.state.cgreg_reports = fresh.cgreg_reports;
  modem.state.srvst_reports = fresh.srvst_reports;
  modem.state.mode_reports = fresh.mode_reports;
  modem.state.signal_reports = fresh.signal_reports;
  modem.state.operator_format = fresh.operator_format;
  modem.state.call.reset();
  modem.state.data_call = false;
  return kOk;
}

Result identify(LivingModem& modem, const AtCommand&) {
  modem.say("Manufacturer: mdxgate\r\nModel: mdxsim\r\nRevision: 1\r\nIMEI: " + std::string(kImei) +
            "\r\n+GCAP: +CGSM,+DS,+ES");
  return kOk;
}

// Who hung up or was called in the meantime must not be connected: `serial` tells.
void progress(LivingModem& modem, int serial, Call::State state) {
  std::optional<Call>& call = modem.state.call;
  if (!call || call->serial != serial) return;
  call->state = state;
  if (state == Call::State::kAlerting) return modem.report("^CONF:1");
  call->connected = modem.now();
  modem.report("^CONN:1,0");
}

// ATD+49123; is a voice call; ATD*99# opens the packet data connection. The terminal goes on taking
// commands behind CONNECT: the data take another way, as in a device with a network interface.
Result dial(LivingModem& modem, const AtCommand& command) {
  const std::string& number = command.value;
  if (number.starts_with("*99") && number.ends_with("#")) {
    modem.state.data_call = true;
    return {Result::Kind::kConnect};
  }
  if (number.empty() ||
      number.find_first_not_of("0123456789*#+ABCDTPabcdtp,") != std::string::npos) {
    return kError;
  }
  if (modem.state.call) return kNotAllowed;
  const int serial = ++modem.state.last_call;
  modem.state.call = Call{serial, Call::State::kDialing, number, Time{0}};
  modem.later(Time{1}, [](LivingModem& m) { m.report("^ORIG:1,0"); });
  modem.later(kAlertingAfter,
              [serial](LivingModem& m) { progress(m, serial, Call::State::kAlerting); });
  modem.later(kConnectedAfter,
              [serial](LivingModem& m) { progress(m, serial, Call::State::kActive); });
  return kOk;
}

Result hang_up(LivingModem& modem, const AtCommand&) {
  modem.state.data_call = false;
  if (!modem.state.call) return kOk;
  const Call call = *modem.state.call;
  modem.state.call.reset();
  const bool was_connected = call.state == Call::State::kActive;
  const auto seconds = was_connected ? (modem.now() - call.connected).count() / 1000 : Time::rep{0};
  const std::string line = "^CEND:1," + std::to_string(seconds) + ",104,16";
  modem.later(Time{1}, [line](LivingModem& m) { m.report(line); });
  return kOk;
}

// Identity.

Result manufacturer(LivingModem& m, const AtCommand& c) { return say_text(m, c, "mdxgate"); }
Result model(LivingModem& m, const AtCommand& c) { return say_text(m, c, "mdxsim"); }
Result revision(LivingModem& m, const AtCommand& c) { return say_text(m, c, "1"); }
Result serial_number(LivingModem& m, const AtCommand& c) { return say_text(m, c, kImei); }
Result subscriber(LivingModem& m, const AtCommand& c) { return say_text(m, c, kImsi); }
Result capabilities(LivingModem& m, const AtCommand& c) {
  return say_text(m, c, "+GCAP: +CGSM,+DS,+ES");
}

// Settings.

Result error_numbers(LivingModem& modem, const AtCommand& command) {
  return number_setting(modem, command, modem.state.cmee, 2);
}
Result message_format(LivingModem& modem, const AtCommand& command) {
  return number_setting(modem, command, modem.state.message_format, 1);
}
Result service_reports(LivingModem& modem, const AtCommand& command) {
  return number_setting(modem, command, modem.state.srvst_reports, 1);
}
Result mode_reports(LivingModem& modem, const AtCommand& command) {
  return number_setting(modem, command, modem.state.mode_reports, 1);
}
Result other_reports(LivingModem& modem, const AtCommand& command) {
  return number_setting(modem, command, modem.state.signal_reports, 1);
}

Result registration(LivingModem& modem, const AtCommand& command, int& reports) {
  const std::string status = registration_line("", modem.state, reports);
  return number_setting(modem, command, reports, 2, std::to_string(reports) + "," + status);
}
Result circuit_registration(LivingModem& modem, const AtCommand& command) {
  return registration(modem, command, modem.state.creg_reports);
}
Result packet_registration(LivingModem& modem, const AtCommand& command) {
  return registration(modem, command, modem.state.cgreg_reports);
}

// SIM and network.

Result pin(LivingModem& modem, const AtCommand& command) {
  ModemState& state = modem.state;
  if (command.form == Form::kTest) return kOk;
  if (!state.sim_inserted) return kSimNotInserted;
  if (command.form == Form::kRead) {
    modem.say(state.pin_needed ? "+CPIN: SIM PIN" : "+CPIN: READY");
    return kOk;
  }
  if (command.form != Form::kSet || !state.pin_needed) return kNotAllowed;
  if (parameter(split_parameters(command.value), 0) != modem.options().pin) {
    return kIncorrectPassword;
  }
  state.pin_needed = false;
  return kOk;
}

Result signal_quality(LivingModem& modem, const AtCommand& command) {
  if (command.form == Form::kTest) {
    modem.say("+CSQ: (0-31,99),(0-7,99)");
    return kOk;
  }
  return say_text(modem, command, "+CSQ: " + std::to_string(modem.state.rssi) + ",99");
}

Result signal_details(LivingModem& modem, const AtCommand& command) {
  if (command.form != Form::kRead) return kNotSupported;
  modem.say(hcsq_line(modem.state));
  return kOk;
}

Result system_information(LivingModem& modem, const AtCommand& command) {
  const ModemState& state = modem.state;
  const int sim = state.sim_inserted ? 1 : 255;
  return say_text(
      modem, command,
      (state.registered ? "^SYSINFO:2,3,0,5," : "^SYSINFO:0,0,0,0,") + std::to_string(sim) + ",,4");
}

std::string_view operator_name(const Operator& network, int format) {
  if (format == 0) return network.long_name;
  return format == 1 ? network.short_name : network.numeric;
}

std::string scan_entry(int status, const Operator& network) {
  return "(" + std::to_string(status) + "," + quoted(network.long_name) + "," +
         quoted(network.short_name) + "," + quoted(network.numeric) + ",2)";
}

// +COPS=<mode>[,<format>[,<operator>]]: 0 automatic, 1 that operator, 2 none, 3 sets the format
// only, 4 that operator or else any.
Result select_operator(LivingModem& modem, const std::string& value) {
  ModemState& state = modem.state;
  const std::vector<std::string> parameters = split_parameters(value);
  const std::optional<int> mode = parse_number(parameter(parameters, 0));
  const std::string format_text = parameter(parameters, 1);
  const std::optional<int> format =
      format_text.empty() ? std::optional<int>(state.operator_format) : parse_number(format_text);
  if (!mode || *mode > 4 || !format || *format > 2) return kIncorrectParameters;
  const std::string name = parameter(parameters, 2);
  if (*mode == 1 && name != operator_name(kHomeOperator, *format)) return kNoNetworkService;
  if (*mode == 3) {
    state.operator_format = *format;
  } else {
    state.registered = *mode != 2;
  }
  return kOk;
}

Result operator_selection(LivingModem& modem, const AtCommand& command) {
  const ModemState& state = modem.state;
  switch (command.form) {
    case Form::kRead:
      modem.say(state.registered
                    ? "+COPS: 0," + std::to_string(state.operator_format) + "," +
                          quoted(operator_name(kHomeOperator, state.operator_format)) + ",2"
                    : "+COPS: 2");
      return kOk;
    case Form::kTest:
      modem.take_time(modem.options().scan_time);
      modem.say("+COPS: " + scan_entry(2, kHomeOperator) + "," + scan_entry(3, kOtherOperator) +
                ",,(0-4),(0-2)");
      return kOk;
    case Form::kSet:
      return select_operator(modem, command.value);
    case Form::kExecute:
      break;
  }
  return kError;
}

// +CUSD=1,"*100#"[,15]: the network's word comes after the OK.
Result ussd(LivingModem& modem, const AtCommand& command) {
  if (command.form == Form::kTest) {
    modem.say("+CUSD: (0-2)");
    return kOk;
  }
  if (command.form == Form::kRead) {
    modem.say("+CUSD: 1");
    return kOk;
  }
  const std::vector<std::string> parameters = split_parameters(command.value);
  const std::optional<int> mode = parse_number(parameter(parameters, 0));
  if (!mode || *mode > 2) return kIncorrectParameters;
  const std::string code = parameter(parameters, 1);
  if (*mode != 1 || code.empty()) return kOk;
  if (code.find_first_not_of("0123456789*#") != std::string::npos) return kIncorrectParameters;
  if (!modem.state.registered) return kNoNetworkService;
  const std::string answer =
      code == "*100#" ? "+CUSD: 0,\"Your balance is 12.50 EUR.\",15" : "+CUSD: 4";
  modem.later(kUssdTime, [answer](LivingModem& m) { m.report(answer); });
  return kOk;
}

Result current_calls(LivingModem& modem, const AtCommand& command) {
  if (command.form == Form::kTest || !modem.state.call) return kOk;
  const Call& call = *modem.state.call;
  const bool international = call.number.starts_with('+');
  return say_text(modem, command,
                  "+CLCC: 1,0," + std::to_string(static_cast<int>(call.state)) + ",0,0," +
                      quoted(call.number) + (international ? ",145" : ",129"));
}

constexpr auto kNothing = CommandRow::Needs::kNothing;
constexpr auto kSim = CommandRow::Needs::kSim;
constexpr auto kSimForMessages = CommandRow::Needs::kSimForMessages;

// clang-format off
constexpr CommandRow kCommands[] = {
    {"&C",       kNothing,        accept              },
    {"&D",       kNothing,        accept              },
    {"&F",       kNothing,        reset               },
    {"&K",       kNothing,        accept              },
    {"D",        kSim,            dial                },
    {"E",        kNothing,        echo                },
    {"H",        kNothing,        hang_up             },
    {"I",        kNothing,        identify            },
    {"S",        kNothing,        accept              },
    {"V",        kNothing,        verbose             },
    {"X",        kNothing,        accept              },
    {"Z",        kNothing,        reset               },
    {"+CGMI",    kNothing,        manufacturer        },
    {"+CGMM",    kNothing,        model               },
    {"+CGMR",    kNothing,        revision            },
    {"+CGREG",   kNothing,        packet_registration },
    {"+CGSN",    kNothing,        serial_number       },
    {"+CHUP",    kNothing,        hang_up             },
    {"+CIMI",    kSim,            subscriber          },
    {"+CLCC",    kNothing,        current_calls       },
    {"+CMEE",    kNothing,        error_numbers       },
    {"+CMGD",    kSimForMessages, delete_messages     },
    {"+CMGF",    kNothing,        message_format      },
    {"+CMGL",    kSimForMessages, list_messages       },
    {"+CMGR",    kSimForMessages, read_message        },
    {"+CMGS",    kSimForMessages, send_message        },
    {"+CMGW",    kSimForMessages, write_message       },
    {"+COPS",    kNothing,        operator_selection  },
    {"+CPIN",    kNothing,        pin                 },
    {"+CPMS",    kSimForMessages, message_memory      },
    {"+CREG",    kNothing,        circuit_registration},
    {"+CSQ",     kNothing,        signal_quality      },
    {"+CUSD",    kSim,            ussd                },
    {"+GCAP",    kNothing,        capabilities        },
    {"+GMI",     kNothing,        manufacturer        },
    {"+GMM",     kNothing,        model               },
    {"+GMR",     kNothing,        revision            },
    {"+GSN",     kNothing,        serial_number       },
    {"^CURC",    kNothing,        other_reports       },
    {"^HCSQ",    kNothing,        signal_details      },
    {"^MODE",    kNothing,        mode_reports        },
    {"^SRVST",   kNothing,        service_reports     },
    {"^SYSINFO", kNothing,        system_information  },
};

constexpr struct { int number; std::string_view text; } kCmeErrorTexts[] = {
    {3,  "operation not allowed"  },
    {4,  "operation not supported"},
    {10, "SIM not inserted"       },
    {11, "SIM PIN required"       },
    {16, "incorrect password"     },
    {30, "no network service"     },
    {50, "incorrect parameters"   },
};
// clang-format on

}  // namespace

std::span<const CommandRow> command_rows() { return kCommands; }

const CommandRow* find_command(std::string_view name) {
  const auto* row = std::find_if(std::begin(kCommands), std::end(kCommands),
                                 [name](const CommandRow& r) { return r.name == name; });
  return row == std::end(kCommands) ? nullptr : row;
}

std::string_view cme_error_text(int number) {
  const auto* row = std::find_if(std::begin(kCmeErrorTexts), std::end(kCmeErrorTexts),
                                 [number](const auto& r) { return r.number == number; });
  return row == std::end(kCmeErrorTexts) ? "unknown" : row->text;
}

std::string hcsq_line(const ModemState& state) {
  if (!state.registered) return "^HCSQ:\"NOSERVICE\"";
  return formatted("^HCSQ:\"WCDMA\",%d,%d,%d", state.rssi * 2 + 8, state.rssi * 2, 52);
}

std::string registration_line(std::string_view name, const ModemState& state, int detail) {
  std::string line(name);
  line += state.registered ? "1" : "0";
  if (detail == 2 && state.registered) line += ",\"007C\",\"00B19502\"";
  return line;
}

std::string flow_line(const ModemState& state) {
  const unsigned seconds = state.data_seconds;
  const unsigned sent = state.sent_bytes;
  const unsigned received = state.received_bytes;
  return formatted("^DSFLOWRPT:%08X,%08X,%08X,%016X,%016X,0000BB80,0001F400", seconds,
                   seconds == 0 ? 0 : sent / seconds, seconds == 0 ? 0 : received / seconds, sent,
                   received);
}

}  // namespace mdxsim
