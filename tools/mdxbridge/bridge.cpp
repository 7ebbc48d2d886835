// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxbridge/bridge.h"

#include <poll.h>
#include <sys/random.h>

#include <algorithm>
#include <ctime>
#include <fstream>
#include <functional>
#include <utility>

#include "tools/mdxbridge/figures.h"
#include "tools/mdxbridge/hash.h"
#include "tools/mdxbridge/journal.h"
#include "tools/mdxbridge/privacy.h"
#include "tools/words/packet_text.h"
#include "tools/words/state_words.h"
#include "tools/words/time_text.h"

namespace mdxbridge {

namespace {

using nlohmann::ordered_json;
using std::chrono::milliseconds;
using std::chrono::seconds;

/// As many as an MQTT client of the library has on their way by itself.
constexpr size_t kOnTheirWay = 16;
constexpr size_t kOwnRoom = 128;
constexpr size_t kAnswerRoom = 64;
/// Who asks names the topic, and there are brokers that end the connection for one that they do not
/// take.
constexpr int kAnswerTries = 3;
constexpr seconds kLookForServer{1};
constexpr seconds kOncePatience{30};
constexpr seconds kStopPatience{2};
/// A connection that lasted so long was a good one: the next attempt comes soon.
constexpr seconds kGoodConnection{60};
constexpr size_t kLongestCorrelation = 256;

std::string utc_text(uint32_t age_s) {
  const time_t then = time(nullptr) - static_cast<time_t>(age_s);
  tm parts{};
  gmtime_r(&then, &parts);
  char text[32];
  strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text;
}

std::string text_of(const ordered_json& object) {
  return object.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

uint64_t random_number() {
  uint64_t number = 0;
  if (getrandom(&number, sizeof(number), 0) != sizeof(number))
    number = static_cast<uint64_t>(time(nullptr));
  return number;
}

/// The same with each start, but not the machine's own ID, which is nobody else's business.
std::string machine_name() {
  std::ifstream file("/etc/machine-id");
  std::string id;
  if (!std::getline(file, id) || id.empty()) return hex_of(random_number());
  return hex_of(hash_of("mdxbridge " + id));
}

bool is_link(const mdx_packet_t& packet) {
  return packet.kind == MDX_KIND_SERVICE && std::string_view(packet.to) == MDX_SERVICE_LINK;
}

/// The report that is no longer true when this one is.
std::string opposite_of(std::string_view name) {
  static constexpr std::string_view kPairs[][2] = {
      {"DIALUP_MSG_V4_UP", "DIALUP_MSG_V4_DOWN"},
      {"DIALUP_MSG_V6_UP", "DIALUP_MSG_V6_DOWN"},
      {"EVT_AT_ROAMING_STATUS_0", "EVT_AT_ROAMING_STATUS_1"},
  };
  for (const auto& pair : kPairs) {
    if (name == pair[0]) return std::string(pair[1]);
    if (name == pair[1]) return std::string(pair[0]);
  }
  return "";
}

/// Names of packets hold blanks where they have none of their own; topics better do not.
std::string topic_name(std::string name) {
  std::replace(name.begin(), name.end(), ' ', '_');
  return name;
}

}  // namespace

bridge_t::bridge_t(const settings_t& settings, bool once)
    : settings_(settings),
      once_(once),
      instance_(hex_of(random_number())),
      machine_(machine_name()),
      began_(utc_text(0)),
      random_(static_cast<std::minstd_rand::result_type>(random_number())),
      own_(kOwnRoom),
      answers_(kAnswerRoom, kAnswerTries),
      reports_(static_cast<size_t>(settings.queue)),
      server_{false, began_},
      work_(settings,
            [this](const job_t& job, const ordered_json& object, const std::string& outcome) {
              log_command(job, outcome);
              answer(job, object);
            }),
      rate_(settings.rate),
      stats_at_(clock_type::now() + seconds(settings.stats_s)) {}

bridge_t::~bridge_t() { mdx_unsubscribe(hub_); }

bool bridge_t::run(int stop_fd, const place_t& place) {
  const time_point end = clock_type::now() + kOncePatience;
  connect_at_ = subscribe_at_ = clock_type::now();
  while (!stopping_ && !is_done()) {
    look_after_hub();
    look_after_broker();
    if (settings_.stats_s > 0 && !once_ && clock_type::now() >= stats_at_) publish_stats();
    send_what_waits();
    if (once_ && clock_type::now() >= end) break;
    place.let_go_of_callers();
    if (!is_done()) wait(stop_fd);
  }
  const bool done = is_done() && own_.dropped() == 0 && reports_.dropped() == 0;
  if (stopping_) stop();
  if (broker_) broker_->disconnect();
  return done || !once_;
}

bool bridge_t::is_done() const {
  const bool all_told = told_all_ || (hub_ == nullptr && hub_error_ != MDX_OK);
  return once_ && broker_ && broker_->is_up() && all_told && figures_.connections > 0 &&
         own_.empty() && reports_.empty();
}

// Waiting

bridge_t::time_point bridge_t::next_due() const {
  time_point due = clock_type::now() + std::chrono::hours(1);
  due = std::min(due, broker_ ? broker_->due() : connect_at_);
  if (hub_ == nullptr) due = std::min(due, subscribe_at_);
  if (settings_.stats_s > 0 && !once_) due = std::min(due, stats_at_);
  if (once_) due = std::min(due, clock_type::now() + seconds(1));
  return due;
}

void bridge_t::wait(int stop_fd) {
  const auto left = std::chrono::ceil<milliseconds>(next_due() - clock_type::now());
  pollfd fds[] = {{stop_fd, POLLIN, 0},
                  {hub_ != nullptr ? mdx_subscription_fd(hub_) : -1, POLLIN, 0},
                  {work_.fd(), POLLIN, 0},
                  {broker_ ? broker_->fd() : -1, POLLIN, 0}};
  if (broker_ && broker_->wants_write()) fds[3].events |= POLLOUT;
  poll(fds, std::size(fds), std::max(0, static_cast<int>(left.count())));
  if (fds[0].revents != 0) stopping_ = true;
  if (fds[2].revents != 0) work_.work();
}

// The hub

void bridge_t::look_after_hub() {
  if (hub_ == nullptr && clock_type::now() >= subscribe_at_) subscribe_hub();
  // A flood of reports does not keep the broker waiting: what is left comes in the next round.
  constexpr int kAtOnce = 64;
  for (int i = 0; hub_ != nullptr && i < kAtOnce; ++i) {
    mdx_packet_t packet = MDX_PACKET_INIT;
    const int error = mdx_next_packet(hub_, 0, &packet);
    if (error == MDX_ERR_TIMEOUT) return;
    if (error != MDX_OK) return hub_lost(error);
    take_packet(packet);
  }
}

void bridge_t::subscribe_hub() {
  mdx_subscribe_options_t options = MDX_SUBSCRIBE_OPTIONS_INIT;
  options.last = 1;
  subscribe_at_ = clock_type::now() + kLookForServer;
  const int error = mdx_subscribe_with(&hub_, &options);
  if (error != MDX_OK) return hub_lost(error);
  told_all_ = false;
}

void bridge_t::hub_lost(int error) {
  mdx_unsubscribe(hub_);
  hub_ = nullptr;
  if (hub_error_ != error) {
    journal(error == MDX_ERR_SERVER_GONE ? "the server is gone"
                                         : std::string("the server: ") + mdx_strerror(error));
  }
  hub_error_ = error;
  modem_.reset();
  if (!server_.up) return;
  server_ = {false, utc_text(0)};
  if (!once_) publish_state(true);
}

void bridge_t::take_packet(const mdx_packet_t& packet) {
  if (!server_.up) {
    if (hub_error_ != MDX_OK) journal("the server is there");
    hub_error_ = MDX_OK;
    server_ = {true, utc_text(0)};
  }
  const std::string name = packet_name(packet);
  figures_.reports_lost += packet.lost;
  if (is_link(packet)) {
    modem_ = {packet.type == MDX_LINK_UP, utc_text(packet.age_s)};
    told_all_ = true;
    publish_state(!once_);
    if (packet.remembered != 0) return;
  }
  const auto& out = settings_.leave_out;
  if (std::find(out.begin(), out.end(), name) == out.end()) publish_packet(packet, name);
}

void bridge_t::publish_packet(const mdx_packet_t& packet, const std::string& name) {
  ordered_json object = {{"time", time_text(true)}};
  object.update(published_packet(packet, settings_.open));
  const std::string text = text_of(object);
  const std::string topic = settings_.topic("report/" + topic_name(name));
  const bool is_state = is_state_name(name) && !is_link(packet);
  if (is_state) {
    if (const std::string opposite = opposite_of(name); !opposite.empty()) {
      const std::string gone = settings_.topic("report/" + opposite);
      known_[gone] = "";  // also taken back when the broker was away for long
      reports_.add({gone, "", true});
    }
    known_[topic] = packet.remembered != 0 ? text : with_member(text, "\"remembered\":true");
  }
  if (packet.remembered != 0) return reports_.add({topic, text, is_state});
  ++figures_.reports;
  const std::string mark =
      "\"bridge\":\"" + instance_ + "\",\"number\":" + std::to_string(++number_);
  reports_.add({topic, with_member(text, mark), is_state});
}

// The broker

void bridge_t::look_after_broker() {
  if (broker_ == nullptr && clock_type::now() >= connect_at_) connect();
  if (broker_ == nullptr) return;
  broker_->work();
  if (!broker_->failure().empty()) connection_failed();
}

void bridge_t::connect() {
  ordered_json will = {{"online", false},
                       {"bridge", instance_},
                       {"machine", machine_},
                       {"reason", "the connection was lost"}};
  broker_t::events_t events;
  events.up = [this] { connection_up(); };
  events.message = [this](const inbound_t& inbound) { take_message(inbound); };
  events.confirmed = [this](int mid, const std::string& refusal) { confirmed(mid, refusal); };
  events.subscribed = [this](const std::string& refusal) {
    if (!refusal.empty())
      journal("the broker lets nobody ask here, " + settings_.topic("command") + ": " + refusal);
  };
  if (once_) will["reason"] = "it was there for a moment only";
  const message_t last_will{settings_.topic("state"), text_of(will), true};
  broker_ = std::make_unique<broker_t>(settings_, last_will, each_address_, std::move(events));
}

void bridge_t::connection_up() {
  const bool failed = !last_failures_[0].empty() || !last_failures_[1].empty();
  if (failed || figures_.connections == 0) {
    journal("connected to " + settings_.host + ':' + std::to_string(settings_.port) + " as " +
            settings_.id);
  }
  for (std::string& last : last_failures_) last.clear();
  refused_publish_.clear();
  connected_at_ = clock_type::now();
  ++figures_.connections;
  contested_ = false;
  broker_->subscribe(settings_.topic("state"), true);
  if (!once_) broker_->subscribe(settings_.topic("command"), false);
  own_.clear();
  publish_state(!once_);
  if (once_) return publish_stats();
  // What the broker kept may be gone, or may be of another time. The first connection has it from
  // the hub.
  if (figures_.connections == 1) return;
  for (const auto& [topic, text] : known_) own_.add({topic, text, true});
}

void bridge_t::connection_failed() {
  const bool was_good =
      connected_at_ != time_point() && clock_type::now() - connected_at_ >= kGoodConnection;
  const seconds longest{settings_.longest_pause_s};
  pause_ = was_good ? seconds(1) : std::clamp(pause_ * 2, seconds(1), longest);
  std::string failure = broker_->failure();
  const bool displaced = contested_ || broker_->taken_over();
  if (displaced) {
    // Each of the two would take the other's place for ever.
    pause_ = longest;
    ++figures_.displaced;
    failure += "; another device may have the ID " + settings_.id + " or the client-id " +
               settings_.client_id + ": the next attempt is in " + std::to_string(pause_.count()) +
               " s";
  }
  // Not all devices at once, when the broker of all is back.
  const int64_t most = displaced ? 0 : milliseconds(pause_).count() / 2;
  const int64_t spread = std::uniform_int_distribution<int64_t>(0, most)(random_);
  connect_at_ = clock_type::now() + pause_ - milliseconds(spread);
  std::string& last = last_failures_[each_address_ ? 1 : 0];
  if (failure != last)
    journal(settings_.host + ':' + std::to_string(settings_.port) + ": " + failure);
  last = failure;
  if (connected_at_ == time_point()) each_address_ = !each_address_;
  contested_ = false;
  connected_at_ = time_point();
  broker_.reset();
  for (lane_t* lane : {&own_, &answers_, &reports_}) lane->rewind();
}

void bridge_t::confirmed(int mid, const std::string& refusal) {
  const bool known = own_.confirmed(mid) || answers_.confirmed(mid) || reports_.confirmed(mid);
  if (!known || refusal.empty() || refusal == refused_publish_) return;
  refused_publish_ = refusal;
  journal("the broker does not take what is published below " + settings_.topic("") + ": " +
          refusal);
}

bool bridge_t::sends_from(lane_t* lane) {
  const size_t under_way = own_.on_their_way() + answers_.on_their_way() + reports_.on_their_way();
  if (lane->next() == nullptr || under_way >= kOnTheirWay) return false;
  const int mid = broker_->publish(*lane->next());
  if (mid == broker_t::kNever) {
    journal("a message of " + std::to_string(lane->next()->text.size()) +
            " bytes is lost, which is larger than the broker takes or has a topic that is none");
    lane->drop_next();
    return true;
  }
  if (mid >= 0) lane->sent(mid);
  return mid >= 0;
}

void bridge_t::send_what_waits() {
  if (broker_ == nullptr || !broker_->is_up()) return;
  while (sends_from(&own_) || sends_from(&answers_) || sends_from(&reports_)) {
  }
}

// Commands

void bridge_t::take_message(const inbound_t& inbound) {
  if (inbound.topic == settings_.topic("state")) return take_state(inbound);
  if (inbound.topic == settings_.topic("command")) take_command(inbound);
}

/// Most brokers end the connection of the first of two clients with one name, and tell it nothing.
/// So each looks at what the other left.
void bridge_t::take_state(const inbound_t& inbound) {
  const ordered_json state =
      ordered_json::parse(inbound.payload.substr(0, kLongestRequest), nullptr, false);
  if (!state.is_object() || state.value("online", ordered_json()) != true) return;
  const ordered_json machine = state.value("machine", ordered_json());
  if (!machine.is_string() || machine == machine_ || std::exchange(contested_, true)) return;
  journal("another machine, " + machine.get<std::string>() + ", has the ID " + settings_.id +
          ", too, or had it and did not say that it went; this one is " + machine_ +
          "; give each device its own");
}

/// Takes over where the answer goes. @return why it can't go there; empty when it can
std::string bridge_t::address(const inbound_t& inbound, job_t* job) const {
  if (inbound.correlation.size() > kLongestCorrelation)
    return "correlation data of more than " + std::to_string(kLongestCorrelation) + " bytes";
  job->correlation = inbound.correlation;
  if (inbound.response_topic.empty()) return "";
  if (!may_answer_at(inbound.response_topic, settings_)) {
    return "an answer goes to " + job->answer_topic + ", to a topic below it, or to one outside " +
           settings_.prefix + "/, not to the response topic that was given";
  }
  job->answer_topic = inbound.response_topic;
  return "";
}

void bridge_t::take_command(const inbound_t& inbound) {
  job_t job;
  job.answer_topic = settings_.topic("answer");
  job.client = inbound.client;
  std::string error = address(inbound, &job);
  if (error.empty() && inbound.retained)
    error = "a retained command would be run again with each connection";
  if (error.empty() && !job.correlation.empty()) {
    job.key = job.answer_topic + '\0' + job.correlation + '\0' +
              hex_of(std::hash<std::string_view>()(inbound.payload));
    if (is_repeat(job)) return;
  }
  if (!rate_.take(clock_type::now())) return refuse_flood(job);
  if (error.empty()) job.request = read_request(inbound.payload, &error);
  if (error.empty()) error = refusal_now(job.request);
  if (!error.empty()) return refuse(job, error);
  if (!job.key.empty()) repeats_.begun(job.key, clock_type::now());
  ++figures_.commands;
  work_.add(std::move(job));
}

bool bridge_t::is_repeat(const job_t& job) {
  repeats_t::entry_t* before = repeats_.find(job.key, clock_type::now());
  if (before == nullptr) return false;
  if (!std::exchange(before->told, true)) log_command(job, "came again, and is not run again");
  if (!before->done) return true;
  const std::string lost = text_of(
      failure_object(job.request, "it was run before, and its answer is no longer kept", true));
  answers_.add(
      {job.answer_topic, before->answer.empty() ? lost : before->answer, false, job.correlation});
  return true;
}

std::string bridge_t::refusal_now(const request_t& request) const {
  std::string never = refusal(request, settings_);
  if (!never.empty()) return never;
  if (modem_ && !modem_->up)
    return "the modem is away since " + modem_->since + "; nothing was run";
  if (work_.is_full()) return "too many commands wait already; nothing was run";
  return "";
}

void bridge_t::refuse(const job_t& job, const std::string& reason) {
  ++figures_.commands_refused;
  log_command(job, "refused");
  answer(job, failure_object(job.request, reason, true));
}

void bridge_t::refuse_flood(const job_t& job) {
  ++figures_.commands_refused;
  if (flood_++ == 0) {
    journal("a command is refused, as are all above " + std::to_string(settings_.rate) +
            " a second");
  }
  // Answers to what was run do not make room for these.
  if (answers_.size() > kAnswerRoom / 2) return;
  answer(job, failure_object(job.request,
                             "too many commands: " + std::to_string(settings_.rate) +
                                 " a second are run; try again later",
                             true));
}

void bridge_t::answer(const job_t& job, const ordered_json& object) {
  std::string text = text_of(object);
  if (!job.key.empty()) repeats_.done(job.key, text);
  answers_.add({job.answer_topic, std::move(text), false, job.correlation});
}

void bridge_t::log_command(const job_t& job, const std::string& outcome) {
  log_end_of_flood();
  constexpr size_t kMostOfClient = 64;
  const std::string client = job.client.empty() ? "" : " of " + job.client.substr(0, kMostOfClient);
  journal(job.request.name() + client + ": " + outcome);
}

void bridge_t::log_end_of_flood() {
  const uint64_t untold = std::exchange(flood_, 0);
  if (untold > 1) journal(std::to_string(untold - 1) + " more commands were refused as too many");
}

// What it tells of itself

void bridge_t::publish_state(bool online) {
  ordered_json object = {{"time", time_text(true)},
                         {"online", online},
                         {"bridge", instance_},
                         {"machine", machine_},
                         {"since", began_}};
  object["server"] = {{"up", server_.up}, {"since", server_.since}};
  object["modem"] =
      modem_ ? ordered_json{{"up", modem_->up}, {"since", modem_->since}} : ordered_json(nullptr);
  object["versions"] = {{"mdxbridge", MDXGATE_VERSION}, {"libmdxclient", mdx_version()}};
  if (figures_.displaced > 0) object["displaced"] = figures_.displaced;
  if (!online) object["reason"] = once_ ? "it was there for a moment only" : "it was stopped";
  own_.add({settings_.topic("state"), text_of(object), true});
}

void bridge_t::publish_stats() {
  // In step with the clock, so that a late one does not shift all that follow.
  while (stats_at_ <= clock_type::now()) stats_at_ += seconds(std::max(1, settings_.stats_s));
  if (broker_ == nullptr || !broker_->is_up()) return;
  ordered_json object = {{"time", time_text(true)}};
  object["mdxgate_modem_up"] = modem_ && modem_->up ? 1 : 0;
  object["mdxgate_bridge_reports_total"] = figures_.reports;
  object["mdxgate_bridge_reports_lost_total"] = figures_.reports_lost;
  object["mdxgate_bridge_reports_dropped_total"] = reports_.dropped();
  object["mdxgate_bridge_answers_dropped_total"] = answers_.dropped();
  object["mdxgate_bridge_commands_total"] = figures_.commands;
  object["mdxgate_bridge_commands_refused_total"] = figures_.commands_refused;
  object["mdxgate_bridge_connections_total"] = figures_.connections;
  object["mdxgate_bridge_displaced_total"] = figures_.displaced;
  if (!settings_.stats_file.empty()) add_figures(settings_.stats_file, &object);
  own_.add({settings_.topic("stats"), text_of(object), true});
}

void bridge_t::stop() {
  work_.give_up("the bridge was stopped");
  publish_state(false);
  const time_point end = clock_type::now() + kStopPatience;
  while (broker_ && broker_->is_up() && broker_->failure().empty() && clock_type::now() < end) {
    send_what_waits();
    if (own_.empty() && answers_.empty() && reports_.empty()) return;
    pollfd fd = {broker_->fd(), static_cast<short>(POLLIN | (broker_->wants_write() ? POLLOUT : 0)),
                 0};
    constexpr int kTickMs = 100;
    poll(&fd, 1, kTickMs);
    broker_->work();
  }
  if (!reports_.empty())
    journal(std::to_string(reports_.size()) +
            " reports are lost, which the broker did not confirm");
}

}  // namespace mdxbridge
