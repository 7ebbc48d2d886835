// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxctl/shell_line.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <iterator>
#include <string_view>

#include "tools/mdxctl/sms_pdu.h"
#include "tools/words/mistakes.h"

namespace {

constexpr int32_t kTimeoutS = 10;
constexpr int32_t kNetworkTimeoutS = 60;  // what the network has to do takes longer

// clang-format off
constexpr const char* kWords[] = {
  "AT", "ATD", "ATE0", "ATE1", "ATH", "ATI", "ATV1", "ATZ",
  "AT+CBC", "AT+CCLK?", "AT+CEER", "AT+CFUN=", "AT+CFUN?", "AT+CGACT=", "AT+CGACT?", "AT+CGATT=",
  "AT+CGATT?", "AT+CGDCONT=", "AT+CGDCONT?", "AT+CGMI", "AT+CGMM", "AT+CGMR", "AT+CGPADDR",
  "AT+CGREG=", "AT+CGREG?", "AT+CGSN", "AT+CIMI", "AT+CLCC", "AT+CLCK=", "AT+CMEE=", "AT+CMEE?",
  "AT+CMGD=", "AT+CMGF=0", "AT+CMGF?", "AT+CMGL=4", "AT+CMGR=", "AT+CMSS=", "AT+CNMI=", "AT+CNMI?",
  "AT+CNUM", "AT+COPS=", "AT+COPS=?", "AT+COPS?", "AT+CPAS", "AT+CPBR=", "AT+CPIN=", "AT+CPIN?",
  "AT+CPMS=", "AT+CPMS?", "AT+CPWD=", "AT+CREG=", "AT+CREG?", "AT+CEREG=", "AT+CEREG?", "AT+CSCA?",
  "AT+CSCS?", "AT+CSQ", "AT+CUSD=", "AT+GCAP", "AT^CURC=", "AT^DSFLOWQRY", "AT^HCSQ?",
  "AT^HFREQINFO?", "AT^MODE", "AT^NDISSTATQRY?", "AT^SRVST", "AT^SYSCFGEX?", "AT^SYSINFO",
  "AT^SYSINFOEX",
  "exit", "help", "pdu AT+CMGS=", "pdu AT+CMGW=", "quit", "reports off", "reports on", "rssi", "sms ",
};
/// With a PIN or password behind them, as they are without blanks and in capitals.
constexpr std::string_view kSecretCommands[] = {
  "+CPIN=", "+CPIN2=", "+CPWD=", "+CLCK=", "+CGAUTH=", "+QICSGP=", "+QSSLCFG=", "+QMTCONN=", "+UAUTHREQ=",
  "+UPSD=", "+WPPP=", "#PASSW=", "#SPN=", "$QCPDPP=", "$QCPIN=", "%CPIN=", "*CPIN=", "*CGAUTH=",
  "^AUTHDATA=", "^CARDLOCK=", "^CPIN=", "^DATALOCK=", "^SCPIN=", "^SIMLOCKUNLOCK=", "^NDISDUP=",
  "AUTH", "PASSW", "PWD",
  "**03*", "**04*", "**042*", "**05*", "**052*",
};
// clang-format on

bool starts_with(const std::string& line, const char* begin) {
  return strncasecmp(line.c_str(), begin, std::char_traits<char>::length(begin)) == 0;
}

/// Cuts the first word off `line`, which is left without blanks in front.
std::string take_word(std::string* line) {
  const size_t end = std::min(line->find(' '), line->size());
  std::string word = line->substr(0, end);
  line->erase(0, line->find_first_not_of(' ', end));
  return word;
}

std::string trimmed(const std::string& line) {
  const size_t begin = line.find_first_not_of(" \t");
  if (begin == std::string::npos) return "";
  return line.substr(begin, line.find_last_not_of(" \t") - begin + 1);
}

shell_line_t mistake(std::string error) { return {SHELL_MISTAKE, {}, std::move(error)}; }

shell_line_t at_line(const std::string& command) {
  const collection_t collection = collection_for(command, false);
  mdx_options_t options = MDX_OPTIONS_INIT;
  options.transparent = collection.transparent ? 1 : 0;
  const std::string error = command_mistake(command, options, kInShell);
  if (!error.empty()) return mistake(error);
  if (collection.mixed) return mistake(kMixedReports);
  if (mutes_results(command)) {
    return mistake(kMutesResults + std::string("; if that is meant: mdxctl at --yes ") + command);
  }
  return {SHELL_SEND, {{command, "", collection, kTimeoutS}}, ""};
}

shell_line_t sms_line(std::string rest, uint8_t reference) {
  const std::string number = take_word(&rest);
  if (number.empty() || rest.empty()) return mistake("use: sms NUMBER TEXT");
  mdx_sms_options_t options = MDX_SMS_OPTIONS_INIT;
  options.reference = reference;
  const sms_message_t message = encode_sms(number, rest, options);
  if (!message.error.empty()) return mistake(message.error);
  shell_line_t line{SHELL_SEND, {}, ""};
  for (const sms_part_t& part : message.parts) {
    line.requests.push_back({part.head, part.pdu, {}, kNetworkTimeoutS});
  }
  return line;
}

shell_line_t pdu_line(std::string rest) {
  const std::string head = take_word(&rest);
  if (head.empty() || rest.empty()) return mistake("use: pdu AT+CMGS=LENGTH PDU");
  const mdx_options_t options = MDX_OPTIONS_INIT;
  const std::string error = message_mistake(head, rest, options, kInShell);
  if (!error.empty()) return mistake(error);
  return {SHELL_SEND, {{head, rest, {}, kNetworkTimeoutS}}, ""};
}

}  // namespace

shell_line_t parse_shell_line(const std::string& typed, uint8_t reference) {
  std::string rest = trimmed(typed);
  if (rest.empty()) return {};
  if (starts_with(rest, "AT")) return at_line(rest);
  const std::string line = rest;
  const std::string word = take_word(&rest);
  if (word == "sms") return sms_line(rest, reference);
  if (word == "pdu") return pdu_line(rest);
  if (line == "rssi") return {SHELL_SEND, {{"", "", {}, kTimeoutS}}, ""};
  if (line == "reports on") return {SHELL_REPORTS_ON, {}, ""};
  if (line == "reports off") return {SHELL_REPORTS_OFF, {}, ""};
  if (line == "help") return {SHELL_HELP, {}, ""};
  if (line == "quit" || line == "exit") return {SHELL_QUIT, {}, ""};
  return mistake("a command begins with AT; help shows what else there is");
}

std::vector<std::string> shell_completions(const std::string& begin) {
  std::vector<std::string> matches;
  std::copy_if(std::begin(kWords), std::end(kWords), std::back_inserter(matches),
               [&](const char* word) { return starts_with(word, begin.c_str()); });
  return matches;
}

bool fit_for_history(const std::string& line) {
  std::string plain;
  for (const char c : line) {
    if (c != ' ' && c != '\t')
      plain += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  }
  return std::none_of(std::begin(kSecretCommands), std::end(kSecretCommands),
                      [&](std::string_view name) { return plain.find(name) != std::string::npos; });
}

std::string shell_help() {
  return "  AT+CSQ             any AT command; Tab completes the usual ones\n"
         "  sms NUMBER TEXT    send a text message\n"
         "  pdu HEAD PDU       a command that waits for a PDU, such as: pdu AT+CMGS=22 0001...\n"
         "  rssi               the last signal report; the modem is not asked\n"
         "  reports on|off     show what the device is told, as it comes (on)\n"
         "  quit               or Ctrl-D; Ctrl-C gives up the command that is running\n";
}
