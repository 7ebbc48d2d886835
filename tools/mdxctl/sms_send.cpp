// SPDX-License-Identifier: Apache-2.0

// mdxctl sms send: a text becomes PDUs, and each goes through the modem's dialogue. A message is
// whole only when all of its parts went out, so the first that fails ends it.

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <iostream>
#include <iterator>
#include <random>

#include "tools/mdxctl/answer.h"
#include "tools/mdxctl/known_states.h"
#include "tools/mdxctl/output.h"
#include "tools/mdxctl/request.h"
#include "tools/mdxctl/sms_commands.h"
#include "tools/mdxctl/sms_news.h"
#include "tools/mdxctl/sms_pdu.h"
#include "tools/signals/polled_signals.h"

using nlohmann::ordered_json;

namespace {

using clock_type = std::chrono::steady_clock;

constexpr int32_t kTimeoutS = 60;
constexpr int32_t kAskTimeoutS = 10;
constexpr int32_t kReportWaitS = 300;

/// What became of the message so far.
struct progress_t {
  exit_code_t code = EXIT_OK;
  std::string error;
  int32_t error_number = -1;
  ordered_json parts = ordered_json::array();
  std::vector<int32_t> references;
  ordered_json reports = ordered_json::array();
};

/// Joins the parts at their receiver. Of two messages that share it one would be lost there, so it
/// has all 16 bits and is drawn; above 255, since that tells its width.
uint32_t fresh_reference() {
  std::random_device random;
  return std::uniform_int_distribution<uint32_t>(0x100, 0xffff)(random);
}

/// Bytes of UTF-8 that no message has: 255 parts of 153 characters are the most.
constexpr size_t kTooMuch = 255 * 153 * 4 + 1;

/// Reads to the end, or more than fits.
/// @return false when that cannot be read
bool read_all(int fd, std::string* text) {
  char bytes[4096];
  ssize_t size = 0;
  while (text->size() < kTooMuch && (size = read(fd, bytes, sizeof(bytes))) > 0)
    text->append(bytes, static_cast<size_t>(size));
  return size >= 0;
}

/// The text, without a byte order mark in front, and without the last line end of a file.
/// @param error  set when there is none
std::string text_of(const sms_send_arguments_t& arguments, std::string* error) {
  constexpr char kMark[] = "\xef\xbb\xbf";
  const bool from_input = arguments.file.empty() && arguments.text == "-";
  if (arguments.file.empty() && !arguments.text) {
    *error = "there is no text: give it behind the number, with --file, or as - on standard input";
    return "";
  }
  std::string text = arguments.text.value_or("");
  if (from_input || !arguments.file.empty()) {
    text.clear();
    const int fd = from_input ? STDIN_FILENO : open(arguments.file.c_str(), O_RDONLY | O_CLOEXEC);
    if (!read_all(fd, &text)) {
      *error = (from_input ? "standard input" : arguments.file) +
               " cannot be read: " + std::strerror(errno);
    }
    if (fd > STDIN_FILENO) close(fd);
    if (text.rfind(kMark, 0) == 0) text.erase(0, sizeof(kMark) - 1);
    if (!text.empty() && text.back() == '\n') text.pop_back();
    if (!text.empty() && text.back() == '\r') text.pop_back();
  }
  if (text.size() >= kTooMuch && error->empty())
    *error = "the text is longer than 255 parts, which is the most: send it as several messages";
  if (text.empty() && error->empty()) *error = "the text is empty: nothing was sent";
  return text;
}

std::string refusal(const mdx_result_t& result, const std::string& text) {
  if (exit_code_of_result(result) == EXIT_NO_ANSWER) return kUnconfirmed;
  if (result.refused != 0) {
    return "the server could not write to the modem: check that it is plugged in with: mdxctl "
           "status";
  }
  if (text.empty() && result.ret_val == MDX_RESULT_CMS_ERROR) {
    return "the modem refused the message before it took it, and the number of its +CMS ERROR "
           "does not reach a client: check SIM and network with mdxctl at AT+CPIN?, AT+CREG? and "
           "AT+CSCA?";
  }
  return refusal_text(result.ret_val, text);
}

void send_part(mdx_client_t* client, const sms_part_t& part, int32_t timeout_s,
               progress_t* progress) {
  mdx_options_t options = MDX_OPTIONS_INIT;
  options.timeout_s = timeout_s;
  mdx_result_t result = MDX_RESULT_INIT;
  const int error = send_message(client, part.head, part.pdu, options, &result);
  ordered_json shown = {{"head", part.head}, {"pdu", part.pdu}, {"result", nullptr}};
  if (error != MDX_OK) {
    progress->code = exit_code_of_error(error);
    progress->error = error == MDX_ERR_TIMEOUT ? kUnconfirmed : error_text(error);
  } else {
    const std::string text(result.text, result.length);
    shown["result"] = {{"name", mdx_result_name(result.ret_val)}, {"number", result.ret_val}};
    shown["reference"] = nullptr;
    progress->code = exit_code_of_result(result);
    if (progress->code == EXIT_OK) {
      progress->references.push_back(mdx_sms_sent_reference(result.text, result.length));
      shown["reference"] = progress->references.back();
    } else {
      progress->error = refusal(result, text);
      progress->error_number = mdx_sms_error_number(result.text, result.length);
    }
  }
  progress->parts.push_back(shown);
}

void send_parts(const sms_message_t& message, const sms_send_arguments_t& arguments,
                const sms_store_t& store, progress_t* progress) {
  for (const sms_part_t& part : message.parts) {
    send_part(store.client(), part, arguments.timeout_s.value_or(kTimeoutS), progress);
    if (progress->code != EXIT_OK) break;
    if (!arguments.json) std::cout << "+CMGS: " << progress->references.back() << std::endl;
  }
  if (progress->code == EXIT_OK || message.parts.size() == 1) return;
  progress->error = "part " + std::to_string(progress->parts.size()) + " of " +
                    std::to_string(message.parts.size()) + ": " + progress->error;
}

/// Hears what the network tells of the message's parts. Made before the message is sent, so that no
/// report comes too early.
class report_waiter_t {
 public:
  explicit report_waiter_t(sms_store_t& store) : store_(store) {
    const int error = mdx_subscribe(&subscription_, MDX_EVERYTHING, 0);
    if (error != MDX_OK) throw sms_failure_t(exit_code_of_error(error), error_text(error));
    const std::string before = turn_on_news(store_, sms_news_kind_t::REPORTS);
    if (!before.empty()) store_.put_back_later(before);
  }
  ~report_waiter_t() {
    mdx_unsubscribe(subscription_);
    if (stop_fd_ >= 0) close(stop_fd_);
  }
  report_waiter_t(const report_waiter_t&) = delete;
  report_waiter_t& operator=(const report_waiter_t&) = delete;

  /// Waits until it is known of each part what became of it.
  void wait(int32_t seconds, bool json, progress_t* progress) {
    stop_fd_ = signals_to_poll({SIGINT, SIGTERM, SIGHUP, SIGQUIT});
    const auto deadline = clock_type::now() + std::chrono::seconds(seconds);
    std::vector<int32_t> open = progress->references;
    while (!open.empty()) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - clock_type::now());
      if (left.count() <= 0) return give_up(open.size(), seconds, progress);
      pollfd fds[] = {{mdx_subscription_fd(subscription_), POLLIN, 0}, {stop_fd_, POLLIN, 0}};
      poll(fds, std::size(fds), static_cast<int>(std::min<int64_t>(left.count(), INT32_MAX)));
      if (fds[1].revents != 0) {
        progress->code = EXIT_NO_ANSWER;
        progress->error = "interrupted: the message was sent, and what became of it is not known";
        return;
      }
      mdx_packet_t packet = MDX_PACKET_INIT;
      const int error = mdx_next_packet(subscription_, 0, &packet);
      if (error == MDX_ERR_TIMEOUT) continue;
      if (error != MDX_OK) throw sms_failure_t(exit_code_of_error(error), error_text(error));
      if (const auto news = take_news(store_, packet)) take(*news, json, &open, progress);
    }
  }

 private:
  static void give_up(size_t open, int32_t seconds, progress_t* progress) {
    progress->code = EXIT_NO_ANSWER;
    const size_t parts = progress->references.size();
    const std::string which = parts == 1 ? "its delivery"
                                         : "the delivery of " + std::to_string(open) + " of its " +
                                               std::to_string(parts) + " parts";
    progress->error = "the message was sent, and " + which + " was not reported within " +
                      std::to_string(seconds) + " s";
  }

  static void take(const sms_news_t& news, bool json, std::vector<int32_t>* open,
                   progress_t* progress) {
    const mdx_sms_t& report = news.entry.sms;
    if (!news.problem.empty() || report.type != MDX_SMS_STATUS_REPORT) return;
    const auto found =
        std::find(open->begin(), open->end(), static_cast<int32_t>(report.message_reference));
    if (found == open->end()) return;
    const sms_joined_t message{{news.entry}};
    progress->reports.push_back(sms_json(message));
    const std::string text = mdx_sms_status_text(report.status);
    if (!json) {
      std::cout << "report on " << report.message_reference << ": " << text << std::endl;
    }
    const int fate = mdx_sms_fate(&report);
    if (fate == MDX_SMS_TRYING) return;
    open->erase(found);
    if (fate == MDX_SMS_DELIVERED) return;
    progress->code = EXIT_MODEM_ERROR;
    progress->error = "the message was sent and will not be delivered: " + text;
  }

  sms_store_t& store_;
  mdx_subscription_t* subscription_ = nullptr;
  int stop_fd_ = -1;
};

void send(const sms_message_t& message, const sms_send_arguments_t& arguments,
          progress_t* progress) {
  try {
    sms_store_t store(kAskTimeoutS);
    std::optional<report_waiter_t> waiter;
    if (arguments.report) waiter.emplace(store);
    send_parts(message, arguments, store, progress);
    if (!waiter || progress->code != EXIT_OK) return;
    waiter->wait(arguments.report_wait_s.value_or(kReportWaitS), arguments.json, progress);
  } catch (const sms_failure_t& failure) {
    progress->code = failure.code();
    progress->error = failure.what();
  }
}

void show_parts(const sms_message_t& message, bool json, progress_t* progress) {
  for (const sms_part_t& part : message.parts) {
    progress->parts.push_back({{"head", part.head}, {"pdu", part.pdu}});
    if (!json) std::cout << part.head << ' ' << part.pdu << std::endl;
  }
}

sms_message_t encode(const sms_send_arguments_t& arguments) {
  sms_message_t message;
  const std::string text = text_of(arguments, &message.error);
  if (!message.error.empty()) return message;
  mdx_sms_options_t options = MDX_SMS_OPTIONS_INIT;
  options.reference = fresh_reference();
  options.flash = arguments.flash ? 1 : 0;
  options.report = arguments.report ? 1 : 0;
  return encode_sms(arguments.number, text, options);
}

}  // namespace

int run_sms_send(const sms_send_arguments_t& arguments) {
  const sms_message_t message = encode(arguments);
  progress_t progress;
  if (!message.error.empty()) {
    progress.code = EXIT_USAGE;
    progress.error = message.error;
  } else if (arguments.dry_run) {
    show_parts(message, arguments.json, &progress);
  } else {
    send(message, arguments, &progress);
  }
  if (arguments.json) {
    ordered_json object = {{"number", arguments.number},
                           {"alphabet", message.alphabet == MDX_SMS_UCS_2 ? "UCS-2" : "GSM 7-bit"},
                           {"parts", progress.parts}};
    if (arguments.report) object["reports"] = progress.reports;
    if (!progress.error.empty()) object["error"] = progress.error;
    if (progress.error_number >= 0) object["error_number"] = progress.error_number;
    std::cout << object.dump(-1, ' ', false, ordered_json::error_handler_t::replace) << std::endl;
  }
  if (!progress.error.empty()) tell(progress.error);
  return progress.code;
}
