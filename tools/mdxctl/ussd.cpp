// SPDX-License-Identifier: Apache-2.0

// mdxctl ussd: a code to the network, and what it says. The answer comes as a report, behind the
// modem's OK or in front of it, so the reports are heard before the code is sent. A network that
// wants a reply keeps the dialogue open; whoever leaves it ends it.

#include <unistd.h>

#include <deque>
#include <iostream>

#include "tools/mdxctl/answer.h"
#include "tools/mdxctl/commands.h"
#include "tools/mdxctl/modem_query.h"
#include "tools/mdxctl/output.h"
#include "tools/mdxctl/report_wait.h"
#include "tools/mdxctl/request.h"
#include "tools/mdxctl/typed_line.h"
#include "tools/mdxctl/ussd_text.h"
#include "tools/signals/polled_signals.h"

using nlohmann::ordered_json;

namespace {

constexpr int32_t kNetworkTimeoutS = 60;
constexpr char kEnd[] = "AT+CUSD=2";

/// What the network said.
struct said_t {
  int state = 0;
  std::string text;
  int scheme = 15;
};

enum : int { SAID_LAST = 0, WANTS_REPLY = 1, ENDED_BY_NETWORK = 2 };

const char* state_name(int state) {
  // clang-format off
  constexpr const char* kNames[] = {"done", "wants a reply", "ended by the network", "answered by another client",
                                    "not supported", "no answer of the network"};
  // clang-format on
  return state >= 0 && state < static_cast<int>(std::size(kNames)) ? kNames[state] : "unknown";
}

/// @return whether the packet is such an answer
bool take_said(const mdx_packet_t& packet, said_t* said) {
  const char* name = mdx_packet_name(&packet);
  if (name == nullptr || std::string_view(name) != "EVT_AT_USSD") return false;
  mdx_field_t field = MDX_FIELD_INIT;
  for (uint32_t i = 0; mdx_packet_field(&packet, i, &field) == MDX_OK; ++i) {
    const std::string_view what = field.name;
    if (what == "rspType") said->state = static_cast<int>(field.number);
    if (what == "codeType") said->scheme = static_cast<int>(field.number);
    if (what == "cusdStr") said->text.assign(static_cast<const char*>(field.data), field.length);
  }
  return true;
}

class dialogue_t {
 public:
  explicit dialogue_t(const ussd_arguments_t& arguments)
      : arguments_(arguments),
        timeout_s_(arguments.timeout_s.value_or(kNetworkTimeoutS)),
        modem_(timeout_s_),
        replies_(arguments.replies.begin(), arguments.replies.end()),
        stop_fd_(signals_to_poll({SIGINT, SIGTERM, SIGHUP, SIGQUIT})) {}
  ~dialogue_t() {
    before_signal_ends(nullptr);
    close(stop_fd_);
  }
  dialogue_t(const dialogue_t&) = delete;
  dialogue_t& operator=(const dialogue_t&) = delete;

  int run() {
    if (reports_.error() != MDX_OK)
      return fail(exit_code_of_error(reports_.error()), error_text(reports_.error()));
    const reply_t charset = modem_.ask("AT+CSCS?");
    before_signal_ends(end_left);
    charset_ = text_in(answer_fields(charset.text, "+CSCS:"), 0);
    for (std::string code = arguments_.code; !code.empty();) {
      said_t said;
      const reply_t reply = send(code, &said);
      if (!reply.ok()) return fail(reply.code, reply.error);
      show(said);
      if (said.state != WANTS_REPLY) return finish(said);
      code = next_reply();
    }
    end();
    const bool left = isatty(STDIN_FILENO) != 0 && !arguments_.json;
    return finish({left ? SAID_LAST : WANTS_REPLY, "", 15});
  }

 private:
  reply_t send(const std::string& code, said_t* said) {
    reply_t reply = modem_.ask("AT+CUSD=1,\"" + ussd_for_modem(code, charset_) + "\",15");
    if (reply.code == EXIT_MODEM_ERROR) {
      // Some makers want it packed. What was refused was not sent.
      const reply_t packed = modem_.ask("AT+CUSD=1,\"" + ussd_packed(code) + "\",15");
      if (packed.ok()) reply = packed;
    }
    if (!reply.ok()) return reply;
    const auto wanted = [&](const mdx_packet_t& packet) { return take_said(packet, said); };
    const int error = reports_.wait(wanted, std::chrono::seconds(timeout_s_), stop_fd_);
    if (error == report_wait_t::kStopped) end_by(next_signal(stop_fd_));
    if (error == MDX_ERR_TIMEOUT) {
      end();
      return {EXIT_NO_ANSWER, "",
              "the network did not answer within " + std::to_string(timeout_s_) +
                  " s; --timeout SECONDS allows more"};
    }
    if (error != MDX_OK) return {exit_code_of_error(error), "", error_text(error)};
    said->text = ussd_text(said->text, said->scheme, charset_);
    return {};
  }

  std::string next_reply() {
    if (!replies_.empty()) {
      std::string reply = replies_.front();
      replies_.pop_front();
      return reply;
    }
    if (arguments_.json || isatty(STDIN_FILENO) == 0) return "";
    std::string reply;
    do {
      std::cerr << "reply (nothing ends it): " << std::flush;
      if (const int signal = read_typed_line(stop_fd_, &reply); signal != 0) end_by(signal);
      if (!reply.empty() && !is_ussd(reply)) std::cerr << kMistake << std::endl;
    } while (!reply.empty() && !is_ussd(reply));
    return reply;
  }

  void end() const { modem_.ask(kEnd); }

  /// The same for a client that a signal ends, with which the modem may still be at work.
  static void end_left() {
    const client_session_t fresh;
    mdx_result_t result = MDX_RESULT_INIT;
    mdx_send(fresh.client(), kEnd, nullptr, &result);
  }

  [[noreturn]] void end_by(int signal) const {
    std::cerr << std::endl;
    tell("interrupted; the dialogue is ended");
    end();
    end_by_signal(signal);
  }

  void show(const said_t& said) {
    steps_.push_back({{"text", said.text}, {"state", state_name(said.state)}});
    if (!arguments_.json && !said.text.empty())
      std::cout << harmless_lines(said.text) << std::flush;
  }

  /// A dialogue that the network leaves open has nobody to answer it any more.
  int finish(const said_t& said) {
    std::string error;
    if (said.state == WANTS_REPLY) error = "the network wants a reply: --reply TEXT gives it";
    if (said.state > ENDED_BY_NETWORK)
      error = std::string("the network answers: ") + state_name(said.state);
    const exit_code_t code = error.empty() ? EXIT_OK : EXIT_MODEM_ERROR;
    if (!error.empty()) return fail(code, error);
    if (arguments_.json) print_json({{"code", arguments_.code}, {"steps", steps_}});
    return code;
  }

  int fail(exit_code_t code, const std::string& error) const {
    if (arguments_.json)
      print_json({{"code", arguments_.code}, {"steps", steps_}, {"error", error}});
    return fail_with(code, error, false);
  }

 public:
  static constexpr char kMistake[] =
      "a code or reply has 1 to 182 printable ASCII characters, without quotes";

 private:
  const ussd_arguments_t& arguments_;
  int32_t timeout_s_;
  modem_query_t modem_;
  report_wait_t reports_;
  std::deque<std::string> replies_;
  int stop_fd_;
  std::string charset_;
  ordered_json steps_ = ordered_json::array();
};

}  // namespace

int run_ussd(const ussd_arguments_t& arguments) {
  if (arguments.cancel) {
    const modem_query_t modem(arguments.timeout_s.value_or(kQuestionTimeoutS));
    const reply_t reply = modem.ask(kEnd);
    if (!reply.ok()) return fail_with(reply.code, reply.error, arguments.json);
    if (arguments.json) print_json({{"cancelled", true}});
    return EXIT_OK;
  }
  if (arguments.code.empty())
    return fail_with(EXIT_USAGE, "which code? Such as: mdxctl ussd '*100#'", arguments.json);
  std::vector<std::string> texts = arguments.replies;
  texts.push_back(arguments.code);
  for (const std::string& text : texts) {
    if (!is_ussd(text)) return fail_with(EXIT_USAGE, dialogue_t::kMistake, arguments.json);
  }
  return dialogue_t(arguments).run();
}
