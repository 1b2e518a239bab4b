#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "client/ask/Errors.h"
#include "client/doctor/FindFacts.h"
#include "client/doctor/PortProbe.h"
#include "client/doctor/QuickProgram.h"
#include "client/doctor/UnitText.h"
#include "client/files/Settings.h"
#include "support/Descriptor.h"
#include "tests/client/ClientHarness.h"
#include "tests/json/JsonOf.h"
#include "tests/support/Testing.h"

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

TEST(QuickProgramTest, TellsHowAProgramEnded) {
  const QuickResult done = RunQuickly({"sh", "-c", "echo out; echo err >&2; exit 3"});
  EXPECT_EQ(done.fault, "");
  EXPECT_EQ(done.exit, 3);
  EXPECT_EQ(done.output, "out\nerr\n");
  EXPECT_THAT(RunQuickly({"/nowhere/program"}).fault, HasSubstr("cannot run /nowhere/program"));
  EXPECT_THAT(RunQuickly({"yes"}).fault, HasSubstr("too much to say"));
  // What it has started holds its output, and is ended too.
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_THAT(RunQuickly({"sh", "-c", "sleep 60 & exit 0"}, 200ms).fault, HasSubstr("in time"));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 30s);
}

/// A server at a free port of the loopback that says one thing to whoever asks; nothing for an
/// empty text.
class OneAnswerServer {
 public:
  explicit OneAnswerServer(std::string answer)
      : m_listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    ::sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::socklen_t size = sizeof address;
    auto* place = reinterpret_cast<::sockaddr*>(&address);
    EXPECT_EQ(::bind(m_listener.Get(), place, size), 0);
    EXPECT_EQ(::listen(m_listener.Get(), 4), 0);
    EXPECT_EQ(::getsockname(m_listener.Get(), place, &size), 0);
    m_address = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    m_thread = std::thread([this, answer = std::move(answer)] { Serve(answer); });
  }
  ~OneAnswerServer() {
    ::shutdown(m_listener.Get(), SHUT_RDWR);
    m_thread.join();
  }
  OneAnswerServer(const OneAnswerServer&) = delete;
  OneAnswerServer& operator=(const OneAnswerServer&) = delete;

  [[nodiscard]] const std::string& Address() const { return m_address; }

 private:
  void Serve(const std::string& answer) const {
    std::vector<Descriptor> clients;
    while (true) {
      clients.emplace_back(::accept4(m_listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
      if (!clients.back().IsOpen()) {
        return;
      }
      static_cast<void>(::send(clients.back().Get(), answer.data(), answer.size(), MSG_NOSIGNAL));
    }
  }

  Descriptor m_listener;
  std::string m_address;
  std::thread m_thread;
};

TEST(PortProbeTest, TellsWhoListens) {
  const OneAnswerServer http("HTTP/1.1 400 Bad Request\r\n\r\n");
  const OneAnswerServer other("220 mail\r\n");
  const OneAnswerServer silent("");
  EXPECT_EQ(ProbePort(http.Address()).kind, PortFacts::Kind::kAnswers);
  EXPECT_EQ(ProbePort("http://0.0.0.0" + http.Address().substr(http.Address().find(':'))).kind,
            PortFacts::Kind::kAnswers);
  EXPECT_EQ(ProbePort(other.Address()).kind, PortFacts::Kind::kNoHttp);
  EXPECT_EQ(ProbePort(silent.Address(), 100ms).kind, PortFacts::Kind::kSilent);
  EXPECT_EQ(ProbePort("https://" + silent.Address()).kind, PortFacts::Kind::kAnswers);
  EXPECT_EQ(ProbePort("localhost").fault, "no address");
  std::string gone;
  {
    const OneAnswerServer server("");
    gone = server.Address();
  }
  EXPECT_EQ(ProbePort(gone).kind, PortFacts::Kind::kRefused);
}

TEST(DoctorSettingsTest, AreThoseOfTheFileOrTheDefaults) {
  const ScratchFolder folder;
  const std::string path = folder.Path() + "/qmtagt.ini";
  EXPECT_FALSE(Settings(path).HistoryBytes());
  std::ofstream(path) << "[Agent]\nworkgroup file = groups\n[Node]\nHistory Megabytes = 7\n"
                         "[Log Records/MESS]\nEventfile = events\n";
  EXPECT_EQ(Settings(path).HistoryBytes(), std::uint64_t{7} << 20);
  EXPECT_EQ(Settings(path).WorkgroupFile(), "groups");
  EXPECT_EQ(Settings(path).EventFile(), "events");
  std::ofstream(path) << "[Node]\nHistory Megabytes = x\n";
  EXPECT_EQ(Settings(path).HistoryBytes(), std::uint64_t{512} << 20);
  EXPECT_EQ(Settings(path).WorkgroupFile(), "wgfile");
  // Zeros count as well.
  std::ofstream(path) << std::string(std::size_t{2} << 20, '\0')
                      << "\n[Agent]\nWorkgroup File = x\n";
  EXPECT_EQ(Settings(path).WorkgroupFile(), "wgfile");
}

TEST(DoctorSettingsTest, TellWhereTheGateListensAndWhatIsKept) {
  const ScratchFolder folder;
  const std::string path = folder.Path() + "/qmtagt.ini";
  using Words = std::vector<std::string>;
  const struct {
    const char* text;
    Words listen;
    const char* history;
  } cases[] = {
      {"", {"127.0.0.1:9964"}, "records.db"},
      {"[Node]\nHistory File =\nHttp Listen = a:1\n", {"a:1"}, ""},
      {"[Node]\nHttp Listen = a:1\n[Http]\nListen = b:2, [::1]:3\tc:4\n",
       {"b:2", "[::1]:3", "c:4"},
       "records.db"},
      {"[Http]\nListen =\n[Node]\nhistory file = /var/rows\n", {}, "/var/rows"},
      {"[Http]\nGate = UNIT\nListen = b:2\n", {"b:2"}, "records.db"},
      {"[Http]\nGate = none\nListen = b:2\n", {}, "records.db"},
      {"[Http]\nGate = nonsense\n", {}, "records.db"},
  };
  for (const auto& row : cases) {
    std::ofstream(path) << row.text;
    EXPECT_EQ(Settings(path).Listen(), row.listen) << row.text;
    EXPECT_EQ(Settings(path).HistoryFile(), row.history) << row.text;
  }
}

TEST(FindSocketTest, TellsWhatStandsThere) {
  const ScratchFolder folder;
  EXPECT_EQ(FindSocket(folder.Path() + "/none").error, ENOENT);
  std::ofstream(folder.Path() + "/file") << "x";
  const SocketFacts file = FindSocket(folder.Path() + "/file");
  EXPECT_EQ(file.error, 0);
  EXPECT_FALSE(file.isSocket);
  const ScriptedServer server(folder.Path(), "s", [](const Json&) { return std::string(); });
  const SocketFacts socket = FindSocket(server.Path());
  EXPECT_TRUE(socket.isSocket);
  EXPECT_TRUE(socket.isOwner);
  EXPECT_EQ(socket.owner, socket.user);
  EXPECT_EQ(socket.isRoot, ::geteuid() == 0);
}

/// What the program says of daemons that are seldom met.
TEST(DoctorCommandTest, TellsAllItCanOfAPoorDaemon) {
  const ScratchFolder folder;
  const ScriptedServer foreign(folder.Path(), "s", [](const Json& request) {
    return Answer(request, {{"status", 1}});
  });
  const Outcome run = RunProgram(QMTCTL_PATH, {"doctor", "--socket", foreign.Path(), "--json"});
  EXPECT_EQ(run.exit, kExitFailed);
  EXPECT_EQ(run.err, "");
  const Json told = JsonOf(run.out);
  EXPECT_EQ(told[0]["check"], "socket");
  EXPECT_EQ(told[0]["mark"], "ok");
  EXPECT_EQ(told[2]["check"], "answer");
  EXPECT_EQ(told[2]["mark"], "fail");
  EXPECT_THAT(told[2]["text"].Text(), HasSubstr("broken answer"));

  const Outcome none = RunProgram(QMTCTL_PATH, {"doctor", "--socket", folder.Path() + "/none"});
  EXPECT_EQ(none.exit, kExitFailed);
  EXPECT_THAT(none.out, HasSubstr("fail  socket    there is no " + folder.Path() + "/none"));
}

/// {check: its line} of what the doctor tells.
std::map<std::string, std::string> ChecksOf(const std::string& socket,
                                            const std::vector<std::string>& environment = {}) {
  RunOptions options;
  options.environment = environment;
  const Outcome run = RunProgram(QMTCTL_PATH, {"doctor", "--socket", socket, "--json"}, options);
  EXPECT_EQ(run.err, "");
  std::map<std::string, std::string> checks;
  const Json all = JsonOf(run.out);
  for (const Json& each : all.Elements()) {
    checks[each["check"].Text()] = each["mark"].Text() + ": " + each["text"].Text();
  }
  return checks;
}

TEST(DoctorCommandTest, TellsWhyADaemonThatIsNotThereMayNotStart) {
  const ScratchFolder folder;
  const std::string socket = folder.Path() + "/run/control.sock";
  EXPECT_THAT(ChecksOf(socket)["files"], HasSubstr("look: " + folder.Path() + "/qmtagt.ini: No"));
  EXPECT_EQ(ChecksOf(socket).count("programs"), 0U) << "no agent's folder is there";

  const OneAnswerServer other("220 mail\r\n");
  std::ofstream(folder.Path() + "/qmtagt.ini")
      << "[Node]\nHistory File = nowhere/rows\n[Http]\nListen = 127.0.0.1:0 " << other.Address()
      << '\n';
  auto checks = ChecksOf(socket);
  EXPECT_THAT(checks["port"], HasSubstr("fail: another program has " + other.Address()));
  EXPECT_THAT(checks["disk"], HasSubstr("look: " + folder.Path() + "/nowhere: No such file"));
  EXPECT_THAT(checks["programs"], HasSubstr("fail: " + folder.Path() + "/qmt_hostutil: No such"));
  EXPECT_EQ(checks.count("rights"), 0U);
  EXPECT_EQ(checks.count("files"), 1U);
}

/// A service manager whose unit of the daemon has failed and has that process.
class FakeManager {
 public:
  explicit FakeManager(std::int64_t pid) {
    fs::create_directories(m_folder.Path() + "/run/systemd/system");
    const std::string program = m_folder.Path() + "/systemctl";
    std::ofstream(program) << "#!/bin/sh\nprintf 'Id=qmtdmon.service\\nLoadState=loaded\\n"
                              "ActiveState=failed\\nResult=oom-kill\\nMainPID="
                           << pid << "\\n'\n";
    fs::permissions(program, fs::perms::owner_all);
  }

  [[nodiscard]] std::vector<std::string> Environment() const {
    return {"QMT_HOST_ROOT=" + m_folder.Path(),
            "PATH=" + m_folder.Path() + ":" + std::getenv("PATH")};
  }

 private:
  ScratchFolder m_folder;
};

TEST(DoctorCommandTest, TellsOfUnitsThatAreTheDaemonsOwnAlone) {
  static constexpr std::int64_t kPid = 999999999;
  const ScratchFolder folder;
  const ScriptedServer server(folder.Path(), "s", [](const Json& request) {
    return Answer(request,
                  {{"status",
                    {{"pid", kPid},
                     {"uptime_seconds", 10.0},
                     {"version", "1"},
                     {"node", "n"},
                     {"host", "h"},
                     {"schedules", Json::Array()},
                     {"last_batch", nullptr},
                     {"figures", Json::Array()},
                     {"history", {{"file", ""}, {"size_bytes", 0}, {"lost_batches", 0}}}}}});
  });
  EXPECT_THAT(ChecksOf(server.Path(), FakeManager(kPid).Environment())["unit"],
              HasSubstr("has failed (oom-kill)"));
  for (const std::string& socket : {server.Path(), folder.Path() + "/none"}) {
    EXPECT_EQ(ChecksOf(socket, FakeManager(kPid + 1).Environment()).count("unit"), 0U) << socket;
  }
}

/// The units of a text, one a line.
std::string UnitLines(const std::string& text) {
  std::string lines;
  for (const UnitFacts& unit : ParseUnits(text)) {
    lines += unit.name + '|' + unit.load + '|' + unit.active + '|' + unit.result + '|' +
             unit.enabled + '|' + std::to_string(unit.mainPid) + '\n';
  }
  return lines;
}

TEST(UnitTextTest, UnitsAreReadAndComplaintsAreNone) {
  const std::string one =
      "Result=success\nId=qmtdmon.service\nLoadState=loaded\nActiveState=active\n"
      "UnitFileState=enabled\nMainPID=7\n";
  const std::string oneLine = "qmtdmon.service|loaded|active|success|enabled|7\n";
  const struct {
    const char* what;
    std::string text;
    std::string lines;
  } cases[] = {
      {"nothing", "", ""},
      {"one", one, oneLine},
      {"two", one + "\nId=b\nLoadState=not-found\nActiveState=inactive\nResult=\n",
       oneLine + "b|not-found|inactive|||0\n"},
      {"cut", "Id=qmtdmon.service\nLoadState=loa", "qmtdmon.service|loa||||0\n"},
      {"with what else is told", "Names=x\n" + one + "Odd=1=2\n", oneLine},
      {"an equals sign in a value", "Id=a=b\n", "a=b|||||0\n"},
      {"a complaint", "Failed to connect to bus: No such file or directory\n", ""},
      {"a complaint with an equals sign", "Unknown option --property=Id\n\n" + one, oneLine},
      {"empty lines", "\n\n\n" + one + "\n\n", oneLine},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(UnitLines(row.text), row.lines) << row.what;
  }
}

TEST(FindDaemonTest, ADaemonThatTricklesItsAnswerIsLeftInTime) {
  const ScratchFolder folder;
  // A byte each 10 ms would be a minute and more.
  const ScriptedServer server(folder.Path(), "s", [](const Json&) {
    return ScriptedServer::kSlowly + std::string(10'000, ' ');
  });
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_THAT(FindDaemon(server.Path()).fault, HasSubstr("no answer in time"));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 30s);
}

}  // namespace
