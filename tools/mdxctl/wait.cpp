// SPDX-License-Identifier: Apache-2.0

// mdxctl wait: until the modem answers, its SIM card is ready, it is registered, or a message
// comes. What the device is told is waited for; where nothing tells, the modem is asked once a
// second.

#include <iostream>
#include <memory>
#include <thread>

#include "tools/mdxctl/answer.h"
#include "tools/mdxctl/commands.h"
#include "tools/mdxctl/known_states.h"
#include "tools/mdxctl/modem_query.h"
#include "tools/mdxctl/network_words.h"
#include "tools/mdxctl/output.h"
#include "tools/mdxctl/report_wait.h"
#include "tools/words/state_words.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr milliseconds kLookForServer{200};
constexpr milliseconds kBetweenQuestions{1000};
constexpr int32_t kAnswerS = 3;

struct finding_t {
  bool met = false;
  bool will_be_told = false;  ///< a packet comes when it changes, so nobody needs to ask
  std::string reason;         ///< why it is not met
};

finding_t look_for_modem() {
  modem_link_t link{};
  const int error = fetch_link(&link);
  if (error == MDX_OK && !link.up) return {false, true, "the modem is not there"};
  const reply_t reply = modem_query_t(kAnswerS).ask("AT");
  return {reply.ok(), false, reply.error};
}

finding_t look_for_sim() {
  finding_t modem = look_for_modem();
  if (!modem.met) return modem;
  const reply_t reply = modem_query_t(kAnswerS).ask("AT+CPIN?");
  const std::string state = text_in(answer_fields(reply.text, "+CPIN:"), 0);
  if (state == "READY") return {true, false, ""};
  return {false, false, reply.ok() ? "the SIM card asks for " + state : reply.error};
}

finding_t look_for_network() {
  finding_t finding = look_for_modem();
  if (!finding.met) return finding;
  const modem_query_t modem(kAnswerS);
  finding = {false, true, "the modem does not tell whether it is registered"};
  for (const std::string name : {"+CREG", "+CGREG", "+CEREG"}) {
    const reply_t reply = modem.ask("AT" + name + "?");
    const auto registration = read_registration(reply.text, name);
    if (!registration) continue;
    if (registration->registered()) return {true, false, ""};
    // Of +CEREG the device is told nothing, nor of what the modem does not report.
    if (registration->reports == 0 || name == "+CEREG") finding.will_be_told = false;
    finding.reason = "the modem is " + registration_name(registration->status);
  }
  return finding;
}

bool tells_message(const mdx_packet_t& packet) {
  const char* name = mdx_packet_name(&packet);
  return name != nullptr && std::string_view(name) == "EVT_AT_SMS_NEW";
}

/// A modem may store messages and tell nobody.
void warn_of_silence() {
  const reply_t reply = modem_query_t(kAnswerS).ask("AT+CNMI?");
  if (reply.ok() && number_in(answer_fields(reply.text, "+CNMI:"), 1) == 0) {
    tell("the modem does not tell of new messages; mdxctl at AT+CNMI=2,1 makes it");
  }
}

bool anything(const mdx_packet_t&) { return true; }

class waiter_t {
 public:
  explicit waiter_t(const wait_arguments_t& arguments)
      : arguments_(arguments),
        end_(steady_clock::now() + seconds(arguments.timeout_s.value_or(0))) {}

  int run() {
    for (;;) {
      if (!reports_) reports_ = std::make_unique<report_wait_t>();
      const int error = reports_->error() == MDX_OK ? look() : reports_->error();
      if (error == MDX_OK) return finish(EXIT_OK, "");
      if (error != MDX_ERR_TIMEOUT) reports_.reset();
      const bool may_come = error == MDX_ERR_TIMEOUT || error == MDX_ERR_NO_SERVER ||
                            error == MDX_ERR_SERVER_GONE || error == MDX_ERR_BUSY ||
                            error == MDX_ERR_REFUSED;
      if (!may_come) return finish(exit_code_of_error(error), error_text(error));
      if (error != MDX_ERR_TIMEOUT) reason_ = error_text(error);
      if (is_over()) return finish(EXIT_NO_ANSWER, reason_);
      if (error != MDX_ERR_TIMEOUT) std::this_thread::sleep_for(std::min(kLookForServer, left()));
    }
  }

 private:
  /// One look, and the wait for the next. @return MDX_OK when there is nothing more to wait for
  int look() {
    if (arguments_.what == "sms") {
      if (!warned_) warn_of_silence();
      warned_ = true;
      reason_ = "no message came";
      return reports_->wait(tells_message, left());
    }
    const finding_t finding = arguments_.what == "modem" ? look_for_modem()
                              : arguments_.what == "sim" ? look_for_sim()
                                                         : look_for_network();
    if (finding.met) return MDX_OK;
    reason_ = finding.reason;
    const int error = reports_->wait(
        anything, finding.will_be_told ? left() : std::min(kBetweenQuestions, left()));
    if (error == MDX_OK) reports_->settle(std::min(kBetweenQuestions, left()));
    return error == MDX_OK ? int{MDX_ERR_TIMEOUT} : error;
  }

  bool is_over() const { return arguments_.timeout_s && steady_clock::now() >= end_; }

  milliseconds left() const {
    constexpr milliseconds kLong = std::chrono::hours(24);
    if (!arguments_.timeout_s) return kLong;
    return std::max(ceil<milliseconds>(end_ - steady_clock::now()), milliseconds(0));
  }

  int finish(exit_code_t code, const std::string& reason) const {
    const double waited = std::chrono::duration<double>(steady_clock::now() - start_).count();
    if (arguments_.json) {
      nlohmann::ordered_json object = {
          {"what", arguments_.what}, {"met", code == EXIT_OK}, {"seconds", waited}};
      if (!reason.empty()) object["error"] = reason;
      print_json(object);
    }
    if (code != EXIT_OK) {
      const bool timed_out = code == EXIT_NO_ANSWER && arguments_.timeout_s;
      tell(timed_out ? "not within " + std::to_string(*arguments_.timeout_s) + " s: " + reason
                     : reason);
    }
    return code;
  }

  const wait_arguments_t& arguments_;
  steady_clock::time_point start_ = steady_clock::now();
  steady_clock::time_point end_;
  std::unique_ptr<report_wait_t> reports_;
  std::string reason_ = "nothing tells";
  bool warned_ = false;
};

}  // namespace

int run_wait(const wait_arguments_t& arguments) { return waiter_t(arguments).run(); }
