// SPDX-License-Identifier: Apache-2.0

// mdxtap: stands between a modem and its host, and writes down what passes.
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>

#include "tools/line/learn.h"
#include "tools/line/session_file.h"
#include "tools/line/text_file.h"
#include "tools/mdxtap/device_users.h"
#include "tools/mdxtap/host_end.h"
#include "tools/mdxtap/mask_table.h"
#include "tools/mdxtap/modem_end.h"
#include "tools/mdxtap/recorder.h"
#include "tools/mdxtap/script_file.h"
#include "tools/mdxtap/tap.h"
#include "tools/signals/polled_signals.h"

namespace {

constexpr int kExitOk = 0;
constexpr int kExitUsage = 2;
constexpr int kExitNoDevice = 3;
constexpr int kExitIncomplete = 4;
constexpr uint64_t kSmallestFile = 64U * 1024U;
constexpr uint64_t kLargestFile = 1ULL << 40U;
constexpr int kMostFiles = 1000;

constexpr const char* kPlainRemark =
    "# plain: everything is as it was, identities, texts and passwords too\n";

constexpr const char* kDescription =
    "Stands between a modem and its host as a terminal of its own, passes everything on unchanged, "
    "and\n"
    "records it as a session that mdxsim can replay and learn from.";

constexpr const char* kFooter =
    "Identities, numbers, texts, PINs and passwords, cells and positions are masked: each is "
    "replaced by\n"
    "one of the same length and kind, the same one each time. --masks shows what is masked where.\n"
    "\n"
    "Exit codes: 0 ended by SIGINT, SIGTERM or SIGHUP; 2 wrong usage; 3 the device is another "
    "program's, or\n"
    "is none, or the host's end, the recording or the script could not be made; 4 bytes are "
    "missing "
    "in the\n"
    "recording. A device that is not there is waited for.\n"
    "\n"
    "Examples:\n"
    "  mdxtap /dev/ttyUSB2 --link /dev/smd6 --record modem.txt\n"
    "  mdxtap /dev/ttyUSB2 --link /dev/smd6 --record modem.txt --script modem.script\n"
    "  mdxtap /dev/ttyUSB2 --listen /run/modem --record modem.txt --max-size 1M --keep 9";

struct Options {
  std::string device;
  std::string link;
  std::string listen;
  mdxtap::RecordFileOptions record{{}, {}, 16U << 20U, 4};
  std::string script;
  bool plain = false;
  bool masks = false;
};

void declare_options(CLI::App& app, Options& options) {
  app.footer(kFooter);
  app.add_option("device", options.device, "The modem: a terminal or a Unix stream socket");
  auto* link =
      app.add_option("--link", options.link, "Symbolic link to make to the host's terminal");
  link->type_name("PATH");
  app.add_option("--listen", options.listen,
                 "Unix socket to make for the host, in place of a terminal")
      ->type_name("PATH")
      ->excludes(link);
  app.add_option("--record", options.record.path, "The recording; one that is there becomes FILE.1")
      ->type_name("FILE");
  app.add_option("--script", options.script,
                 "When it ends: a script for mdxsim of what was recorded")
      ->type_name("FILE");
  app.add_flag("--plain", options.plain, "Record everything as it is, masking nothing");
  app.add_option("--max-size", options.record.max_size,
                 "Of a file, such as 1M; then the next begins; 0: no limit")
      ->transform(CLI::AsSizeValue(false))
      ->type_name("SIZE")
      ->default_str("16M");
  app.add_option("--keep", options.record.keep, "Files that stay beside it, as FILE.1 to FILE.N")
      ->check(CLI::Range(0, kMostFiles))
      ->type_name("N")
      ->capture_default_str();
  app.add_flag("--masks", options.masks, "Show what is masked in which command and report");
}

[[noreturn]] void refuse(const std::string& name, const std::string& why) {
  throw CLI::ValidationError(name, why);
}

// Two of them in one place would destroy each other; the link, the way to the modem.
void refuse_one_place(const Options& options) {
  const std::pair<const char*, const std::string&> all[] = {{"device", options.device},
                                                            {"--link", options.link},
                                                            {"--listen", options.listen},
                                                            {"--record", options.record.path},
                                                            {"--script", options.script}};
  std::map<std::filesystem::path, const char*> names;
  for (const auto& [name, path] : all) {
    if (path.empty()) continue;
    const auto [taken, added] =
        names.emplace(std::filesystem::absolute(path).lexically_normal(), name);
    if (!added)
      refuse(name, std::string("needs a name of its own: ") + path + " is the " + taken->second);
  }
}

// Found out before something is recorded for it.
void refuse_unwritable_script(const std::string& path) {
  const std::string why = mdxtap::script_obstacle(path);
  if (!why.empty()) refuse("--script", why);
}

void refuse_nonsense(const Options& options) {
  if (options.device.empty()) refuse("device", "is needed: which modem?");
  if (options.link.empty() && options.listen.empty()) {
    refuse("--link", "is needed, or --listen: where does the host find it?");
  }
  if (options.record.path.empty()) refuse("--record", "is needed: where to?");
  const uint64_t size = options.record.max_size;
  if ((size > 0 && size < kSmallestFile) || size > kLargestFile) {
    refuse("--max-size", "is 64K to 1T, or 0 for no limit");
  }
  refuse_one_place(options);
  if (!options.script.empty()) refuse_unwritable_script(options.script);
}

void show_masks() {
  for (const mdxtap::MaskRow& row : mdxtap::mask_rows()) {
    using Side = mdxtap::MaskRow::Side;
    const char* side = row.side == Side::kCommand  ? "sent"
                       : row.side == Side::kAnswer ? "said"
                                                   : "both";
    std::string fields;
    for (const mdxtap::Field& field : row.fields) {
      if (field.holds == mdxtap::Holds::kNothing) continue;
      fields += (fields.empty() ? "" : "; ") + std::to_string(field.parameter) +
                (field.and_rest ? " on: " : ": ") + std::string(mdxtap::name_of(field.holds));
    }
    if (row.follows != mdxtap::Follows::kNothing) fields += "; and the message behind it";
    const std::string name(row.name);
    std::cout << name << std::string(12 - name.size(), ' ') << side << "  "
              << (fields.empty() ? "kept" : fields) << '\n';
  }
}

std::string head_of(const Options& options) {
  std::array<char, 32> time{};
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  std::strftime(time.data(), time.size(), "%FT%TZ", gmtime_r(&now, &parts));
  std::string device = options.device;
  for (char& c : device) {
    if (c < ' ' || c == '\x7f') c = '?';
  }
  return "# recorded by mdxtap " MDXGATE_VERSION " at " + device + "; time 0 is " + time.data() +
         "\n" +
         (options.plain ? kPlainRemark
                        : "# masked: identities, numbers, texts and secrets are stand-ins\n");
}

// A device that another program has, or that is none, will not do by waiting.
void open_modem(mdxtap::ModemEnd& modem) {
  const int error = modem.open();
  if (error == EBUSY) {
    const std::string user = mdxtap::other_user_of(modem.path());
    throw std::runtime_error(modem.path() + " is open in another program" +
                             (user.empty() ? "" : ", " + user) + "; end that first");
  }
  if (error == ENOTTY)
    throw std::runtime_error(modem.path() + " is neither a terminal nor a socket");
}

// Of all files of this run that are still there, the oldest first. Only the first line of all would
// say that it is a recording, and each has a head.
mdxline::Session session_of(const mdxtap::RecordFile& written, const std::string& path) {
  std::stringstream whole;
  for (int number = written.beside(); number >= 0; --number) {
    std::ifstream file =
        mdxline::open_to_read(path + (number == 0 ? "" : "." + std::to_string(number)));
    for (std::string line; std::getline(file, line);) whole << line << '\n';
  }
  return mdxline::parse_session(whole, path);
}

void write_script(const Options& options, const mdxtap::RecordFile& written) {
  const std::string head = options.plain ? kPlainRemark : "";
  const std::string script = head + mdxline::learn(session_of(written, options.record.path));
  const int error = mdxtap::write_script_file(options.script, script, options.plain);
  if (error != 0) {
    throw std::runtime_error("cannot write " + options.script + ": " + std::strerror(error) +
                             "; mdxsim learn makes it of " + options.record.path + " later");
  }
  std::cerr << "mdxtap: " << options.script << " is the script of it";
  if (written.gone() > 0) std::cerr << ", but of " << written.gone() << " files that are gone";
  std::cerr << '\n';
}

int tell_missing(const mdxtap::Recorder& recorder) {
  if (recorder.missing() > 0) {
    std::cerr << "mdxtap: of these, " << recorder.missing() << " are missing in the recording\n";
  }
  return recorder.missing() > 0 || recorder.unsafe() ? kExitIncomplete : kExitOk;
}

int serve(const Options& options) {
  signal(SIGXFSZ, SIG_IGN);  // a file that may not grow is a full disk like any other
  const int signal_fd = signals_that_end();
  mdxtap::ModemEnd modem(options.device);
  open_modem(modem);
  std::unique_ptr<mdxtap::HostEnd> host;
  if (options.listen.empty()) {
    host = std::make_unique<mdxtap::TerminalEnd>(options.link);
  } else {
    host = std::make_unique<mdxtap::SocketEnd>(options.listen);
  }
  mdxtap::Recorder::Options recording{options.record, {}};
  recording.file.head = head_of(options);
  if (!options.plain) recording.stand_in.emplace(mdxtap::StandIn::random_key());
  mdxtap::Recorder recorder(std::move(recording));
  std::cerr << "mdxtap: recording to " << options.record.path
            << (options.plain ? ", plain: whoever reads it reads everything\n" : ", masked\n");
  mdxtap::Tap tap(modem, *host, recorder, signal_fd);
  tap.run();
  recorder.finish();
  std::cerr << "mdxtap: " << tap.host_bytes() << " bytes from the host, " << tap.modem_bytes()
            << " from the modem\n";
  const int code = tell_missing(recorder);
  if (options.script.empty()) return code;
  if (tap.host_bytes() + tap.modem_bytes() > 0) {
    write_script(options, recorder.file());
  } else {
    std::cerr << "mdxtap: nothing passed: " << options.script << " is not written\n";
  }
  return code;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app(kDescription, "mdxtap");
  app.set_version_flag("--version", "mdxtap " MDXGATE_VERSION);
  declare_options(app, options);
  try {
    app.parse(argc, argv);
    if (!options.masks) refuse_nonsense(options);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kExitOk : kExitUsage;
  }
  if (options.masks) {
    show_masks();
    return kExitOk;
  }
  try {
    return serve(options);
  } catch (const std::exception& error) {
    std::cerr << "mdxtap: " << error.what() << '\n';
    return kExitNoDevice;
  }
}
