// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxbridge/settings.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tools/mdxbridge/patterns.h"
#include "tools/mdxbridge/privacy.h"

namespace mdxbridge {

namespace {

using strings_t = std::vector<std::string>;

constexpr int kDayS = 86400;

// clang-format off
constexpr key_row_t kKeys[] = {
  {"host",          &settings_t::host,            0, 0,       "NAME",    "the broker: name or address"},
  {"port",          &settings_t::port,            1, 65535,   "NUMBER",  "its port (1883, with TLS 8883)"},
  {"prefix",        &settings_t::prefix,          0, 0,       "TOPIC",   "what all topics begin with (mdxgate)"},
  {"id",            &settings_t::id,              0, 0,       "NAME",    "this device in all topics (the machine's name)"},
  {"client-id",     &settings_t::client_id,       0, 0,       "NAME",    "this device at the broker (the ID)"},
  {"username",      &settings_t::username,        0, 0,       "NAME",    "for the broker"},
  {"password-file", &settings_t::password_file,   0, 0,       "FILE",    "its password, in the first line"},
  {"tls",           &settings_t::tls,             0, 0,       "yes|no",  "encrypt; yes where one of the next five is set (no)"},
  {"ca-file",       &settings_t::ca_file,         0, 0,       "FILE",    "who may have signed the broker's certificate (the system's)"},
  {"certificate",   &settings_t::certificate,     0, 0,       "FILE",    "this device's own"},
  {"key",           &settings_t::key,             0, 0,       "FILE",    "the key of that"},
  {"psk-identity",  &settings_t::psk_identity,    0, 0,       "NAME",    "with a shared key in the place of certificates"},
  {"psk-file",      &settings_t::psk_file,        0, 0,       "FILE",    "the shared key in hexadecimal digits"},
  {"keep-alive",    &settings_t::keep_alive_s,    5, 65535,   "SECONDS", "longest silence towards the broker (90)"},
  {"stats",         &settings_t::stats_s,         0, kDayS,   "SECONDS", "from one publication of figures to the next, 0: none (60)"},
  {"stats-file",    &settings_t::stats_file,      0, 0,       "FILE",    "figures to publish with them, in Prometheus' text format"},
  {"queue",         &settings_t::queue,           1, 1000000, "NUMBER",  "reports that wait while the broker is away (1000)"},
  {"longest-pause", &settings_t::longest_pause_s, 1, kDayS,   "SECONDS", "between two attempts to connect (120)"},
  {"rate",          &settings_t::rate,            1, 1000,    "NUMBER",  "commands a second; others are refused (2)"},
  {"allow-command", &settings_t::allow_commands,  0, 0,       "PATTERN", "what may be asked, such as AT+CSQ; again for more (nothing)"},
  {"allow-sms",     &settings_t::allow_sms,       0, 0,       "PATTERN", "numbers that may be sent messages, such as +49*; again for more"},
  {"open",          &settings_t::open,            0, 0,       "WORD",    "what may leave the device: messages, ussd, numbers, identities, unknown"},
  {"leave-out",     &settings_t::leave_out,       0, 0,       "NAME",    "reports that are not published, such as EVT_AT_HCSQ; again for more"},
};
// clang-format on

constexpr char kBlanks[] = " \t\r";
constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";

std::string trimmed(std::string_view text) {
  const size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return "";
  return std::string(text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1));
}

const key_row_t* find_key(std::string_view name) {
  const auto* row = std::find_if(std::begin(kKeys), std::end(kKeys),
                                 [name](const key_row_t& r) { return r.name == name; });
  return row == std::end(kKeys) ? nullptr : row;
}

bool is_list(std::string_view key) {
  const key_row_t* row = find_key(key);
  return row != nullptr && std::holds_alternative<strings_t settings_t::*>(row->value);
}

bool has_control(std::string_view text) {
  return std::any_of(text.begin(), text.end(),
                     [](unsigned char c) { return c < ' ' || c == 0x7f; });
}

bool is_utf8(const std::string& text) {
  try {
    return !nlohmann::json(text).dump().empty();
  } catch (const nlohmann::json::type_error&) {
    return false;
  }
}

std::string set_number(const key_row_t& row, const std::string& value, int* number) {
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), *number);
  if (error == std::errc() && end == value.data() + value.size() && *number >= row.least &&
      *number <= row.most) {
    return "";
  }
  return "'" + value + "' is no number from " + std::to_string(row.least) + " to " +
         std::to_string(row.most);
}

std::string set_truth(const std::string& value, bool* truth) {
  *truth = value == "yes";
  return value == "yes" || value == "no" ? "" : "'" + value + "' is neither yes nor no";
}

/// What is wrong with an entry of a list, by its key.
std::string entry_mistake(std::string_view key, const std::string& value) {
  if (key == "allow-command") return command_pattern_mistake(value);
  if (key == "allow-sms") return number_pattern_mistake(value);
  if (key == "open" && !is_private_kind(value)) {
    return "'" + value + "' is none of " + private_kinds(", ");
  }
  return "";
}

std::string joined(const std::string& place, std::string_view key, const std::string& mistake) {
  return place + ": " + std::string(key) + ": " + mistake;
}

/// Collects what is wrong, each with the place where its key was set.
class complaints_t {
 public:
  complaints_t(const settings_t& settings, const std::string& file)
      : settings_(settings), file_(file) {}

  void add(std::string_view key, const std::string& mistake) {
    if (mistake.empty()) return;
    const auto place = settings_.places.find(key);
    found_.push_back(joined(place == settings_.places.end() ? file_ : place->second, key, mistake));
  }
  strings_t take() { return std::move(found_); }

 private:
  const settings_t& settings_;
  const std::string& file_;
  strings_t found_;
};

std::string file_mistake(const std::string& path) {
  struct stat status {};
  if (path.empty()) return "";
  if (access(path.c_str(), R_OK) != 0) return path + " cannot be read: " + std::strerror(errno);
  const bool folder = stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
  return folder ? path + " is a directory" : "";
}

/// What is wrong with a name that is a part of topics; some names may hold slashes.
std::string topic_mistake(const std::string& name, bool with_slashes) {
  constexpr size_t kLongest = 128;
  if (name.empty()) return "is empty";
  if (name.size() > kLongest) return "is longer than 128 bytes";
  if (has_control(name)) return "holds a control character";
  if (name.find_first_of("+#") != std::string::npos) return "holds + or #, which stand for others";
  if (name.front() == '$') return "begins with $, as only the broker's own topics do";
  if (!with_slashes && name.find('/') != std::string::npos) return "holds /, which parts topics";
  if (name.front() == '/' || name.back() == '/') return "begins or ends with /";
  return "";
}

std::string host_mistake(const std::string& host) {
  constexpr size_t kLongest = 253;
  if (host.empty()) return "is missing: which broker?";
  if (host.find(' ') != std::string::npos) return "holds a blank";
  return host.size() > kLongest ? "is longer than 253 bytes" : "";
}

std::string machine_name() {
  std::array<char, 256> name{};
  return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

std::string psk_mistake(const std::string& name) {
  std::string error;
  const std::string key = read_secret(name, &error);
  if (!error.empty()) return error;
  const bool digits = key.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
  return digits && key.size() % 2 == 0
             ? ""
             : secret_path(name) + " holds no pairs of hexadecimal digits";
}

void check_secrets(const settings_t& settings, complaints_t* complaints) {
  std::string error;
  if (!settings.password_file.empty()) read_secret(settings.password_file, &error);
  complaints->add("password-file", error);
  if (!settings.password_file.empty() && settings.username.empty()) {
    complaints->add("username", "is missing: whose password is it?");
  }
  complaints->add("ca-file", file_mistake(settings.ca_file));
  complaints->add("certificate", file_mistake(settings.certificate));
  if (!settings.key.empty()) complaints->add("key", file_mistake(secret_path(settings.key)));
  if (settings.certificate.empty() != settings.key.empty()) {
    complaints->add(settings.key.empty() ? "certificate" : "key",
                    settings.key.empty() ? "needs key beside it" : "needs certificate beside it");
  }
  if (settings.psk_identity.empty() != settings.psk_file.empty()) {
    complaints->add(
        settings.psk_file.empty() ? "psk-identity" : "psk-file",
        settings.psk_file.empty() ? "needs psk-file beside it" : "needs psk-identity beside it");
  }
  if (settings.psk_file.empty()) return;
  complaints->add("psk-file", psk_mistake(settings.psk_file));
  if (!settings.ca_file.empty() || !settings.certificate.empty()) {
    complaints->add("psk-file",
                    "is used in the place of certificates: leave out ca-file, certificate and key");
  }
}

}  // namespace

std::span<const key_row_t> key_rows() { return kKeys; }

std::string set_key(settings_t* settings, std::string_view key, const std::string& value,
                    const std::string& place) {
  const key_row_t* row = find_key(key);
  if (row == nullptr) return "there is no such key; see mdxgate-bridge.conf(5)";
  settings->places[std::string(key)] = place;
  if (has_control(value)) return "holds a control character";
  if (!is_utf8(value)) return "holds bytes that are no UTF-8";
  if (const auto* text = std::get_if<std::string settings_t::*>(&row->value)) {
    settings->*(*text) = value;
    return value.empty() ? "has no value" : "";
  }
  if (const auto* number = std::get_if<int settings_t::*>(&row->value)) {
    return set_number(*row, value, &(settings->*(*number)));
  }
  if (const auto* truth = std::get_if<bool settings_t::*>(&row->value)) {
    return set_truth(value, &(settings->*(*truth)));
  }
  const std::string mistake = value.empty() ? "has no value" : entry_mistake(key, value);
  if (mistake.empty()) (settings->*std::get<strings_t settings_t::*>(row->value)).push_back(value);
  return mistake;
}

strings_t read_settings(std::istream& file, const std::string& path, settings_t* settings) {
  strings_t mistakes;
  size_t number = 0;
  for (std::string line; std::getline(file, line);) {
    const std::string place = path + ':' + std::to_string(++number);
    if (number == 1 && line.starts_with(kByteOrderMark)) line.erase(0, kByteOrderMark.size());
    line = trimmed(line);
    if (line.empty() || line.front() == '#') continue;
    const size_t equals = line.find('=');
    const std::string key = trimmed(std::string_view(line).substr(0, equals));
    if (equals == std::string::npos) {
      mistakes.push_back(joined(place, key, "has no value; a line is: key = value"));
      continue;
    }
    const std::string before = is_list(key) ? "" : settings->places[key];
    std::string mistake =
        set_key(settings, key, trimmed(std::string_view(line).substr(equals + 1)), place);
    if (mistake.empty() && !before.empty()) mistake = "stands in " + before + " already";
    if (!mistake.empty()) mistakes.push_back(joined(place, key, mistake));
  }
  return mistakes;
}

strings_t check_settings(settings_t* settings, const std::string& file) {
  complaints_t complaints(*settings, file);
  complaints.add("host", host_mistake(settings->host));
  if (settings->id.empty()) settings->id = machine_name();
  if (settings->id == "localhost") {
    complaints.add("id", "this machine's name is localhost, as many are: give it an id of its own");
  }
  complaints.add("id", topic_mistake(settings->id, false));
  complaints.add("prefix", topic_mistake(settings->prefix, true));
  if (settings->client_id.empty()) settings->client_id = settings->id;
  settings->tls = settings->tls || !settings->ca_file.empty() || !settings->certificate.empty() ||
                  !settings->psk_file.empty();
  if (settings->port == 0) settings->port = settings->tls ? 8883 : 1883;
  check_secrets(*settings, &complaints);
  return complaints.take();
}

strings_t doubts_about(const settings_t& settings) {
  strings_t doubts;
  const bool here =
      settings.host == "localhost" || settings.host == "::1" || settings.host.starts_with("127.");
  if (!settings.tls && !here) {
    doubts.push_back("tls: what goes to " + settings.host +
                     " can be read and changed on its way: tls = yes encrypts it");
  }
  for (const std::string& name : {settings.password_file, settings.psk_file, settings.key}) {
    struct stat status {};
    const std::string path = name.empty() ? "" : secret_path(name);
    if (!path.empty() && stat(path.c_str(), &status) == 0 && (status.st_mode & S_IROTH) != 0) {
      doubts.push_back(path + ": everybody on this machine may read this secret: chmod o-r");
    }
  }
  if (settings.stats_s > 0 && settings.keep_alive_s <= settings.stats_s) {
    doubts.push_back("keep-alive: longer than stats, it would wake the device less often");
  }
  return doubts;
}

std::string secret_path(const std::string& name) {
  const char* credentials = std::getenv("CREDENTIALS_DIRECTORY");
  if (credentials == nullptr || name.find('/') != std::string::npos) return name;
  return std::string(credentials) + '/' + name;
}

std::string read_secret(const std::string& name, std::string* error) {
  const std::string path = secret_path(name);
  std::ifstream file(path);
  std::string line;
  if (!file) {
    *error = path + " cannot be read: " + std::strerror(errno);
    return "";
  }
  std::getline(file, line);
  line = trimmed(line);
  if (file.bad()) {
    *error = path + " cannot be read: " + std::strerror(errno);
  } else if (line.empty())
    *error = path + " has nothing in its first line";
  return line;
}

}  // namespace mdxbridge
