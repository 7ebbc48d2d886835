// SPDX-License-Identifier: Apache-2.0

// What the living modem's commands do.
#include "tools/mdxsim/modem_commands.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <vector>

#include "tools/line/octets.h"
#include "tools/mdxsim/call_commands.h"
#include "tools/mdxsim/message_commands.h"
#include "tools/mdxsim/network_commands.h"
#include "tools/mdxsim/phone_book_commands.h"

namespace mdxsim {
namespace {

using Form = AtCommand::Form;

constexpr std::string_view kImei = "490154203237518";
constexpr std::string_view kImsi = "001010123456789";

// "Yes" or "no" by a basic command's digit; none means 0.
Result flag_setting(const AtCommand& command, bool& flag) {
  if (command.value != "" && command.value != "0" && command.value != "1") return kError;
  flag = command.value == "1";
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
  static_cast<ModemSettings&>(modem.state) = ModemSettings{};
  modem.state.call.reset();
  end_data_call(modem.state);
  return kOk;
}

Result identify(LivingModem& modem, const AtCommand&) {
  modem.say("Manufacturer: mdxgate\r\nModel: mdxsim\r\nRevision: 1\r\nIMEI: " + std::string(kImei) +
            "\r\n+GCAP: +CGSM,+DS,+ES");
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

// SIM and network.

Result pin(LivingModem& modem, const AtCommand& command) {
  ModemState& state = modem.state;
  if (command.form == Form::kTest) return kOk;
  if (!state.sim_inserted) return kSimNotInserted;
  if (command.form == Form::kRead) {
    modem.say(!state.pin_needed      ? "+CPIN: READY"
              : state.pin_tries == 0 ? "+CPIN: SIM PUK"
                                     : "+CPIN: SIM PIN");
    return kOk;
  }
  if (command.form != Form::kSet || !state.pin_needed) return kNotAllowed;
  const std::vector<std::string> given = split_parameters(command.value);
  if (state.pin_tries == 0) {  // the PUK, and a new PIN
    if (parameter(given, 0) != kPuk || given.size() != 2 || given[1].empty()) {
      state.puk_tries = std::max(0, state.puk_tries - 1);
      return kIncorrectPassword;
    }
    state.pin = given[1];
  } else if (parameter(given, 0) != state.pin) {
    --state.pin_tries;
    return kIncorrectPassword;
  }
  state.pin_tries = kPinTries;
  state.puk_tries = kPukTries;
  state.pin_needed = false;
  modem.follow_network();
  return kOk;
}

// +CPINR[=<code>]: how often PIN and PUK may still be wrong.
Result pin_tries(LivingModem& modem, const AtCommand& command) {
  if (command.form == Form::kTest) return kOk;
  if (command.form == Form::kRead) return kNotAllowed;
  if (!modem.state.sim_inserted) return kSimNotInserted;
  const std::string wanted = parameter(split_parameters(command.value), 0);
  const auto tell = [&](const std::string& code, int left, int at_first) {
    if (!wanted.empty() && wanted != code && wanted != "SIM*") return;
    modem.say("+CPINR: " + code + "," + std::to_string(left) + "," + std::to_string(at_first));
  };
  tell("SIM PIN", modem.state.pin_tries, kPinTries);
  tell("SIM PUK", modem.state.puk_tries, kPukTries);
  return kOk;
}

// +CSCS="UCS2"
Result character_set(LivingModem& modem, const AtCommand& command) {
  constexpr struct {
    std::string_view name;
    CharacterSet set;
  } kSets[] = {
      {"IRA", CharacterSet::kIra}, {"GSM", CharacterSet::kGsm}, {"UCS2", CharacterSet::kUcs2}};
  if (command.form == Form::kTest) {
    modem.say("+CSCS: (\"IRA\",\"GSM\",\"UCS2\")");
    return kOk;
  }
  const std::string wanted = parameter(split_parameters(command.value), 0);
  for (const auto& known : kSets) {
    if (command.form == Form::kRead && known.set == modem.state.character_set) {
      modem.say("+CSCS: " + quoted(known.name));
      return kOk;
    }
    if (command.form == Form::kSet && known.name == wanted) {
      modem.state.character_set = known.set;
      return kOk;
    }
  }
  return kIncorrectParameters;
}

Result battery(LivingModem& modem, const AtCommand& command) {
  if (command.form == Form::kTest) {
    modem.say("+CBC: (0-2),(0-100)");
    return kOk;
  }
  return say_text(modem, command, "+CBC: 0,87");
}

Result activity(LivingModem& modem, const AtCommand& command) {
  if (command.form == Form::kTest) {
    modem.say("+CPAS: (0,3,4)");
    return kOk;
  }
  const bool ringing = modem.state.call && modem.state.call->state == Call::State::kIncoming;
  return say_text(modem, command,
                  ringing            ? "+CPAS: 3"
                  : modem.state.call ? "+CPAS: 4"
                                     : "+CPAS: 0");
}

constexpr auto kNothing = CommandRow::Needs::kNothing;
constexpr auto kSim = CommandRow::Needs::kSim;
constexpr auto kSimForMessages = CommandRow::Needs::kSimForMessages;

// clang-format off
constexpr CommandRow kCommands[] = {
    {"&C",       kNothing,        accept                  },
    {"&D",       kNothing,        accept                  },
    {"&F",       kNothing,        reset                   },
    {"&K",       kNothing,        accept                  },
    {"&W",       kNothing,        accept                  },
    {"A",        kSim,            answer_call             },
    {"D",        kSim,            dial                    },
    {"E",        kNothing,        echo                    },
    {"H",        kNothing,        hang_up                 },
    {"I",        kNothing,        identify                },
    {"L",        kNothing,        accept                  },
    {"M",        kNothing,        accept                  },
    {"Q",        kNothing,        accept                  },
    {"S",        kNothing,        accept                  },
    {"V",        kNothing,        verbose                 },
    {"X",        kNothing,        accept                  },
    {"Z",        kNothing,        reset                   },
    {"+CBC",     kNothing,        battery                 },
    {"+CCLK",    kNothing,        clock_setting           },
    {"+CEREG",   kNothing,        evolved_registration    },
    {"+CESQ",    kNothing,        signal_quality_extended },
    {"+CFUN",    kNothing,        functionality           },
    {"+CGACT",   kSim,            activate_context        },
    {"+CGATT",   kSim,            packet_attachment       },
    {"+CGDCONT", kNothing,        define_context          },
    {"+CGMI",    kNothing,        manufacturer            },
    {"+CGMM",    kNothing,        model                   },
    {"+CGMR",    kNothing,        revision                },
    {"+CGPADDR", kNothing,        context_address         },
    {"+CGREG",   kNothing,        packet_registration     },
    {"+CGSN",    kNothing,        serial_number           },
    {"+CHUP",    kNothing,        hang_up                 },
    {"+CIMI",    kSim,            subscriber              },
    {"+CLCC",    kNothing,        current_calls           },
    {"+CLIP",    kNothing,        caller_identity         },
    {"+CMEE",    kNothing,        error_numbers           },
    {"+CMGD",    kSimForMessages, delete_messages         },
    {"+CMGF",    kNothing,        message_format          },
    {"+CMGL",    kSimForMessages, list_messages           },
    {"+CMGR",    kSimForMessages, read_message            },
    {"+CMGS",    kSimForMessages, send_message            },
    {"+CMGW",    kSimForMessages, write_message           },
    {"+CNMA",    kNothing,        acknowledge_message     },
    {"+CNMI",    kNothing,        message_news            },
    {"+CNUM",    kSim,            own_number              },
    {"+COPS",    kNothing,        operator_selection      },
    {"+CPAS",    kNothing,        activity                },
    {"+CPBF",    kSim,            find_in_phone_book      },
    {"+CPBR",    kSim,            read_phone_book         },
    {"+CPBS",    kSim,            phone_book_storage      },
    {"+CPBW",    kSim,            write_phone_book        },
    {"+CPIN",    kNothing,        pin                     },
    {"+CPINR",   kNothing,        pin_tries               },
    {"+CPMS",    kSimForMessages, message_memory          },
    {"+CRC",     kNothing,        extended_ring           },
    {"+CREG",    kNothing,        circuit_registration    },
    {"+CSCA",    kSimForMessages, service_centre          },
    {"+CSCS",    kNothing,        character_set           },
    {"+CSDH",    kNothing,        message_details         },
    {"+CSMS",    kNothing,        message_service         },
    {"+CSQ",     kNothing,        signal_quality          },
    {"+CUSD",    kSim,            ussd                    },
    {"+GCAP",    kNothing,        capabilities            },
    {"+GMI",     kNothing,        manufacturer            },
    {"+GMM",     kNothing,        model                   },
    {"+GMR",     kNothing,        revision                },
    {"+GSN",     kNothing,        serial_number           },
    {"^CURC",    kNothing,        other_reports           },
    {"^HCSQ",    kNothing,        signal_details          },
    {"^MODE",    kNothing,        mode_reports            },
    {"^SRVST",   kNothing,        service_reports         },
    {"^SYSINFO", kNothing,        system_information      },
};

constexpr struct { int number; std::string_view text; } kCmeErrorTexts[] = {
    {3,  "operation not allowed"  },
    {4,  "operation not supported"},
    {10, "SIM not inserted"       },
    {11, "SIM PIN required"       },
    {12, "SIM PUK required"       },
    {16, "incorrect password"     },
    {21, "invalid index"          },
    {22, "not found"              },
    {30, "no network service"     },
    {50, "incorrect parameters"   },
};
// clang-format on

}  // namespace

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

Result say_text(LivingModem& modem, const AtCommand& command, std::string_view text) {
  if (command.form == Form::kTest) return kOk;
  if (command.form != Form::kExecute) return kNotAllowed;
  modem.say(text);
  return kOk;
}

std::string shown_text(const ModemState& state, std::string_view text) {
  if (state.character_set == CharacterSet::kIra) return std::string(text);
  if (state.character_set == CharacterSet::kGsm) return to_septets(text);
  Octets units;
  for (const char c : text) {
    units.push_back(0);
    units.push_back(static_cast<uint8_t>(c));
  }
  return to_hex(units);
}

std::string read_text(const ModemState& state, std::string_view shown) {
  if (state.character_set == CharacterSet::kIra) return std::string(shown);
  if (state.character_set == CharacterSet::kGsm) return from_septets(shown);
  const std::optional<Octets> units = from_hex(shown);
  if (!units || units->size() % 2 != 0) return std::string(shown);
  std::string text;
  for (size_t i = 0; i < units->size(); i += 2) {
    const uint8_t low = (*units)[i + 1];
    text += (*units)[i] == 0 && low < 0x80 ? static_cast<char>(low) : '?';
  }
  return text;
}

std::string dialled_number(std::string_view number) {
  return quoted(number) + (number.starts_with('+') ? ",145" : ",129");
}

std::string shown_number(const ModemState& state, std::string_view number) {
  return quoted(shown_text(state, number)) + (number.starts_with('+') ? ",145" : ",129");
}

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

}  // namespace mdxsim
