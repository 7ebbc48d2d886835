// SPDX-License-Identifier: Apache-2.0

// Giving up root for real: needs root, and a view of the machine of its own with a user `mdxgate`
// in it. Where either is not to be had, as in a box, the tests are skipped.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/msg.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <list>
#include <map>
#include <string>
#include <thread>

#include "platform/linux/counters.h"
#include "platform/mdx_platform.h"
#include "tests/platform/other_process.h"
#include "wire/border.h"
#include "wire/event_fifo.h"

namespace {

constexpr uid_t kServerUser = 64242;
constexpr uid_t kOtherUser = 64243;
constexpr uid_t kThirdUser = 64244;
constexpr int kSkipped = 77;

bool extend_file(const char* path, const std::string& line) {
  const std::string copy = "/run/" + std::string(std::filesystem::path(path).filename());
  std::ofstream(copy) << std::ifstream(path).rdbuf() << line;
  return mount(copy.c_str(), path, nullptr, MS_BIND, nullptr) == 0;
}

/// Own mounts, queues, /run and /var, a user and a group `mdxgate`. Nothing outside is touched.
bool enter_own_world() {
  struct stat status {};
  if (geteuid() != 0 || unshare(CLONE_NEWNS | CLONE_NEWIPC) != 0) return false;
  if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return false;
  for (const char* path : {"/var", "/run"})
    if (mount("tmpfs", path, "tmpfs", 0, "mode=755") != 0) return false;
  if (symlink("/run", "/var/run") != 0 || stat("/var/run", &status) != 0) return false;
  // A user namespace, such as a box, may have no other user than its root.
  std::ofstream("/run/probe").flush();
  if (chown("/run/probe", kServerUser, kServerUser) != 0) return false;
  const std::string id = std::to_string(kServerUser);
  return extend_file("/etc/passwd", "mdxgate:x:" + id + ":" + id + "::/:/bin/false\n") &&
         extend_file("/etc/group", "mdxgate:x:" + id + ":\nmdxdevice:x:64250:mdxgate\n");
}

/// Lines of all threads' status, such as "Uid:", with how many threads show each.
std::map<std::string, int> thread_status(const std::string& field) {
  std::map<std::string, int> shown;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream status(task.path() / "status");
    for (std::string line; std::getline(status, line);)
      if (line.starts_with(field))
        ++shown[line.substr(line.find_first_not_of("\t ", field.size()))];
  }
  return shown;
}

void idle_thread() {
  for (;;) pause();
}

void serve_hub() {
  KRP_MSG_RegisterMsgProc([](const void*) {});
  KRP_UTIL_SockBaseStart(0);
}

#define REQUIRE(condition)                                           \
  do {                                                               \
    if (!(condition)) {                                              \
      dprintf(STDERR_FILENO, "line %d: " #condition "\n", __LINE__); \
      return 1;                                                      \
    }                                                                \
  } while (false)

int start_up() {
  be_the_server();
  MDX_event_init(7);
  REQUIRE(MDX_msgQex_create(kMdxRequestQueue, 10, kMdxRecordSize) >= 0);
  REQUIRE(MDX_msgQex_create(kMdxResponseQueue, 10, kMdxRecordSize) >= 0);
  REQUIRE(KRP_MSG_Init("mdxgate") == 0);
  REQUIRE(MDX_pthread_create(0, 0, 0, serve_hub, 0) != pthread_t{});
  return 0;
}

/// Becomes another user of the machine; a member has the server's group.
bool become(uid_t user, gid_t group) {
  return setgroups(0, nullptr) == 0 && setresgid(group, group, group) == 0 &&
         setresuid(user, user, user) == 0;
}

/// Of root's capabilities those that the service manager leaves the server.
bool be_a_service() {
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
  data[0].effective = data[0].permitted = 1u << CAP_SETUID | 1u << CAP_SETGID | 1u << CAP_CHOWN |
                                          1u << CAP_FSETID | 1u << CAP_DAC_OVERRIDE;
  return syscall(SYS_capset, &header, data) == 0;
}

[[noreturn]] void sit_on_keys() {
  for (;;)
    for (const int32_t number : {kMdxResponseQueue, kMdxRequestQueue})
      msgget(kMdxQueueKey + number, IPC_CREAT | 0600);
}

int take_keys() {
  OtherProcess outsider([] {
    if (!become(kOtherUser, kOtherUser)) return 1;
    OtherProcess::say_ready();
    sit_on_keys();
  });
  REQUIRE(outsider.wait_ready());
  OtherProcess server([] {
    REQUIRE(be_a_service() && start_up() == 0);
    const int32_t queue = MDX_get_msgQ_id(kMdxRequestQueue);
    KRP_UTIL_DropAndroidRootPrivileges();
    OtherProcess::say_ready();
    for (;;) {
      const int32_t found = MDX_get_msgQ_id(kMdxRequestQueue);
      if (found >= 0 && found != queue) MDX_msgQex_num(queue);
    }
  });
  REQUIRE(server.wait_ready());
  for (const int32_t number : {kMdxResponseQueue, kMdxRequestQueue}) {
    msqid_ds status{};
    REQUIRE(msgctl(MDX_get_msgQ_id(number), IPC_STAT, &status) == 0);
    REQUIRE(status.msg_perm.uid == kServerUser && status.msg_perm.mode == 0660);
  }
  // Without root it is deaf for good when it misses one, which its supervisor shall see.
  REQUIRE(msgctl(MDX_get_msgQ_id(kMdxRequestQueue), IPC_RMID, nullptr) == 0);
  REQUIRE(server.wait() == 1);
  REQUIRE(server.errors().find("ipcrm -Q 0x4d445802") != std::string::npos);
  return 0;
}

int drop_and_raise_the_flag() {
  const std::string none = "0000000000000000", write_anywhere = "0000000000000002";
  const std::string ids = "64242\t64242\t64242\t64242";
  REQUIRE(start_up() == 0);
  KRP_UTIL_DropAndroidRootPrivileges();
  REQUIRE(MDX_pthread_create(0, 0, 0, idle_thread, 0) != pthread_t{});
  REQUIRE(thread_status("Uid:") == (std::map<std::string, int>{{ids, 3}}));
  REQUIRE(thread_status("Gid:") == (std::map<std::string, int>{{ids, 3}}));
  REQUIRE(thread_status("NoNewPrivs:") == (std::map<std::string, int>{{"1", 3}}));
  while (thread_status("CapPrm:")[none] != 2) std::this_thread::yield();
  REQUIRE(thread_status("CapPrm:")[write_anywhere] == 1);
  REQUIRE(thread_status("Groups:").begin()->first == "64242 64250 ");

  REQUIRE(std::ofstream("/var/flag").good());
  KRP_UTIL_RemoveAndroidWPerm("/var/flag", "664");
  struct stat status {};
  REQUIRE(stat("/var/flag", &status) == 0 && (status.st_mode & 07777u) == 0664u);
  REQUIRE((thread_status("CapPrm:") == std::map<std::string, int>{{none, 3}}));
  REQUIRE(!std::ofstream("/var/other").good());
  REQUIRE(setresuid(0, 0, 0) != 0);

  char record[kMdxRecordSize] = {};
  int error = 0;
  for (const int32_t number : {kMdxResponseQueue, kMdxRequestQueue}) {
    REQUIRE(send_to_msgqueue(MDX_get_msgQ_id(number), record, &error) == 0);
    REQUIRE(read_from_msgqueue(MDX_get_msgQ_id(number), record, 0, &error) == 0);
  }
  return 0;
}

/// Sends the uninstall message as a user of the server's group.
/// @return what became of it: the counter that counted it
mdx_counter_t uninstall_as(uid_t user) {
  const uint64_t taken = counter_value(COUNT_PACKETS_RECEIVED);
  const uint64_t refused = counter_value(COUNT_UNINSTALLS_REFUSED);
  OtherProcess sender([user] {
    if (setresgid(kServerUser, kServerUser, kServerUser) != 0 || setresuid(user, user, user) != 0)
      return 1;
    mdx_packet_header_t header = {0x8805, MDX_PACKET_SERVICE, "mdxgate", 0, 0, 0, 0, 0};
    const int hub = connect_to(kMdxHubPath, SOCK_SEQPACKET);
    return send(hub, &header, sizeof(header), MSG_NOSIGNAL) == sizeof(header) ? 0 : 1;
  });
  if (sender.wait() != 0) return COUNT_COUNTERS;
  for (;;) {
    if (counter_value(COUNT_PACKETS_RECEIVED) != taken) return COUNT_PACKETS_RECEIVED;
    if (counter_value(COUNT_UNINSTALLS_REFUSED) != refused) return COUNT_UNINSTALLS_REFUSED;
    std::this_thread::yield();
  }
}

int let_all_uninstall() {
  REQUIRE(start_up() == 0);
  REQUIRE(uninstall_as(kOtherUser) == COUNT_UNINSTALLS_REFUSED);
  REQUIRE(uninstall_as(kServerUser) == COUNT_UNINSTALLS_REFUSED);  // it is root's server still
  REQUIRE(uninstall_as(0) == COUNT_PACKETS_RECEIVED);
  KRP_UTIL_DropAndroidRootPrivileges();
  REQUIRE(uninstall_as(kServerUser) == COUNT_PACKETS_RECEIVED);
  return 0;
}

bool opens(const std::string& path, int flags) {
  const int fd = open(path.c_str(), flags | O_NONBLOCK);
  if (fd >= 0) close(fd);
  return fd >= 0;
}

bool connects(const char* path, int type) {
  const int fd = connect_to(path, type);
  if (fd >= 0) close(fd);
  return fd >= 0;
}

bool reaches_queue(int32_t number, int access) {
  return msgget(kMdxQueueKey + number, access) >= 0;
}

std::string server_fifo;
std::string client_fifo;

std::string task_name(pid_t task) { return kMdxTaskPrefix + std::to_string(task); }

bool may_make(const std::string& path) {
  return mkfifo(path.c_str(), 0660) == 0 && unlink(path.c_str()) == 0;
}

bool moves(const std::string& path) {
  const std::string other = path + ".moved";
  return rename(path.c_str(), other.c_str()) == 0 && rename(other.c_str(), path.c_str()) == 0;
}

// The table of docs/security.md.
// clang-format off
const struct {
  const char* what;
  bool (*tried)();
  bool root, server, member, outsider;
} kRights[] = {
    {"queue a command",          [] { return reaches_queue(kMdxRequestQueue, 0200); },  true, true,  true,  false},
    {"take an answer",           [] { return reaches_queue(kMdxResponseQueue, 0400); }, true, true,  true,  false},
    {"wake the server",          [] { return opens(server_fifo, O_WRONLY); },           true, true,  true,  false},
    {"read its wake-ups",        [] { return opens(server_fifo, O_RDONLY); },           true, false, false, false},
    {"wake a client",            [] { return opens(client_fifo, O_WRONLY); },           true, true,  true,  false},
    {"read a client's wake-ups", [] { return opens(client_fifo, O_RDONLY); },           true, false, false, false},
    {"listen on the hub",        [] { return connects(kMdxHubPath, SOCK_SEQPACKET); },  true, true,  true,  false},
    {"open the console",         [] { return connects(kMdxConsolePath, SOCK_STREAM); }, true, false, false, false},
    {"look around",              [] { return opens(kMdxDirectory, O_RDONLY); },         true, true,  true,  true},
    {"make a name",              [] { return may_make("/run/mdxgate/x"); },             true, true,  false, false},
    {"replace the hub",          [] { return moves(kMdxHubPath); },                     true, true,  false, false},
    {"take the lock",            [] { return opens("/run/mdxgate/lock", O_RDWR); },     true, true,  false, false},
    {"look at the tasks",        [] { return opens(kMdxTaskDirectory, O_RDONLY); },     true, true,  true,  false},
    {"have an event FIFO",       [] { return may_make(task_name(getpid())); },          true, true,  true,  false},
    {"remove another's",         [] { return unlink(task_name(1).c_str()) == 0; },      true, true,  false, false},
    {"reach the pid file",       [] { return opens("/run/pidfile/x", O_RDONLY); },      true, false, false, false},
};
// clang-format on

/// A server that has given up root.
int serve() {
  REQUIRE(start_up() == 0);
  KRP_UTIL_DropAndroidRootPrivileges();
  KRP_UTIL_RemoveAndroidWPerm("/var/none", "664");
  OtherProcess::say_ready();
  OtherProcess::wait_for_kill();
}

/// A member with an event FIFO of its own.
int be_a_client(uid_t user) {
  if (!become(user, kServerUser)) return 1;
  const std::string path = task_name(getpid());
  while (event_fifo_create(path.c_str()) < 0) std::this_thread::yield();
  OtherProcess::say_ready();
  OtherProcess::wait_for_kill();
}

/// The server has given up root and goes on; each user is a process of its own next to it.
int keep_rights_apart() {
  REQUIRE(mkdir("/run/pidfile", 0750) == 0 && std::ofstream("/run/pidfile/x").good());
  OtherProcess server(serve);
  if (!server.wait_ready()) dprintf(STDERR_FILENO, "%s", server.errors().c_str());
  OtherProcess client([] { return be_a_client(kOtherUser); });
  REQUIRE(client.wait_ready());
  server_fifo = kMdxEventPrefix + std::to_string(server.pid());
  client_fifo = task_name(client.pid());
  int wrong = 0;
  for (const auto& right : kRights) {
    const struct {
      const char* name;
      uid_t user;
      gid_t group;
      bool may;
    } users[] = {{"root", 0, 0, right.root},
                 {"the server's user", kServerUser, kServerUser, right.server},
                 {"a member", kThirdUser, kServerUser, right.member},
                 {"an outsider", kThirdUser, kThirdUser, right.outsider}};
    for (const auto& user : users) {
      mkfifo(task_name(1).c_str(), 0600);  // for that long it may wait for its reader
      OtherProcess one([&] {
        if (!become(user.user, user.group)) return 2;
        return right.tried() ? 1 : 0;
      });
      if (one.wait() == (user.may ? 1 : 0)) continue;
      dprintf(STDERR_FILENO, "%s: %s\n", user.name, right.what);
      ++wrong;
    }
  }
  return wrong;
}

/// A member plants what it likes at the names of others' tasks, and at its own.
int plant(pid_t victim) {
  const std::string own = task_name(getpid());
  if (!become(kThirdUser, kServerUser) || event_fifo_create(own.c_str()) < 0) return 1;
  const std::string taken = task_name(victim);
  const std::string nobodys = task_name(4'100'000);
  const std::function<int()> plants[] = {
      [&] { return mkfifo(taken.c_str(), 0600); },
      [&] { return symlink("/etc", taken.c_str()); },
      [&] { return mkdir(taken.c_str(), 0700); },
      [&] { return mkfifo(nobodys.c_str(), 0666); },
  };
  for (const auto& make : plants) {
    if (make() != 0) return 2;
    mkdir((taken + "/in the way").c_str(), 0700);  // where the server leaves the time for it
    struct stat status {};
    while (lstat(taken.c_str(), &status) == 0 || lstat(nobodys.c_str(), &status) == 0)
      std::this_thread::yield();
  }
  return access(own.c_str(), F_OK) == 0 ? 0 : 3;
}

int keep_names_for_their_tasks() {
  OtherProcess server(serve);
  REQUIRE(server.wait_ready());
  OtherProcess victim([] {
    if (!become(kOtherUser, kServerUser)) return 1;
    OtherProcess::say_ready();
    OtherProcess::wait_for_kill();
  });
  REQUIRE(victim.wait_ready());
  OtherProcess planter([&victim] { return plant(victim.pid()); });
  REQUIRE(planter.wait() == 0);
  return 0;
}

/// The whole directory goes, root makes it again as docs/security.md says, and the server that has
/// given up root makes what was in it; so does the next.
int come_back_where_root_made_the_directory() {
  for (int i = 0; i < 2; ++i) {
    OtherProcess server(serve);
    REQUIRE(server.wait_ready());
    if (i == 0) std::filesystem::remove_all("/run/mdxgate");
    if (i == 0) REQUIRE(system("install -d -o mdxgate -g mdxgate /run/mdxgate") == 0);
    const auto reaches_all = [] {
      return become(kOtherUser, kServerUser) && connects(kMdxHubPath, SOCK_SEQPACKET) &&
             opens(kMdxServerLink, O_WRONLY) && may_make(task_name(getpid()));
    };
    while (OtherProcess([&] { return reaches_all() ? 1 : 0; }).wait() == 0) MDX_sleep(10);
  }
  return 0;
}

/// The main thread may write anywhere until the ready flag is up; a device that is opened with that
/// right could not be opened again.
int leave_the_device_alone() {
  REQUIRE(mount("tmpfs", "/dev", "tmpfs", 0, "mode=755") == 0);
  sockaddr_un address = {AF_UNIX, "/dev/smd6"};
  const int device = socket(AF_UNIX, SOCK_STREAM, 0);
  REQUIRE(bind(device, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0);
  REQUIRE(chmod("/dev/smd6", 0600) == 0 && listen(device, 1) == 0);
  REQUIRE(start_up() == 0);
  KRP_UTIL_DropAndroidRootPrivileges();
  mdx_send_function_t send = nullptr;
  const auto take = [](int32_t, const char*, uint32_t) { return int32_t{0}; };
  REQUIRE(Q7_APP_RegCallBack(6, take, &send) != 0 && send == nullptr);
  return 0;
}

int subscribe_to_hub() {
  const mdx_packet_header_t header = {0, MDX_PACKET_SUBSCRIPTION, "cms", 0, 0, 0, 0, 0};
  const int hub = connect_to(kMdxHubPath, SOCK_SEQPACKET);
  return send(hub, &header, sizeof(header), MSG_NOSIGNAL) == sizeof(header) ? hub : -1;
}

/// A member holds all places of the hub, and somebody else comes.
int give_up_a_place_by_user() {
  REQUIRE(start_up() == 0);
  OtherProcess crowd([] {
    int youngest = -1;
    if (!become(kOtherUser, kServerUser)) return 2;
    for (int i = 0; i < 128; ++i) youngest = subscribe_to_hub();
    OtherProcess::say_ready();
    mdx_packet_header_t farewell{};
    if (recv(youngest, &farewell, sizeof(farewell), 0) != sizeof(farewell)) return 3;
    return farewell.type == MDX_FAREWELL_DISPLACED ? 0 : 4;
  });
  REQUIRE(crowd.wait_ready());
  while (counter_value(COUNT_RECEIVERS) < 128) std::this_thread::yield();
  const int late = subscribe_to_hub();
  REQUIRE(crowd.wait() == 0);
  while (counter_value(COUNT_RECEIVERS) < 129) std::this_thread::yield();
  REQUIRE(KRP_MSG_SendSimpleMsg("cms", 7, 0) == 0);
  mdx_packet_header_t packet{};
  REQUIRE(recv(late, &packet, sizeof(packet), 0) == sizeof(packet) && packet.type == 7);
  return 0;
}

/// Ten tasks of one user that leave an answer each, and a client of another's.
int give_way_by_user() {
  REQUIRE(start_up() == 0);
  const int32_t answers = MDX_get_msgQ_id(kMdxResponseQueue);
  int32_t record[kMdxRecordSize / 4] = {};
  int error = 0;
  std::list<OtherProcess> clients;
  for (int i = 0; i <= 10; ++i) {
    const OtherProcess& client =
        clients.emplace_back([i] { return be_a_client(i < 10 ? kOtherUser : kServerUser); });
    REQUIRE(clients.back().wait_ready());
    if (i == 10) MDX_sleep(400);
    record[0] = client.pid();
    REQUIRE(send_to_msgqueue(answers, record, &error) == 0);
  }
  REQUIRE(read_from_msgqueue(answers, record, clients.front().pid(), &error) == -1);
  REQUIRE(error == ENOMSG);
  clients.pop_front();
  for (const OtherProcess& client : clients)
    REQUIRE(read_from_msgqueue(answers, record, client.pid(), &error) == 0);
  return 0;
}

class Root : public testing::Test {
 protected:
  static void run_in_own_world(int (*body)()) {
    OtherProcess server([body] { return enter_own_world() ? body() : kSkipped; });
    const int result = server.wait();
    if (result == kSkipped) GTEST_SKIP() << "no root, or no mounts of its own";
    EXPECT_EQ(result, 0) << server.errors();
  }
};

TEST_F(Root, IsGivenUpButForTheReadyFlag) { run_in_own_world(drop_and_raise_the_flag); }
TEST_F(Root, KeepsRightsApart) { run_in_own_world(keep_rights_apart); }
TEST_F(Root, OpensNoDeviceWithRightsThatAreGivenUp) { run_in_own_world(leave_the_device_alone); }
TEST_F(Root, TellsWhoseAnswersTakeTheRoom) { run_in_own_world(give_way_by_user); }
TEST_F(Root, TellsWhoseConnectionsTakeTheHub) { run_in_own_world(give_up_a_place_by_user); }
TEST_F(Root, KeepsNamesForTheirTasks) { run_in_own_world(keep_names_for_their_tasks); }
TEST_F(Root, ComesBackWhereRootMadeTheDirectory) {
  run_in_own_world(come_back_where_root_made_the_directory);
}
TEST_F(Root, TakesTheKeysThatOthersSitOn) { run_in_own_world(take_keys); }
TEST_F(Root, OrTheServersUserUninstalls) { run_in_own_world(let_all_uninstall); }

}  // namespace
