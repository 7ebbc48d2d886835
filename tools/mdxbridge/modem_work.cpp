// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxbridge/modem_work.h"

#include <cerrno>
#include <cstring>
#include <random>
#include <utility>

#include "tools/mdxbridge/privacy.h"

namespace mdxbridge {

namespace {

using nlohmann::ordered_json;
using std::chrono::steady_clock;

constexpr size_t kMostWaiting = 16;
constexpr int32_t kModeTimeoutS = 10;
constexpr char kUnconfirmed[] =
    "the modem did not confirm the message: it may not have been sent, or it may have been";

std::string error_text(int error) {
  if (error == MDX_ERR_BUSY) {
    return "the command did not get its turn, and was not run: the modem works for others, or is "
           "away";
  }
  std::string text = mdx_strerror(error);
  if (error == MDX_ERR_SYSTEM) text += std::string(": ") + std::strerror(errno);
  return text;
}

/// Joins the parts at their receiver. Of two messages that share it one would be lost there, so it
/// has all 16 bits and is drawn; above 255, since that tells its width.
uint32_t fresh_reference() {
  std::random_device random;
  return std::uniform_int_distribution<uint32_t>(0x100, 0xffff)(random);
}

std::string result_text(const mdx_result_t& result) {
  const std::string text(result.text, result.length);
  return text.empty() ? mdx_result_name(result.ret_val) : text;
}

}  // namespace

modem_work_t::~modem_work_t() { mdx_close(client_); }

bool modem_work_t::is_full() const { return jobs_.size() >= kMostWaiting; }

void modem_work_t::add(job_t job) {
  jobs_.push_back(std::move(job));
  begin_next();
}

int modem_work_t::fd() const { return busy_ ? mdx_client_fd(client_) : -1; }

double modem_work_t::seconds() const {
  return std::chrono::duration<double>(steady_clock::now() - began_).count();
}

void modem_work_t::begin_next() {
  while (!busy_ && !jobs_.empty()) {
    began_ = steady_clock::now();
    const int error = client_ == nullptr ? mdx_open(&client_) : MDX_OK;
    if (error != MDX_OK) {
      fail(error);
    } else if (jobs_.front().request.is_sms) {
      part_ = 0;
      reference_ = fresh_reference();
      sms_error_.clear();
      references_ = ordered_json::array();
      begin_step(step_t::kAskMode);
    } else {
      begin_command();
    }
  }
}

void modem_work_t::begin_command() {
  const request_t& request = jobs_.front().request;
  collection_ = collection_for(request.command, true);
  mdx_options_t options = MDX_OPTIONS_INIT;
  options.timeout_s = request.timeout_s;
  options.match = collection_.match.c_str();
  options.multi_line = collection_.multi_line ? 1 : 0;
  options.transparent = collection_.transparent ? 1 : 0;
  step_ = step_t::kCommand;
  const int error = mdx_begin(client_, request.command.c_str(), &options);
  busy_ = error == MDX_OK;
  if (!busy_) fail(error);
}

int modem_work_t::begin_part() {
  const request_t& request = jobs_.front().request;
  mdx_sms_options_t sms_options = MDX_SMS_OPTIONS_INIT;
  sms_options.reference = reference_;
  mdx_sms_part_t part = MDX_SMS_PART_INIT;
  mdx_sms_encode(request.number.c_str(), request.text.c_str(),
                 static_cast<uint32_t>(request.text.size()), &sms_options, part_, &part, nullptr);
  mdx_options_t options = MDX_OPTIONS_INIT;
  options.timeout_s = request.timeout_s;
  return mdx_begin_pdu(client_, part.head, part.pdu, &options);
}

void modem_work_t::begin_step(step_t step) {
  step_ = step;
  mdx_options_t options = MDX_OPTIONS_INIT;
  options.timeout_s = kModeTimeoutS;
  options.match = step == step_t::kAskMode ? "+CMGF:" : nullptr;
  int error = MDX_OK;
  switch (step) {
    case step_t::kAskMode:
      error = mdx_begin(client_, "AT+CMGF?", &options);
      break;
    case step_t::kSetMode:
      error = mdx_begin(client_, "AT+CMGF=0", &options);
      break;
    case step_t::kRestoreMode:
      error = mdx_begin(client_, "AT+CMGF=1", &options);
      break;
    default:
      error = begin_part();
  }
  busy_ = error == MDX_OK;
  if (busy_) return;
  if (step == step_t::kRestoreMode) return end_sms();
  sms_failed(error_text(error));
}

void modem_work_t::work() {
  if (!busy_) return;
  mdx_result_t result = MDX_RESULT_INIT;
  const int error = mdx_finish(client_, &result);
  if (error == MDX_ERR_PENDING) return;
  busy_ = false;
  finished(error, result);
  begin_next();
}

void modem_work_t::finished(int error, const mdx_result_t& result) {
  if (step_ != step_t::kCommand) return sms_finished(error, result);
  if (error != MDX_OK) return fail(error);
  const request_t& request = jobs_.front().request;
  const std::string text =
      published_answer(shown_text(result, collection_), collection_.prefixes, settings_.open);
  ordered_json answer = answer_object(request, result, text, seconds());
  if (result.ret_val == MDX_RESULT_NONE) {
    answer["error"] = "no answer: the modem had " + std::to_string(request.timeout_s) + " s for it";
  } else if (result.refused != 0) {
    answer["error"] = "the server could not write to the modem";
  }
  end(answer, mdx_result_name(result.ret_val));
}

void modem_work_t::sms_finished(int error, const mdx_result_t& result) {
  const bool good = error == MDX_OK && result.ret_val == MDX_RESULT_OK;
  const std::string problem = error != MDX_OK ? error_text(error) : result_text(result);
  switch (step_) {
    case step_t::kAskMode:
      if (!good) return sms_failed("the modem's message mode is not known: " + problem);
      was_text_mode_ =
          std::string_view(result.text, result.length).find('1') != std::string_view::npos;
      return begin_step(was_text_mode_ ? step_t::kSetMode : step_t::kSendPart);
    case step_t::kSetMode:
      if (good) return begin_step(step_t::kSendPart);
      was_text_mode_ = false;
      return sms_failed("the modem does not take messages as PDUs: " + problem);
    case step_t::kRestoreMode:
      return end_sms();
    default:
      break;
  }
  const bool unconfirmed =
      error == MDX_ERR_TIMEOUT || (error == MDX_OK && result.ret_val <= MDX_RESULT_NO_VERDICT);
  if (!good) return sms_failed(unconfirmed ? kUnconfirmed : problem);
  references_.push_back(mdx_sms_sent_reference(result.text, result.length));
  const request_t& request = jobs_.front().request;
  mdx_sms_part_t part = MDX_SMS_PART_INIT;
  const int next =
      mdx_sms_encode(request.number.c_str(), request.text.c_str(),
                     static_cast<uint32_t>(request.text.size()), nullptr, ++part_, &part, nullptr);
  if (next == MDX_SMS_FINE) return begin_step(step_t::kSendPart);
  was_text_mode_ ? begin_step(step_t::kRestoreMode) : end_sms();
}

void modem_work_t::sms_failed(const std::string& reason) {
  sms_error_ = reason;
  if (step_ == step_t::kSendPart && was_text_mode_) return begin_step(step_t::kRestoreMode);
  end_sms();
}

void modem_work_t::end_sms() {
  const request_t& request = jobs_.front().request;
  ordered_json answer = failure_object(request, sms_error_, false, seconds());
  answer["references"] = references_;
  if (sms_error_.empty()) {
    answer["result"] = {{"name", "OK"}, {"number", MDX_RESULT_OK}};
    answer.erase("error");
  }
  end(answer, sms_error_.empty() ? "OK" : "not sent");
}

void modem_work_t::fail(int error) {
  const bool never_run = error != MDX_ERR_TIMEOUT && error != MDX_ERR_SERVER_GONE;
  ordered_json answer = failure_object(jobs_.front().request, error_text(error), false, seconds());
  answer["run"] = !never_run;
  end(answer, never_run ? "not run" : "no answer");
}

void modem_work_t::end(const ordered_json& answer, const std::string& outcome) {
  const job_t job = std::move(jobs_.front());
  jobs_.pop_front();
  done_(job, answer, outcome);
}

void modem_work_t::give_up(const std::string& reason) {
  const bool may_run = busy_ && mdx_cancel(client_) != MDX_OK;
  busy_ = false;
  for (bool first = true; !jobs_.empty(); first = false) {
    const bool run = first && may_run;
    ordered_json answer = failure_object(jobs_.front().request, reason, !run, 0);
    if (run) answer["run"] = true;
    end(answer, run ? "given up" : "not run");
  }
}

}  // namespace mdxbridge
