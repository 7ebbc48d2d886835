// SPDX-License-Identifier: Apache-2.0

// Network, signal, packet data, clock: 3GPP TS 27.007, 7, 8 and 10.
#include "tools/mdxsim/network_commands.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <optional>
#include <string_view>
#include <vector>

#include "tools/mdxsim/modem_commands.h"

namespace mdxsim {
namespace {

using Form = AtCommand::Form;

constexpr int kMostContexts = 11;
constexpr int kNoSignal = 99;
constexpr int kQuarter = 4;  // of an hour east of Greenwich
constexpr int64_t kQuarterSeconds = 900;

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
    state.deregistered = *mode == 2;
    modem.follow_network();
  }
  return kOk;
}

Result registration(LivingModem& modem, const AtCommand& command, int& reports) {
  const std::string status = registration_line("", modem.state, reports);
  return number_setting(modem, command, reports, 2, std::to_string(reports) + "," + status);
}

std::string context_line(int cid, const DataContext& context) {
  return "+CGDCONT: " + std::to_string(cid) + "," + quoted(context.type) + "," +
         quoted(context.access_point) + ",\"\",0,0";
}

std::string address_of(int cid) { return "10.0.0." + std::to_string(cid + 1); }

}  // namespace

Result circuit_registration(LivingModem& modem, const AtCommand& command) {
  return registration(modem, command, modem.state.creg_reports);
}
Result packet_registration(LivingModem& modem, const AtCommand& command) {
  return registration(modem, command, modem.state.cgreg_reports);
}
Result evolved_registration(LivingModem& modem, const AtCommand& command) {
  return registration(modem, command, modem.state.cereg_reports);
}

// +CESQ: of the cell that it is in, received power and its share; GSM and LTE are not known.
Result signal_quality_extended(LivingModem& modem, const AtCommand& command) {
  if (command.form == Form::kTest) {
    modem.say("+CESQ: (0-63,99),(0-7,99),(0-96,255),(0-49,255),(0-34,255),(0-97,255)");
    return kOk;
  }
  if (signal_of(modem.state) == kNoSignal)
    return say_text(modem, command, "+CESQ: 99,99,255,255,255,255");
  return say_text(modem, command,
                  "+CESQ: 99,99," + std::to_string(modem.state.rssi * 2 + 8) + ",40,255,255");
}

Result signal_quality(LivingModem& modem, const AtCommand& command) {
  if (command.form == Form::kTest) {
    modem.say("+CSQ: (0-31,99),(0-7,99)");
    return kOk;
  }
  return say_text(modem, command, "+CSQ: " + std::to_string(signal_of(modem.state)) + ",99");
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

// +CFUN=<level>[,1]: 0 minimal, 1 full, 4 without radio; 1 behind it starts over.
Result functionality(LivingModem& modem, const AtCommand& command) {
  if (command.form == Form::kTest) {
    modem.say("+CFUN: (0,1,4),(0,1)");
    return kOk;
  }
  if (command.form == Form::kRead) {
    modem.say("+CFUN: " + std::to_string(modem.state.functionality));
    return kOk;
  }
  const std::vector<std::string> parameters = split_parameters(command.value);
  const std::optional<int> level = parse_number(parameter(parameters, 0));
  const std::string reset = parameter(parameters, 1);
  const bool known = level && (*level == 0 || *level == 1 || *level == 4);
  if (command.form != Form::kSet || !known || (reset != "" && reset != "0" && reset != "1")) {
    return kIncorrectParameters;
  }
  if (reset == "1") modem.restart();
  modem.state.functionality = *level;
  modem.follow_network();
  return kOk;
}

Result packet_attachment(LivingModem& modem, const AtCommand& command) {
  int wanted = modem.state.attached ? 1 : 0;
  const bool attached = modem.state.attached && modem.state.registered;
  const Result result = number_setting(modem, command, wanted, 1, attached ? "1" : "0");
  if (command.form != Form::kSet || result.kind != Result::Kind::kOk) return result;
  if (wanted == 1 && !modem.state.registered) return kNoNetworkService;
  modem.state.attached = wanted == 1;
  for (auto& [cid, context] : modem.state.contexts) context.active = context.active && wanted == 1;
  return kOk;
}

// +CGDCONT=<cid>[,<type>[,<access point>]]: the number alone forgets it.
Result define_context(LivingModem& modem, const AtCommand& command) {
  auto& contexts = modem.state.contexts;
  if (command.form == Form::kTest) {
    modem.say("+CGDCONT: (1-" + std::to_string(kMostContexts) + "),\"IP\",,,(0),(0)");
    return kOk;
  }
  if (command.form == Form::kRead) {
    std::string lines;
    for (const auto& [cid, context] : contexts) {
      lines += (lines.empty() ? "" : "\r\n") + context_line(cid, context);
    }
    if (!lines.empty()) modem.say(lines);
    return kOk;
  }
  const std::vector<std::string> parameters = split_parameters(command.value);
  const std::optional<int> cid = parse_number(parameter(parameters, 0));
  if (!cid || *cid < 1 || *cid > kMostContexts) return kIncorrectParameters;
  if (parameters.size() == 1) {
    contexts.erase(*cid);
    return kOk;
  }
  const std::string type = parameter(parameters, 1);
  if (type != "IP" && type != "IPV6" && type != "IPV4V6" && type != "PPP")
    return kIncorrectParameters;
  contexts[*cid] = {type, parameter(parameters, 2), false};
  return kOk;
}

// +CGACT=<state>[,<cid>...]: without a number all of them.
Result activate_context(LivingModem& modem, const AtCommand& command) {
  auto& contexts = modem.state.contexts;
  if (command.form == Form::kTest) {
    modem.say("+CGACT: (0,1)");
    return kOk;
  }
  if (command.form == Form::kRead) {
    std::string lines;
    for (const auto& [cid, context] : contexts) {
      lines += (lines.empty() ? "+CGACT: " : "\r\n+CGACT: ") + std::to_string(cid) + "," +
               (context.active ? "1" : "0");
    }
    if (!lines.empty()) modem.say(lines);
    return kOk;
  }
  const std::vector<std::string> parameters = split_parameters(command.value);
  const std::string wanted = parameter(parameters, 0);
  if (command.form != Form::kSet || (wanted != "0" && wanted != "1")) return kIncorrectParameters;
  if (wanted == "1" && (!modem.state.registered || !modem.state.attached)) return kNoNetworkService;
  for (size_t i = 1; i < parameters.size(); ++i) {
    const std::optional<int> cid = parse_number(parameters[i]);
    if (!cid || !contexts.contains(*cid)) return kIncorrectParameters;
    contexts[*cid].active = wanted == "1";
  }
  for (auto& [cid, context] : contexts) {
    if (parameters.size() == 1) context.active = wanted == "1";
  }
  return kOk;
}

Result context_address(LivingModem& modem, const AtCommand& command) {
  const auto& contexts = modem.state.contexts;
  const std::vector<std::string> wanted = split_parameters(command.value);
  std::string lines;
  for (const auto& [cid, context] : contexts) {
    const bool asked = command.form == Form::kExecute ||
                       std::find(wanted.begin(), wanted.end(), std::to_string(cid)) != wanted.end();
    if (command.form == Form::kTest) {
      lines += (lines.empty() ? "+CGPADDR: (" : ",") + std::to_string(cid);
    } else if (asked) {
      lines += (lines.empty() ? "+CGPADDR: " : "\r\n+CGPADDR: ") + std::to_string(cid) +
               (context.active ? "," + quoted(address_of(cid)) : "");
    }
  }
  if (command.form == Form::kRead) return kNotAllowed;
  if (command.form == Form::kSet && lines.empty()) return kIncorrectParameters;
  if (command.form == Form::kTest && !lines.empty()) lines += ")";
  if (!lines.empty()) modem.say(lines);
  return kOk;
}

std::string clock_text(const LivingModem& modem) {
  using namespace std::chrono;
  const int64_t local = modem.options().clock_start + modem.state.clock_shift +
                        duration_cast<seconds>(modem.now()).count() + kQuarter * kQuarterSeconds;
  const sys_seconds time{seconds{local}};
  const auto day = floor<days>(time);
  const year_month_day date{day};
  const hh_mm_ss clock{time - day};
  return formatted("%02d/%02u/%02u,%02d:%02d:%02d+%02d", static_cast<int>(date.year()) % 100,
                   static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                   static_cast<int>(clock.hours().count()),
                   static_cast<int>(clock.minutes().count()),
                   static_cast<int>(clock.seconds().count()), kQuarter);
}

// +CCLK="yy/MM/dd,hh:mm:ss+zz"
Result clock_setting(LivingModem& modem, const AtCommand& command) {
  using namespace std::chrono;
  if (command.form == Form::kTest) return kOk;
  if (command.form == Form::kRead) {
    modem.say("+CCLK: " + quoted(clock_text(modem)));
    return kOk;
  }
  if (command.form != Form::kSet) return kNotAllowed;
  const std::string text = parameter(split_parameters(command.value), 0);
  unsigned part[7] = {};
  char sign = 0;
  const int found = std::sscanf(text.c_str(), "%2u/%2u/%2u,%2u:%2u:%2u%c%2u", &part[0], &part[1],
                                &part[2], &part[3], &part[4], &part[5], &sign, &part[6]);
  const year_month_day date{year{static_cast<int>(2000 + part[0])}, month{part[1]}, day{part[2]}};
  const bool whole = found == 6 || (found == 8 && (sign == '+' || sign == '-') && part[6] < 57);
  if (!whole || !date.ok() || part[3] > 23 || part[4] > 59 || part[5] > 59)
    return kIncorrectParameters;
  const int64_t quarters = found == 6    ? kQuarter
                           : sign == '-' ? -int64_t{part[6]}
                                         : int64_t{part[6]};
  const int64_t wanted = duration_cast<seconds>(sys_days{date}.time_since_epoch()).count() +
                         int64_t{part[3]} * 3600 + int64_t{part[4]} * 60 + part[5] -
                         quarters * kQuarterSeconds;
  modem.state.clock_shift =
      wanted - modem.options().clock_start - duration_cast<seconds>(modem.now()).count();
  return kOk;
}

int signal_of(const ModemState& state) { return state.functionality == 1 ? state.rssi : kNoSignal; }

bool has_packet_data(const ModemState& state) {
  return std::any_of(state.contexts.begin(), state.contexts.end(),
                     [](const auto& entry) { return entry.second.active; });
}

std::string hcsq_line(const ModemState& state) {
  if (!state.registered) return "^HCSQ:\"NOSERVICE\"";
  return formatted("^HCSQ:\"WCDMA\",%d,%d,%d", state.rssi * 2 + 8, state.rssi * 2, 52);
}

std::string registration_line(std::string_view name, const ModemState& state, int detail) {
  std::string line(name);
  line += state.registered ? "1" : state.searching ? "2" : "0";
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
