#include <fcntl.h>
#include <linux/sockios.h>
#include <netdb.h>
#include <netinet/in.h>
#include <pwd.h>
#include <sys/ioctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>

#include "gate/GateRights.h"
#include "support/AtomicFile.h"
#include "support/Descriptor.h"
#include "tests/system/Daemon.h"

namespace {

/// "" for what succeeds, else why not.
std::string Reason(bool isDone) { return isDone ? "" : std::strerror(errno); }

std::string OpenFile(const char* name, int flags) {
  return Reason(Descriptor(::open(name, flags | O_CLOEXEC, 0600)).IsOpen());
}

/// What the daemon answers to a line at one of its sockets, or why there is no asking.
std::string AskSocket(const char* name, const std::string& line) {
  ::sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, name, sizeof address.sun_path - 1);
  const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (::connect(socket.Get(), reinterpret_cast<::sockaddr*>(&address), sizeof address) != 0) {
    return std::strerror(errno);
  }
  ::send(socket.Get(), (line + '\n').data(), line.size() + 1, MSG_NOSIGNAL);
  char answer[4096];
  const ssize_t size = ::recv(socket.Get(), answer, sizeof answer, 0);
  return {answer, size < 0 ? 0 : static_cast<std::size_t>(size)};
}

/// What a program in the gate's place, with the gate's rights, gets by `act` in the daemon's
/// folder.
std::string InPlaceOfGate(const ProductRoot& root, const std::string& user,
                          const std::function<std::string()>& act) {
  std::array<int, 2> ends{};
  EXPECT_EQ(::pipe(ends.data()), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    std::string error;
    const bool isThere =
        ::chdir(root.AgentFolder().c_str()) == 0 && GiveUpRights(user, "run/gate-state", error);
    const std::string result = isThere ? act() : "not in the gate's place: " + error;
    [[maybe_unused]] const ssize_t written = ::write(ends[1], result.data(), result.size());
    ::_exit(0);
  }
  ::close(ends[1]);
  std::string result(4096, '\0');
  const ssize_t size = ::read(ends[0], result.data(), result.size());
  ::close(ends[0]);
  ::waitpid(child, nullptr, 0);
  result.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
  return result;
}

TEST(GateRightsTest, WhoTakesTheGateOverReadsWhatAReaderMayAndNothingElse) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "the gate has a user of its own where root starts the daemon";
  }
  const ProductRoot root("[Host]\nProfile = classic\n[Http]\nListen = 127.0.0.1:0\nGate = child\n");
  Daemon daemon(root, "errors");
  const auto answers = [&] {
    const std::string status = ShownBy(root, "status");
    return status.find("http://127.0.0.1:") != std::string::npos;
  };
  ASSERT_TRUE(WaitUntil(answers)) << daemon.Errors();
  EXPECT_THAT(ShownBy(root, "console --print"), HasSubstr("#token="));
  const std::string user = ::getpwnam("qmtgate") != nullptr ? "qmtgate" : "nobody";
  struct ::stat control {};
  ASSERT_EQ(::stat((root.AgentFolder() / "run/gate.sock").c_str(), &control), 0);
  EXPECT_EQ(control.st_uid, ::getpwnam(user.c_str())->pw_uid);
  const pid_t pid = daemon.Pid();
  const struct {
    const char* what;
    std::function<std::string()> act;
    const char* result;
  } cases[] = {
      {"the socket for changes", [] { return AskSocket("run/control.sock", R"({"op":"status"})"); },
       "Permission denied"},
      {"a look", [] { return AskSocket("run/gate.sock", R"({"op":"status"})"); }, "{\"ok\":true"},
      {"a change of the schedule",
       [] {
         return AskSocket("run/gate.sock", R"({"op":"schedule_set","record":"PI","seconds":1})");
       },
       "permission-denied"},
      {"a change of a setting",
       [] { return AskSocket("run/gate.sock", R"({"op":"config_set","item":1,"value":"x"})"); },
       "permission-denied"},
      {"the end of the daemon", [] { return AskSocket("run/gate.sock", R"({"op":"shutdown"})"); },
       "permission-denied"},
      {"the settings", [] { return OpenFile("qmtagt.ini", O_RDWR); }, "ermi"},
      {"the tokens", [] { return OpenFile("run/console.tokens", O_RDONLY); }, "Permission denied"},
      {"a new file", [] { return OpenFile("/tmp/qmt_gate_was_here", O_WRONLY | O_CREAT); }, "ermi"},
      {"a new file beside its state", [] { return OpenFile("run/new", O_WRONLY | O_CREAT); },
       "ermi"},
      {"its state",
       [] {
         std::string wrong;
         const bool isDone = ReplaceFile("run/gate-state/x.json", "1", wrong) &&
                             ReplaceFile("run/gate-state/x.json", "2", wrong) && wrong.empty();
         return "done" + Reason(isDone) + Reason(::unlink("run/gate-state/x.json") == 0);
       },
       "done"},
      {"a folder in its state", [] { return Reason(::mkdir("run/gate-state/x", 0700) == 0); },
       "ermi"},
      {"a link in its state",
       [] { return Reason(::symlink("/etc/passwd", "run/gate-state/x") == 0); }, "ermi"},
      {"a program in its state",
       [] {
         static_cast<void>(OpenFile("run/gate-state/program", O_WRONLY | O_CREAT));
         ::chmod("run/gate-state/program", 0700);
         std::array<char, 5> name{"true"};
         const std::array<char*, 2> words{name.data(), nullptr};
         return Reason(::execv("run/gate-state/program", words.data()) == 0);
       },
       "not permitted"},
      {"a connection to a server",
       [] {
         const Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
         ::sockaddr_in address{};
         address.sin_family = AF_INET;
         address.sin_port = htons(1);
         address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
         return Reason(
             ::connect(socket.Get(), reinterpret_cast<::sockaddr*>(&address), sizeof address) == 0);
       },
       "refused"},
      {"a name looked up on a thread",
       [] {
         std::string text;
         std::thread([&] {
           ::addrinfo* found = nullptr;
           text = ::getaddrinfo("localhost", "80", nullptr, &found) == 0 ? "done" : "not found";
           if (found != nullptr) {
             ::freeaddrinfo(found);
           }
         }).join();
         return text;
       },
       "done"},
      {"the passwords", [] { return OpenFile("/etc/shadow", O_RDONLY); }, "Permission denied"},
      {"a signal", [pid] { return Reason(::kill(pid, SIGTERM) == 0); }, "not permitted"},
      // Where the gate has the daemon's user its identity keeps it from nothing: to itself these
      // are what they are to the daemon there.
      {"a signal by a folder of /proc",
       [] {
         const Descriptor self(::open("/proc/self", O_DIRECTORY | O_CLOEXEC));
         return Reason(::syscall(SYS_pidfd_send_signal, self.Get(), 0, nullptr, 0) == 0);
       },
       "not permitted"},
      {"a signal by what comes at a descriptor, which has an owner and a state to ask for",
       [] {
         const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
         int self = ::getpid();
         ::f_owner_ex owner{F_OWNER_PID, self};
         std::string results;
         for (const int result :
              {::fcntl(socket.Get(), F_GETOWN), ::ioctl(socket.Get(), SIOCGPGRP, &owner.pid),
               ::fcntl(socket.Get(), F_SETOWN, self), ::fcntl(socket.Get(), F_SETSIG, SIGIO),
               ::fcntl(socket.Get(), F_SETOWN_EX, &owner), ::ioctl(socket.Get(), FIOSETOWN, &self),
               ::ioctl(socket.Get(), SIOCSPGRP, &self)}) {
           results += std::to_string(result);
         }
         return results + Reason(false);
       },
       "00-1-1-1-1-1Operation not permitted"},
      {"a limit of a process",
       [] { return Reason(::prlimit(::getpid(), RLIMIT_CPU, nullptr, nullptr) == 0); },
       "not permitted"},
      {"the daemon's memory",
       [pid] { return Reason(::ptrace(PTRACE_ATTACH, pid, nullptr, nullptr) == 0); },
       "not permitted"},
      {"a process of its own", [] { return Reason(::fork() >= 0); }, "not permitted"},
      {"a program",
       [] {
         std::array<char, 5> name{"true"};
         const std::array<char*, 2> words{name.data(), nullptr};
         return Reason(::execv("/bin/true", words.data()) == 0);
       },
       "not permitted"},
      {"another session", [] { return Reason(::setsid() >= 0); }, "not permitted"},
      {"a signal to itself", [] { return "done" + Reason(::kill(::getpid(), 0) == 0); }, "done"},
      {"a thread",
       [] {
         std::string text;
         std::thread([&] { text = "done"; }).join();
         return text;
       },
       "done"},
      {"root again", [] { return Reason(::setuid(0) == 0); }, "not permitted"},
  };
  for (const auto& row : cases) {
    const std::string result = InPlaceOfGate(root, user, row.act);
    EXPECT_THAT(result, HasSubstr(row.result)) << row.what;
    EXPECT_NE(result, "") << row.what;
  }
  EXPECT_TRUE(daemon.IsRunning());
}

}  // namespace
