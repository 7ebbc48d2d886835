// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <string_view>

#include "tools/line/at_line.h"
#include "tools/mdxsim/message_store.h"
#include "tools/mdxsim/modem.h"
#include "tools/mdxsim/outbox.h"
#include "tools/mdxsim/phone_book.h"

namespace mdxsim {

struct LivingOptions {
  Time answer_delay{0};        ///< in front of each answer
  Time report_interval{3000};  ///< between reports of its own, 0 for none
  Time scan_time{4000};        ///< how long +COPS=? searches
  Time call_interval{0};       ///< between calls that come in, 0 for none
  Time message_interval{0};    ///< between messages that come in, 0 for none
  bool mute = false;           ///< reads commands and answers nothing
  bool sim_inserted = true;
  std::string pin;                   ///< asked for when not empty
  unsigned seed = 1;                 ///< of the signal's course
  int64_t clock_start = 1704067200;  ///< seconds since 1970 when the modem's time is 0
};

/// How a command ends, and with it the line unless it ended well.
struct Result {
  enum class Kind { kOk, kError, kCmeError, kCmsError, kConnect, kNoCarrier, kPrompt };
  Kind kind = Kind::kOk;
  int number = 0;  ///< of kCmeError (3GPP TS 27.007, 9.2) and kCmsError (27.005, 3.2.5)
};

/// A voice call, in the states of +CLCC.
struct Call {
  enum class State { kActive = 0, kDialing = 2, kAlerting = 3, kIncoming = 4 };
  int serial = 0;  ///< tells it from calls before
  State state = State::kDialing;
  std::string number;
  Time connected{0};
  bool incoming = false;
};

/// The character set of texts and names on the line, +CSCS.
enum class CharacterSet { kIra, kGsm, kUcs2 };

/// What commands set and ATZ sets back.
struct ModemSettings {
  bool echo = true;
  bool verbose = true;
  int cmee = 0;
  CharacterSet character_set = CharacterSet::kIra;
  int message_format = 0;   ///< +CMGF: 0 PDU, 1 text
  int message_details = 0;  ///< +CSDH
  int message_service = 0;  ///< +CSMS
  int news_mode = 2;        ///< +CNMI
  int news_messages = 0;
  int news_broadcasts = 0;
  int news_delivered = 0;
  int unacknowledged = 0;  ///< messages that the host was handed and has not acknowledged
  int news_buffer = 0;
  int creg_reports = 0;
  int cgreg_reports = 0;
  int cereg_reports = 0;
  int caller_shown = 0;   ///< +CLIP
  int ring_extended = 0;  ///< +CRC
  int ussd_reports = 0;   ///< +CUSD
  int srvst_reports = 1;
  int mode_reports = 1;
  int signal_reports = 1;  ///< ^CURC: all the others
  int operator_format = 0;
};

/// A packet data context, +CGDCONT and +CGACT.
struct DataContext {
  std::string type = "IP";
  std::string access_point;
  bool active = false;
};

constexpr int kPinTries = 3;
constexpr int kPukTries = 10;
constexpr std::string_view kPuk = "12345678";

/// All that commands read and change.
struct ModemState : ModemSettings {
  bool registered = true;
  bool searching = false;     ///< will be registered soon
  bool deregistered = false;  ///< by +COPS=2
  bool attached = true;       ///< to packet service, while registered
  bool sim_inserted = true;
  bool pin_needed = false;
  std::string pin;            ///< empty for none
  int pin_tries = kPinTries;  ///< at 0 the SIM asks for its PUK
  int puk_tries = kPukTries;
  int functionality = 1;    ///< +CFUN
  int dialled_context = 0;  ///< by *99***1#, 0 for none
  int rssi = 20;
  uint32_t sent_bytes = 0;
  uint32_t received_bytes = 0;
  uint32_t data_seconds = 0;
  int message_reference = 30;
  int last_call = 0;
  int ussd_level = 0;  ///< of the menu that is open, 0 for none
  int64_t clock_shift = 0;
  std::optional<Call> call;
  std::map<int, DataContext> contexts{{1, {"IP", "internet", false}}};
  std::string service_centre = "+15550199";
  MessageStore store;
  PhoneBook phone_book;
};

/// A modem that answers commands and reports by itself.
///
/// Commands are served in the order in which they come; one that takes its time (+COPS=?) holds up
/// the answers behind it, but not the reports. What the host does not take is bounded: past 16 KiB
/// reports are dropped, and `accepts_input` turns false.
class LivingModem final : public Modem {
 public:
  explicit LivingModem(LivingOptions options);

  void attached(Time now) override;
  void detached(Time now) override;
  void receive(std::string_view bytes, Time now) override;
  void advance(Time now) override;
  std::string transmit(Time now) override;
  [[nodiscard]] std::optional<Time> next_due() const override;
  [[nodiscard]] bool accepts_input() const override;
  [[nodiscard]] std::optional<Ending> ending() const override { return std::nullopt; }
  [[nodiscard]] std::optional<std::string> unfinished() const override { return std::nullopt; }

  // For a script in front of it.

  /// Whether it asked for a message that has not come to its end.
  [[nodiscard]] bool takes_message() const { return message_taker_ != nullptr; }

  /// Forgets about that message, without an answer.
  void drop_message();

  // For the handlers of commands.

  /// Adds a line, or several with CR LF between them, to the answer under way.
  void say(std::string_view text);

  /// Lets the answer under way, and those behind it, come that much later.
  void take_time(Time duration);

  /// Sends a line by itself, unless the host leaves too much unread.
  void report(std::string_view text);

  /// Calls `action` when so much time has passed; not at all when the host closes the device
  /// before.
  void later(Time delay, std::function<void(LivingModem&)> action);

  /// The network brings a message a second later, whether or not a host is there.
  void deliver_later(std::string pdu);

  /// The network's choice follows SIM, radio and +COPS: at once when it is gone, after a second
  /// when it is back. Reports it.
  void follow_network();

  /// Starts over as after power on, with the PIN to be entered again.
  void restart();

  /// Takes the bytes up to Ctrl-Z as a message and ends the command with what `finish` makes of it.
  /// To be answered with Result::Kind::kPrompt.
  void ask_for_message(std::function<Result(LivingModem&, const std::string&)> finish);

  [[nodiscard]] Time now() const { return now_; }
  [[nodiscard]] const LivingOptions& options() const { return options_; }
  ModemState state;

 private:
  void take_command_byte(char c);
  void take_message_byte(char c);
  void run_line();
  Result run(const AtCommand& command);
  void finish(Result result);
  std::string result_text(Result result) const;
  void send_answer(std::string_view text);
  void report_by_itself();
  void report_registration();
  void let_come_in();
  [[nodiscard]] bool may_register() const;

  LivingOptions options_;
  Time now_{0};
  Time busy_until_{0};
  bool attached_ = false;
  Outbox outbox_;
  std::multimap<Time, std::function<void(LivingModem&)>> timers_;
  std::multimap<Time, std::string> deliveries_;
  Time next_report_{0};
  Time next_call_{0};
  Time next_message_{0};
  unsigned report_turn_ = 0;
  std::mt19937 random_;
  std::string line_;
  std::string answer_;
  bool skip_cr_ = false;
  std::function<Result(LivingModem&, const std::string&)> message_taker_;  // empty: takes commands
};

}  // namespace mdxsim
