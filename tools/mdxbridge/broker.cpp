// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxbridge/broker.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <netdb.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <utility>

#include "tools/mdxbridge/journal.h"

namespace mdxbridge {

namespace {

using std::chrono::steady_clock;

/// From the attempt to the broker's word.
constexpr std::chrono::seconds kConnectPatience{20};
constexpr int kQos = 1;

std::string reason_text(int reason) { return mosquitto_reason_string(reason); }

std::string error_text(int error) {
  if (error == MOSQ_ERR_ERRNO) return std::strerror(errno);
  if (error == MOSQ_ERR_EAI) return gai_strerror(errno);
  return mosquitto_strerror(error);
}

std::string text_property(const mosquitto_property* properties, int identifier) {
  char* value = nullptr;
  mosquitto_property_read_string(properties, identifier, &value, false);
  std::string text = value != nullptr ? value : "";
  std::free(value);
  return text;
}

std::string correlation_of(const mosquitto_property* properties) {
  void* value = nullptr;
  uint16_t length = 0;
  mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &value, &length, false);
  std::string data(static_cast<const char*>(value), value != nullptr ? length : 0);
  std::free(value);
  return data;
}

/// Whether the message is what is wrong, not the connection: another attempt would end the same.
bool is_message_wrong(int error) {
  return error == MOSQ_ERR_INVAL || error == MOSQ_ERR_MALFORMED_UTF8 ||
         error == MOSQ_ERR_PAYLOAD_SIZE || error == MOSQ_ERR_OVERSIZE_PACKET;
}

/// The last user property of this name: a broker that tells adds it behind the sender's own.
std::string user_property(const mosquitto_property* properties, const std::string& wanted) {
  std::string found;
  char* name = nullptr;
  char* value = nullptr;
  bool skip = false;
  while ((properties = mosquitto_property_read_string_pair(properties, MQTT_PROP_USER_PROPERTY,
                                                           &name, &value, skip)) != nullptr) {
    if (wanted == name) found = value;
    std::free(name);
    std::free(value);
    name = value = nullptr;
    skip = true;
  }
  return found;
}

}  // namespace

/// The library's client. It is the thread's until that is done.
struct broker_t::attempt_t {
  attempt_t(const settings_t& settings, broker_t* broker)
      : owner(broker),
        done_fd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
        client(mosquitto_new(settings.client_id.c_str(), true, this)) {}
  ~attempt_t() {
    mosquitto_destroy(client);
    close(done_fd);
  }
  attempt_t(const attempt_t&) = delete;
  attempt_t& operator=(const attempt_t&) = delete;

  void connect(const std::string& host, int port, int keep_alive_s, bool each_address) {
    const auto connect = each_address ? mosquitto_connect : mosquitto_connect_async;
    error = connect(client, host.c_str(), port, keep_alive_s);
    system_error = errno;
    eventfd_write(done_fd, 1);
  }

  static inline std::atomic<int> under_way = 0;

  broker_t* owner;
  int done_fd;  ///< readable when it has begun to connect
  mosquitto* client;
  std::string log;  ///< what the library said last about an encrypted connection
  int error = MOSQ_ERR_SUCCESS;
  int system_error = 0;
};

/// What the library calls, with the object behind it.
struct broker_t::callbacks_t {
  static broker_t& self(void* object) { return *static_cast<attempt_t*>(object)->owner; }

  static void connected(mosquitto*, void* object, int reason, int, const mosquitto_property*) {
    broker_t& broker = self(object);
    if (reason != 0) return broker.fail("the broker refuses this client: " + reason_text(reason));
    broker.up_ = true;
    broker.sent_something();
    broker.events_.up();
  }

  static void disconnected(mosquitto*, void* object, int reason, const mosquitto_property*) {
    broker_t& broker = self(object);
    if (reason == MQTT_RC_SESSION_TAKEN_OVER) {
      broker.taken_over_ = true;
      return broker.fail("another client with this one's name took its place");
    }
    if (reason >= MQTT_RC_UNSPECIFIED)
      return broker.fail("the broker ended the connection: " + reason_text(reason));
    if (reason == MOSQ_ERR_KEEPALIVE) return broker.fail("the broker does not answer any more");
    broker.fail("the connection is lost");
  }

  static void published(mosquitto*, void* object, int mid, int reason, const mosquitto_property*) {
    self(object).events_.confirmed(mid, reason >= MQTT_RC_UNSPECIFIED ? reason_text(reason) : "");
  }

  static void subscribed(mosquitto*, void* object, int, int count, const int* granted,
                         const mosquitto_property*) {
    const bool refused = count > 0 && granted[0] >= MQTT_RC_UNSPECIFIED;
    self(object).events_.subscribed(refused ? reason_text(granted[0]) : "");
  }

  static void received(mosquitto*, void* object, const mosquitto_message* message,
                       const mosquitto_property* properties) {
    inbound_t inbound;
    inbound.topic = message->topic;
    inbound.payload = {static_cast<const char*>(message->payload),
                       static_cast<size_t>(message->payloadlen)};
    inbound.response_topic = text_property(properties, MQTT_PROP_RESPONSE_TOPIC);
    inbound.correlation = correlation_of(properties);
    inbound.client = user_property(properties, "client-id");
    inbound.retained = message->retain;
    self(object).events_.message(inbound);
  }

  /// The library's errors about TLS are numbers, and what is wrong stands in its log.
  static void logged(mosquitto*, void* object, int level, const char* text) {
    if (level == MOSQ_LOG_ERR) static_cast<attempt_t*>(object)->log = text;
  }
};

bool broker_t::is_busy() { return attempt_t::under_way > 0; }

broker_t::broker_t(const settings_t& settings, const message_t& will, bool each_address,
                   events_t events)
    : events_(std::move(events)),
      host_(settings.host),
      keep_alive_(settings.keep_alive_s),
      due_(steady_clock::now() + kConnectPatience),
      attempt_(std::make_shared<attempt_t>(settings, this)) {
  if (client() != nullptr && attempt_->done_fd >= 0) {
    set_up(settings, will);
  } else {
    fail("out of memory or descriptors");
  }
  if (failure_.empty()) begin(settings, each_address);
}

broker_t::~broker_t() {
  // It cannot be ended. Nobody hears of it any more.
  if (thread_.joinable()) thread_.detach();
}

mosquitto* broker_t::client() const { return attempt_->client; }

void broker_t::begin(const settings_t& settings, bool each_address) {
  ++attempt_t::under_way;
  try {
    thread_ = std::thread([attempt = attempt_, host = settings.host, port = settings.port,
                           keep_alive_s = settings.keep_alive_s, each_address]() mutable {
      attempt->connect(host, port, keep_alive_s, each_address);
      attempt.reset();
      --attempt_t::under_way;
    });
  } catch (const std::system_error& error) {
    --attempt_t::under_way;
    fail(std::string("cannot connect: no thread: ") + error.what());
  }
}

void broker_t::look_after_attempt() {
  eventfd_t count = 0;
  if (eventfd_read(attempt_->done_fd, &count) == 0) return take_over();
  if (steady_clock::now() < due_) return;
  due_ = steady_clock::time_point::max();
  journal("connecting to " + host_ + " takes long: are the name servers and the broker there?");
}

void broker_t::take_over() {
  thread_.join();
  due_ = steady_clock::now() + kConnectPatience;
  mosquitto_connect_v5_callback_set(client(), callbacks_t::connected);
  mosquitto_disconnect_v5_callback_set(client(), callbacks_t::disconnected);
  mosquitto_publish_v5_callback_set(client(), callbacks_t::published);
  mosquitto_subscribe_v5_callback_set(client(), callbacks_t::subscribed);
  mosquitto_message_v5_callback_set(client(), callbacks_t::received);
  errno = attempt_->system_error;
  check(attempt_->error, "cannot connect");
}

void broker_t::set_up(const settings_t& settings, const message_t& will) {
  mosquitto* client = this->client();
  mosquitto_int_option(client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
  mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1);
  mosquitto_log_callback_set(client, callbacks_t::logged);
  if (!settings.username.empty()) {
    std::string error;
    const std::string password =
        settings.password_file.empty() ? "" : read_secret(settings.password_file, &error);
    if (!error.empty()) return fail(error);
    mosquitto_username_pw_set(client, settings.username.c_str(),
                              settings.password_file.empty() ? nullptr : password.c_str());
  }
  check(mosquitto_will_set_v5(client, will.topic.c_str(), static_cast<int>(will.text.size()),
                              will.text.data(), kQos, true, nullptr),
        "the last will cannot be set");
  if (!settings.tls || !failure_.empty()) return;
  if (const std::string error = set_up_tls(settings); !error.empty()) fail(error);
}

std::string broker_t::set_up_tls(const settings_t& settings) {
  mosquitto* client = this->client();
  if (!settings.psk_file.empty()) {
    std::string error;
    const std::string key = read_secret(settings.psk_file, &error);
    if (!error.empty()) return error;
    const int result =
        mosquitto_tls_psk_set(client, key.c_str(), settings.psk_identity.c_str(), nullptr);
    return result == MOSQ_ERR_SUCCESS ? "" : "the shared key cannot be used: " + error_text(result);
  }
  const auto or_null = [](const std::string& text) {
    return text.empty() ? nullptr : text.c_str();
  };
  const std::string key = settings.key.empty() ? "" : secret_path(settings.key);
  constexpr char kSystemCertificates[] = "/etc/ssl/certs";
  const int result = mosquitto_tls_set(client, or_null(settings.ca_file),
                                       settings.ca_file.empty() ? kSystemCertificates : nullptr,
                                       or_null(settings.certificate), or_null(key), nullptr);
  return result == MOSQ_ERR_SUCCESS ? "" : "the certificates cannot be used: " + error_text(result);
}

void broker_t::fail(const std::string& reason) {
  up_ = false;
  if (!failure_.empty()) return;
  failure_ = reason;
  const std::string& log = attempt_->log;
  if (!log.empty()) failure_ += " (" + log + ')';
  if (log.find("certificate verify failed") == std::string::npos) return;
  failure_ +=
      "; look whether the broker's certificate is for this name, is signed by whom ca-file holds, "
      "and "
      "has not expired";
}

void broker_t::check(int error, const char* what) {
  if (error == MOSQ_ERR_SUCCESS || error == MOSQ_ERR_CONN_PENDING) return;
  fail(std::string(what) + ": " + error_text(error));
}

int broker_t::fd() const {
  return thread_.joinable() ? attempt_->done_fd : mosquitto_socket(client());
}

bool broker_t::wants_write() const { return !thread_.joinable() && mosquitto_want_write(client()); }

void broker_t::sent_something() {
  if (up_) due_ = steady_clock::now() + keep_alive_ + std::chrono::seconds(1);
}

void broker_t::work() {
  if (!failure_.empty()) return;
  if (thread_.joinable()) return look_after_attempt();
  check(mosquitto_loop(client(), 0, 1), "the connection is lost");
  if (steady_clock::now() < due_) return;
  if (!up_) return fail("the broker does not answer");
  sent_something();  // the library has, to keep the connection alive
}

void broker_t::subscribe(const std::string& topic, bool retained) {
  const int options = MQTT_SUB_OPT_NO_LOCAL |
                      (retained ? MQTT_SUB_OPT_SEND_RETAIN_ALWAYS : MQTT_SUB_OPT_SEND_RETAIN_NEVER);
  check(mosquitto_subscribe_v5(client(), nullptr, topic.c_str(), kQos, options, nullptr),
        "cannot subscribe");
}

int broker_t::publish(const message_t& message) {
  int mid = -1;
  mosquitto_property* properties = nullptr;
  if (!message.correlation.empty()) {
    mosquitto_property_add_binary(&properties, MQTT_PROP_CORRELATION_DATA,
                                  message.correlation.data(),
                                  static_cast<uint16_t>(message.correlation.size()));
  }
  const std::string text = text_of(message);
  const int error =
      mosquitto_publish_v5(client(), &mid, message.topic.c_str(), static_cast<int>(text.size()),
                           text.data(), kQos, message.retain, properties);
  mosquitto_property_free_all(&properties);
  sent_something();
  if (error == MOSQ_ERR_SUCCESS) return mid;
  if (is_message_wrong(error)) return kNever;
  check(error, "cannot publish");
  return kNotNow;
}

void broker_t::disconnect() {
  if (up_) mosquitto_disconnect_v5(client(), 0, nullptr);
}

}  // namespace mdxbridge
