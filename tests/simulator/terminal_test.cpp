// A real pseudo terminal, a modem behind it, and a host that opens it like any device.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <thread>

#include "tools/mdxsim/living_modem.h"
#include "tools/mdxsim/pty.h"
#include "tools/mdxsim/scripted_modem.h"
#include "tools/mdxsim/session.h"
#include "tools/mdxsim/simulator.h"

namespace mdxsim {
namespace {

const std::string kLink = "/tmp/modem";
constexpr int kPatienceMs = 5000;

// Runs a modem in a thread until the end of its scope.
class Device {
 public:
  Device(Modem& modem, const char* cut)
      : pty_(kLink), stop_(eventfd(0, 0)), simulator_(modem, pty_, Cutter(cut), stop_, false) {
    thread_ = std::thread([this] { ending_ = simulator_.run(); });
  }
  ~Device() {
    if (thread_.joinable()) stop();
    close(stop_);
  }
  void stop() {
    eventfd_write(stop_, 1);
    thread_.join();
  }
  std::optional<Ending> wait() {
    thread_.join();
    return ending_;
  }

 private:
  Pty pty_;
  int stop_;
  Simulator simulator_;
  std::optional<Ending> ending_;
  std::thread thread_;
};

class Host {
 public:
  Host() : fd_(open(kLink.c_str(), O_RDWR | O_NOCTTY)) {}
  ~Host() { hang_up(); }
  bool is_open() const { return fd_ >= 0; }
  void hang_up() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }
  void make_exclusive() const { ioctl(fd_, TIOCEXCL); }
  void send(std::string_view bytes) const {
    ASSERT_EQ(write(fd_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  bool has_input(int wait_ms) const {
    pollfd line{fd_, POLLIN, 0};
    return poll(&line, 1, wait_ms) > 0;
  }
  // Reads until `end` came or nothing comes any more.
  std::string read_until(std::string_view end) {
    std::string all;
    reads = 0;
    while (!all.ends_with(end) && has_input(kPatienceMs)) {
      char bytes[4096];
      const ssize_t length = read(fd_, bytes, sizeof bytes);
      if (length <= 0) break;
      all.append(bytes, static_cast<size_t>(length));
      ++reads;
    }
    return all;
  }
  size_t reads = 0;

 private:
  int fd_;
};

LivingOptions quiet() {
  LivingOptions options;
  options.report_interval = Time{0};
  return options;
}

TEST(Terminal, RefusesWhatIsNoLinkAndRemovesItsOwn) {
  std::ofstream(kLink) << "precious";
  EXPECT_THROW(Pty{kLink}, std::runtime_error);
  EXPECT_EQ(std::filesystem::file_size(kLink), 8U);
  std::filesystem::remove(kLink);
  EXPECT_THROW(Pty{"/no/such/folder/modem"}, std::system_error);

  std::filesystem::create_symlink("/nowhere", kLink);
  {
    const Pty pty(kLink);
    struct stat node {};
    ASSERT_EQ(stat(kLink.c_str(), &node), 0);
    EXPECT_TRUE(S_ISCHR(node.st_mode));
    EXPECT_EQ(node.st_mode & 0777U, 0666U);
  }
  EXPECT_FALSE(std::filesystem::is_symlink(kLink));

  {
    const Pty pty(kLink);
    std::filesystem::remove(kLink);
    std::filesystem::create_symlink("/nowhere", kLink);
  }
  EXPECT_TRUE(std::filesystem::is_symlink(kLink)) << "another one's link stays";
  std::filesystem::remove(kLink);
}

TEST(Terminal, EachPieceIsARead) {
  const std::string answer = "\r\n+CSQ: 20,99\r\n\r\nOK\r\n";
  for (const auto* cut : {"whole", "byte"}) {
    LivingModem modem(quiet());
    modem.state.echo = false;
    const Device device(modem, cut);
    Host host;
    for (int turn = 0; turn < 20; ++turn) {
      host.send("AT+CSQ\r");
      ASSERT_EQ(host.read_until("OK\r\n"), answer);
      ASSERT_EQ(host.reads, cut[0] == 'b' ? answer.size() : 1U) << cut;
    }
  }
}

TEST(Terminal, OpensAnewForTheNextHost) {
  LivingModem modem(quiet());
  const Device device(modem, "whole");
  Host first;
  first.make_exclusive();
  first.send("AT+CMGL=4\r");
  ASSERT_TRUE(first.has_input(kPatienceMs));
  first.hang_up();

  // Exclusive use ends with the host; a test without privileges would be refused until then.
  std::optional<Host> second;
  for (int turn = 0; turn < 500 && !(second.emplace(), second->is_open()); ++turn) usleep(10000);
  ASSERT_TRUE(second->is_open());
  EXPECT_FALSE(second->has_input(50)) << "what the first one left unread is gone";
  second->send("AT\r");
  EXPECT_EQ(second->read_until("OK\r\n"), "AT\r\r\nOK\r\n");
}

TEST(Terminal, AnUnpluggedModemIsGoneAndComesBackAsAnotherDevice) {
  std::istringstream text("on AT+CFUN=1,1 -> hang-up 300ms\nexpect 2 open\nend when expected\n");
  ScriptedModem modem(parse_script(text, "s.script"), quiet());
  Device device(modem, "whole");
  const auto node = std::filesystem::read_symlink(kLink);
  Host first;
  first.send("AT+CFUN=1,1\r");
  EXPECT_EQ(first.read_until("nothing, the line breaks"), "");
  EXPECT_FALSE(std::filesystem::is_symlink(kLink));
  for (int turn = 0; turn < 500 && !std::filesystem::is_symlink(kLink); ++turn) usleep(10000);
  EXPECT_NE(std::filesystem::read_symlink(kLink), node);
  const Host second;
  const auto ending = device.wait();
  EXPECT_TRUE(ending && ending->as_expected);
}

TEST(Terminal, AHostThatNeverReadsHoldsUpNobody) {
  LivingOptions options;
  options.report_interval = Time{1};
  LivingModem modem(options);
  Device device(modem, "byte");
  Host host;
  for (int turn = 0; turn < 2000; ++turn) host.send("AT+CSQ\r");
  device.stop();
}

TEST(Terminal, ReplayIsNotPlayedToAHostThatLeavesEarly) {
  std::istringstream text("> AT\\r\n< OK\n");
  SessionPlayer player(parse_session(text, "s.txt"), ReplayOptions{Time{1}, Time{0}, false});
  Device device(player, "whole");
  Host host;
  host.send("AT\r");
  ASSERT_TRUE(host.has_input(kPatienceMs));
  host.hang_up();
  const auto ending = device.wait();
  ASSERT_TRUE(ending);
  EXPECT_FALSE(ending->as_expected);
}

}  // namespace
}  // namespace mdxsim
